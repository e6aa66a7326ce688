// Building outlines.
#include "generics/source/file_outline.h"

#include <cctype>

#include "generics/source/declaration_parser.h"
#include "generics/source/source_text_cache.h"
#include "host/diagnostics.h"

namespace vesk::compiler {

namespace {

thread_local std::unordered_map<Str, FileOutline> gFileOutlines;

constexpr std::string_view DEF = "def ";

bool isSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

// The text between "def " and what may follow a function's name; empty for lines that are no header.
std::string_view headerName(std::string_view line) {
    const std::size_t def = line.find(DEF);
    if (def == std::string_view::npos) return {};
    if (def > 0 && (line[def - 1] == '_' || std::isalnum(static_cast<unsigned char>(line[def - 1])))) return {};
    std::size_t begin = def + DEF.size();
    while (begin < line.size() && isSpace(line[begin])) begin++;
    std::size_t end = begin;
    while (end < line.size() && line[end] != '(' && line[end] != '<' && !isSpace(line[end])) end++;
    return line.substr(begin, end - begin);
}

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
        if (const std::string_view name = headerName((*outline.lines)[i]); !name.empty()) {
            outline.functionHeaders.try_emplace(name, static_cast<int>(i));
        }
    }
    outline.header = readSourceModuleHeader(path);
    addPreludeTokens(path, outline);
    return gFileOutlines.emplace(path, std::move(outline)).first->second;
}

}  // namespace vesk::compiler
