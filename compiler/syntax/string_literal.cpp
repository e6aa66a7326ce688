// Escapes of string literals, and UTF-8.
#include "syntax/string_literal.h"

#include <cstdint>
#include <cstring>

namespace vesk::compiler {

namespace {

constexpr std::size_t MAX_ESCAPE_DIGITS = 6;

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool isScalarValue(char32_t codePoint) { return codePoint <= 0x10FFFF && (codePoint < 0xD800 || codePoint > 0xDFFF); }

EscapeSequence readUnicodeEscape(std::string_view text) {
    if (text.size() < 3 || text[2] != '{') return {};
    char32_t value = 0;
    std::size_t i = 3;
    while (i < text.size() && i < 3 + MAX_ESCAPE_DIGITS && hexDigit(text[i]) >= 0)
        value = value * 16 + static_cast<char32_t>(hexDigit(text[i++]));
    if (i == 3 || i >= text.size() || text[i] != '}' || !isScalarValue(value)) return {};
    return {i + 1, value};
}

// Length of the UTF-8 sequence at the beginning of the text, 0 when it is none.
std::size_t sequenceLength(std::string_view text) {
    const auto byte = [text](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
    const unsigned first = byte(0);
    const auto isTail = [&](std::size_t i) { return (byte(i) & 0xC0U) == 0x80U; };
    if (first < 0x80) return 1;
    if (first < 0xC2) return 0;
    if (first < 0xE0) return isTail(1) ? 2 : 0;
    if (first < 0xF0) {
        if (!isTail(1) || !isTail(2)) return 0;
        if (first == 0xE0 && byte(1) < 0xA0) return 0;
        if (first == 0xED && byte(1) > 0x9F) return 0;
        return 3;
    }
    if (first > 0xF4 || !isTail(1) || !isTail(2) || !isTail(3)) return 0;
    if (first == 0xF0 && byte(1) < 0x90) return 0;
    if (first == 0xF4 && byte(1) > 0x8F) return 0;
    return 4;
}

}  // namespace

EscapeSequence readEscape(std::string_view text) {
    if (text.size() < 2) return {};
    switch (text[1]) {
        case 'n': return {2, '\n'};
        case 't': return {2, '\t'};
        case 'r': return {2, '\r'};
        case '"': return {2, '"'};
        case '\\': return {2, '\\'};
        case '0': return {2, 0};
        case 'u': return readUnicodeEscape(text);
        default: return {};
    }
}

void appendUtf8(std::string& out, char32_t codePoint) {
    const auto add = [&out](char32_t byte) { out += static_cast<char>(byte); };
    if (codePoint < 0x80) {
        add(codePoint);
    } else if (codePoint < 0x800) {
        add(0xC0 | (codePoint >> 6));
        add(0x80 | (codePoint & 0x3F));
    } else if (codePoint < 0x10000) {
        add(0xE0 | (codePoint >> 12));
        add(0x80 | ((codePoint >> 6) & 0x3F));
        add(0x80 | (codePoint & 0x3F));
    } else {
        add(0xF0 | (codePoint >> 18));
        add(0x80 | ((codePoint >> 12) & 0x3F));
        add(0x80 | ((codePoint >> 6) & 0x3F));
        add(0x80 | (codePoint & 0x3F));
    }
}

std::string decodeStringLiteral(std::string_view quoted) {
    if (!quoted.empty() && quoted.front() == '"') quoted.remove_prefix(1);
    if (!quoted.empty() && quoted.back() == '"') quoted.remove_suffix(1);
    if (quoted.find('\\') == std::string_view::npos) return std::string(quoted);
    std::string value;
    value.reserve(quoted.size());
    while (!quoted.empty()) {
        const EscapeSequence escape = quoted[0] == '\\' ? readEscape(quoted) : EscapeSequence{};
        if (escape.length > 0) {
            appendUtf8(value, escape.codePoint);
            quoted.remove_prefix(escape.length);
        } else {
            value += quoted[0];
            quoted.remove_prefix(1);
        }
    }
    return value;
}

std::size_t firstInvalidUtf8(std::string_view text) {
    constexpr std::uint64_t HIGH_BITS = 0x8080808080808080U;
    std::size_t i = 0;
    while (i < text.size()) {
        if (i + 8 <= text.size()) {
            std::uint64_t word;
            std::memcpy(&word, text.data() + i, 8);
            if ((word & HIGH_BITS) == 0) {
                i += 8;
                continue;
            }
        }
        const std::size_t length = sequenceLength(text.substr(i));
        if (length == 0) return i;
        i += length;
    }
    return std::string_view::npos;
}

}  // namespace vesk::compiler
