// Making bundles and taking over what they list.
#include "generics/bundles/bundle_generation.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <optional>
#include <stdexcept>

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
    const auto allFit = [](const StrVec& values) {
        return std::none_of(values.begin(), values.end(),
                            [](const Str& value) { return value.empty() || containsLineBreak(value); });
    };
    if (!isClassName(identity.owner) || !allFit(identity.args) || !allFit(identity.paramTypes)) return false;
    if (containsLineBreak(identity.caller)) return false;
    if (!requested) return true;
    return allFit(requested->paramTypes) && !containsLineBreak(requested->returnType) &&
           !containsLineBreak(requested->symbol) && !containsLineBreak(requested->info.name);
}

// A block with other types is of the time before the method was edited: it lists something else.
bool lists(const GenericMethodBundleManifest& manifest, const BundleMethodSpecialization& requested) {
    return std::any_of(manifest.specs.begin(), manifest.specs.end(),
                       [&](const GenericMethodBundleManifest::MethodSpec& spec) {
                           return spec.symbol == requested.symbol && spec.paramTypes == requested.paramTypes &&
                                  (spec.returnType == requested.returnType || requested.returnType.empty());
                       });
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

CompilerException generationFailure(const TokenPtr& token, const Str& owner) {
    return CompilerException(token, "Failed to generate generic method bundle for " + owner,
                             CompilerErrorKind::DeclarationLoad, "", "");
}

CompilerException missingSpecialization(const TokenPtr& token, const Str& canonicalOwner) {
    return CompilerException(token, "Generic method bundle has no requested specialization for " + canonicalOwner,
                             CompilerErrorKind::DeclarationLoad, "", "");
}

// Symbols of each prepared bundle that the caches hold already.
thread_local std::unordered_map<Str, std::unordered_set<Str>> gTakenOverSymbols;

void enterCaches(CachedGenericMethodSpec cached, const Str& owner, bool isStatic, const ContextPtr& context,
                 const TokenPtr& token, bool withAliases) {
    const Str& name = cached.info.name;
    const auto keyFor = [&](const StrVec& typeArgs) {
        return genericMethodBundleCacheKey(owner, name, isStatic, cached.spec.paramTypes, typeArgs,
                                           cached.callerSourceUnit);
    };
    ClassLoader::registerSyntheticSymbolSource(cached.spec.symbol, cached.sourcePath);
    registerGenericMethodCandidate(owner, name, isStatic, cached);
    if (withAliases) registerCommonConcreteCollectionAliases(context, token, owner, name, isStatic, cached);
    if (canInferEveryTypeParam(cached.info)) gGenericMethodSpecCache.insert_or_assign(keyFor({}), cached);
    Str key = keyFor(cached.typeArgs);
    gGenericMethodSpecCache.insert_or_assign(std::move(key), std::move(cached));
}

// Takes over the blocks that the caches do not hold yet.
void takeOver(const GenericMethodBundleManifest& manifest, const Str& owner, const Str& bundlePath,
              const ContextPtr& context, const TokenPtr& token, const BundleMethodSpecialization* requested) {
    const Str path = std::filesystem::path(bundlePath).lexically_normal().string();
    std::unordered_set<Str>& known = gTakenOverSymbols[path];
    if (gPreparedGenericMethodBundles.insert(path).second) known.clear();

    // The methods of the owner are only looked up for blocks that are not the request's.
    std::optional<GenericMethodTable> table;
    for (const GenericMethodBundleManifest::MethodSpec& block : manifest.specs) {
        if (!gTakenOverSymbols[path].insert(block.symbol).second) continue;
        const GenericMethodInfo* info = nullptr;
        if (requested && requested->symbol == block.symbol) {
            info = &requested->info;
        } else {
            if (!table) table.emplace(context, owner);
            info = table->find(block, manifest.args);
            if (!info || !blockFitsDeclaration(block, *info, manifest.args, context, token)) continue;
        }
        enterCaches(cachedSpecialization(block, *info, manifest, bundlePath), owner, info->isStatic, context, token,
                    true);
    }
}

}  // namespace

Str ensureGenericMethodBundle(const ContextPtr& context, const Str& owner, const StrVec& args, const StrVec& paramTypes,
                              const Str& methodName, bool isStatic, const StrVec& argKeys, const StrVec&,
                              const TokenPtr& token, const BundleMethodSpecialization* requested) {
    BundleIdentity identity{canonicalOwnerClassName(context, token, owner), args, paramTypes, {}};
    const Str path =
        genericMethodBundlePathOfCanonicalOwner(identity.owner, args, paramTypes, context, token, &identity.caller);
    if (path.empty() || !isWritable(identity, requested)) throw generationFailure(token, owner);
    const BundleRequest request{methodName, isStatic, argKeys, requested};

    // Files are replaced as a whole: one that says everything needs no lock.
    if (const std::shared_ptr<const Str> present = sourceTextSnapshot(path)) {
        const GenericMethodBundleManifest manifest = parseGenericMethodBundleManifestText(path, *present);
        const bool isListed = !requested || (lists(manifest, *requested) &&
                                             hasHashedTypeNames(path, identity.owner, identity.args, *requested));
        if (identity.isThatOf(manifest) && isListed) {
            Compiler::storeGeneratedSourceInMemory(path, *present);
            takeOver(manifest, identity.owner, path, context, token, requested);
            ClassLoader::trackSourceDependency(path);
            return path;
        }
    }

    const bool mayBeAdded = requested && isRequestOfOwner(identity.owner, request, context, token);
    GenericMethodBundleManifest manifest;
    {
        const GenericMethodBundleArtifactLock lock(path);
        const std::shared_ptr<const Str> present = sourceTextSnapshot(path);
        if (present) manifest = parseGenericMethodBundleManifestText(path, *present);
        const bool isKept = identity.isThatOf(manifest);
        Str text = isKept ? *present : identity.bareManifest();
        manifest = parseGenericMethodBundleManifestText(path, text);
        const bool isMissing = requested && !lists(manifest, *requested);
        if (isMissing && mayBeAdded) text = insertGenericMethodBundleSpec(text, *requested);
        Str error;
        const bool isWanted = requested && (mayBeAdded || !isMissing);
        if ((isWanted && !storeHashedTypeNames(path, identity.owner, identity.args, *requested, error)) ||
            !storeGenericMethodBundleText(path, text, error)) {
            if (isKept) throw std::runtime_error(error);
            throw generationFailure(token, owner).addNote({error, nullptr});
        }
        if (isMissing && !mayBeAdded) throw missingSpecialization(token, identity.owner);
        if (isMissing) manifest = parseGenericMethodBundleManifestText(path, text);
    }
    takeOver(manifest, identity.owner, path, context, token, requested);
    ClassLoader::trackSourceDependency(path);
    return path;
}

void populateGenericMethodBundleCache(const ContextPtr& context, const Str& owner, const StrVec& args,
                                      const StrVec& paramTypes, const Str& methodName, bool isStatic,
                                      const StrVec& argKeys, const StrVec&, const Str& bundlePath,
                                      const TokenPtr& token, const BundleMethodSpecialization* requested) {
    const Str canonical = canonicalOwnerClassName(context, token, owner);
    const Str path = std::filesystem::path(bundlePath).lexically_normal().string();
    GenericMethodBundleManifest manifest = readGenericMethodBundleManifest(path);
    if (requested && !lists(manifest, *requested)) {
        const bool mayBeAdded = isRequestOfOwner(canonical, {methodName, isStatic, argKeys, requested}, context, token);
        const GenericMethodBundleArtifactLock lock(path);
        const std::shared_ptr<const Str> present = sourceTextSnapshot(path);
        Str text =
            present ? *present : renderGenericMethodBundleManifestContent(canonical, args, paramTypes, "", nullptr);
        manifest = parseGenericMethodBundleManifestText(path, text);
        if (!lists(manifest, *requested)) {
            if (!mayBeAdded) throw missingSpecialization(token, canonical);
            text = insertGenericMethodBundleSpec(text, *requested);
            Str error;
            if (!storeHashedTypeNames(path, canonical, args, *requested, error) ||
                !storeGenericMethodBundleText(path, text, error)) {
                throw std::runtime_error(error);
            }
            manifest = parseGenericMethodBundleManifestText(path, text);
        }
    }
    takeOver(manifest, canonical, path, context, token, requested);
}

// ------------------------------------------------------------------------------------------------ preloading

namespace {

// The bundles of one folder by the short name of their owner, and when they were listed.
class BundleFolder {
public:
    // Names of the bundles whose file name begins with `prefix`, sorted.
    static StrVec bundlesIn(const std::filesystem::path& folder, const Str& prefix) {
        BundleFolder& known = folders()[folder.string()];
        if (known.isOutdated(folder)) known.list(folder);
        const auto found = known.names_.find(prefix);
        return found == known.names_.end() ? StrVec{} : found->second;
    }

private:
    using Clock = std::chrono::steady_clock;

    static std::unordered_map<Str, BundleFolder>& folders() {
        static thread_local std::unordered_map<Str, BundleFolder> all;
        return all;
    }

    // A folder that changes all the time (this compilation writes to it) is not listed again at once: what a listing
    // misses is found when it is asked for.
    bool isOutdated(const std::filesystem::path& folder) const {
        std::error_code error;
        const auto time = std::filesystem::last_write_time(folder, error);
        if (error) return wasListed_;
        if (!wasListed_) return true;
        const bool isSettled = time + SETTLING_TIME < listedAtFileTime_;
        if (time == time_ && isSettled) return false;
        return Clock::now() - listedAt_ > cost_ * COST_FACTOR;
    }

    void list(const std::filesystem::path& folder) {
        names_.clear();
        const auto start = Clock::now();
        listedAtFileTime_ = std::filesystem::file_time_type::clock::now();
        std::error_code error;
        time_ = std::filesystem::last_write_time(folder, error);
        wasListed_ = !error;
        for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
             entry.increment(error)) {
            const Str name = entry->path().filename().string();
            if (!name.ends_with(".vk")) continue;
            const std::size_t marker = name.rfind(BUNDLE_MARKER);
            if (marker != Str::npos) names_[name.substr(0, marker + BUNDLE_MARKER.size())].push_back(name);
        }
        for (auto& entry : names_) std::sort(entry.second.begin(), entry.second.end());
        listedAt_ = Clock::now();
        cost_ = listedAt_ - start;
    }

    static constexpr std::string_view BUNDLE_MARKER = "__GM_";
    static constexpr auto SETTLING_TIME = std::chrono::milliseconds(100);
    static constexpr int COST_FACTOR = 10;

    std::unordered_map<Str, StrVec> names_;
    std::filesystem::file_time_type time_, listedAtFileTime_;
    Clock::time_point listedAt_;
    Clock::duration cost_{};
    bool wasListed_ = false;
};

// A source that bundles must not be older than; its time is asked for once.
class SourceAge {
public:
    explicit SourceAge(const Str& path) {
        if (path.empty()) return;
        const FileStatus status = SourceManager::instance().status(path);
        isKnown_ = status.queried && status.exists && SourceManager::instance().lastWriteTime(path, time_);
    }
    bool isNewerThan(std::filesystem::file_time_type time) const { return isKnown_ && time_ > time; }

private:
    std::filesystem::file_time_type time_;
    bool isKnown_ = false;
};

class OwnerPreload {
public:
    OwnerPreload(const ContextPtr& context, const Str& owner, const Str& caller, const TokenPtr& token)
        : context_(context),
          owner_(owner),
          caller_(caller),
          token_(token),
          methods_(context, owner),
          ownerSource_(methods_.empty() ? Str() : ClassLoader::sourceFileForClass(owner, context, token)),
          callerSource_(caller) {}

    void run() {
        if (methods_.empty()) return;
        const std::size_t dot = owner_.rfind('.');
        const Str shortName = dot == Str::npos ? owner_ : owner_.substr(dot + 1);
        Str package = dot == Str::npos ? Str() : owner_.substr(0, dot);
        std::replace(package.begin(), package.end(), '.', '/');
        for (const Str& directory : directories()) {
            const Str folder = (std::filesystem::path(directory) / package / "").lexically_normal().string();
            for (const Str& name : BundleFolder::bundlesIn(folder, shortName + "__GM_")) takeOverBundle(folder + name);
        }
    }

private:
    static StrVec directories() {
        StrVec all{Runtime::getInstance().getGenericsPath(), Runtime::getInstance().getAppGenericsPath()};
        std::sort(all.begin(), all.end());
        all.erase(std::unique(all.begin(), all.end()), all.end());
        std::erase(all, Str());
        return all;
    }

    // The lock is held while the bundle is read, and no longer.
    static std::shared_ptr<const GenericMethodBundleManifest> read(const Str& path,
                                                                   std::filesystem::file_time_type& time) {
        const GenericMethodBundleArtifactLock lock(path);
        return currentGenericMethodBundleManifest(path, &time);
    }

    void takeOverBundle(const Str& path) {
        auto time = std::filesystem::file_time_type::max();  // what lies in no file is of this session
        const auto present = read(path, time);
        const GenericMethodBundleManifest& manifest = *present;
        if (!manifest.valid || manifest.owner != owner_) return;
        if (!manifest.callerSourceUnit.empty() && !isSameSourceUnit(manifest.callerSourceUnit, caller_)) return;
        if (ownerSource_.isNewerThan(time) || callerSource_.isNewerThan(time)) return;
        recallHashedTypeNames(manifest, context_, token_);
        for (const GenericMethodBundleManifest::MethodSpec& block : manifest.specs) {
            // Parameter types are compared with the call's where the entry is used.
            const GenericMethodInfo* info = methods_.find(block, manifest.args);
            if (!info || !blockReturnTypeIsKnown(block, *info, context_, token_)) continue;
            enterCaches(cachedSpecialization(block, *info, manifest, path), owner_, info->isStatic, context_, token_,
                        false);
        }
    }

    const ContextPtr& context_;
    const Str owner_, caller_;
    const TokenPtr& token_;
    const GenericMethodTable methods_;
    const SourceAge ownerSource_, callerSource_;
};

}  // namespace

void preloadGenericMethodManifestsForOwner(const ContextPtr& context, const Str& owner, const TokenPtr& token) {
    const Str canonical = canonicalOwnerClassName(context, token, owner);
    Str caller = genericMethodCallerSourceUnit(context, token);
    if (!caller.empty()) caller = SourceManager::instance().normalizePath(caller);
    const Str key = canonical + "|caller:" + caller;
    // In the set before the work: what the work asks for must not start it again.
    if (!gPreloadedGenericMethodManifestOwners.insert(key).second) return;
    try {
        OwnerPreload(context, canonical, caller, token).run();
    } catch (const CompilerException& error) {
        if (error.getKind() == CompilerErrorKind::CompileError) return;
        gPreloadedGenericMethodManifestOwners.erase(key);
        throw;
    } catch (...) {
        gPreloadedGenericMethodManifestOwners.erase(key);
        throw;
    }
}

}  // namespace vesk::compiler
