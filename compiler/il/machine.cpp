// Start-up of the code generator, left until machine code is really wanted.
#include "il/machine.h"

#include <llvm/MC/TargetRegistry.h>
#include <llvm/Support/TargetSelect.h>
#include <llvm/Target/TargetMachine.h>
#include <llvm/Target/TargetOptions.h>

#include <mutex>
#include <stdexcept>

#include "il/llvm_headers.h"

namespace vesk::compiler {

void startCodeGenerator() {
    static std::once_flag once;
    std::call_once(once, [] {
        LLVMInitializeX86TargetInfo();
        LLVMInitializeX86Target();
        LLVMInitializeX86TargetMC();
        LLVMInitializeX86AsmPrinter();
    });
}

std::unique_ptr<llvm::TargetMachine> makeTargetMachine(OptimizationLevel level) {
    startCodeGenerator();
    std::string reason;
    const llvm::Target* target = llvm::TargetRegistry::lookupTarget(TARGET_TRIPLE, reason);
    if (!target) throw std::runtime_error(reason);
    llvm::CodeGenOptLevel own = level == OptimizationLevel::O0   ? llvm::CodeGenOptLevel::None
                                : level == OptimizationLevel::O1 ? llvm::CodeGenOptLevel::Less
                                : level == OptimizationLevel::O2 ? llvm::CodeGenOptLevel::Default
                                                                 : llvm::CodeGenOptLevel::Aggressive;
    llvm::TargetOptions options;
    return std::unique_ptr<llvm::TargetMachine>(
        target->createTargetMachine(TARGET_TRIPLE, "x86-64", "", options, llvm::Reloc::PIC_, std::nullopt, own));
}

}  // namespace vesk::compiler
