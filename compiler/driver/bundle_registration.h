// Making the methods of a bundle known to a build.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "semantics/compile_session.h"

namespace vesk::compiler {

// Registers a bundle's specializations and answers the name of their unit. A bundle that is damaged or older than its
// sources is made anew first; `symbols` is then what `wanted` answers for the new one. Throws CompilerException for
// mistakes in the methods, std::runtime_error when the bundle cannot be made anew either.
std::string registerBundleOrAnew(CompileSession& session, const std::string& path, std::vector<std::string>& symbols,
                                 const std::function<std::vector<std::string>()>& wanted);

}  // namespace vesk::compiler
