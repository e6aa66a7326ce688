// Dependencies in the form that make and ninja read: `TARGET: FILE FILE ...`.
#pragma once

#include <string>
#include <vector>

namespace vesk::compiler {

// One rule, a line per file, ending in a line end. Blanks, `#`, `$` and `\` are escaped.
std::string dependencyRule(const std::string& target, const std::vector<std::string>& files);

}  // namespace vesk::compiler
