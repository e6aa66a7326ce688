// Type texts in their one canonical spelling: "Map<String, List<Int>>", "(A, B) -> R", "((A) -> B)?", "T[]".
#pragma once

#include <string>
#include <string_view>

namespace vesk::compiler {

inline constexpr int MAX_TYPE_DEPTH = 256;

// What is wrong with a type text, "" when nothing is.
struct TypeTextResult {
    std::string text;
    std::string mistake;
    bool isFunction = false;  // the whole text is a function type, so a suffix needs parentheses
};
TypeTextResult canonicalTypeText(std::string_view text);

// A type being put together: where it is a function type, a suffix needs parentheses around it.
struct TypeSpelling {
    std::string text;
    bool isFunction = false;
    void addSuffix(std::string_view suffix);
};

}  // namespace vesk::compiler
