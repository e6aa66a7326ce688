// Only mistakes come here, so that reading the source once more costs nothing that matters.
#include "semantics/type_place.h"

#include <algorithm>

#include "generics/typetext/trimming.h"
#include "host/source_manager.h"

namespace vesk::compiler {

namespace {

bool isWordCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

std::size_t offsetOf(std::string_view source, int line, int column) {
    std::size_t position = 0;
    for (int i = 1; i < line; i++) {
        position = source.find('\n', position);
        if (position == std::string_view::npos) return position;
        position++;
    }
    position += static_cast<std::size_t>(column) - 1;
    return position <= source.size() ? position : std::string_view::npos;
}

// Behind blanks, line ends and comments.
std::size_t behindBlanks(std::string_view source, std::size_t position) {
    for (; position < source.size(); position++) {
        if (source[position] == '#') position = std::min(source.find('\n', position), source.size() - 1);
        if (!isTypeTextBlank(source[position])) break;
    }
    return position;
}

// The end of `text` in the source at `position`, blanks left out of the comparison; npos when it does not stand there.
std::size_t endOfMatch(std::string_view source, std::size_t position, std::string_view text) {
    bool endsWord = false;
    for (char c : text) {
        if (isTypeTextBlank(c)) continue;
        position = behindBlanks(source, position);
        if (position >= source.size() || source[position] != c) return std::string_view::npos;
        endsWord = isWordCharacter(c);
        position++;
    }
    bool goesOn = endsWord && position < source.size() && isWordCharacter(source[position]);
    return goesOn ? std::string_view::npos : position;
}

// Where the type begins: at `begin`, or behind the name that stands there and a colon.
std::size_t startOfType(std::string_view source, std::size_t begin, std::string_view type) {
    if (endOfMatch(source, begin, type) != std::string_view::npos) return begin;
    std::size_t position = begin;
    while (position < source.size() && isWordCharacter(source[position])) position++;
    position = behindBlanks(source, position);
    if (position >= source.size() || source[position] != ':') return std::string_view::npos;
    position = behindBlanks(source, position + 1);
    return endOfMatch(source, position, type) == std::string_view::npos ? std::string_view::npos : position;
}

// What is written of a variadic parameter's type: that of one item.
std::string_view itemOfVariadic(std::string_view type) {
    for (std::string_view opening : {"vesk.collections.ArrayList<", "vesk.collections.Map<String, "}) {
        if (type.starts_with(opening) && type.ends_with('>'))
            return type.substr(opening.size(), type.size() - opening.size() - 1);
    }
    return {};
}

}  // namespace

TokenPtr placeOfWrittenType(const TokenPtr& token, std::string_view type, std::string_view name) {
    if (!token || type.empty() || name.empty()) return token;
    auto contents = SourceManager::contents(token->getFilename());
    if (!contents) return token;
    std::string_view source = *contents;
    std::size_t begin = offsetOf(source, token->getLine(), token->getColumn());
    if (begin == std::string_view::npos) return token;
    std::size_t start = startOfType(source, begin, type);
    if (start == std::string_view::npos) {
        type = itemOfVariadic(type);
        if (type.empty() || (start = startOfType(source, begin, type)) == std::string_view::npos) return token;
    }
    const std::size_t end = endOfMatch(source, start, type);
    for (std::size_t word = source.find(name, start); word != std::string_view::npos && word + name.size() <= end;
         word = source.find(name, word + 1)) {
        bool startsWord = word == start || !isWordCharacter(source[word - 1]);
        bool endsWord = word + name.size() == source.size() || !isWordCharacter(source[word + name.size()]);
        if (!startsWord || !endsWord) continue;
        auto line = token->getLine() + std::count(source.begin() + static_cast<std::ptrdiff_t>(begin),
                                                  source.begin() + static_cast<std::ptrdiff_t>(word), '\n');
        std::size_t lineStart = source.rfind('\n', word);
        lineStart = lineStart == std::string_view::npos ? 0 : lineStart + 1;
        return token->withPlace(static_cast<int>(line), static_cast<int>(word - lineStart) + 1);
    }
    return token;
}

}  // namespace vesk::compiler
