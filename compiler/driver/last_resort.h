// What ends the command when nothing else can: one message and status 70, where the system would send a signal.
#pragma once

namespace vesk::compiler {

// Lack of memory, exceptions that nobody can catch, a used up stack. Allocates nothing, so that it can be called before
// the constructors of static objects run.
void installLastResort();

}  // namespace vesk::compiler
