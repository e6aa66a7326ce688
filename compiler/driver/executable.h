// Executables: the modules' machine code, the run-time library and the system's linker.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "il/unit_module.h"

namespace vesk::compiler {

// Writes an executable. Throws std::runtime_error with the linker's own words when it cannot.
void linkExecutable(const std::vector<std::unique_ptr<UnitModule>>& modules, OptimizationLevel level,
                    const std::string& output);

}  // namespace vesk::compiler
