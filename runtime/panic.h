// Stopping a program that failed.
// A panic flushes standard output, writes where it happened and by which calls the program came there, and ends the
// process with 101. Traces cost nothing until then: they are read off the stack through frame pointers, so every
// function that may stand between two generated ones keeps its own (the library is compiled that way).
#pragma once

#include <setjmp.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/object_layout.h"

namespace vesk::runtime {

inline constexpr int PANIC_STATUS = 101;
inline constexpr std::size_t MAX_TRACE_FRAMES = 50;

struct TraceFrame {
    std::string name, path;
    int line = 0;
};

// Appends the functions that the code at `address` belongs to, innermost first (several when calls were inlined), and
// says whether there were any. Addresses outside of generated code belong to none.
using Symbolizer = bool (*)(std::uintptr_t address, std::vector<TraceFrame>& frames);
void setSymbolizer(Symbolizer symbolizer);

[[noreturn]] void panic(std::string_view message);
// The same for code that was interrupted: the trace starts there.
struct InterruptedCode {
    std::uintptr_t instruction, frame, stack;
};
[[noreturn]] void panicAt(std::string_view message, const InterruptedCode& code);
// Where panics of this thread go on once they are reported, instead of ending the process. Null: nowhere.
void setPanicExit(sigjmp_buf* place);
// Text of a panic whose trace is given: what goes to standard error.
std::string renderPanic(std::string_view message, const std::vector<TraceFrame>& frames, std::size_t totalFrames);

extern "C" {
[[noreturn]] void vesk_rt_panic_null();
[[noreturn]] void vesk_rt_panic_null_element();
[[noreturn]] void vesk_rt_panic_division();
[[noreturn]] void vesk_rt_panic_exponent();
[[noreturn]] void vesk_rt_panic_index(std::int32_t index, std::int64_t length);
[[noreturn]] void vesk_rt_panic_cast(const Object* object, const ClassRecord* target);
[[noreturn]] void vesk_rt_panic_abstract();
}

}  // namespace vesk::runtime
