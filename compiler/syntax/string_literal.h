// The text that a string literal stands for.
#pragma once

#include <string>
#include <string_view>

namespace vesk::compiler {

// One escape, read at its backslash. `length` is 0 for an escape that is unknown or malformed.
struct EscapeSequence {
    std::size_t length = 0;
    char32_t codePoint = 0;
};
EscapeSequence readEscape(std::string_view text);
void appendUtf8(std::string& out, char32_t codePoint);
// The value of a literal given with its quotes; malformed escapes, which the tokenizer refuses, stay as they are.
std::string decodeStringLiteral(std::string_view quoted);
// Offset of the first byte that is not UTF-8, npos when all is well.
std::size_t firstInvalidUtf8(std::string_view text);

}  // namespace vesk::compiler
