// One spelling for every path.
#include "host/source_manager.h"

namespace vesk::compiler {

namespace {

Str lexicallyNormal(std::string_view path) {
    Str out;
    std::size_t position = 0;
    while (position < path.size()) {
        std::size_t end = path.find('/', position);
        if (end == std::string_view::npos) end = path.size();
        std::string_view part = path.substr(position, end - position);
        position = end + 1;
        if (part.empty() || part == ".") continue;
        if (part == "..") {
            std::size_t slash = out.rfind('/');
            out.resize(slash == Str::npos ? 0 : slash);
            continue;
        }
        out += '/';
        out += part;
    }
    if (out.empty()) out += '/';
    return out;
}

// True for absolute paths in which there is nothing to do.
bool isNormal(std::string_view path) {
    if (path.empty() || path[0] != '/') return false;
    if (path.size() == 1) return true;
    if (path.back() == '/') return false;
    for (std::size_t i = path.find('/'); i != std::string_view::npos; i = path.find('/', i + 1)) {
        char next = i + 1 < path.size() ? path[i + 1] : '/';
        if (next == '/') return false;
        if (next != '.') continue;
        std::string_view rest = path.substr(i + 2);
        if (rest.empty() || rest[0] == '/') return false;
        if (rest[0] == '.' && (rest.size() == 1 || rest[1] == '/')) return false;
    }
    return true;
}

}  // namespace

Str SourceManager::normalizePath(const Str& path) {
    if (path.empty() || isNormal(path)) return path;
    if (path[0] == '/') return lexicallyNormal(path);
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::current_path(error);
    // A working folder that has been deleted holds nothing; the root folder would.
    return lexicallyNormal((error ? "/proc/self/cwd" : folder.native()) + "/" + path);
}

Str SourceManager::normalizePath(const std::filesystem::path& path) { return normalizePath(path.native()); }

Str SourceManager::normalizePath(const char* path) { return path ? normalizePath(Str(path)) : Str(); }

}  // namespace vesk::compiler
