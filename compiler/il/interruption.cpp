// The signal's handler is the run-time library's, which knows what it interrupts.
#include "il/interruption.h"

#include "runtime/program.h"

namespace vesk::compiler {

void watchForInterruption(int signal) { runtime::watchForInterruption(signal); }

void forgetInterruption() { runtime::forgetInterruption(); }

void stopIfInterrupted() {
    if (runtime::isInterruptionRequested()) throw Interrupted();
}

}  // namespace vesk::compiler
