// Standard output of the program: buffered here, written when the buffer is full, at each line end on a terminal, at
// exit and at a panic.
#pragma once

#include <string_view>

#include "runtime/object_layout.h"

namespace vesk::runtime {

void writeOutput(std::string_view text);
void flushOutput();

}  // namespace vesk::runtime
