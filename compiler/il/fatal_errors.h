// What LLVM and the run-time library do where they cannot go on.
#pragma once

namespace vesk::compiler {

// LLVM ends the process after `handler`, which is not to return, has been told the reason. Lack of memory goes to the C++
// library's new-handler. Where the run-time library cannot start a program, its message begins with `commandName`.
void setFatalErrorHandler(void (*handler)(const char* reason), const char* commandName);

}  // namespace vesk::compiler
