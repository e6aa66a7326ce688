// Classes of bytes, as the tokenizer sees them. Bytes above 127 belong to none.
#pragma once

namespace vesk::compiler {

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool isNameStart(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
constexpr bool isNamePart(char c) { return isNameStart(c) || isDigit(c); }
constexpr bool isHexDigit(char c) { return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }
constexpr bool isBlank(char c) { return c == ' ' || c == '\t'; }

}  // namespace vesk::compiler
