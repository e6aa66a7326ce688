// Registering a specialization with the unit under way.
#include "generics/bundles/bundle_manifest.h"
#include "generics/candidate_cache.h"
#include "generics/generic_specializer.h"
#include "generics/method_materialization.h"
#include "host/host_services.h"

namespace vesk::compiler {

namespace {

Str normalized(const Str& path) { return path.empty() ? path : SourceManager::instance().normalizePath(path); }

// Whether the file is a bundle that belongs to this owner.
bool isBundleOfOwner(const Str& file, const Str& owner, const ContextPtr& context, const TokenPtr& token) {
    if (file.empty() || !isKeptGenericMethodBundle(file)) return false;
    const std::shared_ptr<const GenericMethodBundleManifest> manifest = manifestOfUnitUnderWay(file);
    if (!manifest->valid) return false;
    const Str bundleOwner = canonicalOwnerClassName(context, token, manifest->owner);
    return !bundleOwner.empty() && bundleOwner == canonicalOwnerClassName(context, token, owner);
}

bool belongsIntoUnit(const Str& unit, const Str& owner, const Str& declaringFile, const ContextPtr& context,
                     const TokenPtr& token) {
    const Str compileUnit = normalized(context->getCompileUnitFile());
    return normalized(unit) == declaringFile || compileUnit == declaringFile ||
           isBundleOfOwner(compileUnit, owner, context, token);
}

}  // namespace

Str receivingUnit(const ContextPtr& context, const TokenPtr& token) {
    Str unit = specializationUnitTag(context, token);
    if (unit.empty() && context) unit = context->getCompileUnitFile();
    return unit;
}

bool emitGenericMethodSpecializationInCurrentUnit(const ContextPtr& context, const TokenPtr& token, const Str& owner,
                                                  const Str&, const GenericMethodInfo& info,
                                                  std::shared_ptr<MethodNode> node, const GenericMethodSpec& spec,
                                                  const StrVec& typeArgs) {
    if (!context || info.isNative || spec.symbol.empty()) return false;
    const Str unit = receivingUnit(context, token);
    const Str declaringFile = normalized(info.sourceFile);
    if (unit.empty() || declaringFile.empty()) return false;
    if (!belongsIntoUnit(unit, owner, declaringFile, context, token)) return false;
    if (context->hasSpecializedMethodForUnit(unit, spec.symbol)) return true;

    const Str& declaringClass = info.ownerClass.empty() ? owner : info.ownerClass;
    if (!node) {
        StrVec names;
        for (const GenericTypeParamInfo& param : info.typeParams) names.push_back(param.name);
        node = loadGenericMethod(info, declaringClass, context, token, names, typeArgs);
    }
    if (!node) return false;
    concretizeGenericMethod(node, info, declaringClass, typeArgs, spec.paramTypes, spec.returnType, unit, context,
                            token);
    invalidateTypeInferenceCaches();
    context->addSpecializedMethodForUnit(unit, declaringClass, spec.symbol, std::move(node), info.sourceFile);
    ClassLoader::registerSyntheticSymbolSource(spec.symbol, unit);
    return true;
}

}  // namespace vesk::compiler
