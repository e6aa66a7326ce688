// Counting, checking and clearing what compilations have left in the cache.
// Only what compilers write is touched: <cache>/branches and <cache>/apps. Other programs may be at work there
// meanwhile, so whatever vanishes while it is looked at is not missed. What belongs to somebody else is left alone.
#include "driver/cache_command.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <map>

#include "cache/trusted_cache.h"
#include "driver/stored_unit.h"
#include "generics/generic_specializer.h"
#include "host/runtime.h"
#include "host/source_manager.h"
#include "il/shown_text.h"
#include "semantics/compile_session.h"

namespace vesk::compiler {
namespace {

namespace fs = std::filesystem;

constexpr int STATUS_DAMAGED = 1;
constexpr int STATUS_TROUBLE = 2;

enum class EntryKind { Bundle, Object, Lock, Other };

struct Entry {
    fs::path path;
    EntryKind kind = EntryKind::Other;
    std::uintmax_t size = 0;
};

SessionOptions sessionOptions(const CommandLine& line) {
    SessionOptions options;
    options.cacheDirectory = line.cacheDirectory;
    options.cache = line.cache;
    options.cacheTrouble = std::make_shared<CacheTrouble>();
    return options;
}

// The cache, and what there is to say about it.
class Cache {
public:
    explicit Cache(const CommandLine& line) : session_(sessionOptions(line)), scope_(session_) {
        files_ = session_.cache();
        activeBranch_ = Runtime::getInstance().getCacheBranchPath();
        parts_ = {folder() / "branches", folder() / "apps"};
    }

    bool isThere() const { return files_ != nullptr; }
    const CacheTrouble& trouble() const { return *session_.options().cacheTrouble; }
    fs::path folder() const { return activeBranch_.parent_path().parent_path(); }
    const fs::path& activeBranch() const { return activeBranch_; }
    const std::vector<fs::path>& parts() const { return parts_; }
    TrustedCache& files() const { return *files_; }
    // Null for one that is not there, or not ours.
    std::shared_ptr<const HeldFolder> open(const fs::path& folder) const {
        FileProblem problem;
        return files_->folder(folder.native(), IfAbsent::Fail, problem);
    }

private:
    CompileSession session_;
    const ScopedCompileSession scope_;
    std::shared_ptr<TrustedCache> files_;
    fs::path activeBranch_;
    std::vector<fs::path> parts_;
};

EntryKind kindOf(const fs::path& path) {
    if (path.extension() == ".vk") return isGenericMethodBundlePath(path) ? EntryKind::Bundle : EntryKind::Other;
    if (path.extension() == ".o") return EntryKind::Object;
    return path.extension() == ".lock" ? EntryKind::Lock : EntryKind::Other;
}

void addEntries(const Cache& cache, const fs::path& folder, std::vector<Entry>& entries) {
    const std::shared_ptr<const HeldFolder> opened = cache.open(folder);
    if (!opened) return;
    for (const HeldFolder::Entry& each : opened->entries()) {
        const fs::path path = folder / each.name;
        if (each.kind == HeldFolder::Entry::Kind::Folder)
            addEntries(cache, path, entries);
        else if (each.kind == HeldFolder::Entry::Kind::File)
            entries.push_back({path, kindOf(path), each.size});
    }
}

// All files below a folder, in order of path; none when there is no such folder. Links are none.
std::vector<Entry> entriesBelow(const Cache& cache, const fs::path& folder) {
    std::vector<Entry> entries;
    addEntries(cache, folder, entries);
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.path < b.path; });
    return entries;
}

std::string counted(std::size_t count, std::uintmax_t bytes, const char* one) {
    return std::to_string(count) + " " + one + (count == 1 ? "" : "s") + " (" + std::to_string(bytes) + " bytes)";
}

// "bundles, objects" of one branch or application.
std::string contentsOf(const Cache& cache, const fs::path& folder) {
    std::map<EntryKind, std::pair<std::size_t, std::uintmax_t>> sums;
    for (const Entry& entry : entriesBelow(cache, folder)) {
        sums[entry.kind].first++;
        sums[entry.kind].second += entry.size;
    }
    const auto [bundles, bundleBytes] = sums[EntryKind::Bundle];
    const auto [objects, objectBytes] = sums[EntryKind::Object];
    return counted(bundles, bundleBytes, "bundle") + ", " + counted(objects, objectBytes, "object");
}

std::vector<fs::path> foldersIn(const Cache& cache, const fs::path& folder) {
    std::vector<fs::path> folders;
    const std::shared_ptr<const HeldFolder> opened = cache.open(folder);
    if (!opened) return folders;
    for (const HeldFolder::Entry& each : opened->entries()) {
        if (each.kind == HeldFolder::Entry::Kind::Folder && !each.name.starts_with('.'))
            folders.push_back(folder / each.name);
    }
    return folders;
}

int printStats(const Cache& cache) {
    std::cout << "cache: " << withControlsShown(cache.folder().native()) << "\n";
    for (const fs::path& branch : foldersIn(cache, cache.folder() / "branches")) {
        std::cout << "branch " << branch.filename().native() << (branch == cache.activeBranch() ? " (active)" : "")
                  << ": " << contentsOf(cache, branch) << "\n";
    }
    for (const fs::path& application : foldersIn(cache, cache.folder() / "apps"))
        std::cout << "application " << application.filename().native() << ": " << contentsOf(cache, application)
                  << "\n";
    std::uintmax_t bytes = 0;
    std::size_t files = 0;
    for (const fs::path& part : cache.parts()) {
        for (const Entry& entry : entriesBelow(cache, part)) {
            files++;
            bytes += entry.size;
        }
    }
    std::cout << "total: " << counted(files, bytes, "file") << "\n";
    return 0;
}

// What is wrong with a file of the cache, "" = nothing.
std::string damageOf(const Cache& cache, const Entry& entry) {
    if (entry.kind == EntryKind::Bundle) return isGenericMethodBundleSource(entry.path) ? "" : "not a sound bundle";
    if (entry.kind != EntryKind::Object) return "";
    const std::shared_ptr<const Str> bytes = SourceManager::instance().contents(entry.path);
    if (!bytes) return cache.files().identityOf(entry.path.native()) ? "cannot be read" : "";
    return parseStoredUnit(*bytes) ? "" : "not a sound object";
}

int verify(const Cache& cache) {
    std::size_t checked = 0, damaged = 0;
    for (const fs::path& part : cache.parts()) {
        for (const Entry& entry : entriesBelow(cache, part)) {
            if (entry.kind != EntryKind::Bundle && entry.kind != EntryKind::Object) continue;
            checked++;
            const std::string damage = damageOf(cache, entry);
            if (damage.empty()) continue;
            damaged++;
            std::cout << withControlsShown(entry.path.native()) << ": " << damage << "\n";
        }
    }
    std::cout << checked << (checked == 1 ? " file" : " files") << " checked, " << damaged << " damaged\n";
    return damaged == 0 ? 0 : STATUS_DAMAGED;
}

int clear(const Cache& cache) {
    std::size_t removed = 0;
    for (const fs::path& part : cache.parts()) {
        FileProblem problem;
        removed += cache.files().remove(part.native(), problem);
        // A compiler at work may have put something there just now.
        if (problem.kind == FileProblem::Kind::System) {
            problem = {};
            removed += cache.files().remove(part.native(), problem);
        }
        if (problem) {
            std::cerr << "veskc: cannot clear '" << withControlsShown(part.native())
                      << "': " << withControlsShown(problem.text()) << "\n";
            return STATUS_TROUBLE;
        }
    }
    std::cout << removed << (removed == 1 ? " file" : " files") << " removed\n";
    return 0;
}

int perform(const CommandLine& line, const Cache& cache) {
    if (line.cacheVerb == "stats") return printStats(cache);
    if (line.cacheVerb == "verify") return verify(cache);
    if (line.cache == CacheMode::On) return clear(cache);
    std::cerr << "veskc: a cache that is not written is not cleared either\n";
    return STATUS_TROUBLE;
}

}  // namespace

int runCacheCommand(const CommandLine& line) {
    if (line.cache == CacheMode::Off) {
        std::cerr << "veskc: with --cache=off there is no cache\n";
        return STATUS_TROUBLE;
    }
    const Cache cache(line);
    if (!cache.isThere()) {
        std::cerr << "veskc: " << withControlsShown(cache.trouble().text()) << "\n";
        return STATUS_TROUBLE;
    }
    const int status = perform(line, cache);
    if (cache.trouble().isThere()) std::cerr << "veskc: warning: " << withControlsShown(cache.trouble().text()) << "\n";
    return status;
}

}  // namespace vesk::compiler
