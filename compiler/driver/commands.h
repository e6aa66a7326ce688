// The commands of veskc.
#pragma once

#include <string>
#include <vector>

namespace vesk::compiler {

// Does what the words of a command line (without the program's name) ask for and returns the exit status:
// 0 success, 1 mistakes in the program being compiled, 2 wrong use or an unreadable file, 70 an internal failure;
// `run` passes the program's own status on.
int runCommandLine(const std::vector<std::string>& words);

}  // namespace vesk::compiler
