// Rendering of errors and their notes.
#include "driver/diagnostic_renderer.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>

#include "host/compiler_sources.h"
#include "host/source_manager.h"
#include "host/tokens.h"
#include "il/shown_text.h"

namespace vesk::compiler {
namespace {

constexpr std::string_view FLATTENED_MARK = "__T_";
constexpr std::size_t LONGEST_LINE = 200;   // bytes of source shown without cutting
constexpr std::size_t LONGEST_WORD = 1000;  // bytes of a name or type in a message
constexpr std::size_t SHOWN_HEAD = 400;     // bytes of a longer one in front of the gap, and behind it
constexpr std::size_t SHOWN_TAIL = 100;
constexpr std::size_t WINDOW_BEFORE = 80;  // bytes shown before and behind the place of a longer line
constexpr std::size_t WINDOW_BEHIND = 80;
constexpr std::size_t INNERMOST_REQUESTS = 5;  // shown of a long chain of requests
constexpr std::size_t OUTERMOST_REQUESTS = 2;

constexpr const char* BOLD = "\033[1m";
constexpr const char* RED = "\033[1;31m";
constexpr const char* CYAN = "\033[1;36m";
constexpr const char* GREEN = "\033[1;32m";
constexpr const char* PLAIN = "\033[0m";

bool isNameByte(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '.';
}

bool continuesCharacter(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

std::shared_ptr<const std::string> sourceText(const std::string& path) {
    if (auto held = Compiler::virtualSourceContents(path)) return held;
    return SourceManager::contents(path);
}

// Where the lines of a text begin: errors with thousands of notes ask for as many lines of one file.
struct LineStarts {
    std::shared_ptr<const std::string> text;
    std::vector<std::size_t> starts;
};

const LineStarts& lineStartsOf(std::shared_ptr<const std::string> text) {
    thread_local LineStarts last;
    if (last.text == text) return last;
    last = {std::move(text), {0}};
    for (std::size_t end = last.text->find('\n'); end != std::string::npos; end = last.text->find('\n', end + 1))
        last.starts.push_back(end + 1);
    return last;
}

// The line of that number (from 1) without its end, "" when the file has fewer.
std::string sourceLine(const std::string& path, int number) {
    const auto text = sourceText(path);
    if (!text || number < 1) return "";
    const std::vector<std::size_t>& starts = lineStartsOf(text).starts;
    if (static_cast<std::size_t>(number) > starts.size()) return "";
    const std::size_t begin = starts[static_cast<std::size_t>(number) - 1];
    std::size_t end = text->find('\n', begin);
    if (end == std::string::npos) end = text->size();
    if (end > begin && (*text)[end - 1] == '\r') end--;
    return text->substr(begin, end - begin);
}

// Bytes that a terminal might act on are shown as "?".
std::string printable(std::string line) {
    for (char& c : line) {
        if ((static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7F) c = '?';
    }
    return line;
}

// Names and types that nobody reads to the end are cut in their middle; a text is never cut within a character.
std::string shortened(const std::string& message) {
    if (message.size() <= LONGEST_WORD) return message;
    std::string out;
    for (std::size_t begin = 0; begin < message.size();) {
        std::size_t end = message.find(' ', begin);
        end = end == std::string::npos ? message.size() : end + 1;
        // A type's arguments have blanks between them: what is inside of clauses belongs to one word.
        std::size_t depth = 0, last = begin;
        for (std::size_t at = begin; at < message.size(); at++) {
            if (message[at] == '<') depth++;
            if (message[at] == '>' && depth > 0) depth--;
            last = at + 1;
            if (message[at] == ' ' && depth == 0) break;
        }
        end = std::max(end, last);
        if (end - begin <= LONGEST_WORD) {
            out.append(message, begin, end - begin);
        } else {
            std::size_t head = begin + SHOWN_HEAD, tail = end - SHOWN_TAIL;
            while (head > begin && continuesCharacter(message[head])) head--;
            while (tail < end && continuesCharacter(message[tail])) tail++;
            out.append(message, begin, head - begin).append(" ... ").append(message, tail, end - tail);
        }
        begin = end;
    }
    return out;
}

// The structured form of a word that may be a flattened type, perhaps with a member behind it; the word when it is none.
std::string structuredWord(const std::string& word, const TypeTable& types) {
    for (std::size_t end = word.size();; end = word.rfind('.', end - 1)) {
        if (end == std::string::npos || word.find(FLATTENED_MARK) >= end) return word;
        if (const Type* type = types.unflatten(std::string_view(word).substr(0, end))) {
            return type->structured + word.substr(end);
        }
        if (end == 0) return word;
    }
}

}  // namespace

std::string markedSourceLine(const std::string& line, int column) {
    const std::size_t place = std::min<std::size_t>(column < 1 ? 0 : static_cast<std::size_t>(column) - 1, line.size());
    std::size_t begin = 0, end = line.size();
    if (line.size() > LONGEST_LINE) {
        begin = place > WINDOW_BEFORE ? place - WINDOW_BEFORE : 0;
        end = std::min(line.size(), place + WINDOW_BEHIND);
        while (begin > 0 && continuesCharacter(line[begin])) begin--;
        while (end < line.size() && continuesCharacter(line[end])) end++;
    }
    const std::string before = begin > 0 ? "..." : "";
    std::string out =
        "    " + before + printable(line.substr(begin, end - begin)) + (end < line.size() ? "..." : "") + "\n";
    out += "    " + std::string(before.size(), ' ');
    for (std::size_t i = begin; i < place; i++) {
        if (line[i] == '\t')
            out += '\t';
        else if (!continuesCharacter(line[i]))
            out += ' ';
    }
    return out + "^\n";
}

DiagnosticRenderer::DiagnosticRenderer(RenderOptions options) : options_(std::move(options)) {}

std::string DiagnosticRenderer::displayPath(const std::string& path) const {
    const std::string& folder = options_.workingFolder;
    if (folder.empty() || !path.starts_with(folder)) return path;
    if (folder.ends_with('/')) return path.substr(folder.size());
    return path.size() > folder.size() && path[folder.size()] == '/' ? path.substr(folder.size() + 1) : path;
}

std::string DiagnosticRenderer::shownPath(const std::string& path) const {
    return withControlsShown(displayPath(path));
}

// Paths below the working folder are named from there.
std::string DiagnosticRenderer::withoutWorkingFolder(std::string message) const {
    if (options_.workingFolder.size() < 2) return message;
    const std::string prefix = options_.workingFolder + (options_.workingFolder.ends_with('/') ? "" : "/");
    for (std::size_t at = message.find(prefix); at != std::string::npos; at = message.find(prefix, at)) {
        const bool startsPath = at == 0 || message[at - 1] == ' ' || message[at - 1] == '\'' || message[at - 1] == '"';
        if (startsPath)
            message.erase(at, prefix.size());
        else
            at++;
    }
    return message;
}

std::string DiagnosticRenderer::displayMessage(const std::string& text) const {
    std::string message = structured(text);
    if (options_.shownNames) message = options_.shownNames(message);
    return shortened(withoutWorkingFolder(std::move(message)));
}

std::string DiagnosticRenderer::structured(const std::string& message) const {
    if (!options_.types || message.find(FLATTENED_MARK) == std::string::npos) return message;
    std::string out;
    for (std::size_t i = 0; i < message.size();) {
        if (!isNameByte(message[i])) {
            out += message[i++];
            continue;
        }
        std::size_t end = i;
        while (end < message.size() && isNameByte(message[end])) end++;
        out += structuredWord(message.substr(i, end - i), *options_.types);
        i = end;
    }
    return out;
}

void DiagnosticRenderer::append(std::string& out, const char* severity, const char* color, const std::string& message,
                                const TokenPtr& token) const {
    const auto paint = [&](const char* paintColor) { return options_.color ? paintColor : ""; };
    const bool hasPlace = token && !token->getFilename().empty() && token->getLine() > 0;
    out += paint(BOLD);
    if (hasPlace) {
        out += shownPath(token->getFilename()) + ":" + std::to_string(token->getLine()) + ":" +
               std::to_string(token->getColumn()) + ": ";
    } else {
        out += "veskc: ";
    }
    out += std::string(paint(color)) + severity + ": " + paint(PLAIN) + paint(BOLD) +
           withControlsShown(displayMessage(message)) + paint(PLAIN) + "\n";
    if (!hasPlace) return;
    const std::string line = sourceLine(token->getFilename(), token->getLine());
    if (line.empty()) return;
    std::string marked = markedSourceLine(line, token->getColumn());
    if (options_.color) {
        marked.insert(marked.size() - 2, GREEN);
        marked.insert(marked.size() - 1, PLAIN);
    }
    out += marked;
}

// The requests stand innermost first, perhaps with other remarks among them, which all stay.
std::vector<DiagnosticNote> DiagnosticRenderer::shownNotes(const CompilerException& error) const {
    const std::vector<DiagnosticNote>& all = error.getNotes();
    const auto requests = static_cast<std::size_t>(
        std::count_if(all.begin(), all.end(), [](const DiagnosticNote& note) { return note.isRequest; }));
    if (options_.allNotes || requests <= INNERMOST_REQUESTS + OUTERMOST_REQUESTS) return all;
    const std::size_t leftOut = requests - INNERMOST_REQUESTS - OUTERMOST_REQUESTS;
    std::vector<DiagnosticNote> shown;
    std::size_t position = 0;
    for (const DiagnosticNote& note : all) {
        const bool isFirstLeftOut = note.isRequest && position == INNERMOST_REQUESTS;
        const bool isShown =
            !note.isRequest || position < INNERMOST_REQUESTS || position >= requests - OUTERMOST_REQUESTS;
        if (isFirstLeftOut) {
            shown.push_back({std::to_string(leftOut) + (leftOut == 1 ? " request" : " requests") +
                                 " in between left out (--all-notes shows all)",
                             nullptr});
        }
        if (isShown) shown.push_back(note);
        if (note.isRequest) position++;
    }
    return shown;
}

std::string DiagnosticRenderer::text(const CompilerException& error) const {
    std::string out;
    append(out, "error", RED, error.what(), error.getToken());
    for (const DiagnosticNote& note : shownNotes(error)) append(out, "note", CYAN, note.message, note.token);
    return out;
}

std::string DiagnosticRenderer::json(const CompilerException& error) const {
    const auto record = [&](const char* severity, const std::string& message, const TokenPtr& token) {
        nlohmann::ordered_json entry = {{"severity", severity}, {"message", displayMessage(message)}};
        if (token && !token->getFilename().empty() && token->getLine() > 0) {
            entry["file"] = displayPath(token->getFilename());
            entry["line"] = token->getLine();
            entry["column"] = token->getColumn();
        }
        return entry;
    };
    nlohmann::ordered_json entry = record("error", error.what(), error.getToken());
    entry["notes"] = nlohmann::ordered_json::array();
    for (const DiagnosticNote& note : shownNotes(error))
        entry["notes"].push_back(record("note", note.message, note.token));
    return entry.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace vesk::compiler
