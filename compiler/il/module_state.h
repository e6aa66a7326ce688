// The inside of UnitModule.
#pragma once

#include "il/llvm_headers.h"
#include "il/unit_module.h"

namespace vesk::compiler {

struct UnitModule::State {
    // The module is destroyed before its context.
    std::unique_ptr<llvm::LLVMContext> context;
    std::unique_ptr<llvm::Module> module;
    std::string name, initializerSymbol;
};

// A context that keeps nothing for people's eyes, and a module for this machine in it.
std::unique_ptr<llvm::LLVMContext> makeContext();
std::unique_ptr<llvm::Module> makeModule(llvm::LLVMContext& context, const std::string& name);

}  // namespace vesk::compiler
