// Classes without a package whose short names mean something else elsewhere.
// A class of the default package is called by its short name everywhere, in generic code of other packages too. There the
// name may be that of another class or of a type parameter, and the inner one hides the outer. A program with such a class
// is compiled with a package of the compiler's own in the place of the default one, which nobody gets to see.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "semantics/compile_session.h"

namespace vesk::compiler {

inline constexpr const char* STAND_IN_PACKAGE = "__program";

// The names of the type parameters of a file's generic functions, classes and methods.
std::set<std::string> declaredTypeParameters(const FileDeclaration& file);
// The same of each package of the standard library.
const std::map<std::string, std::set<std::string>>& libraryTypeParameters();
// Whether a class of the default package, declared in one of these loaded files, has a name that something else has in a
// package which the program imports, or in the program's own generic code.
bool hasNamesakes(CompileSession& session, const std::vector<FileDeclaration*>& files);
// A text for people.
std::string withoutStandInPackage(const CompileSession& session, std::string text);

}  // namespace vesk::compiler
