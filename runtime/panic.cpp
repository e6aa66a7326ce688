// Panics and their traces.
#include "runtime/panic.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <unordered_map>

#include "runtime/control_characters.h"
#include "runtime/output.h"

namespace vesk::runtime {
namespace {

constexpr unsigned SECONDS_FOR_A_TRACE = 20;
// How much of the stack is searched for a frame of the program.
constexpr std::size_t SEARCHED_BYTES = std::size_t(64) << 10;

std::atomic<Symbolizer> gSymbolizer{nullptr};
std::atomic<bool> gPanicking{false};
thread_local sigjmp_buf* gPanicExit = nullptr;

std::uintptr_t endOfThisStack() {
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) return 0;
    void* low = nullptr;
    std::size_t size = 0;
    pthread_attr_getstack(&attributes, &low, &size);
    pthread_attr_destroy(&attributes);
    return reinterpret_cast<std::uintptr_t>(low) + size;
}

// Every place on the stack is looked up once: deep recursion consists of few different ones.
class Trace {
public:
    void add(std::uintptr_t address) {
        if (!isKnown(address)) return;
        const std::vector<TraceFrame>& found = known_[address];
        total_ += found.size();
        for (const TraceFrame& frame : found) {
            if (frames_.size() <= MAX_TRACE_FRAMES) frames_.push_back(frame);
        }
    }
    // Whether an address belongs to the program.
    bool isKnown(std::uintptr_t address) {
        Symbolizer symbolizer = gSymbolizer.load();
        if (!symbolizer) return false;
        auto [found, isNew] = known_.try_emplace(address);
        if (isNew) symbolizer(address, found->second);
        return !found->second.empty();
    }
    const std::vector<TraceFrame>& frames() const { return frames_; }
    std::size_t total() const { return total_; }

private:
    std::unordered_map<std::uintptr_t, std::vector<TraceFrame>> known_;
    std::vector<TraceFrame> frames_;
    std::size_t total_ = 0;
};

// Follows the saved frame pointers: a frame holds its caller's frame and, above it, the return address. Code that keeps
// no frame pointers may leave anything in their place, so nothing outside of the used part of the stack is read.
__attribute__((no_sanitize("address"))) void walk(std::uintptr_t frame, std::uintptr_t stack, Trace& trace) {
    // What lies behind a call that panics end is not the program's.
    std::uintptr_t end = gPanicExit ? reinterpret_cast<std::uintptr_t>(gPanicExit) : endOfThisStack();
    while (frame >= stack && frame + 16 <= end && frame % 8 == 0) {
        const std::uintptr_t* saved = reinterpret_cast<const std::uintptr_t*>(frame);
        if (saved[1] == 0) return;
        trace.add(saved[1] - 1);
        if (saved[0] <= frame) return;
        frame = saved[0];
    }
}

// Where the chain of frames leads nowhere, code of other libraries has been at work. Then the first place of the stack
// that looks like a frame called by the program is where it goes on.
__attribute__((no_sanitize("address"))) void walkFromAnywhere(std::uintptr_t frame, std::uintptr_t stack,
                                                              Trace& trace) {
    walk(frame, stack, trace);
    if (trace.total() > 0) return;
    const std::uintptr_t end = gPanicExit ? reinterpret_cast<std::uintptr_t>(gPanicExit) : endOfThisStack();
    for (std::uintptr_t at = (stack + 7) & ~std::uintptr_t(7); at + 16 <= end && at < stack + SEARCHED_BYTES; at += 8) {
        const std::uintptr_t* saved = reinterpret_cast<const std::uintptr_t*>(at);
        if (saved[0] <= at || saved[0] >= end || saved[0] % 8 != 0 || !trace.isKnown(saved[1] - 1)) continue;
        walk(at, stack, trace);
        return;
    }
}

void writeAll(std::string_view text) {
    while (!text.empty()) {
        ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        text.remove_prefix(std::size_t(written));
    }
}

void report(std::string_view message, const Trace& trace) {
    flushOutput();
    writeAll(renderPanic(message, trace.frames(), trace.total()));
}

// Nothing of the panic's own may be alive here: its functions do not return.
[[noreturn]] void leave() {
    if (!gPanicExit) _exit(PANIC_STATUS);
    gPanicking.store(false);
    siglongjmp(*gPanicExit, 1);
}

[[noreturn]] void endWithoutTrace(std::string_view message) {
    writeAll("panic: ");
    writeAll(message);
    writeAll("\n");
    _exit(PANIC_STATUS);
}

// The interrupted code may have held a lock that looking up names needs, such as the allocator's. Then the trace is given
// up: better a short text than a program that hangs.
std::string_view gInterruptedMessage;
void onAlarm(int) { endWithoutTrace(gInterruptedMessage); }

// A panic while a panic is being written: the first may not come to its end, so the second says what it can.
void enterPanic(std::string_view message) {
    if (gPanicking.exchange(true)) endWithoutTrace(message);
}

std::string shownPath(const std::string& path, const std::string& folder) {
    if (path.size() > folder.size() + 1 && path.starts_with(folder) && path[folder.size()] == '/')
        return withControlsShown(std::string_view(path).substr(folder.size() + 1));
    return withControlsShown(path);
}

std::string workingFolder() {
    char buffer[4096];
    return ::getcwd(buffer, sizeof buffer) ? std::string(buffer) : std::string();
}

}  // namespace

void setPanicExit(sigjmp_buf* place) { gPanicExit = place; }

void setSymbolizer(Symbolizer symbolizer) { gSymbolizer.store(symbolizer); }

std::string renderPanic(std::string_view message, const std::vector<TraceFrame>& frames, std::size_t totalFrames) {
    std::string folder = workingFolder();
    std::string text;
    if (!frames.empty()) text += shownPath(frames[0].path, folder) + ":" + std::to_string(frames[0].line) + ": ";
    text += "panic: ";
    text += message;
    text += "\n";
    std::size_t callers = totalFrames == 0 ? 0 : totalFrames - 1;
    std::size_t shown = 0;
    for (; shown < MAX_TRACE_FRAMES && shown + 1 < frames.size(); shown++) {
        const TraceFrame& frame = frames[shown + 1];
        text +=
            "    at " + frame.name + " (" + shownPath(frame.path, folder) + ":" + std::to_string(frame.line) + ")\n";
    }
    if (callers > shown) text += "    ... " + std::to_string(callers - shown) + " more\n";
    return text;
}

void panic(std::string_view message) {
    enterPanic(message);
    {
        Trace trace;
        auto frame = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
        walkFromAnywhere(frame, frame, trace);
        report(message, trace);
    }
    leave();
}

void panicAt(std::string_view message, const InterruptedCode& code) {
    enterPanic(message);
    gInterruptedMessage = message;
    ::signal(SIGALRM, onAlarm);
    ::alarm(SECONDS_FOR_A_TRACE);
    {
        Trace trace;
        trace.add(code.instruction);
        walkFromAnywhere(code.frame, code.stack, trace);
        report(message, trace);
    }
    ::alarm(0);
    leave();
}

extern "C" {

void vesk_rt_panic_null() { panic("null receiver"); }

void vesk_rt_panic_null_element() { panic("null element"); }

void vesk_rt_panic_division() { panic("division by zero"); }

void vesk_rt_panic_exponent() { panic("negative exponent"); }

void vesk_rt_panic_index(std::int32_t index, std::int64_t length) {
    panic("index " + std::to_string(index) + " out of range for length " + std::to_string(length));
}

void vesk_rt_panic_cast(const Object* object, const ClassRecord* target) {
    panic("cannot cast " + std::string(object ? object->record->name : "null") + " to " + target->name);
}

void vesk_rt_panic_abstract() { panic("abstract method called"); }

}  // extern "C"
}  // namespace vesk::runtime
