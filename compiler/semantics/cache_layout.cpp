// Where the cache lies.
//   <cache>/branches/<id>/generics           shared bundles; <id> names compiler build, target and standard library
//   <cache>/branches/<id>/objects            compiled objects: of these bundles and of the standard library
//   <cache>/apps/<hash of program root>/generics   the application's own bundles
//   <cache>/apps/<hash of program root>/objects    their compiled objects
// A session that leaves the cache alone has the same paths under a root where no file can be.
#include <link.h>
#include <unistd.h>
#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "generics/typetext/symbol_mangling.h"
#include "host/runtime.h"
#include "host/source_manager.h"
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

// Name, size and time of every library source.
std::string libraryStamp(const std::string& folder) {
    if (folder.empty()) return {};
    std::vector<std::string> lines;
    std::error_code error;
    for (std::filesystem::recursive_directory_iterator it(folder, error), end; !error && it != end;
         it.increment(error)) {
        if (it->path().extension() != ".vk") continue;
        std::error_code ignored;
        lines.push_back(it->path().lexically_relative(folder).native() + "|" + std::to_string(it->file_size(ignored)) +
                        "|" + std::to_string(it->last_write_time(ignored).time_since_epoch().count()));
    }
    std::sort(lines.begin(), lines.end());
    std::string all;
    for (const std::string& line : lines) all += line + "\n";
    return all;
}

std::string environmentVariable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

std::string cacheDirectory(const SessionOptions& options) {
    if (!options.cacheDirectory.empty()) return options.cacheDirectory;
    if (std::string folder = environmentVariable("VESK_CACHE_DIR"); !folder.empty()) return folder;
    if (std::string folder = environmentVariable("XDG_CACHE_HOME"); !folder.empty() && folder[0] == '/')
        return folder + "/vesk";
    if (std::string home = environmentVariable("HOME"); !home.empty()) return home + "/.cache/vesk";
    return "/tmp/vesk-cache-" + std::to_string(::getuid());
}

#if defined(__x86_64__)
constexpr const char* TARGET = "x86_64-linux";
#elif defined(__aarch64__)
constexpr const char* TARGET = "aarch64-linux";
#else
constexpr const char* TARGET = "other-linux";
#endif

// Fills the three paths of the session once.
void findPaths(CompileSession::State& state) {
    if (!state.branchPath.empty()) return;
    // Below a file that is no folder nothing can ever be found or made.
    std::string cache = state.options.cache == CacheMode::Off
                            ? "/dev/null/vesk-cache"
                            : SourceManager::normalizePath(cacheDirectory(state.options));
    std::string id = fnv1a64Hex(programStamp() + "\n" + TARGET + "\n" + libraryStamp(state.standardLibrary));
    std::string programRoot = SourceManager::normalizePath(state.options.programRoot);
    state.branchPath = cache + "/branches/" + id;
    state.genericsPath = state.branchPath + "/generics";
    state.appGenericsPath = cache + "/apps/" + fnv1a64Hex(programRoot) + "/generics";
}

std::string sessionPath(std::string CompileSession::State::* path) {
    CompileSession::State& state = CompileSession::current().state();
    std::lock_guard lock(state.sourceMutex);
    findPaths(state);
    return state.*path;
}

}  // namespace

Runtime& Runtime::getInstance() {
    static Runtime runtime;
    return runtime;
}

Str Runtime::getGenericsPath() { return sessionPath(&CompileSession::State::genericsPath); }
Str Runtime::getAppGenericsPath() { return sessionPath(&CompileSession::State::appGenericsPath); }
Str Runtime::getCacheBranchPath() { return sessionPath(&CompileSession::State::branchPath); }

}  // namespace vesk::compiler
