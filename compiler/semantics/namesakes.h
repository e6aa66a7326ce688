// Classes without a package whose short names mean something else elsewhere.
// A class of the default package is called by its short name everywhere, in generic code of other packages too. There the
// name may be that of another class or of a type parameter, and the inner one hides the outer. A program with such a class
// is compiled with a package of the compiler's own in the place of the default one, which nobody gets to see.
#pragma once

#include <string>
#include <vector>

#include "semantics/compile_session.h"

namespace vesk::compiler {

inline constexpr const char* STAND_IN_PACKAGE = "__program";

// Whether a class of the default package, declared in one of these loaded files, has such a name.
bool hasNamesakes(CompileSession& session, const std::vector<FileDeclaration*>& files);
// A text for people.
std::string withoutStandInPackage(const CompileSession& session, std::string text);

}  // namespace vesk::compiler
