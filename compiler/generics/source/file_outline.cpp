// Building outlines.
#include "generics/source/file_outline.h"

#include "generics/source/declaration_parser.h"
#include "generics/source/source_text_cache.h"
#include "host/diagnostics.h"

namespace vesk::compiler {

namespace {

thread_local std::unordered_map<Str, FileOutline> gFileOutlines;

void addPreludeTokens(const Str& path, FileOutline& outline) {
    const StrVec prelude = collectOrderedModulePreludeLines(*outline.lines);
    Str text;
    bool hasBlockComment = false;
    for (const Str& line : prelude) {
        hasBlockComment = hasBlockComment || line.find("/*") != Str::npos;
        text += line;
        text += '\n';
    }
    if (!hasBlockComment) return;
    try {
        outline.preludeTokens = tokenizeAtFileLines(text, path, 1);
    } catch (const CompilerException&) {
        outline.isPreludeWhole = false;
    }
}

}  // namespace

int FileOutline::functionHeader(const Str& name) const {
    const auto found = functionHeaders.find(name);
    return found == functionHeaders.end() ? -1 : found->second;
}

const FileOutline& fileOutline(const Str& path) {
    if (const auto found = gFileOutlines.find(path); found != gFileOutlines.end()) return found->second;
    FileOutline outline;
    outline.lines = &readSourceLinesCached(path);
    for (std::size_t i = 0; i < outline.lines->size(); i++) {
        if (const std::string_view name = functionNameInHeader((*outline.lines)[i]); !name.empty()) {
            outline.functionHeaders.try_emplace(name, static_cast<int>(i));
        }
    }
    outline.header = readSourceModuleHeader(path);
    addPreludeTokens(path, outline);
    return gFileOutlines.emplace(path, std::move(outline)).first->second;
}

}  // namespace vesk::compiler
