// The program's thread and the handler at the end of its stack.
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
volatile bool gIsWaiting = false;
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

// While the panic of an exhausted stack waits, half of the guard serves as stack and generated code cannot run.
void beginWaiting() {
    gIsWaiting = true;
    mprotect(gStack.guard + GUARD_SIZE / 2, GUARD_SIZE / 2, PROT_READ | PROT_WRITE);
    gGeneratedCode.setExecutable(false);
}

void endWaiting() {
    if (!gIsWaiting) return;
    gIsWaiting = false;
    gGeneratedCode.setExecutable(true);
    mprotect(gStack.guard, GUARD_SIZE, PROT_NONE);
}

void onSegmentationFault(int signal, siginfo_t* info, void* context) {
    char* address = static_cast<char*>(info->si_addr);
    const auto& registers = static_cast<const ucontext_t*>(context)->uc_mcontext.gregs;
    if (gIsWaiting && gGeneratedCode.contains(reinterpret_cast<std::uintptr_t>(address))) {
        // The library's code has returned: the instruction before is the call.
        panicAt("stack overflow", {.instruction = std::uintptr_t(registers[REG_RIP]) - 1,
                                   .frame = std::uintptr_t(registers[REG_RBP]),
                                   .stack = std::uintptr_t(registers[REG_RSP])});
    }
    if (gStack.guard && address >= gStack.guard && address < gStack.guard + GUARD_SIZE) {
        const bool isInUpperHalf = address >= gStack.guard + GUARD_SIZE / 2;
        if (gGeneratedCode.contains && !gIsWaiting && isInUpperHalf &&
            !gGeneratedCode.contains(std::uintptr_t(registers[REG_RIP]))) {
            beginWaiting();
            return;
        }
        // The stack pointer may stand in the guard, which cannot be read.
        const auto readable = reinterpret_cast<std::uintptr_t>(gStack.guard) + GUARD_SIZE;
        panicAt("stack overflow", {.instruction = std::uintptr_t(registers[REG_RIP]),
                                   .frame = std::uintptr_t(registers[REG_RBP]),
                                   .stack = std::max(std::uintptr_t(registers[REG_RSP]), readable)});
    }
    // Not ours: let the fault happen again the ordinary way.
    ::signal(signal, SIG_DFL);
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
        setPanicExit(nullptr);
        endWaiting();
        return false;
    }
    setPanicExit(&place);
    call.status = call.function(call.argument);
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
        if (mprotect(gStack.guard, GUARD_SIZE, PROT_NONE) != 0)
            endForLackOf("out of memory: the program's stack cannot be guarded");
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

void setGeneratedCode(const GeneratedCode& code) { gGeneratedCode = code; }

void setProgramArguments(std::vector<std::string> arguments) { gProgramArguments = std::move(arguments); }

const std::vector<std::string>& programArguments() { return gProgramArguments; }

}  // namespace vesk::runtime
