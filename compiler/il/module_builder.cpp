// Types, functions and debug lines of a module; its records and other data are in class_records.cpp.
#include "il/module_builder.h"

#include "il/dwarf_frames.h"
#include "runtime/exports.h"
#include "semantics/interactive_session.h"

namespace vesk::compiler {
namespace {

llvm::AttributeList attributesOf(llvm::LLVMContext& context, bool isOptimized, bool defined, bool returns) {
    llvm::AttrBuilder builder(context);
    builder.addAttribute(llvm::Attribute::NoUnwind);
    if (defined) {
        // Traces are read off frame pointers, and every caller is to be in them.
        builder.addAttribute("frame-pointer", "all");
        builder.addAttribute("disable-tail-calls", "true");
    }
    // Each panic is to tell its own place, and each caller the line it calls from.
    if (isOptimized) builder.addAttribute(llvm::Attribute::NoMerge);
    if (!returns) {
        builder.addAttribute(llvm::Attribute::NoReturn);
        builder.addAttribute(llvm::Attribute::Cold);
    }
    return llvm::AttributeList::get(context, llvm::AttributeList::FunctionIndex, builder);
}

}  // namespace

ModuleBuilder::ModuleBuilder(CompileSession& ownSession, llvm::LLVMContext& ownContext, llvm::Module& ownModule,
                             std::string unit)
    : session(ownSession),
      context(ownContext),
      module(ownModule),
      voidType(llvm::Type::getVoidTy(context)),
      boolType(llvm::Type::getInt1Ty(context)),
      floatType(llvm::Type::getFloatTy(context)),
      doubleType(llvm::Type::getDoubleTy(context)),
      byteType(llvm::Type::getInt8Ty(context)),
      shortType(llvm::Type::getInt16Ty(context)),
      intType(llvm::Type::getInt32Ty(context)),
      longType(llvm::Type::getInt64Ty(context)),
      pointerType(llvm::PointerType::getUnqual(context)),
      unit_(std::move(unit)),
      nullPointer_(llvm::ConstantPointerNull::get(pointerType)),
      entryType_(llvm::StructType::get(context, {pointerType, pointerType})),
      plainAttributes_(attributesOf(context, session.options().isOptimized, true, true)),
      runtimeAttributes_(attributesOf(context, session.options().isOptimized, false, true)),
      neverReturns_(attributesOf(context, session.options().isOptimized, false, false)) {}

// ------------------------------------------------------------------------------------------------ types

llvm::Type* ModuleBuilder::valueType(const Type* type) const {
    switch (type->kind) {
        case TypeKind::Void: return voidType;
        case TypeKind::Bool: return boolType;
        case TypeKind::Byte:
        case TypeKind::SByte: return byteType;
        case TypeKind::Short:
        case TypeKind::UShort: return shortType;
        case TypeKind::Int:
        case TypeKind::UInt: return intType;
        case TypeKind::Long:
        case TypeKind::ULong: return longType;
        case TypeKind::Float: return floatType;
        case TypeKind::Double: return doubleType;
        default: return pointerType;
    }
}

llvm::Type* ModuleBuilder::memoryType(const Type* type) const {
    return type->kind == TypeKind::Bool ? byteType : valueType(type);
}

unsigned ModuleBuilder::widthOf(const Type* type) { return type->isScalar() ? type->bitWidth() / 8 : 8; }

void ModuleBuilder::tagMemory(llvm::Instruction& access, MemoryKind kind) {
    if (!session.options().isOptimized) return;
    if (!memoryTags_[0]) {
        llvm::MDBuilder builder(context);
        llvm::MDNode* root = builder.createTBAARoot("vesk");
        const char* names[] = {"list header", "list element"};
        for (unsigned i = 0; i < 2; i++) {
            llvm::MDNode* type = builder.createTBAAScalarTypeNode(names[i], root);
            memoryTags_[i] = builder.createTBAAStructTagNode(type, type, 0);
        }
    }
    access.setMetadata(llvm::LLVMContext::MD_tbaa, memoryTags_[unsigned(kind)]);
}

// -------------------------------------------------------------------------------------------- functions

const Type* ModuleBuilder::returnTypeOf(FunctionInstance& instance) {
    return instance.returnType ? instance.returnType : session.returnTypeOf(instance);
}

llvm::FunctionType* ModuleBuilder::functionType(FunctionInstance& instance) {
    llvm::SmallVector<llvm::Type*, 8> parameters;
    if (instance.hasSelf) parameters.push_back(valueType(instance.owner));
    for (const Type* type : instance.parameterTypes) parameters.push_back(valueType(type));
    return llvm::FunctionType::get(valueType(returnTypeOf(instance)), parameters, false);
}

llvm::FunctionType* ModuleBuilder::closureType(const Type* type) {
    llvm::SmallVector<llvm::Type*, 8> parameters{pointerType};
    for (const Type* parameter : type->arguments) parameters.push_back(valueType(parameter));
    return llvm::FunctionType::get(valueType(type->result), parameters, false);
}

void ModuleBuilder::extendOwnArguments(llvm::Function& function, FunctionInstance& instance) {
    llvm::SmallVector<const Type*, 8> parameters;
    if (instance.hasSelf) parameters.push_back(instance.owner);
    parameters.append(instance.parameterTypes.begin(), instance.parameterTypes.end());
    extendArguments(function, returnTypeOf(instance), parameters);
}

llvm::Function* ModuleBuilder::definedFunction(const std::string& symbol, llvm::FunctionType* type,
                                               llvm::GlobalValue::LinkageTypes linkage) {
    llvm::Function* function = module.getFunction(symbol);
    if (!function) function = llvm::Function::Create(type, linkage, symbol, module);
    function->setLinkage(linkage);
    function->setAttributes(plainAttributes_);
    return function;
}

llvm::Function* ModuleBuilder::function(FunctionInstance& instance) {
    if (auto found = functions_.find(&instance); found != functions_.end()) return found->second;
    llvm::Function* made = declare(instance);
    functions_[&instance] = made;
    return made;
}

bool ModuleBuilder::isElsewhere(const Type* type) const {
    return places && type && type->kind == TypeKind::Class && !type->arguments.empty() && places->isElsewhere(type);
}

// A member of an instantiation that has its own unit. Specialized generic methods are no members, and the defaults of
// natives are shared by all instantiations.
bool ModuleBuilder::isMemberElsewhere(const FunctionInstance& instance) const {
    const bool isSpecialization = instance.requester || instance.requestToken || !instance.generatedUnit.empty() ||
                                  !instance.typeArguments.empty();
    if (isSpecialization) return false;
    if (instance.defaultOf && instance.defaultOf->linkage == InstanceLinkage::Native) return false;
    return isElsewhere(instance.owner);
}

// A member that only a class's table names was asked for by the function whose code needs that table.
void ModuleBuilder::noteUse(FunctionInstance& instance) {
    if (!instance.owner || isLibraryType(instance.owner)) return;
    try {
        noteImplicitRequest(session, instance, current);
    } catch (const CompilerException& error) {
        failed = true;
        session.report(error);
    }
}

// How an instance is reached from this module: its definition is queued, expected here, or lies elsewhere.
llvm::Function* ModuleBuilder::declare(FunctionInstance& instance) {
    if (instance.linkage == InstanceLinkage::Native) {
        const std::string& target = instance.nativeTarget.empty() ? instance.symbol : instance.nativeTarget;
        if (target == IDENTITY_READER) return defineIdentityReader(instance);
        if (!runtime::exportedSymbol(target))
            reportError(instance, "the run-time library has no function '" + target + "' for native '" +
                                      instance.shownName() + "'");
        bool isGeneric =
            instance.owner && instance.owner->kind == TypeKind::Class && !instance.owner->arguments.empty();
        if (isGeneric || !instance.typeArguments.empty()) return defineNativeForwarder(instance, target);
    }
    llvm::FunctionType* type = functionType(instance);
    llvm::Function* function = module.getFunction(instance.symbol);
    if (!function) function = llvm::Function::Create(type, llvm::GlobalValue::ExternalLinkage, instance.symbol, module);
    if (instance.linkage == InstanceLinkage::Native) {
        function->setAttributes(instance.symbol == "vesk_panic" ? neverReturns_ : runtimeAttributes_);
    } else {
        function->setAttributes(plainAttributes_);
    }
    extendOwnArguments(*function, instance);

    if (!instance.generatedUnit.empty() && instance.generatedUnit != unit_) return function;
    if (instance.linkage == InstanceLinkage::OnDemand && isProvided(instance.symbol)) return function;
    if (instance.linkage == InstanceLinkage::OnDemand && isMemberElsewhere(instance)) {
        neededMembers.push_back({instance.owner, instance.symbol});
    } else if (instance.linkage == InstanceLinkage::OnDemand) {
        function->setLinkage(llvm::GlobalValue::LinkOnceODRLinkage);
        noteUse(instance);
        pending.push_back(&instance);
    } else if (instance.linkage == InstanceLinkage::Unit) {
        // A specialization lies in the unit that asked for it: this one, or the file whose code is copied here on demand.
        bool isSpecialization = instance.requester || instance.requestToken;
        needFile(!isSpecialization ? instance.file : current ? current->file : nullptr);
    }
    return function;
}

llvm::Function* ModuleBuilder::runtimeFunction(std::string_view symbol, llvm::Type* result,
                                               llvm::ArrayRef<llvm::Type*> parameters, bool returns) {
    llvm::StringRef name(symbol.data(), symbol.size());
    if (llvm::Function* known = module.getFunction(name)) return known;
    auto* type = llvm::FunctionType::get(result, parameters, false);
    auto* function = llvm::Function::Create(type, llvm::GlobalValue::ExternalLinkage, name, module);
    function->setAttributes(returns ? runtimeAttributes_ : neverReturns_);
    for (unsigned i = 0; i < parameters.size(); i++) {
        if (parameters[i]->isIntegerTy() && parameters[i]->getIntegerBitWidth() < 8)
            function->addParamAttr(i, llvm::Attribute::ZExt);
    }
    if (result->isIntegerTy() && result->getIntegerBitWidth() < 8) function->addRetAttr(llvm::Attribute::ZExt);
    return function;
}

llvm::Constant* ModuleBuilder::functionValue(FunctionInstance& instance, const Type* type) {
    llvm::Function* target = function(instance);
    llvm::FunctionType* shape = closureType(type);
    std::string symbol = instance.symbol + ".thunk";
    llvm::Function* thunk = module.getFunction(symbol);
    if (!thunk) {
        thunk = definedFunction(symbol, shape, llvm::GlobalValue::LinkOnceODRLinkage);
        llvm::IRBuilder<> builder(llvm::BasicBlock::Create(context, "", thunk));
        llvm::SmallVector<llvm::Value*, 8> arguments;
        for (unsigned i = 1; i < thunk->arg_size(); i++) arguments.push_back(thunk->getArg(i));
        llvm::CallInst* call = builder.CreateCall(target, arguments);
        // Without a place for the call, inlining would take the places of the function away.
        if (session.options().isOptimized) {
            llvm::DISubprogram* debug = debugFunction(HIDDEN_FRAME, instance.sourcePath, instance.line);
            thunk->setSubprogram(debug);
            call->setDebugLoc(llvm::DILocation::get(context, unsigned(instance.line), 0, debug));
        }
        call->setAttributes(target->getAttributes().removeFnAttributes(context));
        if (shape->getReturnType()->isVoidTy())
            builder.CreateRetVoid();
        else
            builder.CreateRet(call);
    }
    return constantClosure(thunk, type);
}

void ModuleBuilder::needFile(const FileDeclaration* file) {
    if (file && file->path != unit_ && needed_.insert(file->path).second) neededFiles.push_back(file->path);
}

void ModuleBuilder::reportError(const FunctionInstance& instance, const std::string& message) {
    failed = true;
    CompilerException error = compileError(instance.node ? instance.node->getToken() : nullptr, message);
    for (const DiagnosticNote& note : requestChain(&instance)) error.addNote(note);
    session.report(error);
}

// ------------------------------------------------------------------------------------------ debug lines

llvm::DISubprogram* ModuleBuilder::debugFunction(const std::string& displayName, const std::string& path, int line) {
    auto fileFor = [&](const std::string& name) {
        auto [found, isNew] = debugFiles_.try_emplace(name);
        if (isNew) found->second = llvm::DIFile::get(context, name, "");
        return found->second;
    };
    if (!debugUnit_) {
        module.addModuleFlag(llvm::Module::Warning, "Debug Info Version", llvm::DEBUG_METADATA_VERSION);
        module.addModuleFlag(llvm::Module::Warning, "Dwarf Version", 4);
        debugUnit_ = llvm::DICompileUnit::getDistinct(context, llvm::dwarf::DW_LANG_C, fileFor(unit_), "veskc", false,
                                                      "", 0, "", llvm::DICompileUnit::FullDebug, nullptr, nullptr,
                                                      nullptr, nullptr, nullptr, 0, false, false,
                                                      llvm::DICompileUnit::DebugNameTableKind::None, false, "", "");
        module.getOrInsertNamedMetadata("llvm.dbg.cu")->addOperand(debugUnit_);
        debugType_ = llvm::DISubroutineType::get(context, llvm::DINode::FlagZero, 0, llvm::MDTuple::get(context, {}));
    }
    llvm::DIFile* file = fileFor(path);
    return llvm::DISubprogram::getDistinct(context, file, withoutChunkPackages(session, displayName), "", file,
                                           unsigned(line), debugType_, unsigned(line), nullptr, 0, 0,
                                           llvm::DINode::FlagZero, llvm::DISubprogram::SPFlagDefinition, debugUnit_);
}

}  // namespace vesk::compiler
