// `veskc repl`: reads chunks and commands, and answers them until the input ends.
#pragma once

#include "driver/command_line.h"

namespace vesk::compiler {

// Returns the exit status.
int runRepl(const CommandLine& line, bool useColor);

}  // namespace vesk::compiler
