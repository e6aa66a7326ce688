// Looking through an owner's bundles once per session, so that what earlier compilations made is known before it is asked
// for.
#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>

#include "generics/bundles/bundle_declarations.h"
#include "generics/bundles/bundle_generation.h"
#include "generics/bundles/bundle_index.h"
#include "generics/bundles/bundle_names.h"
#include "generics/bundles/bundle_paths.h"
#include "generics/candidate_cache.h"
#include "generics/generic_specializer.h"
#include "host/cache_files.h"
#include "host/host_services.h"

namespace vesk::compiler {

namespace {

// The bundles of one folder by the short name of their owner, and when they were listed.
class BundleFolder {
public:
    using Names = std::shared_ptr<const StrVec>;

    // Names of the bundles whose file name begins with `prefix`, sorted; null for none.
    static Names bundlesIn(const Str& folder, const Str& prefix) {
        BundleFolder& known = folders()[folder];
        if (known.isOutdated(folder)) known.list(folder);
        const auto found = known.names_.find(prefix);
        return found == known.names_.end() ? nullptr : found->second;
    }

private:
    using Clock = std::chrono::steady_clock;

    static std::unordered_map<Str, BundleFolder>& folders() {
        static thread_local std::unordered_map<Str, BundleFolder> all;
        return all;
    }

    // A folder that changes all the time (this compilation writes to it) is not listed again at once: what a listing
    // misses is found when it is asked for.
    bool isOutdated(const Str& folder) const {
        const auto time = CacheFolder(folder).writeTime();
        if (!time) return wasListed_;
        if (!wasListed_) return true;
        const bool isSettled = *time + SETTLING_TIME < listedAtFileTime_;
        if (time == time_ && isSettled) return false;
        return Clock::now() - listedAt_ > cost_ * COST_FACTOR;
    }

    void list(const Str& folder) {
        names_.clear();
        const auto start = Clock::now();
        listedAtFileTime_ = std::filesystem::file_time_type::clock::now();
        const CacheFolder entries(folder);
        time_ = entries.writeTime();
        wasListed_ = time_.has_value();
        for (const Str& name : entries.names()) {
            const std::size_t marker = name.rfind(BUNDLE_MARKER);
            if (!name.ends_with(".vk") || marker == Str::npos) continue;
            std::shared_ptr<StrVec>& names = names_[name.substr(0, marker + BUNDLE_MARKER.size())];
            if (!names) names = std::make_shared<StrVec>();
            names->push_back(name);  // in order
        }
        listedAt_ = Clock::now();
        cost_ = listedAt_ - start;
    }

    static constexpr std::string_view BUNDLE_MARKER = "__GM_";
    static constexpr auto SETTLING_TIME = std::chrono::milliseconds(100);
    static constexpr int COST_FACTOR = 10;

    std::unordered_map<Str, std::shared_ptr<StrVec>> names_;
    std::optional<std::filesystem::file_time_type> time_;
    std::filesystem::file_time_type listedAtFileTime_;
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
            const std::filesystem::path root = directory;
            const Str folder = (root / package / "").lexically_normal().string();
            const auto names = BundleFolder::bundlesIn(folder, shortName + "__GM_");
            if (!names) continue;
            const Str indexes = (root.lexically_normal().parent_path() / "indexes" / package / shortName).string();
            BundleIndex index(folder, indexes + ".index");
            if (names->size() > gGenericMethodSpecCache.size()) gGenericMethodSpecCache.reserve(3 * names->size());
            for (const Str& name : *names) takeOverBundle(folder + name, name, index);
            index.keep();
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

    bool isOtherCallers(const Str& caller) const { return !caller.empty() && !isSameSourceUnit(caller, caller_); }

    // What is known of a bundle without opening it comes from the index. The lock is held while a bundle is read, and no
    // longer. `time` is left alone where the text lies in no file: it is of this session. Null for other callers' bundles.
    std::shared_ptr<const GenericMethodBundleManifest> read(const Str& path, const Str& name, BundleIndex& index,
                                                            std::filesystem::file_time_type& time) const {
        const bool isFile = !Compiler::virtualSourceContents(path);
        if (const BundleIndex::Entry* entry = isFile ? index.find(name) : nullptr) {
            if (isOtherCallers(Str(callerInGenericMethodBundleHead(entry->text)))) return nullptr;
            time = entry->identity.writeTime();
            return genericMethodBundleManifestOf(path, entry->identity, entry->text);
        }
        const GenericMethodBundleArtifactLock lock(path);
        const std::optional<FileIdentity> identity = index.identityNow(name);
        const std::shared_ptr<const Str> text = SourceManager::contents(path, time);
        auto manifest = genericMethodBundleManifestOf(path, text);
        if (isFile && identity && text && manifest->valid) index.add(name, *identity, *text);
        return isOtherCallers(manifest->callerSourceUnit) ? nullptr : manifest;
    }

    void takeOverBundle(const Str& path, const Str& name, BundleIndex& index) {
        auto time = std::filesystem::file_time_type::max();
        const auto present = read(path, name, index, time);
        if (!present || !present->valid || present->owner != owner_) return;
        if (ownerSource_.isNewerThan(time) || callerSource_.isNewerThan(time)) return;
        const GenericMethodBundleManifest& manifest = *present;
        recallHashedTypeNames(manifest, context_, token_);
        for (const GenericMethodBundleManifest::MethodSpec& block : manifest.specs) {
            // Parameter types are compared with the call's where the entry is used.
            const GenericMethodInfo* info = methods_.find(block, manifest);
            if (!info || !blockReturnTypeIsKnown(block, *info, context_, token_)) continue;
            enterSpecializationCaches(cachedSpecialization(block, *info, manifest, path), owner_, info->isStatic,
                                      context_, token_, false);
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
