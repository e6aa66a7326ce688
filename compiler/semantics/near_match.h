// Hints for mistaken names, found once for each place: a body is checked for each of its specializations, and all of them
// make its mistakes.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/tokens.h"

namespace vesk::compiler {

class CompileSession;

// The nearMatchHint for a name that stands there. `visibleNames` is only asked where this thread does not know the answer
// for this purpose; the answer is forgotten when the session loads another file.
std::string nearMatchHintAt(CompileSession& session, const TokenPtr& place, const std::string& wanted,
                            std::string_view purpose, const std::function<std::vector<std::string>()>& visibleNames);

}  // namespace vesk::compiler
