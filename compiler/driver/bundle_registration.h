// Making the methods of a bundle known to a build.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "semantics/compile_session.h"

namespace vesk::compiler {

// Registers a bundle's specializations and answers the name of their unit; mistakes in the methods are reported to the
// session. A bundle that is damaged or older than its sources is made anew first; `symbols` is then what `wanted` answers
// for the new one. Throws std::runtime_error when it cannot be made anew either.
std::string registerBundleOrAnew(CompileSession& session, const std::string& path, std::vector<std::string>& symbols,
                                 const std::function<std::vector<std::string>()>& wanted);

}  // namespace vesk::compiler
