// Standard output of the program: buffered here, written when the buffer is full, at each line end on a terminal, at
// exit and at a panic.
#pragma once

#include <string_view>

#include "runtime/object_layout.h"

namespace vesk::runtime {

void writeOutput(std::string_view text);
void flushOutput();
// The reason (an errno) why some of the output since the last question could not be written, 0 when all was.
int outputFailure();

}  // namespace vesk::runtime
