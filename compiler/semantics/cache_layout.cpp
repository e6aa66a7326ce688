// Where the cache lies.
//   <cache>/branches/<id>/generics           shared bundles; <id> names compiler build, target and standard library
//   <cache>/branches/<id>/objects            compiled objects: of these bundles and of the standard library
//   <cache>/apps/<hash of program root>/generics   the application's own bundles
//   <cache>/apps/<hash of program root>/objects    their compiled objects
// The folder has to be the user's own or root's (cache/held_folder.h); another is not used.
// A session that leaves the cache alone has the same paths under a root where no file can be.
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <set>

#include "cache/trusted_cache.h"
#include "generics/typetext/content_hash.h"
#include "generics/typetext/symbol_mangling.h"
#include "host/runtime.h"
#include "host/source_manager.h"
#include "semantics/folder_entries.h"
#include "semantics/session_tables.h"

namespace vesk::compiler {

namespace {

// The linker's build id of the running program, "" when it has none.
std::string buildId() {
    std::string id;
    dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* out) -> int {
            for (int i = 0; i < info->dlpi_phnum; i++) {
                const ElfW(Phdr)& header = info->dlpi_phdr[i];
                if (header.p_type != PT_NOTE) continue;
                const char* at = reinterpret_cast<const char*>(info->dlpi_addr + header.p_vaddr);
                const char* end = at + header.p_memsz;
                while (at + sizeof(ElfW(Nhdr)) <= end) {
                    const auto* note = reinterpret_cast<const ElfW(Nhdr)*>(at);
                    const char* name = at + sizeof *note;
                    const char* description = name + ((note->n_namesz + 3) & ~3u);
                    if (note->n_type == NT_GNU_BUILD_ID && note->n_namesz == 4 && std::string_view(name, 3) == "GNU") {
                        static_cast<std::string*>(out)->assign(description, note->n_descsz);
                        return 1;
                    }
                    at = description + ((note->n_descsz + 3) & ~3u);
                }
            }
            return 1;  // the program itself comes first; libraries do not matter
        },
        &id);
    return id;
}

std::string programStamp() {
    std::string id = buildId();
    if (!id.empty()) return id;
    std::error_code error;
    auto size = std::filesystem::file_size("/proc/self/exe", error);
    auto time = std::filesystem::last_write_time("/proc/self/exe", error);
    return std::to_string(size) + "@" + std::to_string(time.time_since_epoch().count());
}

// The sources in a folder and below it, in no order. Links are followed, as they are where packages are looked for; a folder
// that leads back to itself is looked at once.
class LibrarySources {
public:
    explicit LibrarySources(CompileSession::State& state) : state_(state) {}

    void add(const std::string& folder) {
        struct stat about{};
        if (::stat(folder.c_str(), &about) != 0) return note(folder, {errno, std::generic_category()});
        if (!seen_.emplace(about.st_dev, about.st_ino).second) return;
        std::error_code error;
        for (std::filesystem::directory_iterator it = folderEntries(folder, error), end; !error && it != end;
             it.increment(error)) {
            std::error_code unknown;
            if (it->path().extension() == ".vk")
                paths_.push_back(it->path().native());
            else if (it->is_directory(unknown))
                add(it->path().native());
            note(it->path().native(), unknown);
        }
        note(folder, error);
    }
    const std::vector<std::string>& sorted() {
        std::sort(paths_.begin(), paths_.end());
        return paths_;
    }

private:
    void note(const std::string& path, std::error_code reason) { state_.noteUnreadable(path, reason); }

    CompileSession::State& state_;
    std::set<std::pair<dev_t, ino_t>> seen_;
    std::vector<std::string> paths_;
};

// Name and content of every library source: times and sizes tell too little, an edit may keep both. The texts are those
// that the session compiles.
std::string libraryStamp(CompileSession::State& state) {
    const std::string& folder = state.standardLibrary;
    if (folder.empty()) return {};
    LibrarySources sources(state);
    sources.add(folder);
    std::string all;
    for (const std::string& path : sources.sorted()) {
        const std::shared_ptr<const Str> text = SourceManager::contents(path);
        all += path.substr(folder.size()) + "|" + (text ? std::to_string(contentHash(*text)) : "unreadable") + "\n";
    }
    return all;
}

std::string environmentVariable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

// Where the cache is to lie, or why there can be none.
struct CachePlace {
    std::string folder, refusal;
};

// A folder that somebody has named, relative to the working folder.
CachePlace namedPlace(const std::string& folder) {
    if (folder[0] == '/') return {SourceManager::normalizePath(folder), ""};
    std::error_code error;
    const std::filesystem::path here = std::filesystem::current_path(error);
    if (error) return {"", folder + ": the working folder: " + error.message()};
    return {SourceManager::normalizePath(here / folder), ""};
}

// Variables of the desktop's rules count only when they are absolute: a relative one would make whatever lies in the
// working folder, such as the files of somebody else's project, the cache.
CachePlace placeOfCache(const SessionOptions& options) {
    if (!options.cacheDirectory.empty()) return namedPlace(options.cacheDirectory);
    if (std::string folder = environmentVariable("VESK_CACHE_DIR"); !folder.empty()) return namedPlace(folder);
    if (std::string folder = environmentVariable("XDG_CACHE_HOME"); !folder.empty() && folder[0] == '/')
        return {SourceManager::normalizePath(folder + "/vesk"), ""};
    const std::string home = environmentVariable("HOME");
    if (home.empty()) return {"/tmp/vesk-cache-" + std::to_string(::geteuid()), ""};
    if (home[0] != '/') return {"", "HOME is no absolute path: " + home};
    return {SourceManager::normalizePath(home + "/.cache/vesk"), ""};
}

#if defined(__x86_64__)
constexpr const char* TARGET = "x86_64-linux";
#elif defined(__aarch64__)
constexpr const char* TARGET = "aarch64-linux";
#else
constexpr const char* TARGET = "other-linux";
#endif

// The cache that the session uses; null when there is none.
std::shared_ptr<TrustedCache> cacheOf(const CompileSession::State& state) {
    if (state.options.cache == CacheMode::Off) return nullptr;
    const auto tell = [trouble = state.options.cacheTrouble](const std::string& what) {
        if (trouble) trouble->noteRefusal(what);
    };
    const CachePlace place = placeOfCache(state.options);
    if (!place.refusal.empty()) {
        tell(place.refusal);
        return nullptr;
    }
    auto cache = std::make_shared<TrustedCache>(place.folder == "/" ? "" : place.folder, tell);
    const FileProblem problem = cache->check();
    if (!problem) return cache;
    tell(problem.text());
    return nullptr;
}

std::string sessionPath(std::string CompileSession::State::* path) {
    CompileSession::State& state = CompileSession::current().state();
    findCache(state);
    return state.*path;
}

}  // namespace

void findCache(CompileSession::State& state) {
    std::call_once(state.cacheIsFound, [&] {
        state.ownedCache = cacheOf(state);
        // Below a file that is no folder nothing can ever be found or made.
        const std::string root = state.ownedCache ? state.ownedCache->path() : "/dev/null/vesk-cache";
        const std::string id = fnv1a64Hex(programStamp() + "\n" + TARGET + "\n" + libraryStamp(state));
        const std::string programRoot = SourceManager::normalizePath(state.options.programRoot);
        state.branchPath = root + "/branches/" + id;
        state.genericsPath = state.branchPath + "/generics";
        state.appGenericsPath = root + "/apps/" + fnv1a64Hex(programRoot) + "/generics";
        state.cache.store(state.ownedCache.get(), std::memory_order_release);
    });
}

TrustedCache* cacheHolding(const std::string& path) {
    TrustedCache* cache = CompileSession::current().state().cache.load(std::memory_order_acquire);
    return cache && cache->holds(path) ? cache : nullptr;
}

void CompileSession::tidyCache() {
    if (!writesCache()) return;
    if (TrustedCache* cache = state_->cache.load(std::memory_order_acquire)) cache->removeAbandoned();
}

bool CompileSession::writesCache() const {
    const SessionOptions& options = state_->options;
    if (options.cache != CacheMode::On || (options.cacheTrouble && options.cacheTrouble->isThere())) return false;
    return cache() != nullptr;
}

std::shared_ptr<TrustedCache> CompileSession::cache() const {
    findCache(*state_);
    return state_->ownedCache;
}

Runtime& Runtime::getInstance() {
    static Runtime runtime;
    return runtime;
}

Str Runtime::getGenericsPath() { return sessionPath(&CompileSession::State::genericsPath); }
Str Runtime::getAppGenericsPath() { return sessionPath(&CompileSession::State::appGenericsPath); }
Str Runtime::getCacheBranchPath() { return sessionPath(&CompileSession::State::branchPath); }

}  // namespace vesk::compiler
