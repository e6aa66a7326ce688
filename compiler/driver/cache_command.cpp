// Counting, checking and clearing what compilations have left in the cache.
// Only what compilers write is touched: <cache>/branches and <cache>/apps. Other programs may be at work there
// meanwhile, so whatever vanishes while it is looked at is not missed.
#include "driver/cache_command.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <map>

#include "driver/stored_unit.h"
#include "generics/generic_specializer.h"
#include "host/runtime.h"
#include "host/source_manager.h"
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

struct Cache {
    fs::path root, activeBranch;

    std::vector<fs::path> parts() const { return {root / "branches", root / "apps"}; }
};

Cache findCache(const CommandLine& line) {
    SessionOptions options;
    options.cacheDirectory = line.cacheDirectory;
    options.cache = line.cache;
    CompileSession session(options);
    const ScopedCompileSession scope(session);
    const fs::path branch = Runtime::getInstance().getCacheBranchPath();
    return {branch.parent_path().parent_path(), branch};
}

EntryKind kindOf(const fs::path& path) {
    if (path.extension() == ".vk") return isGenericMethodBundlePath(path) ? EntryKind::Bundle : EntryKind::Other;
    if (path.extension() == ".o") return EntryKind::Object;
    return path.extension() == ".lock" ? EntryKind::Lock : EntryKind::Other;
}

// All files below a folder, in order of path; none when there is no such folder.
std::vector<Entry> entriesBelow(const fs::path& folder) {
    std::vector<Entry> entries;
    std::error_code error;
    fs::recursive_directory_iterator at(folder, fs::directory_options::skip_permission_denied, error), end;
    for (; !error && at != end; at.increment(error)) {
        std::error_code vanished;
        if (!at->is_regular_file(vanished) || vanished) continue;
        const std::uintmax_t size = at->file_size(vanished);
        if (!vanished) entries.push_back({at->path(), kindOf(at->path()), size});
    }
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.path < b.path; });
    return entries;
}

std::string counted(std::size_t count, std::uintmax_t bytes, const char* one) {
    return std::to_string(count) + " " + one + (count == 1 ? "" : "s") + " (" + std::to_string(bytes) + " bytes)";
}

// "bundles, objects" of one branch or application.
std::string contentsOf(const fs::path& folder) {
    std::map<EntryKind, std::pair<std::size_t, std::uintmax_t>> sums;
    for (const Entry& entry : entriesBelow(folder)) {
        sums[entry.kind].first++;
        sums[entry.kind].second += entry.size;
    }
    const auto [bundles, bundleBytes] = sums[EntryKind::Bundle];
    const auto [objects, objectBytes] = sums[EntryKind::Object];
    return counted(bundles, bundleBytes, "bundle") + ", " + counted(objects, objectBytes, "object");
}

std::vector<fs::path> foldersIn(const fs::path& folder) {
    std::vector<fs::path> folders;
    std::error_code error;
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        std::error_code vanished;
        if (at->is_directory(vanished) && !at->path().filename().native().starts_with('.'))
            folders.push_back(at->path());
    }
    std::sort(folders.begin(), folders.end());
    return folders;
}

int printStats(const Cache& cache) {
    std::cout << "cache: " << cache.root.native() << "\n";
    for (const fs::path& branch : foldersIn(cache.root / "branches")) {
        std::cout << "branch " << branch.filename().native() << (branch == cache.activeBranch ? " (active)" : "")
                  << ": " << contentsOf(branch) << "\n";
    }
    for (const fs::path& application : foldersIn(cache.root / "apps"))
        std::cout << "application " << application.filename().native() << ": " << contentsOf(application) << "\n";
    std::uintmax_t bytes = 0;
    std::size_t files = 0;
    for (const fs::path& part : cache.parts()) {
        for (const Entry& entry : entriesBelow(part)) {
            files++;
            bytes += entry.size;
        }
    }
    std::cout << "total: " << counted(files, bytes, "file") << "\n";
    return 0;
}

// What is wrong with a file of the cache, "" = nothing.
std::string damageOf(const Entry& entry) {
    if (entry.kind == EntryKind::Bundle) return isGenericMethodBundleSource(entry.path) ? "" : "not a sound bundle";
    if (entry.kind != EntryKind::Object) return "";
    const std::shared_ptr<const Str> bytes = SourceManager::instance().contents(entry.path);
    if (!bytes) {
        std::error_code error;
        return fs::exists(entry.path, error) ? "cannot be read" : "";
    }
    return parseStoredUnit(*bytes) ? "" : "not a sound object";
}

int verify(const Cache& cache) {
    std::size_t checked = 0, damaged = 0;
    for (const fs::path& part : cache.parts()) {
        for (const Entry& entry : entriesBelow(part)) {
            if (entry.kind != EntryKind::Bundle && entry.kind != EntryKind::Object) continue;
            checked++;
            const std::string damage = damageOf(entry);
            if (damage.empty()) continue;
            damaged++;
            std::cout << entry.path.native() << ": " << damage << "\n";
        }
    }
    std::cout << checked << (checked == 1 ? " file" : " files") << " checked, " << damaged << " damaged\n";
    return damaged == 0 ? 0 : STATUS_DAMAGED;
}

int clear(const Cache& cache) {
    std::uintmax_t removed = 0;
    for (const fs::path& part : cache.parts()) {
        std::error_code error;
        std::size_t files = entriesBelow(part).size();
        fs::remove_all(part, error);
        // A compiler at work may have put something there just now.
        if (error == std::errc::directory_not_empty) fs::remove_all(part, error);
        if (error && error != std::errc::no_such_file_or_directory && error != std::errc::not_a_directory) {
            std::cerr << "veskc: cannot clear '" << part.native() << "': " << error.message() << "\n";
            return STATUS_TROUBLE;
        }
        removed += files;
    }
    std::cout << removed << (removed == 1 ? " file" : " files") << " removed\n";
    return 0;
}

}  // namespace

int runCacheCommand(const CommandLine& line) {
    if (line.cache == CacheMode::Off) {
        std::cerr << "veskc: with --cache=off there is no cache\n";
        return STATUS_TROUBLE;
    }
    const Cache cache = findCache(line);
    if (line.cacheVerb == "stats") return printStats(cache);
    if (line.cacheVerb == "verify") return verify(cache);
    if (line.cache != CacheMode::On) {
        std::cerr << "veskc: a cache that is not written is not cleared either\n";
        return STATUS_TROUBLE;
    }
    return clear(cache);
}

}  // namespace vesk::compiler
