// Turning manifest blocks back into specializations.
#include "generics/bundles/bundle_declarations.h"
#include "generics/bundles/bundle_generation.h"
#include "generics/inference/body_rewriting.h"
#include "generics/method_materialization.h"
#include "generics/method_signature.h"
#include "generics/specialization_record.h"
#include "host/host_services.h"

namespace vesk::compiler {

void buildBundleMethodSpecialization(const ContextPtr& context, const Str& owner, const GenericMethodInfo& info,
                                     const StrVec& specializedParamTypes, const TokenPtr& token, const Str& returnType,
                                     BundleMethodSpecialization& out) {
    const Str& declaring = info.ownerClass.empty() ? owner : info.ownerClass;
    out.info = info;
    out.declaration =
        loadGenericMethod(info, declaring, context, token, genericMethodTypeParamNameList(info), out.typeArgs);
    if (!out.declaration) {
        throw CompilerException(token, "Cannot load generic method " + owner + "." + info.name,
                                CompilerErrorKind::DeclarationLoad, "", "");
    }
    const Str unit = context ? context->getCompileUnitFile() : Str();
    concretizeGenericMethod(out.declaration, info, declaring, out.typeArgs, specializedParamTypes, returnType, unit,
                            context, token);
    invalidateTypeInferenceCaches();
    out.returnType = returnType;
    if (out.returnType.empty() && info.returnType.empty() && !info.isNative) {
        out.returnType = inferReturnTypeFromNodes(out.declaration->getBody(), out.declaration->getContext());
    }
    if (out.returnType.empty()) out.returnType = "Void";
    out.declaration->setReturnType(out.returnType);
    if (!info.sourceFile.empty()) ClassLoader::trackSourceDependency(info.sourceFile);

    out.paramTypes = specializedParamTypes;
    takeOverDeclaration(out, info);
}

void appendManifestDeclaredSpecializations(const ContextPtr& context, const Str& owner, const StrVec& args,
                                           const GenericMethodBundleManifest& manifest, const TokenPtr& token,
                                           const Str& bundlePath, std::vector<BundleMethodSpecialization>& specs,
                                           std::vector<CompilerException>* mistakes) {
    if (manifest.specs.empty() || !context) return;
    std::unordered_set<Str> present;
    for (const BundleMethodSpecialization& spec : specs) present.insert(spec.symbol);
    const GenericMethodTable table(context, owner);
    for (const GenericMethodBundleManifest::MethodSpec& block : manifest.specs) {
        if (present.contains(block.symbol)) continue;
        const GenericMethodInfo* info = table.find(block, manifest);
        if (!info || !blockFitsDeclaration(block, *info, args, context, token)) continue;
        BundleMethodSpecialization spec;
        spec.symbol = block.symbol;
        spec.typeArgs = args;
        spec.sourcePath = bundlePath;
        try {
            buildBundleMethodSpecialization(context, owner, *info, block.paramTypes, token, block.returnType, spec);
        } catch (const CompilerException& error) {
            // Without somebody who takes the mistakes, it is reported as missing when the bundle is compiled.
            if (mistakes && error.getKind() == CompilerErrorKind::CompileError) mistakes->push_back(error);
            continue;
        }
        present.insert(spec.symbol);
        specs.push_back(std::move(spec));
    }
}

}  // namespace vesk::compiler
