// White space around texts: of types, and of whole source lines. Views into what was given; nothing throws.
#pragma once

#include <string_view>

namespace vesk::compiler {

// White space inside the text of a type: space, tab, line feed, carriage return.
constexpr bool isTypeTextBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// Without it at both ends. The form for type texts.
std::string_view trimView(std::string_view text);
// Without white space of every kind at both ends. The form for source lines.
std::string_view quickTrimView(std::string_view text);

}  // namespace vesk::compiler
