// The handlers. They run where memory has come to its end, or in the middle of anything: they write and leave. What the
// command has begun to write lies in temporary files, which a later command removes.
#include "driver/last_resort.h"

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <exception>
#include <new>

#include "il/fatal_errors.h"
#include "semantics/stack_room.h"

namespace vesk::compiler {
namespace {

constexpr int STATUS_INTERNAL = 70;
constexpr const char* COMMAND_NAME = "veskc: ";
// A frame may be larger than a page, and the fault lies anywhere in it.
constexpr std::uintptr_t LARGEST_FRAME = std::uintptr_t{1} << 20;
constexpr std::size_t SIGNAL_STACK_SIZE = std::size_t{64} << 10;
[[maybe_unused]] alignas(16) char gSignalStack[SIGNAL_STACK_SIZE];

void write(const char* text) {
    for (std::size_t left = std::strlen(text); left > 0;) {
        const ssize_t written = ::write(STDERR_FILENO, text, left);
        if (written <= 0) return;
        text += written;
        left -= static_cast<std::size_t>(written);
    }
}

[[noreturn]] void end(const char* message, const char* reason = "") {
    write(COMMAND_NAME);
    write(message);
    write(reason);
    write("\n");
    ::_exit(STATUS_INTERNAL);
}

[[noreturn]] void outOfMemory() { end("out of memory"); }
[[noreturn]] void outOfStack() { end(StackExhausted().what()); }

// An exception could not be thrown for lack of memory, or has met code that must not throw.
[[noreturn]] void endWithException() {
    if (!std::current_exception()) outOfMemory();
    try {
        std::rethrow_exception(std::current_exception());
    } catch (const std::bad_alloc&) {
        outOfMemory();
    } catch (const std::exception& failure) {
        end("internal failure: ", failure.what());
    } catch (...) {
        end("internal failure");
    }
}

[[noreturn]] void endWithFatalError(const char* reason) {
    if (std::strstr(reason, "memory")) outOfMemory();
    end("internal failure: ", reason);
}

[[maybe_unused]] void onSegmentationFault(int signal, siginfo_t* info, void* context) {
    const auto& registers = static_cast<const ucontext_t*>(context)->uc_mcontext.gregs;
    const auto address = reinterpret_cast<std::uintptr_t>(info->si_addr);
    const auto stack = static_cast<std::uintptr_t>(registers[REG_RSP]);
    if (address + LARGEST_FRAME > stack && address < stack + LARGEST_FRAME) outOfStack();
    ::signal(signal, SIG_DFL);  // let the fault happen again the ordinary way
}

// What a shell allows at first may be less than the usual size; what it allows at most is the user's word.
void askForUsualStack() {
    constexpr rlim_t USUAL = rlim_t{8} << 20;
    rlimit limit{};
    if (::getrlimit(RLIMIT_STACK, &limit) != 0 || limit.rlim_cur >= USUAL) return;
    limit.rlim_cur = std::min(limit.rlim_max, USUAL);
    ::setrlimit(RLIMIT_STACK, &limit);
}

// Sanitizers look at such faults themselves.
void watchStack() {
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    stack_t stack{};
    stack.ss_sp = gSignalStack;
    stack.ss_size = sizeof gSignalStack;
    ::sigaltstack(&stack, nullptr);
    struct sigaction action{};
    action.sa_sigaction = onSegmentationFault;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    ::sigaction(SIGSEGV, &action, nullptr);
#endif
}

}  // namespace

void installLastResort() {
    std::set_new_handler(outOfMemory);
    std::set_terminate(endWithException);
    setFatalErrorHandler(endWithFatalError, COMMAND_NAME);
    setStackHandler(outOfStack);
    askForUsualStack();
    watchStack();
}

}  // namespace vesk::compiler
