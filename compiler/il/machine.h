// The machine that code is made for.
#pragma once

#include <memory>
#include <string>

#include "il/unit_module.h"

namespace llvm {
class Module;
class TargetMachine;
}  // namespace llvm

namespace vesk::compiler {

// Written into modules as they stand, so that making IL text needs no code generator.
inline constexpr const char* TARGET_TRIPLE = "x86_64-pc-linux-gnu";
inline constexpr const char* TARGET_LAYOUT =
    "e-m:e-p270:32:32-p271:32:32-p272:64:64-i64:64-i128:128-f80:128-n8:16:32:64-S128";

// Makes the code generator known to LLVM; once per process, when code is generated for the first time.
void startCodeGenerator();
std::unique_ptr<llvm::TargetMachine> makeTargetMachine(OptimizationLevel level);

}  // namespace vesk::compiler
