// The run-time library's part in the start of an executable.
#pragma once

namespace vesk::runtime {

extern "C" {
// Runs a program: `words` are the process's, `start` the generated `vesk_start`. The generated code, and nothing else,
// lies from `codeBegin` to `codeEnd`. Returns the process's status.
int vesk_rt_run_program(int count, char** words, int (*start)(), char* codeBegin, char* codeEnd);
}

}  // namespace vesk::runtime
