// Running a program: its own stack of a known size, an end of that stack that panics, a flushed output.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vesk::runtime {

// 64 MiB of stack, whatever the limits of the shell are.
inline constexpr std::size_t PROGRAM_STACK_SIZE = std::size_t(64) << 20;

// Calls `function(argument)` on the program's stack, flushes standard output and returns what it returned. An
// exhausted stack is a panic there.
int runOnProgramStack(int (*function)(void* argument), void* argument);

// Calls `work` on the program's stack without being a program itself: what it calls by runRecoverably() needs no stack of
// its own.
void runSession(const std::function<void()>& work);

// The same for code that may fail without ending the process: a panic is reported and ends the call alone. False then.
// What the interrupted functions held is lost, as if their thread had died.
bool runRecoverably(void (*function)());

// From now on the signal ends what runRecoverably() runs, by the panic "interrupted": at once where it stands in generated
// code; out of the library, which may hold a lock or be in the middle of an allocation, as soon as it comes back to
// generated code. A call that begins after the signal ends at once, until forgetInterruption().
void watchForInterruption(int signal);
bool isInterruptionRequested();
void forgetInterruption();

// Whether code of a program is under way, as opposed to what prepares it.
bool isProgramRunning();

// Ends the process before its program can run: one message, after the name of the command, and status 70.
[[noreturn]] void endForLackOf(const char* what, const char* reason = nullptr);
// What the message begins with, "" at first.
void setCommandName(const char* name);

// Generated code, where it can be kept from running. An exhausted stack is noticed wherever the stack ends, which may be
// inside an allocation with its lock held, and an interruption comes anywhere; the panic then waits until the library has
// returned to generated code.
struct GeneratedCode {
    bool (*contains)(std::uintptr_t address) = nullptr;
    bool (*setExecutable)(bool isExecutable) = nullptr;  // false when the system refuses
};
void setGeneratedCode(const GeneratedCode& code);

// What the program was called with, for `main(args)`.
void setProgramArguments(std::vector<std::string> arguments);
const std::vector<std::string>& programArguments();

}  // namespace vesk::runtime
