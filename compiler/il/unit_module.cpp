// Modules outside of the compiler: text, verification, the optimizer, machine code. Compiled without run-time type
// information, since it derives from a class of LLVM.
#include "il/unit_module.h"

#include <llvm/Analysis/CGSCCPassManager.h>
#include <llvm/Analysis/LoopAnalysisManager.h>
#include <llvm/AsmParser/Parser.h>
#include <llvm/IR/DebugInfo.h>
#include <llvm/IR/LegacyPassManager.h>
#include <llvm/MC/TargetRegistry.h>
#include <llvm/Passes/PassBuilder.h>
#include <llvm/Support/SmallVectorMemoryBuffer.h>
#include <llvm/Support/SourceMgr.h>
#include <llvm/Target/TargetMachine.h>
#include <llvm/Transforms/InstCombine/InstCombine.h>
#include <llvm/Transforms/Scalar/LICM.h>
#include <llvm/Transforms/Scalar/LoopPassManager.h>
#include <llvm/Transforms/Scalar/SimpleLoopUnswitch.h>
#include <llvm/Transforms/Scalar/SimplifyCFG.h>

#include <algorithm>
#include <ostream>
#include <stdexcept>

#include "il/machine.h"
#include "il/module_state.h"

namespace vesk::compiler {
namespace {

// Hands large pieces to a standard stream.
class StreamOutput final : public llvm::raw_ostream {
public:
    explicit StreamOutput(std::ostream& out) : out_(out) { SetBufferSize(std::size_t(1) << 18); }
    ~StreamOutput() override { flush(); }

private:
    void write_impl(const char* text, std::size_t size) override {
        out_.write(text, std::streamsize(size));
        position_ += size;
    }
    std::uint64_t current_pos() const override { return position_; }

    std::ostream& out_;
    std::uint64_t position_ = 0;
};

std::string emitCode(UnitModule& module, OptimizationLevel level, llvm::CodeGenFileType type) {
    auto machine = makeTargetMachine(level);
    llvm::SmallString<0> code;
    llvm::raw_svector_ostream out(code);
    llvm::legacy::PassManager passes;
    if (machine->addPassesToEmitFile(passes, out, nullptr, type, true))
        throw std::runtime_error("this machine has no code generator for that kind of file");
    passes.run(*module.state().module);
    return std::string(code.str());
}

}  // namespace

std::unique_ptr<llvm::LLVMContext> makeContext() {
    auto context = std::make_unique<llvm::LLVMContext>();
    context->setDiscardValueNames(true);
    return context;
}

std::unique_ptr<llvm::Module> makeModule(llvm::LLVMContext& context, const std::string& name) {
    auto module = std::make_unique<llvm::Module>(name, context);
    module->setIsNewDbgInfoFormat(true);
    module->setTargetTriple(TARGET_TRIPLE);
    module->setDataLayout(TARGET_LAYOUT);
    return module;
}

UnitModule::UnitModule(std::unique_ptr<State> state) : state_(std::move(state)) {}
UnitModule::~UnitModule() = default;

const std::string& UnitModule::name() const { return state_->name; }

const std::string& UnitModule::initializerSymbol() const { return state_->initializerSymbol; }

void printIL(const UnitModule& module, std::ostream& out) {
    StreamOutput output(out);
    module.state().module->print(output, nullptr);
}

std::string printIL(const UnitModule& module) {
    std::string text;
    llvm::raw_string_ostream out(text);
    module.state().module->print(out, nullptr);
    return text;
}

std::unique_ptr<UnitModule> parseIL(const std::string& text, const std::string& name) {
    auto state = std::make_unique<UnitModule::State>();
    state->context = makeContext();
    state->context->setDiscardValueNames(false);  // the reader tells values apart by their names
    llvm::SMDiagnostic diagnostic;
    state->module = llvm::parseAssembly(llvm::MemoryBufferRef(text, name), diagnostic, *state->context);
    if (!state->module)
        throw std::runtime_error(name + ":" + std::to_string(diagnostic.getLineNo()) + ": " +
                                 diagnostic.getMessage().str());
    state->name = name;
    return std::make_unique<UnitModule>(std::move(state));
}

std::string verifyModule(const UnitModule& module) {
    std::string text;
    llvm::raw_string_ostream out(text);
    return llvm::verifyModule(*module.state().module, &out) ? text : std::string();
}

void optimizeModule(UnitModule& module, OptimizationLevel level) {
    if (level == OptimizationLevel::O0) return;
    auto machine = makeTargetMachine(level);
    llvm::LoopAnalysisManager loops;
    llvm::FunctionAnalysisManager functions;
    llvm::CGSCCAnalysisManager groups;
    llvm::ModuleAnalysisManager modules;
    llvm::PassBuilder builder(machine.get());
    // Loops over collections ask each time round whether it is a list and unchanged: parted, the list's own loop can be
    // vectorized.
    builder.registerVectorizerStartEPCallback([](llvm::FunctionPassManager& passes, llvm::OptimizationLevel at) {
        if (at.getSpeedupLevel() < 2) return;
        llvm::LoopPassManager parting;
        parting.addPass(llvm::LICMPass(llvm::LICMOptions()));
        parting.addPass(llvm::SimpleLoopUnswitchPass(true));
        parting.addPass(llvm::LICMPass(llvm::LICMOptions()));
        passes.addPass(llvm::createFunctionToLoopPassAdaptor(std::move(parting), true));
        passes.addPass(llvm::SimplifyCFGPass());
        passes.addPass(llvm::InstCombinePass());
    });
    builder.registerModuleAnalyses(modules);
    builder.registerCGSCCAnalyses(groups);
    builder.registerFunctionAnalyses(functions);
    builder.registerLoopAnalyses(loops);
    builder.crossRegisterProxies(loops, functions, groups, modules);
    llvm::OptimizationLevel own = level == OptimizationLevel::O1   ? llvm::OptimizationLevel::O1
                                  : level == OptimizationLevel::O2 ? llvm::OptimizationLevel::O2
                                                                   : llvm::OptimizationLevel::O3;
    builder.buildPerModuleDefaultPipeline(own).run(*module.state().module, modules);
}

std::vector<std::string> definedSymbols(const UnitModule& module) {
    std::vector<std::string> symbols;
    for (const llvm::GlobalValue& value : module.state().module->global_values()) {
        if (!value.isDeclaration() && !value.hasLocalLinkage()) symbols.push_back(value.getName().str());
    }
    std::sort(symbols.begin(), symbols.end());
    return symbols;
}

std::vector<std::string> declaredSymbols(const UnitModule& module) {
    std::vector<std::string> symbols;
    for (const llvm::GlobalValue& value : module.state().module->global_values()) {
        if (value.isDeclaration() && !value.getName().starts_with("llvm.")) symbols.push_back(value.getName().str());
    }
    std::sort(symbols.begin(), symbols.end());
    return symbols;
}

void dropDebugLines(UnitModule& module) { llvm::StripDebugInfo(*module.state().module); }

void keepFunctions(UnitModule& module, const std::vector<std::string>& symbols) {
    for (const std::string& symbol : symbols) {
        llvm::Function* function = module.state().module->getFunction(symbol);
        if (function && function->hasLinkOnceODRLinkage()) function->setLinkage(llvm::GlobalValue::WeakODRLinkage);
    }
}

void keepDefinitions(UnitModule& module) {
    for (llvm::GlobalValue& value : module.state().module->global_values()) {
        if (value.hasLinkOnceODRLinkage()) value.setLinkage(llvm::GlobalValue::WeakODRLinkage);
    }
}

void makeLinkOnce(UnitModule& module) {
    for (llvm::Function& function : *module.state().module) {
        if (!function.isDeclaration() && function.hasExternalLinkage())
            function.setLinkage(llvm::GlobalValue::LinkOnceODRLinkage);
    }
}

std::string emitObject(UnitModule& module, OptimizationLevel level) {
    return emitCode(module, level, llvm::CodeGenFileType::ObjectFile);
}

std::string emitAssembly(UnitModule& module, OptimizationLevel level) {
    return emitCode(module, level, llvm::CodeGenFileType::AssemblyFile);
}

std::unique_ptr<UnitModule> makeStartModule(const ProgramStart& start) {
    auto state = std::make_unique<UnitModule::State>();
    state->name = "start";
    state->context = makeContext();
    state->module = makeModule(*state->context, "start");
    llvm::Module& module = *state->module;
    llvm::IRBuilder<> builder(*state->context);
    auto* function = llvm::Function::Create(llvm::FunctionType::get(builder.getInt32Ty(), false),
                                            llvm::GlobalValue::ExternalLinkage, "vesk_start", module);
    function->addFnAttr("frame-pointer", "all");
    builder.SetInsertPoint(llvm::BasicBlock::Create(*state->context, "", function));
    for (const std::string& initializer : start.initializers)
        builder.CreateCall(module.getOrInsertFunction(initializer, builder.getVoidTy()));
    llvm::SmallVector<llvm::Type*, 1> parameters;
    llvm::SmallVector<llvm::Value*, 1> arguments;
    if (start.passArguments) {
        parameters.push_back(builder.getPtrTy());
        arguments.push_back(
            builder.CreateCall(module.getOrInsertFunction(start.mainSymbol + ".arguments", builder.getPtrTy())));
    }
    llvm::Type* result = start.returnsVoid ? builder.getVoidTy() : static_cast<llvm::Type*>(builder.getInt32Ty());
    auto main = module.getOrInsertFunction(start.mainSymbol, llvm::FunctionType::get(result, parameters, false));
    llvm::Value* status = builder.CreateCall(main, arguments);
    builder.CreateRet(start.returnsVoid ? builder.getInt32(0) : status);
    return std::make_unique<UnitModule>(std::move(state));
}

}  // namespace vesk::compiler
