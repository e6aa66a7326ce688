// The program's thread, the handler at the end of its stack, and the one of interruptions.
#define GC_THREADS
#include "runtime/program.h"

#include <gc/gc.h>
#include <pthread.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "runtime/memory.h"
#include "runtime/output.h"
#include "runtime/panic.h"

namespace vesk::runtime {
namespace {

// Wide, since a frame may be larger than a page.
constexpr std::size_t GUARD_SIZE = std::size_t(1) << 20;
constexpr std::size_t SIGNAL_STACK_SIZE = std::size_t(1) << 20;

struct ProgramStack {
    char* guard = nullptr;
    char* signalStack = nullptr;
};
ProgramStack gStack;
thread_local bool gIsOnProgramStack = false;
GeneratedCode gGeneratedCode;
// Panics that wait until the library has returned to generated code.
volatile bool gIsOverflowWaiting = false, gIsInterruptionWaiting = false;
std::atomic<bool> gIsInterruptionRequested{false};
int gInterruptingSignal = 0;  // 0: none
// The thread of the call that interruptions end, while there is one.
std::atomic<bool> gIsInterruptible{false};
pthread_t gInterruptibleThread;
constexpr const char* OVERFLOW_MESSAGE = "stack overflow";
constexpr const char* INTERRUPTION_MESSAGE = "interrupted";
std::vector<std::string> gProgramArguments;
std::atomic<int> gRunningPrograms{0};
const char* gCommandName = "";
constexpr int STATUS_NOT_STARTED = 70;

// While one lives, code of a program is under way.
struct ScopedProgram {
    ScopedProgram() { gRunningPrograms++; }
    ~ScopedProgram() { gRunningPrograms--; }
    ScopedProgram(const ScopedProgram&) = delete;
    ScopedProgram& operator=(const ScopedProgram&) = delete;
};

constexpr const char* NO_GUARD = "out of memory: the program's stack cannot be guarded";

// While the panic of an exhausted stack waits, half of the guard serves as stack and generated code cannot run. Where the
// system refuses the one, the panic comes at once; where it refuses the other, when that half is used up, too.
bool awaitOverflow() {
    if (mprotect(gStack.guard + GUARD_SIZE / 2, GUARD_SIZE / 2, PROT_READ | PROT_WRITE) != 0) return false;
    gIsOverflowWaiting = true;
    gGeneratedCode.setExecutable(false);
    return true;
}

void awaitInterruption() {
    gIsInterruptionWaiting = true;
    gGeneratedCode.setExecutable(false);
}

// What comes next needs both again.
void endWaiting() {
    const bool isOverflow = gIsOverflowWaiting, isInterruption = gIsInterruptionWaiting;
    gIsOverflowWaiting = false;
    gIsInterruptionWaiting = false;
    if ((isOverflow || isInterruption) && !gGeneratedCode.setExecutable(true))
        endForLackOf("out of memory: generated code cannot be run again");
    if (isOverflow && mprotect(gStack.guard, GUARD_SIZE, PROT_NONE) != 0) endForLackOf(NO_GUARD);
}

// Where generated code was stopped. The stack pointer may stand in the guard, which cannot be read.
InterruptedCode codeAt(const gregset_t& registers) {
    const auto readable = reinterpret_cast<std::uintptr_t>(gStack.guard) + GUARD_SIZE;
    return {.instruction = std::uintptr_t(registers[REG_RIP]),
            .frame = std::uintptr_t(registers[REG_RBP]),
            .stack = std::max(std::uintptr_t(registers[REG_RSP]), readable)};
}

// Whether the library came back to generated code, as opposed to calling it: then the address it returned to lies right
// below the stack.
__attribute__((no_sanitize("address"))) bool hasJustReturned(const gregset_t& registers) {
    const auto below = std::uintptr_t(registers[REG_RSP]) - sizeof(std::uintptr_t);
    const auto guardEnd = reinterpret_cast<std::uintptr_t>(gStack.guard) + GUARD_SIZE;
    if (!gIsOverflowWaiting && below < guardEnd) return false;
    return *reinterpret_cast<const std::uintptr_t*>(below) == std::uintptr_t(registers[REG_RIP]);
}

void onSegmentationFault(int signal, siginfo_t* info, void* context) {
    char* address = static_cast<char*>(info->si_addr);
    const auto& registers = static_cast<const ucontext_t*>(context)->uc_mcontext.gregs;
    if ((gIsOverflowWaiting || gIsInterruptionWaiting) &&
        gGeneratedCode.contains(reinterpret_cast<std::uintptr_t>(address))) {
        InterruptedCode code = codeAt(registers);
        if (hasJustReturned(registers)) code.instruction--;  // to the call
        panicAt(gIsOverflowWaiting ? OVERFLOW_MESSAGE : INTERRUPTION_MESSAGE, code);
    }
    if (gStack.guard && address >= gStack.guard && address < gStack.guard + GUARD_SIZE) {
        const bool isInUpperHalf = address >= gStack.guard + GUARD_SIZE / 2;
        if (gGeneratedCode.contains && !gIsOverflowWaiting && isInUpperHalf &&
            !gGeneratedCode.contains(std::uintptr_t(registers[REG_RIP])) && awaitOverflow())
            return;
        panicAt(OVERFLOW_MESSAGE, codeAt(registers));
    }
    // Not ours: let the fault happen again the ordinary way.
    ::signal(signal, SIG_DFL);
}

// Generated code holds no lock, so it can be left anywhere.
void onInterruption(int signal, siginfo_t*, void* context) {
    const int error = errno;
    gIsInterruptionRequested = true;
    if (gIsInterruptible && !pthread_equal(pthread_self(), gInterruptibleThread)) {
        pthread_kill(gInterruptibleThread, signal);
    } else if (gIsInterruptible && gGeneratedCode.contains) {
        const auto& registers = static_cast<const ucontext_t*>(context)->uc_mcontext.gregs;
        if (gGeneratedCode.contains(std::uintptr_t(registers[REG_RIP])))
            panicAt(INTERRUPTION_MESSAGE, codeAt(registers));
        awaitInterruption();
    }
    errno = error;
}

// Interruptions end waiting for the outside only while a program waits: the compiler's own reading goes on.
void restartCalls(bool areRestarted) {
    struct sigaction action{};
    if (gInterruptingSignal == 0 || sigaction(gInterruptingSignal, nullptr, &action) != 0) return;
    action.sa_flags = areRestarted ? action.sa_flags | SA_RESTART : action.sa_flags & ~SA_RESTART;
    sigaction(gInterruptingSignal, &action, nullptr);
}

void beginInterruptible() {
    restartCalls(false);
    gInterruptibleThread = pthread_self();
    gIsInterruptible = true;
    if (gIsInterruptionRequested) panic(INTERRUPTION_MESSAGE);
}

void endInterruptible() {
    gIsInterruptible = false;
    restartCalls(true);
}

struct Call {
    int (*function)(void*);
    void* argument;
    int status = 0;
    bool recovers = false, hasPanicked = false;
    bool isSession = false;  // what it calls are programs
};

// False when a panic has ended the call.
bool isCompleted(Call& call) {
    sigjmp_buf place;
    const ScopedProgram running;  // a panic comes back to this function
    if (sigsetjmp(place, 1) != 0) {
        endInterruptible();
        setPanicExit(nullptr);
        endWaiting();
        return false;
    }
    setPanicExit(&place);
    beginInterruptible();
    call.status = call.function(call.argument);
    endInterruptible();
    setPanicExit(nullptr);
    endWaiting();
    return true;
}

void* programThread(void* data) {
    gIsOnProgramStack = true;
    // A thread's first allocation asks the system for much; where the C library meets the lack of it, it ends by a signal.
    void* volatile room = std::malloc(1);
    if (!room) endForLackOf("out of memory");
    std::free(room);
    Call* call = static_cast<Call*>(data);
    stack_t signalStack{};
    signalStack.ss_sp = gStack.signalStack;
    signalStack.ss_size = SIGNAL_STACK_SIZE;
    sigaltstack(&signalStack, nullptr);
    if (call->recovers) {
        call->hasPanicked = !isCompleted(*call);
    } else if (call->isSession) {
        call->status = call->function(call->argument);
    } else {
        const ScopedProgram running;
        call->status = call->function(call->argument);
    }
    endWaiting();
    flushOutput();
    if (int reason = outputFailure()) {
        std::fprintf(stderr, "panic: cannot write to standard output: %s\n", std::strerror(reason));
        call->status = PANIC_STATUS;
    }
    signalStack.ss_flags = SS_DISABLE;
    sigaltstack(&signalStack, nullptr);
    return nullptr;
}

char* mapRoom(std::size_t size) {
    void* room = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (room == MAP_FAILED) endForLackOf("out of memory: no room for the program's stack");
    return static_cast<char*>(room);
}

void run(Call& call) {
    startMemory();
    // One program runs at a time; its stack stays for the next one.
    if (!gStack.guard) {
        gStack.signalStack = mapRoom(SIGNAL_STACK_SIZE);
        gStack.guard = mapRoom(GUARD_SIZE + PROGRAM_STACK_SIZE);
        if (mprotect(gStack.guard, GUARD_SIZE, PROT_NONE) != 0) endForLackOf(NO_GUARD);
    }
    struct sigaction action{};
    struct sigaction previous{};
    action.sa_sigaction = onSegmentationFault;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigaction(SIGSEGV, &action, &previous);

    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, gStack.guard + GUARD_SIZE, PROGRAM_STACK_SIZE);
    pthread_t thread;
    if (const int reason = pthread_create(&thread, &attributes, programThread, &call))
        endForLackOf("cannot start the program's thread: ", std::strerror(reason));
    pthread_attr_destroy(&attributes);
    pthread_join(thread, nullptr);
    sigaction(SIGSEGV, &previous, nullptr);
}

}  // namespace

bool isProgramRunning() { return gRunningPrograms.load() > 0; }

void setCommandName(const char* name) { gCommandName = name; }

void endForLackOf(const char* what, const char* reason) {
    flushOutput();
    for (const char* text : {gCommandName, what, reason, "\n"}) {
        if (text && ::write(STDERR_FILENO, text, std::strlen(text)) < 0) break;
    }
    ::_exit(STATUS_NOT_STARTED);
}

int runOnProgramStack(int (*function)(void*), void* argument) {
    Call call{.function = function, .argument = argument};
    run(call);
    return call.status;
}

bool runRecoverably(void (*function)()) {
    Call call{.function =
                  [](void* code) {
                      reinterpret_cast<void (*)()>(code)();
                      return 0;
                  },
              .argument = reinterpret_cast<void*>(function),
              .recovers = true};
    if (!gIsOnProgramStack) {
        run(call);
        return !call.hasPanicked;
    }
    const bool hasCompleted = isCompleted(call);
    flushOutput();
    return hasCompleted;
}

void runSession(const std::function<void()>& work) {
    struct Session {
        const std::function<void()>& work;
        std::exception_ptr failure;
    } session{work, nullptr};
    Call call{.function =
                  [](void* data) {
                      auto& own = *static_cast<Session*>(data);
                      try {
                          own.work();
                      } catch (...) {
                          own.failure = std::current_exception();
                      }
                      return 0;
                  },
              .argument = &session,
              .isSession = true};
    run(call);
    if (session.failure) std::rethrow_exception(session.failure);
}

void watchForInterruption(int signal) {
    gInterruptingSignal = signal;
    struct sigaction action{};
    action.sa_sigaction = onInterruption;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESTART;
    sigaction(signal, &action, nullptr);
}

bool isInterruptionRequested() { return gIsInterruptionRequested; }

void forgetInterruption() { gIsInterruptionRequested = false; }

void setGeneratedCode(const GeneratedCode& code) { gGeneratedCode = code; }

void setProgramArguments(std::vector<std::string> arguments) { gProgramArguments = std::move(arguments); }

const std::vector<std::string>& programArguments() { return gProgramArguments; }

}  // namespace vesk::runtime
