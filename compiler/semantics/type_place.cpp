// Only mistakes come here, so that reading the source once more costs nothing that matters.
#include "semantics/type_place.h"

#include <algorithm>

#include "host/source_manager.h"

namespace vesk::compiler {

namespace {

// Headers longer than this keep the declaration's own place.
constexpr std::size_t MAX_DISTANCE = 4096;

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
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

// True when a type follows what ends at `end`: a colon or an arrow, then blanks.
bool opensType(std::string_view source, std::size_t begin, std::size_t end) {
    while (end > begin && isBlank(source[end - 1])) end--;
    if (end == begin) return false;
    return source[end - 1] == ':' || (source[end - 1] == '>' && end - begin >= 2 && source[end - 2] == '-');
}

// The end of `text` in the source at `position`, blanks left out of the comparison; npos when it does not stand there.
std::size_t endOfMatch(std::string_view source, std::size_t position, std::string_view text) {
    bool endsWord = false;
    for (char c : text) {
        if (isBlank(c)) continue;
        while (position < source.size() && isBlank(source[position])) position++;
        if (position >= source.size() || source[position] != c) return std::string_view::npos;
        endsWord = isWordCharacter(c);
        position++;
    }
    bool goesOn = endsWord && position < source.size() && isWordCharacter(source[position]);
    return goesOn ? std::string_view::npos : position;
}

}  // namespace

TokenPtr placeOfWrittenType(const TokenPtr& token, std::string_view type, std::string_view name) {
    if (!token || type.empty() || name.empty()) return token;
    auto contents = SourceManager::contents(token->getFilename());
    if (!contents) return token;
    std::string_view source = *contents;
    std::size_t begin = offsetOf(source, token->getLine(), token->getColumn());
    if (begin == std::string_view::npos) return token;
    std::size_t limit = std::min(source.size(), begin + MAX_DISTANCE);
    for (std::size_t at = begin; at < limit; at++) {
        if (source[at] == '#') {
            at = std::min(source.find('\n', at), limit);
            continue;
        }
        if (source[at] != type[0] || !opensType(source, begin, at)) continue;
        std::size_t end = endOfMatch(source, at, type);
        if (end == std::string_view::npos) continue;
        for (std::size_t word = source.find(name, at); word != std::string_view::npos && word + name.size() <= end;
             word = source.find(name, word + 1)) {
            bool startsWord = word == at || !isWordCharacter(source[word - 1]);
            bool endsWord = word + name.size() == source.size() || !isWordCharacter(source[word + name.size()]);
            if (!startsWord || !endsWord) continue;
            auto line = token->getLine() + std::count(source.begin() + static_cast<std::ptrdiff_t>(begin),
                                                      source.begin() + static_cast<std::ptrdiff_t>(word), '\n');
            std::size_t lineStart = source.rfind('\n', word);
            lineStart = lineStart == std::string_view::npos ? 0 : lineStart + 1;
            return token->withPlace(static_cast<int>(line), static_cast<int>(word - lineStart) + 1);
        }
    }
    return token;
}

}  // namespace vesk::compiler
