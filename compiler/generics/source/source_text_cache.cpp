// Reading sources, in-memory ones first.
#include "generics/source/source_text_cache.h"

#include "generics/session_state.h"
#include "host/compiler_sources.h"
#include "host/source_manager.h"

namespace vesk::compiler {

bool readSourceText(const Str& path, Str& out) {
    if (Compiler::tryGetVirtualSource(path, out)) return true;
    const std::shared_ptr<const Str> text = SourceManager::instance().contents(path);
    if (!text) return false;
    out = *text;
    return true;
}

StrVec splitSourceLines(std::string_view text) {
    StrVec lines;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        lines.emplace_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

const StrVec& readSourceLinesCached(const Str& path) {
    const Str key = SourceManager::normalizePath(path);
    if (const auto found = gSourceTextCache.find(key); found != gSourceTextCache.end() && found->second.loaded) {
        return found->second.lines;
    }
    Str text;
    StrVec lines;
    if (readSourceText(path, text)) lines = splitSourceLines(text);
    SourceTextCacheEntry& entry = gSourceTextCache[key];
    entry.lines = std::move(lines);
    entry.loaded = true;
    return entry.lines;
}

std::shared_ptr<const Str> sourceTextSnapshot(const Str& path) { return SourceManager::instance().contents(path); }

bool physicalSourceIsNewer(const Str& path, const Str& than) {
    if (path.empty() || than.empty()) return false;
    for (const Str& file : {std::cref(path), std::cref(than)}) {
        const FileStatus status = SourceManager::instance().status(file);
        if (!status.queried || !status.exists) return false;
    }
    std::filesystem::file_time_type time, otherTime;
    if (!SourceManager::instance().lastWriteTime(path, time)) return false;
    if (!SourceManager::instance().lastWriteTime(than, otherTime)) return false;
    return time > otherTime;
}

}  // namespace vesk::compiler
