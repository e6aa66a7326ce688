// Finding the end of a chunk without parsing it: each line is looked at once.
#include "driver/repl_input.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace vesk::compiler {
namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

bool isEmptyLine(const std::string& line) { return std::all_of(line.begin(), line.end(), isBlank); }

bool isIndented(const std::string& line) { return !line.empty() && isBlank(line[0]); }

bool beginsWithWord(const std::string& line, std::string_view word) {
    if (!line.starts_with(word)) return false;
    const char next = line.size() > word.size() ? line[word.size()] : ' ';
    return !std::isalnum(static_cast<unsigned char>(next)) && next != '_';
}

// What the lines of a chunk have left open.
class OpenForms {
public:
    void add(const std::string& line) {
        const bool continues = isOpen();
        last_ = 0;
        scan(line);
        if (last_ == 0) return;  // nothing but comments
        if (!continues) isAnnotation_ = line[line.find_first_not_of(" \t")] == '@';
        if (brackets_ <= 0 && last_ == ':') hasBlock_ = true;
    }
    // An expression or a comment goes on, whatever the next line looks like.
    bool isOpen() const { return inComment_ || brackets_ > 0 || last_ == ',' || last_ == '<'; }
    bool hasBlock() const { return hasBlock_; }
    bool isAnnotation() const { return isAnnotation_; }

private:
    void scan(const std::string& line) {
        for (std::size_t i = 0; i < line.size(); i++) {
            const char c = line[i];
            const char next = i + 1 < line.size() ? line[i + 1] : 0;
            if (inComment_) {
                if (c == '*' && next == '/') {
                    inComment_ = false;
                    i++;
                }
                continue;
            }
            if (c == '#') return;
            if (c == '/' && next == '*') {
                inComment_ = true;
                i++;
                continue;
            }
            if (c == '"') i = endOfString(line, i);
            if (c == '(' || c == '[' || c == '{') brackets_++;
            if (c == ')' || c == ']' || c == '}') brackets_--;
            if (!isBlank(c)) last_ = c;
        }
    }
    static std::size_t endOfString(const std::string& line, std::size_t begin) {
        for (std::size_t i = begin + 1; i < line.size(); i++) {
            if (line[i] == '\\')
                i++;
            else if (line[i] == '"')
                return i;
        }
        return line.size();
    }

    int brackets_ = 0;
    char last_ = 0;  // the last character of the last line that is neither blank nor comment
    bool inComment_ = false, hasBlock_ = false, isAnnotation_ = false;
};

}  // namespace

std::optional<std::string> ChunkReader::nextLine(bool isFirst) {
    std::optional<std::string> line = kept_ ? std::exchange(kept_, std::nullopt) : source_(isFirst);
    if (line && line->ends_with('\r')) line->pop_back();
    return line;
}

std::optional<std::string> ChunkReader::next() {
    std::optional<std::string> line = nextLine(true);
    while (line && isEmptyLine(*line)) line = nextLine(true);
    if (!line) return std::nullopt;
    std::string text = *line;
    if (text[0] == ':') return text;
    OpenForms forms;
    forms.add(text);
    int emptyLines = 0;
    while (forms.isOpen() || forms.hasBlock() || forms.isAnnotation()) {
        line = nextLine(false);
        if (!line) break;
        if (isEmptyLine(*line)) {
            emptyLines++;
            // The way out of a bracket that was never meant to be open.
            if (isTyped_() && (!forms.isOpen() || emptyLines > 1)) break;
            text += "\n";
            continue;
        }
        const bool goesOn =
            forms.isOpen() || forms.isAnnotation() || isIndented(*line) ||
            (emptyLines == 0 && ((*line)[0] == '#' || beginsWithWord(*line, "elif") || beginsWithWord(*line, "else")));
        if (!goesOn) {
            kept_ = std::move(line);
            break;
        }
        emptyLines = 0;
        text += "\n" + *line;
        forms.add(*line);
    }
    return text;
}

}  // namespace vesk::compiler
