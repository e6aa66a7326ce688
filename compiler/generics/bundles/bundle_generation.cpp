// Making bundles and taking over what they list.
#include "generics/bundles/bundle_generation.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <utility>

#include "generics/bundles/bundle_declarations.h"
#include "generics/bundles/bundle_lock.h"
#include "generics/bundles/bundle_names.h"
#include "generics/bundles/bundle_paths.h"
#include "generics/candidate_cache.h"
#include "generics/candidate_matching.h"
#include "generics/inference/call_binding.h"
#include "generics/source/source_text_cache.h"
#include "host/host_services.h"

namespace vesk::compiler {

namespace {

// What a bundle is for. A file whose manifest names something else under the same path is replaced.
struct BundleIdentity {
    Str owner;  // canonical
    const StrVec& args;
    const StrVec& paramTypes;
    Str caller;

    bool isThatOf(const GenericMethodBundleManifest& manifest) const {
        return manifest.valid && manifest.owner == owner && manifest.args == args &&
               manifest.paramTypes == paramTypes && isSameSourceUnit(manifest.callerSourceUnit, caller);
    }
    Str bareManifest() const {
        return renderGenericMethodBundleManifestContent(owner, args, paramTypes, caller, nullptr);
    }
};

// One call's wish for a specialization, as the bundle sees it.
struct BundleRequest {
    const Str& methodName;
    bool isStatic;
    const StrVec& argKeys;
    const BundleMethodSpecialization* requested;  // may be null
};

bool isWritable(const BundleIdentity& identity, const BundleMethodSpecialization* requested) {
    const auto fits = [](const Str& value) {
        return fitsManifestLine(value) && value.find('\r') == Str::npos;  // which only a path may hold
    };
    const auto allFit = [&fits](const StrVec& values) {
        return std::all_of(values.begin(), values.end(),
                           [&fits](const Str& value) { return !value.empty() && fits(value); });
    };
    if (!isClassName(identity.owner) || !allFit(identity.args) || !allFit(identity.paramTypes)) return false;
    if (!fitsManifestLine(identity.caller)) return false;
    if (!requested) return true;
    return allFit(requested->paramTypes) && fits(requested->returnType) && fits(requested->symbol) &&
           fits(requested->info.name);
}

// A block with other types is of the time before the method was edited: it lists something else.
bool lists(const GenericMethodBundleManifest& manifest, const BundleMethodSpecialization& requested) {
    return std::any_of(manifest.specs.begin(), manifest.specs.end(),
                       [&](const GenericMethodBundleManifest::MethodSpec& spec) {
                           return spec.symbol == requested.symbol && spec.name == requested.info.name &&
                                  spec.overload == requested.info.overloadIndex &&
                                  spec.isStatic == requested.info.isStatic && spec.paramTypes == requested.paramTypes &&
                                  (spec.returnType == requested.returnType || requested.returnType.empty());
                       });
}

// What a bundle lists once the request is among it. What stood for its symbol gives way.
std::vector<BundleMethodSpecialization> withRequested(const GenericMethodBundleManifest& manifest,
                                                      const BundleMethodSpecialization& requested) {
    std::vector<BundleMethodSpecialization> specs = recordedGenericMethodBundleSpecs(manifest);
    std::erase_if(specs, [&](const BundleMethodSpecialization& spec) { return spec.symbol == requested.symbol; });
    specs.push_back(requested);
    return specs;
}

// "x=Int" and "#:Int" taken apart.
void splitArgKeys(const StrVec& argKeys, StrVec& names, StrVec& types) {
    for (const Str& key : argKeys) {
        const bool isPositional = key.starts_with("#:");
        const std::size_t split = isPositional ? 1 : key.find('=');
        names.push_back(isPositional || split == Str::npos ? Str() : key.substr(0, split));
        types.push_back(split == Str::npos ? key : key.substr(split + 1));
    }
}

// Whether one of the owner's methods is what the request asks for.
bool isRequestOfOwner(const Str& owner, const BundleRequest& request, const ContextPtr& context,
                      const TokenPtr& token) {
    if (!context) return false;
    const GenericMethodInfo& wanted = request.requested->info;
    StrVec names, types;
    splitArgKeys(request.argKeys, names, types);
    for (const GenericMethodInfo& info : context->getGenericMethods(owner, request.methodName)) {
        if (info.overloadIndex != wanted.overloadIndex || info.isStatic != wanted.isStatic) continue;
        CallArgumentBinding binding;
        if (!bindGenericCall(names, info.paramNames, info.paramCount, info.defaultValueTokens, info.isVariadic,
                             info.variadicIndex, info.isNamedVariadic, info.namedVariadicIndex, binding)) {
            continue;
        }
        StrVec argTypes = buildGenericCallParamTypesFromRawTypes(
            types, names, info.paramNames, info.paramCount, info.defaultValueTokens, info.isVariadic,
            info.variadicIndex, info.isNamedVariadic, info.namedVariadicIndex, token);
        const bool mayMatch =
            genericMethodCandidateMayMatch(info.paramTypes, argTypes, info.typeParams, context, token);
        takeTypesOfEmptyVariadics(info, binding, request.requested->paramTypes, argTypes);
        if (mayMatch && genericMethodAcceptsActualArgs(request.requested->paramTypes, argTypes, context)) {
            return true;
        }
    }
    return false;
}

// Makes the bundle where there is none that is for this. False, and why, when it cannot be stored.
bool isThere(const BundleIdentity& identity, const Str& path, Str& error) {
    const std::shared_ptr<const Str> present = sourceTextSnapshot(path);
    const bool isKept = present && identity.isThatOf(*genericMethodBundleManifestOf(path, present));
    if (isKept && Compiler::virtualSourceContents(path) == present) return true;
    return storeGenericMethodBundleText(path, isKept ? *present : identity.bareManifest(), error);
}

CompilerException generationFailure(const TokenPtr& token, const Str& owner) {
    return CompilerException(token, "Failed to generate generic method bundle for " + owner,
                             CompilerErrorKind::DeclarationLoad, "", "");
}

CompilerException missingSpecialization(const TokenPtr& token, const Str& canonicalOwner) {
    return CompilerException(token, "Generic method bundle has no requested specialization for " + canonicalOwner,
                             CompilerErrorKind::DeclarationLoad, "", "");
}

// What of each prepared bundle the caches hold already.
struct TakenOver {
    std::unordered_set<Str> symbols;
    // The blocks below `upTo` of this manifest have their symbols among those.
    std::weak_ptr<const GenericMethodBundleManifest> manifest;
    std::size_t upTo = 0;

    bool isWhole(const std::shared_ptr<const GenericMethodBundleManifest>& asked) const {
        return upTo == asked->specs.size() && manifest.lock() == asked;
    }
};
thread_local std::unordered_map<Str, TakenOver> gTakenOver;

// Takes over the blocks that the caches do not hold yet.
void takeOver(const std::shared_ptr<const GenericMethodBundleManifest>& manifest, const Str& owner,
              const Str& bundlePath, const ContextPtr& context, const TokenPtr& token,
              const BundleMethodSpecialization* requested) {
    const Str path = std::filesystem::path(bundlePath).lexically_normal().string();
    TakenOver& known = gTakenOver[path];
    if (gPreparedGenericMethodBundles.insert(path).second) known = {};
    if (known.manifest.lock() != manifest) known.upTo = 0;
    known.manifest = manifest;

    // The methods of the owner are only looked up for blocks that are not the request's.
    std::optional<GenericMethodTable> table;
    for (std::size_t i = std::exchange(known.upTo, manifest->specs.size()); i < manifest->specs.size(); i++) {
        const GenericMethodBundleManifest::MethodSpec& block = manifest->specs[i];
        if (!gTakenOver[path].symbols.insert(block.symbol).second) continue;
        const GenericMethodInfo* info = nullptr;
        if (requested && requested->symbol == block.symbol) {
            info = &requested->info;
        } else {
            if (!table) table.emplace(context, owner);
            info = table->find(block, *manifest);
            if (!info || !blockFitsDeclaration(block, *info, manifest->args, context, token)) continue;
        }
        enterSpecializationCaches(cachedSpecialization(block, *info, *manifest, bundlePath), owner, info->isStatic,
                                  context, token, true);
    }
}

}  // namespace

Str ensureGenericMethodBundle(const ContextPtr& context, const Str& owner, const StrVec& args, const StrVec& paramTypes,
                              const Str& methodName, bool isStatic, const StrVec& argKeys,
                              const StrVec& explicitTypeArgs, const TokenPtr& token,
                              const BundleMethodSpecialization* requested) {
    BundleIdentity identity{canonicalOwnerClassName(context, token, owner), args, paramTypes, {}};
    const Str path =
        genericMethodBundlePathOfCanonicalOwner(identity.owner, args, paramTypes, context, token, &identity.caller);
    if (!fitsManifestLine(identity.caller))
        throw generationFailure(token, owner)
            .addNote({"a path with a line break, or with a blank at its end, cannot stand in a bundle", nullptr});
    if (path.empty() || !isWritable(identity, requested)) throw generationFailure(token, owner);

    const GenericMethodBundleArtifactLock lock(path);
    if (Str error; !isThere(identity, path, error)) throw generationFailure(token, owner).addNote({error, nullptr});
    populateGenericMethodBundleCache(context, identity.owner, args, paramTypes, methodName, isStatic, argKeys,
                                     explicitTypeArgs, path, token, requested);
    ClassLoader::trackSourceDependency(path);
    return path;
}

void populateGenericMethodBundleCache(const ContextPtr& context, const Str& owner, const StrVec& args,
                                      const StrVec& paramTypes, const Str& methodName, bool isStatic,
                                      const StrVec& argKeys, const StrVec&, const Str& bundlePath,
                                      const TokenPtr& token, const BundleMethodSpecialization* requested) {
    const Str canonical = canonicalOwnerClassName(context, token, owner);
    const Str path = std::filesystem::path(bundlePath).lexically_normal().string();
    const GenericMethodBundleArtifactLock lock(path);
    std::shared_ptr<const GenericMethodBundleManifest> manifest = currentGenericMethodBundleManifest(path);
    if (requested) {
        // Each further request would look through all that came before it.
        const TakenOver& known = gTakenOver[path];
        const bool isNew = known.isWhole(manifest) && !known.symbols.contains(requested->symbol);
        const bool isListed = !isNew && lists(*manifest, *requested);
        if (!isListed && !isRequestOfOwner(canonical, {methodName, isStatic, argKeys, requested}, context, token)) {
            throw missingSpecialization(token, canonical);
        }
        Str error;
        if (!storeHashedTypeNames(path, canonical, args, *requested, error)) throw std::runtime_error(error);
        if (!isListed) {
            manifest.reset();
            if (!isNew || !appendGenericMethodBundleSpec(path, canonical, args, paramTypes, *requested)) {
                updateGenericMethodBundleManifestSpecs(
                    path, canonical, args, paramTypes,
                    withRequested(*currentGenericMethodBundleManifest(path), *requested));
            }
            manifest = currentGenericMethodBundleManifest(path);
        }
    }
    takeOver(manifest, canonical, path, context, token, requested);
}

}  // namespace vesk::compiler
