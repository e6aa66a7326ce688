// Building a bundle's unit.
#include "generics/bundles/bundle_il.h"

#include <algorithm>
#include <set>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "generics/bundles/bundle_generation.h"
#include "generics/bundles/bundle_lock.h"
#include "generics/bundles/bundle_names.h"
#include "generics/inference/body_rewriting.h"
#include "generics/session_state.h"
#include "generics/source/declaration_blocks.h"
#include "generics/specialization_record.h"
#include "generics/typetext/symbol_mangling.h"
#include "host/host_services.h"

namespace vesk::compiler {

namespace {

class SuspendedDependencyCapture {
public:
    SuspendedDependencyCapture() { ClassLoader::suspendDependencyCapture(); }
    ~SuspendedDependencyCapture() { ClassLoader::resumeDependencyCapture(); }
    SuspendedDependencyCapture(const SuspendedDependencyCapture&) = delete;
    SuspendedDependencyCapture& operator=(const SuspendedDependencyCapture&) = delete;
};

GenericMethodBundleManifest readLocked(const Str& path) {
    const GenericMethodBundleArtifactLock lock(path);
    return readGenericMethodBundleManifest(path);
}

void loadCaller(const Str& caller, const ContextPtr& context) {
    Str text;
    if (Compiler::tryGetVirtualSource(caller, text)) {
        ClassLoader::preloadSourceDeclarations(caller, context);
        return;
    }
    const FileStatus status = SourceManager::instance().status(caller);
    if (!status.exists) throw std::runtime_error("Stale generic method bundle caller source: " + caller);
    ClassLoader::loadFileIntoContext(caller, context);
}

Str ownerSource(const Str& owner, const ContextPtr& context) {
    Str source = ClassLoader::sourceFileForClass(owner, context);
    if (!source.empty()) return source;
    const std::vector<GenericMethodInfo> methods = context->getAllGenericMethods(owner);
    return methods.empty() ? Str() : methods.front().sourceFile;
}

TokenPtr bundleToken(const Str& path) {
    auto token = std::make_shared<Token>(nullptr, TokenType::Identifier, "", 1, 1);
    token->setFilename(path);
    return token;
}

}  // namespace

Str genericMethodBundleUnitName(const Str& path) { return "__vesk_generic_method_bundle_" + fnv1a64Hex(path); }

ContextPtr genericMethodBundleContext(const GenericMethodBundleManifest& manifest, const ContextPtr& parent) {
    auto context = std::make_shared<Context>(parent);
    context->setCompileUnitFile(manifest.path);
    if (!manifest.callerSourceUnit.empty()) loadCaller(manifest.callerSourceUnit, context);
    recallHashedTypeNames(manifest, context, nullptr);
    {
        const SuspendedDependencyCapture suspended;
        ClassLoader::ensureClassLoaded(manifest.owner, context, nullptr);
    }
    if (const Str source = ownerSource(manifest.owner, context); !source.empty()) {
        applySourceModuleHeader(readSourceModuleHeader(source), context);
        ClassLoader::trackSourceDependency(source);
    }
    if (!manifest.callerSourceUnit.empty()) ClassLoader::trackSourceDependency(manifest.callerSourceUnit);
    return context;
}

StrVec missingBundleSymbols(const GenericMethodBundleManifest& manifest,
                            const std::vector<BundleMethodSpecialization>& specs) {
    std::unordered_set<Str> present;
    for (const BundleMethodSpecialization& spec : specs) present.insert(spec.symbol);
    StrVec missing;
    for (const auto& block : manifest.specs) {
        if (!block.symbol.empty() && !present.contains(block.symbol)) missing.push_back(block.symbol);
    }
    return missing;
}

Str missingBundleSymbolsMessage(const StrVec& symbols) {
    Str message = "Generic method bundle could not materialize its declared specialization";
    if (symbols.size() > 1) message += "s";
    for (std::size_t i = 0; i < symbols.size(); i++) message += (i == 0 ? ": " : ", ") + symbols[i];
    return message;
}

namespace {

// What only the body tells may have changed with another file since the block was written.
bool returnTypeStillHolds(const BundleMethodSpecialization& spec, const ContextPtr& context, const TokenPtr& token) {
    if (!spec.info.returnType.empty() || spec.info.isNative) return true;
    Str inferred;
    try {
        inferred = inferReturnTypeFromNodes(spec.declaration->getBody(), spec.declaration->getContext());
    } catch (const CompilerException&) {
        return true;  // compiling it tells what is wrong
    }
    if (inferred.empty()) inferred = "Void";
    return inferred == spec.returnType || ClassLoader::resolveTypeName(inferred, context, token) ==
                                              ClassLoader::resolveTypeName(spec.returnType, context, token);
}

// Makes and registers the nodes of the wanted blocks (null = all); returns the unit's scope. With somebody to take the
// mistakes of the program, what has mistakes is left out; else it is a bundle that cannot be built.
ContextPtr registerBundle(const Str& path, const ContextPtr& parent, const StrVec* wanted,
                          std::vector<CompilerException>* mistakes) {
    GenericMethodBundleManifest manifest = readLocked(path);
    if (wanted) {
        std::erase_if(manifest.specs, [&](const GenericMethodBundleManifest::MethodSpec& block) {
            return std::find(wanted->begin(), wanted->end(), block.symbol) == wanted->end();
        });
    }
    if (!manifest.valid) throw std::runtime_error("Invalid generic method bundle source: " + path);
    // What the bodies ask for belongs to the bundle.
    const ScopedSpecializationUnit unit(path);
    const ContextPtr context = genericMethodBundleContext(manifest, parent);

    std::vector<BundleMethodSpecialization> specs;
    appendManifestDeclaredSpecializations(context, manifest.owner, manifest.args, manifest, bundleToken(path), path,
                                          specs, mistakes);
    const bool isMistaken = mistakes && !mistakes->empty();
    if (specs.empty() && !isMistaken)
        throw std::runtime_error("Generic method bundle has no declared specialization: " + path);
    if (const StrVec missing = missingBundleSymbols(manifest, specs); !missing.empty() && !isMistaken) {
        throw std::runtime_error(missingBundleSymbolsMessage(missing));
    }
    if (wanted) {
        StrVec outdated;
        for (const BundleMethodSpecialization& spec : specs) {
            if (!returnTypeStillHolds(spec, context, bundleToken(path))) outdated.push_back(spec.symbol);
        }
        if (!outdated.empty()) throw std::runtime_error(missingBundleSymbolsMessage(outdated));
    }
    // The order of requests does not show in what is compiled.
    std::sort(specs.begin(), specs.end(), [](const BundleMethodSpecialization& a, const BundleMethodSpecialization& b) {
        return a.symbol < b.symbol;
    });
    const Str unitName = genericMethodBundleUnitName(path);
    for (const BundleMethodSpecialization& spec : specs) {
        const Str& owner = spec.info.ownerClass.empty() ? manifest.owner : spec.info.ownerClass;
        context->addSpecializedMethodForUnit(unitName, owner, spec.symbol, spec.declaration, spec.info.sourceFile);
    }
    return context;
}

}  // namespace

Str registerGenericMethodBundle(const Str& path, const ContextPtr& parent, const StrVec& wantedSymbols,
                                std::vector<CompilerException>& mistakes) {
    registerBundle(path, parent, &wantedSymbols, &mistakes);
    return genericMethodBundleUnitName(path);
}

Str buildGenericMethodBundleIL(const Str& path, const ContextPtr& parent) {
    const ContextPtr context = registerBundle(path, parent, nullptr, nullptr);
    const ScopedSpecializationUnit unit(path);
    const Str unitName = genericMethodBundleUnitName(path);
    FileNode file(path, context);
    const ScopedILGenContext generation(unitName);
    std::ostringstream il;
    std::set<Str> defined, declared, neededUnits, neededBundles;
    file.generateILCodeChunk(il, unitName, defined, declared, neededUnits, neededBundles, true, unitName, true);
    return std::move(il).str();
}

bool regenerateGenericMethodBundle(const Str& path, const ContextPtr& parent) {
    GenericMethodBundleManifest manifest = readLocked(path);
    std::vector<BundleMethodSpecialization> specs;
    std::unordered_set<Str> present;
    // What this thread asked of the bundle.
    const auto addRequested = [&](const CachedGenericMethodSpec& cached) {
        if (cached.sourcePath != path || !present.insert(cached.spec.symbol).second) return;
        BundleMethodSpecialization spec;
        spec.info = cached.info;
        spec.symbol = cached.spec.symbol;
        spec.paramTypes = cached.spec.paramTypes;
        spec.returnType = cached.spec.returnType;
        takeOverDeclaration(spec, cached.info);
        spec.typeArgs = cached.typeArgs;
        manifest.owner = cached.ownerClass;
        manifest.args = cached.typeArgs;
        manifest.callerSourceUnit = cached.callerSourceUnit;
        specs.push_back(std::move(spec));
    };
    const GenericMethodBundleManifest found = manifest;
    for (const auto& entry : gGenericMethodSpecCache) addRequested(entry.second);
    for (const auto& entry : gGenericMethodCandidateCache) {
        for (const CachedGenericMethodSpec& cached : entry.second) addRequested(cached);
    }
    // What still fits.
    if (found.valid && (specs.empty() || (found.owner == manifest.owner && found.args == manifest.args))) {
        try {
            appendManifestDeclaredSpecializations(genericMethodBundleContext(found, parent), found.owner, found.args,
                                                  found, bundleToken(path), path, specs);
        } catch (const std::runtime_error&) {
            // Its caller or its owner is gone: nothing of it can be kept.
        }
    }
    if (specs.empty()) return false;
    // Blocks keep their places; those that were lost follow.
    std::unordered_map<Str, std::size_t> places;
    for (const auto& block : found.specs) places.emplace(block.symbol, places.size());
    std::sort(specs.begin(), specs.end(),
              [&](const BundleMethodSpecialization& a, const BundleMethodSpecialization& b) {
                  const auto placeOf = [&](const BundleMethodSpecialization& spec) {
                      const auto place = places.find(spec.symbol);
                      return place == places.end() ? places.size() : place->second;
                  };
                  return std::pair(placeOf(a), std::string_view(a.symbol)) <
                         std::pair(placeOf(b), std::string_view(b.symbol));
              });
    const GenericMethodBundleArtifactLock lock(path);
    const Str text = renderGenericMethodBundleManifestContent(manifest.owner, manifest.args, manifest.paramTypes,
                                                              manifest.callerSourceUnit, &specs);
    Str error;
    for (const BundleMethodSpecialization& spec : specs) {
        if (!storeHashedTypeNames(path, manifest.owner, manifest.args, spec, error)) throw std::runtime_error(error);
    }
    if (!storeGenericMethodBundleText(path, text, error)) throw std::runtime_error(error);
    return true;
}

}  // namespace vesk::compiler
