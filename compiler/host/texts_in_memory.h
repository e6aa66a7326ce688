// Generated texts that stay in memory and grow at their end: a text to which n pieces are added costs what the pieces cost.
#pragma once

#include <string_view>

#include "host/model_records.h"

namespace vesk::compiler {

// Puts `tail` behind the first `kept` bytes of the generated text that is in memory under this path, if that is still
// `known`, which becomes the new text. False, and nothing happens, when it is another one or not in memory. A text that
// nobody but the caller holds is not copied.
bool growTextInMemory(const Str& path, std::shared_ptr<const Str>& known, std::size_t kept, std::string_view tail);

}  // namespace vesk::compiler
