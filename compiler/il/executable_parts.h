// What an executable consists of beside the objects of its units, and what is read off it once it is linked.
// The linker is given: the opening object, the units' objects, the closing object, the run-time library. Whatever lies
// between the two ends is generated code, on pages of its own.
#pragma once

#include <string>

#include "il/unit_module.h"

namespace vesk::compiler {

// Symbols at the two ends.
inline constexpr const char* CODE_BEGIN = "vesk_code_begin";
inline constexpr const char* CODE_END = "vesk_code_end";

// Objects: the opening one has `vesk_start`, the closing one `main`.
std::string emitOpeningObject(const ProgramStart& start, OptimizationLevel level);
std::string emitClosingObject(OptimizationLevel level);

// The table of traces (runtime/trace_table.h) of a linked executable, "" when its debug information was removed. Throws
// std::runtime_error when the file cannot be read.
std::string traceTableOf(const std::string& executable);

}  // namespace vesk::compiler
