// The two ends of an executable's generated code.
#include "il/executable_parts.h"

#include "il/module_state.h"

namespace vesk::compiler {
namespace {

constexpr unsigned PAGE = 4096;

llvm::Function* addFunction(llvm::Module& module, llvm::FunctionType* type, const char* name) {
    auto* function = llvm::Function::Create(type, llvm::GlobalValue::ExternalLinkage, name, module);
    function->addFnAttr("frame-pointer", "all");
    return function;
}

// A function at the beginning of a page, which nobody calls: its address is what counts.
void addMark(llvm::Module& module, const char* name) {
    llvm::LLVMContext& context = module.getContext();
    llvm::Function* mark = addFunction(module, llvm::FunctionType::get(llvm::Type::getVoidTy(context), false), name);
    mark->setAlignment(llvm::Align(PAGE));
    llvm::IRBuilder<> builder(llvm::BasicBlock::Create(context, "", mark));
    builder.CreateRetVoid();
}

}  // namespace

std::string emitOpeningObject(const ProgramStart& start, OptimizationLevel level) {
    const std::unique_ptr<UnitModule> opening = makeStartModule(start);
    llvm::Module& module = *opening->state().module;
    addMark(module, CODE_BEGIN);
    llvm::Function* mark = module.getFunction(CODE_BEGIN);
    mark->removeFromParent();
    module.getFunctionList().push_front(mark);
    return emitObject(*opening, level);
}

std::string emitClosingObject(OptimizationLevel level) {
    auto closing = std::make_unique<UnitModule::State>();
    closing->name = CODE_END;
    closing->context = makeContext();
    closing->module = makeModule(*closing->context, CODE_END);
    llvm::Module& module = *closing->module;
    addMark(module, CODE_END);

    llvm::IRBuilder<> builder(*closing->context);
    llvm::Type* number = builder.getInt32Ty();
    llvm::Type* address = builder.getPtrTy();
    llvm::Function* main = addFunction(module, llvm::FunctionType::get(number, {number, address}, false), "main");
    builder.SetInsertPoint(llvm::BasicBlock::Create(*closing->context, "", main));
    llvm::Value* start = module.getOrInsertFunction("vesk_start", number).getCallee();
    llvm::Value* begin = module.getOrInsertFunction(CODE_BEGIN, builder.getVoidTy()).getCallee();
    llvm::Value* end = module.getFunction(CODE_END);
    auto run = module.getOrInsertFunction("vesk_rt_run_program", number, number, address, address, address, address);
    builder.CreateRet(builder.CreateCall(run, {main->getArg(0), main->getArg(1), start, begin, end}));
    UnitModule whole(std::move(closing));
    return emitObject(whole, level);
}

}  // namespace vesk::compiler
