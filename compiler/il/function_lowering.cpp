// Frames: parameters, variables, lambdas, and the small pieces of code that everything else is made of.
#include "il/function_lowering.h"

#include "runtime/object_layout.h"

namespace vesk::compiler {
namespace {

// Marks the variables that are assigned after their declaration.
void markAssigned(const BlockStatement* block);

void markAssigned(const Statement* statement) {
    while (statement) {
        switch (statement->kind) {
            case StatementKind::AssignLocal:
                static_cast<const AssignLocal*>(statement)->variable->isAssigned = true;
                return;
            case StatementKind::Block: return markAssigned(static_cast<const BlockStatement*>(statement));
            case StatementKind::While: return markAssigned(static_cast<const WhileStatement*>(statement)->body);
            case StatementKind::ForRange: return markAssigned(static_cast<const ForRange*>(statement)->body);
            case StatementKind::ForArray: return markAssigned(static_cast<const ForArray*>(statement)->body);
            case StatementKind::ForCollection: return markAssigned(static_cast<const ForCollection*>(statement)->body);
            case StatementKind::If: {
                auto* branch = static_cast<const IfStatement*>(statement);
                markAssigned(branch->thenBlock);
                statement = branch->elseStatement;
                continue;
            }
            default: return;
        }
    }
}

void markAssigned(const BlockStatement* block) {
    for (const Statement* statement : block->statements) markAssigned(statement);
}

bool needsCell(const LocalVariable& variable) { return variable.isCaptured && variable.isAssigned; }

}  // namespace

FunctionLowering::FunctionLowering(ModuleBuilder& moduleBuilder)
    : module_(moduleBuilder), builder_(moduleBuilder.context) {}

// -------------------------------------------------------------------------------------------- functions

void FunctionLowering::lower(TypedBody& body, llvm::Function& function) {
    body_ = &body;
    FunctionInstance& instance = *body.function;
    path_ = !instance.sourcePath.empty() ? instance.sourcePath : instance.file ? instance.file->path : std::string();
    if (body.body) markAssigned(body.body);
    for (TypedLambda* lambda : body.lambdas) markAssigned(lambda->body);

    begin(function, instance.shownName(), instance.line);
    // What sets the fields of an object mostly calls nothing: no trace can name it, and there are many of it.
    if (instance.kind != InstanceKind::Constructor && instance.kind != InstanceKind::FieldInitializer) debugScope();
    for (std::size_t i = 0; i < body.parameters.size(); i++)
        declareParameter(*body.parameters[i], function.getArg(unsigned(i)));
    if (body.body) block(body.body);
    finish(module_.returnTypeOf(instance));

    // The enclosing function is complete: captured variables may now stand for what lambdas see of them.
    auto linkage =
        function.hasLinkOnceLinkage() ? llvm::GlobalValue::LinkOnceODRLinkage : llvm::GlobalValue::InternalLinkage;
    for (TypedLambda* lambda : body.lambdas) lowerLambda(*lambda, linkage);
}

void FunctionLowering::begin(llvm::Function& function, const std::string& displayName, int line) {
    function_ = &function;
    displayName_ = displayName;
    ownLine_ = line;
    debug_ = nullptr;
    lineNumber_ = -1;
    failureBlocks_.clear();
    lastFailure_ = {};
    loops_.clear();
    entry_ = llvm::BasicBlock::Create(module_.context, "", &function);
    builder_.SetInsertPoint(entry_);
}

void FunctionLowering::finish(const Type* returnType) {
    if (isReachable()) {
        // The checker has seen to it that every way through a function with a result returns or panics.
        if (returnType->isVoid())
            builder_.CreateRetVoid();
        else
            builder_.CreateUnreachable();
    }
    for (llvm::BasicBlock* failure : failureBlocks_) failure->insertInto(function_);
}

void FunctionLowering::declareParameter(LocalVariable& variable, Value* argument) { declare(variable, argument); }

void FunctionLowering::lowerLambda(TypedLambda& lambda, llvm::GlobalValue::LinkageTypes linkage) {
    llvm::SmallVector<llvm::Type*, 8> parameters{module_.pointerType};
    for (const LocalVariable* parameter : lambda.parameters) parameters.push_back(module_.valueType(parameter->type));
    auto* type = llvm::FunctionType::get(module_.valueType(lambda.returnType), parameters, false);
    llvm::Function* function = module_.definedFunction(lambda.symbol, type, linkage);
    begin(*function, lambda.displayName, lambda.place.line);
    debugScope();
    std::uint64_t offset = runtime::CLOSURE_CAPTURES_OFFSET;
    for (LocalVariable* captured : lambda.captures) {
        Value* slot = address(function->getArg(0), offset);
        captured->lowered =
            needsCell(*captured) ? builder_.CreateLoad(module_.pointerType, slot) : load(captured->type, slot);
        offset += 8;
    }
    for (std::size_t i = 0; i < lambda.parameters.size(); i++)
        declareParameter(*lambda.parameters[i], function->getArg(unsigned(i + 1)));
    block(lambda.body);
    finish(lambda.returnType);
}

FunctionLowering::Value* FunctionLowering::lambdaValue(const LambdaExpression* expression) {
    const TypedLambda& lambda = *expression->lambda;
    llvm::FunctionType* type = module_.closureType(withoutNull(expression->type));
    llvm::Function* code = module_.definedFunction(lambda.symbol, type, llvm::GlobalValue::InternalLinkage);
    if (lambda.captures.empty()) return module_.constantClosure(code, expression->type);
    auto* create = module_.runtimeFunction("vesk_rt_new_closure", module_.pointerType,
                                           {module_.pointerType, module_.pointerType, module_.longType});
    Value* closure = emitCall(
        create,
        {module_.record(expression->type), code, module_.longConstant(std::int64_t(lambda.captures.size() * 8))},
        expression->place);
    std::uint64_t offset = runtime::CLOSURE_CAPTURES_OFFSET;
    for (LocalVariable* captured : lambda.captures) {
        Value* slot = address(closure, offset);
        if (needsCell(*captured))
            builder_.CreateStore(static_cast<Value*>(captured->lowered), slot);
        else
            store(captured->type, readVariable(*captured), slot);
        offset += 8;
    }
    return closure;
}

// -------------------------------------------------------------------------------------------- variables

void FunctionLowering::declare(LocalVariable& variable, Value* value) {
    if (needsCell(variable)) {
        Value* cell = newCell(variable.type);
        store(variable.type, value, cell);
        variable.lowered = cell;
    } else if (variable.isAssigned) {
        Value* room = frameRoom(module_.memoryType(variable.type));
        store(variable.type, value, room);
        variable.lowered = room;
    } else {
        variable.lowered = value;
    }
}

void FunctionLowering::assign(LocalVariable& variable, Value* value) {
    store(variable.type, value, static_cast<Value*>(variable.lowered));
}

FunctionLowering::Value* FunctionLowering::readVariable(const LocalVariable& variable) {
    Value* lowered = static_cast<Value*>(variable.lowered);
    return variable.isAssigned ? load(variable.type, lowered) : lowered;
}

FunctionLowering::Value* FunctionLowering::newCell(const Type* type) {
    auto* create = module_.runtimeFunction("vesk_rt_new_cell", module_.pointerType, {module_.boolType});
    return emitCall(create, {builder_.getInt1(type->isScalar())}, {});
}

// In the entry block, so that a loop does not ask for room again and again.
FunctionLowering::Value* FunctionLowering::frameRoom(llvm::Type* type) {
    return new llvm::AllocaInst(type, 0, "", entry_->begin());
}

// ----------------------------------------------------------------------------------------------- pieces

llvm::DISubprogram* FunctionLowering::debugScope() {
    if (!debug_) {
        debug_ = module_.debugFunction(displayName_, path_, ownLine_);
        function_->setSubprogram(debug_);
    }
    return debug_;
}

llvm::DebugLoc FunctionLowering::lineOf(Place place) {
    int line = place.line > 0 ? place.line : ownLine_;
    if (line != lineNumber_) {
        lineNumber_ = line;
        line_ = llvm::DILocation::get(module_.context, unsigned(line), 0, debugScope());
    }
    return line_;
}

llvm::CallInst* FunctionLowering::emitCall(llvm::Function* function, llvm::ArrayRef<Value*> arguments, Place place) {
    llvm::CallInst* call = builder_.CreateCall(function->getFunctionType(), function, arguments);
    // Extension of narrow arguments is part of the call; what holds for the function itself is known from it.
    llvm::AttributeList attributes = function->getAttributes();
    if (attributes.hasRetAttrs() || attributes.getNumAttrSets() > 2)
        call->setAttributes(attributes.removeFnAttributes(module_.context));
    call->setDebugLoc(lineOf(place));
    return call;
}

llvm::CallInst* FunctionLowering::emitCall(llvm::FunctionType* type, Value* code, llvm::ArrayRef<Value*> arguments,
                                           Place place) {
    llvm::CallInst* call = builder_.CreateCall(type, code, arguments);
    if (module_.session.options().isOptimized) call->addFnAttr(llvm::Attribute::NoMerge);
    call->setDebugLoc(lineOf(place));
    return call;
}

llvm::BasicBlock* FunctionLowering::newBlock() { return llvm::BasicBlock::Create(module_.context); }

void FunctionLowering::startBlock(llvm::BasicBlock* block) {
    block->insertInto(function_);
    builder_.SetInsertPoint(block);
}

void FunctionLowering::failIf(Value* fails, std::string_view panic, llvm::ArrayRef<Value*> arguments, Place place) {
    llvm::SmallVector<llvm::Type*, 4> types;
    for (Value* argument : arguments) types.push_back(argument->getType());
    llvm::Function* reporter = module_.runtimeFunction(panic, module_.voidType, types, false);
    llvm::DebugLoc line = lineOf(place);
    // The checks of a line that report the same share the report.
    bool isShared = arguments.empty() && lastFailure_.reporter == reporter && lastFailure_.line == line;
    llvm::BasicBlock *failure = isShared ? lastFailure_.block : newBlock(), *next = newBlock();
    builder_.CreateCondBr(fails, failure, next);
    if (!isShared) {
        failureBlocks_.push_back(failure);
        builder_.SetInsertPoint(failure);
        emitCall(reporter, arguments, place);
        builder_.CreateUnreachable();
        if (arguments.empty()) lastFailure_ = {reporter, line, failure};
    }
    startBlock(next);
}

void FunctionLowering::checkNotNull(Value* reference, Place place) {
    failIf(builder_.CreateICmpEQ(reference, module_.nullPointer()), "vesk_rt_panic_null", {}, place);
}

FunctionLowering::Value* FunctionLowering::address(Value* object, std::uint64_t offset) {
    return builder_.CreateInBoundsGEP(module_.byteType, object, module_.longConstant(std::int64_t(offset)));
}

FunctionLowering::Value* FunctionLowering::load(const Type* type, Value* from) {
    Value* value = builder_.CreateLoad(module_.memoryType(type), from);
    return type->kind == TypeKind::Bool ? builder_.CreateTrunc(value, module_.boolType) : value;
}

void FunctionLowering::store(const Type* type, Value* value, Value* to) {
    if (type->kind == TypeKind::Bool) value = builder_.CreateZExt(value, module_.byteType);
    builder_.CreateStore(value, to);
}

// A negative index, taken as unsigned, is beyond every length.
FunctionLowering::Value* FunctionLowering::elementAddress(Value* array, Value* index, const Type* arrayType,
                                                          Place place) {
    checkNotNull(array, place);
    Value* length = builder_.CreateLoad(module_.longType, address(array, runtime::ARRAY_LENGTH_OFFSET));
    Value* wide = builder_.CreateZExt(index, module_.longType);
    failIf(builder_.CreateICmpUGE(wide, length), "vesk_rt_panic_index", {index, length}, place);
    llvm::Type* element = module_.memoryType(withoutNull(arrayType)->element());
    return builder_.CreateInBoundsGEP(element, address(array, runtime::ARRAY_ELEMENTS_OFFSET), wide);
}

}  // namespace vesk::compiler
