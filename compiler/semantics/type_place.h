// Where a written type stands in its source.
#pragma once

#include <string_view>

#include "host/tokens.h"

namespace vesk::compiler {

// Declarations keep the text of their types and a token: the type's first one, or the name in front of `: type`. This finds
// the place again when a mistake must be shown: the type's start, and in the type the word `name`. Reads the source file;
// answers `token` itself where the text does not stand so (a generic body whose types were put in, a cast, a call's
// clause).
TokenPtr placeOfWrittenType(const TokenPtr& token, std::string_view type, std::string_view name);

}  // namespace vesk::compiler
