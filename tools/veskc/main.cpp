// The command veskc: everything it does is in compiler/driver.
#include <cstdio>
#include <cstdlib>

#include "driver/commands.h"

int main(int argc, char** argv) {
    const int status = vesk::compiler::runCommandLine({argv + 1, argv + argc});
#ifdef VESK_COVERAGE
    std::exit(status);  // writes the counters
#else
    // The system takes back what the command holds in less time than taking it apart would.
    std::fflush(nullptr);
    std::_Exit(status);
#endif
}
