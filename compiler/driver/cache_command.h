// `veskc cache stats|verify|clear`.
#pragma once

#include "driver/command_line.h"

namespace vesk::compiler {

// Looks after the cache that the options name. Status: 0; 1 when verify found damage; 2 when the cache cannot be read or
// cleared.
int runCacheCommand(const CommandLine& line);

}  // namespace vesk::compiler
