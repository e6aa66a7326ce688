// The run-time library's own way, so that the command and its programs agree.
#include "il/shown_text.h"

#include "runtime/control_characters.h"

namespace vesk::compiler {

std::string withControlsShown(std::string_view text) { return runtime::withControlsShown(text); }

}  // namespace vesk::compiler
