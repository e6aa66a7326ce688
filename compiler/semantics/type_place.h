// Where a written type stands in its source.
#pragma once

#include <string_view>

#include "host/tokens.h"

namespace vesk::compiler {

// Declarations keep the text of their types and the token of their name. This finds the place again when a mistake must
// be shown: the first `: type` or `-> type` behind `token`, and in it the word `name`. Reads the source file; answers
// `token` itself where the text does not stand so (a generic body whose types were put in, a memory-only text).
TokenPtr placeOfWrittenType(const TokenPtr& token, std::string_view type, std::string_view name);

}  // namespace vesk::compiler
