// Where the compiler's own files lie: the standard library, and the archives that executables are linked with.
#pragma once

#include <string>

namespace vesk::compiler {

// The prefix that the libraries were installed under, for a program that links them as installed; "" for the command itself
// and inside a build, which find their files from their own place.
std::string installationPrefix();
// The folder with the installed archives; "" as above.
std::string installedArchives();

}  // namespace vesk::compiler
