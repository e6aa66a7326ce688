// What debug information says about a place in machine code: the function there and those it was inlined into.
// The same for code in memory and for executables, so that both give the same traces.
#pragma once

#include <vector>

#include "runtime/panic.h"

namespace llvm {
class DWARFContext;
namespace object {
struct SectionedAddress;
}
}  // namespace llvm

namespace vesk::compiler {

// The name in debug information of code that stands between two functions of the program: it has no frame of its own.
inline constexpr const char* HIDDEN_FRAME = "(between)";

// Appends the frames, innermost first, and says whether there were any.
bool addFramesAt(llvm::DWARFContext& debug, llvm::object::SectionedAddress address,
                 std::vector<runtime::TraceFrame>& frames);

}  // namespace vesk::compiler
