// The two functions are made when the libraries are installed (cmake/InstallationPrefix.cmake); nothing else defines them.
#include "semantics/installation.h"

extern "C" {
const char* vesk_installation_prefix() __attribute__((weak));
const char* vesk_installation_archives() __attribute__((weak));
}

namespace vesk::compiler {

std::string installationPrefix() { return vesk_installation_prefix ? vesk_installation_prefix() : ""; }

std::string installedArchives() { return vesk_installation_archives ? vesk_installation_archives() : ""; }

}  // namespace vesk::compiler
