// How far two names are from each other, for hints: "did you mean 'x'?".
#pragma once

#include <cstddef>
#include <string_view>

namespace vesk::compiler {

// Edits (insert, delete, replace, swap neighbours) between two names, or `limit` + 1 when there are more.
std::size_t editDistance(std::string_view a, std::string_view b, std::size_t limit);

}  // namespace vesk::compiler
