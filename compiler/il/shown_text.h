// Text for a terminal, as panics of programs show it too.
#pragma once

#include <string>
#include <string_view>

namespace vesk::compiler {

// Control characters as vesk writes them in texts: "\\u{1B}", "\\n".
std::string withControlsShown(std::string_view text);

}  // namespace vesk::compiler
