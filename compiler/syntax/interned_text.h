// Texts that many tokens share: file names and the blanks that lines begin with. An interned text lives as long as the
// process and has one address, so that equal texts compare as pointers. Safe for several threads.
#pragma once

#include <string_view>

#include "host/model_records.h"

namespace vesk::compiler {

const Str* internFilename(std::string_view name);
const Str* internBlanks(std::string_view blanks);
// Width of blanks: a space counts 1, a tab 4.
int blanksWidth(std::string_view blanks);

}  // namespace vesk::compiler
