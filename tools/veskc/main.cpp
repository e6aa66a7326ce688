// The command veskc: everything it does is in compiler/driver.
#include <cstdlib>

#include "driver/commands.h"

int main(int argc, char** argv) {
    // exit() rather than return: static objects end the same way, but what the command still holds is left to the system.
    std::exit(vesk::compiler::runCommandLine({argv + 1, argv + argc}));
}
