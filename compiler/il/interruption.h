// What the user at a terminal stops by Ctrl-C: the program under way (as a panic of it), or the compilation.
#pragma once

#include <exception>

namespace vesk::compiler {

// Ends a compilation. No mistake in the program, and so never caught where those are.
class Interrupted : public std::exception {
public:
    const char* what() const noexcept override { return "interrupted"; }
};

// The signal interrupts from now on.
void watchForInterruption(int signal);
// What came so far is over.
void forgetInterruption();
// Throws Interrupted when there was the signal. Called where a compilation can be given up.
void stopIfInterrupted();

}  // namespace vesk::compiler
