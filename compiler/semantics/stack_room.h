// How far recursion over a program may go on this thread's stack.
// A program may use a fixed part of the stack, the same everywhere: one that needs more is nested too deeply, whatever the
// machine. Where the system gives less than that part, its end says nothing about the program.
#pragma once

#include <new>

namespace vesk::compiler {

// The stack is smaller than what a program may use, and is used up.
class StackExhausted : public std::bad_alloc {
public:
    const char* what() const noexcept override { return "out of memory: the compiler's stack is used up"; }
};

// Called when the stack is too small, before StackExhausted is thrown: what takes exceptions for mistakes of the program
// must not see it. Null, as at first: none.
void setStackHandler(void (*handler)());

// True when recursion has used all that a program may use. Throws StackExhausted when the stack ends before.
bool isStackUsedUp();

}  // namespace vesk::compiler
