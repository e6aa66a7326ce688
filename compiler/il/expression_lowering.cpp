// Expressions. Long chains (`a + b + c ...`, `o.f().g() ...`) lean to the left, so the first operands are followed down
// in a loop and the nodes finished on the way back; only the other operands recurse.
#include "il/function_lowering.h"
#include "runtime/exports.h"
#include "runtime/object_layout.h"

namespace vesk::compiler {

const Expression* FunctionLowering::firstOperand(const Expression* expression) {
    switch (expression->kind) {
        case ExpressionKind::FieldRead: return static_cast<const FieldRead*>(expression)->object;
        case ExpressionKind::ElementRead: return static_cast<const ElementRead*>(expression)->array;
        case ExpressionKind::ArrayLength: return static_cast<const ArrayLength*>(expression)->array;
        case ExpressionKind::Call: {
            auto* call = static_cast<const Call*>(expression);
            return call->arguments.empty() ? nullptr : call->arguments[0];
        }
        case ExpressionKind::ClosureCall: return static_cast<const ClosureCall*>(expression)->callee;
        case ExpressionKind::NewArray: return static_cast<const NewArray*>(expression)->length;
        case ExpressionKind::Negate:
        case ExpressionKind::Not:
        case ExpressionKind::ToText: return static_cast<const Unary*>(expression)->operand;
        case ExpressionKind::Arithmetic: return static_cast<const Arithmetic*>(expression)->left;
        case ExpressionKind::Comparison: return static_cast<const Comparison*>(expression)->left;
        case ExpressionKind::SameReference:
        case ExpressionKind::And:
        case ExpressionKind::Or: return static_cast<const Binary*>(expression)->left;
        case ExpressionKind::Conversion: return static_cast<const Conversion*>(expression)->operand;
        case ExpressionKind::TypeTest: return static_cast<const TypeTest*>(expression)->operand;
        case ExpressionKind::Concat: return static_cast<const Concat*>(expression)->parts[0];
        case ExpressionKind::Let: return static_cast<const Let*>(expression)->value;
        default: return nullptr;
    }
}

FunctionLowering::Value* FunctionLowering::lower(const Expression* expression) {
    std::size_t bottom = spine_.size();
    while (const Expression* first = firstOperand(expression)) {
        spine_.push_back(expression);
        expression = first;
    }
    Value* value = lowerNode(expression, nullptr);
    while (spine_.size() > bottom) {
        const Expression* node = spine_.back();
        spine_.pop_back();
        value = lowerNode(node, value);
    }
    return value;
}

FunctionLowering::Value* FunctionLowering::lowerNode(const Expression* expression, Value* first) {
    switch (expression->kind) {
        case ExpressionKind::IntegerConstant: {
            auto* type = module_.valueType(expression->type);
            unsigned bits = type->getIntegerBitWidth();
            std::uint64_t value = static_cast<const IntegerConstant*>(expression)->value;
            return llvm::ConstantInt::get(
                type, llvm::APInt(bits, bits < 64 ? value & ((std::uint64_t(1) << bits) - 1) : value));
        }
        case ExpressionKind::FloatingConstant:
            return llvm::ConstantFP::get(module_.valueType(expression->type),
                                         static_cast<const FloatingConstant*>(expression)->value);
        case ExpressionKind::NullConstant: return module_.nullPointer();
        case ExpressionKind::StringConstant: return module_.text(static_cast<const StringConstant*>(expression)->value);
        case ExpressionKind::LocalRead: return readVariable(*static_cast<const LocalRead*>(expression)->variable);
        case ExpressionKind::FieldRead: {
            auto* read = static_cast<const FieldRead*>(expression);
            if (!read->objectIsSelf && !isNeverNull(read->object)) checkNotNull(first, read->place);
            return load(read->field->type, address(first, module_.offsetOf(*read->field)));
        }
        case ExpressionKind::StaticRead:
            return load(expression->type, module_.staticField(*static_cast<const StaticRead*>(expression)->field));
        case ExpressionKind::ElementRead: {
            auto* read = static_cast<const ElementRead*>(expression);
            const Type* type = withoutNull(read->array->type)->element();
            Value* element = load(type, elementAddress(first, lower(read->index), read->array->type, read->place));
            if (type->isReference() && type->kind != TypeKind::Nullable)
                failIf(builder_.CreateICmpEQ(element, module_.nullPointer()), "vesk_rt_panic_null_element", {},
                       read->place);
            return element;
        }
        case ExpressionKind::ArrayLength: {
            if (!isNeverNull(static_cast<const ArrayLength*>(expression)->array))
                checkNotNull(first, expression->place);
            Value* length = builder_.CreateLoad(module_.longType, address(first, runtime::ARRAY_LENGTH_OFFSET));
            return builder_.CreateTrunc(length, module_.intType);
        }
        case ExpressionKind::Call: return call(static_cast<const Call*>(expression), first);
        case ExpressionKind::ClosureCall: return closureCall(static_cast<const ClosureCall*>(expression), first);
        case ExpressionKind::RuntimeCall: {
            auto* runtimeCall = static_cast<const RuntimeCall*>(expression);
            llvm::SmallVector<Value*, 6> arguments;
            llvm::SmallVector<llvm::Type*, 6> types;
            for (const Expression* argument : runtimeCall->arguments) {
                arguments.push_back(lower(argument));
                types.push_back(arguments.back()->getType());
            }
            if (!runtime::exportedSymbol(runtimeCall->symbol))
                module_.reportError(*body_->function,
                                    "the run-time library has no function '" + std::string(runtimeCall->symbol) + "'");
            return emitCall(module_.runtimeFunction(runtimeCall->symbol, module_.valueType(expression->type), types),
                            arguments, expression->place);
        }
        case ExpressionKind::NewObject: return newObject(static_cast<const NewObject*>(expression));
        case ExpressionKind::NewArray: {
            auto* create = module_.runtimeFunction("vesk_rt_new_array", module_.pointerType,
                                                   {module_.pointerType, module_.intType});
            return emitCall(create, {module_.record(withoutNull(expression->type)), first}, expression->place);
        }
        case ExpressionKind::ArrayOf: return arrayOf(static_cast<const ArrayOf*>(expression));
        case ExpressionKind::ListOf: return listOf(static_cast<const ListOf*>(expression));
        case ExpressionKind::Lambda: return lambdaValue(static_cast<const LambdaExpression*>(expression));
        case ExpressionKind::FunctionValue:
            return module_.functionValue(*static_cast<const FunctionValue*>(expression)->target,
                                         withoutNull(expression->type));
        case ExpressionKind::Negate:
            return expression->type->isFloating() ? builder_.CreateFNeg(first) : builder_.CreateNeg(first);
        case ExpressionKind::Not: return builder_.CreateNot(first);
        case ExpressionKind::Arithmetic: return arithmetic(static_cast<const Arithmetic*>(expression), first);
        case ExpressionKind::Comparison: return comparison(static_cast<const Comparison*>(expression), first);
        case ExpressionKind::SameReference:
            return builder_.CreateICmpEQ(first, lower(static_cast<const Binary*>(expression)->right));
        case ExpressionKind::And:
        case ExpressionKind::Or: return lazy(static_cast<const Binary*>(expression), first);
        case ExpressionKind::Conditional: return conditional(static_cast<const Conditional*>(expression));
        case ExpressionKind::Conversion: return conversion(static_cast<const Conversion*>(expression), first);
        case ExpressionKind::TypeTest: return typeTest(static_cast<const TypeTest*>(expression), first);
        case ExpressionKind::Concat: return concat(static_cast<const Concat*>(expression), first);
        case ExpressionKind::ToText: return toText(static_cast<const Unary*>(expression)->operand, first);
        case ExpressionKind::Let: {
            // Long chains run along the body.
            const Expression* rest = expression;
            for (; rest->kind == ExpressionKind::Let; rest = static_cast<const Let*>(rest)->body) {
                auto* let = static_cast<const Let*>(rest);
                Value* value = rest == expression ? first : lower(let->value);
                if (let->variable) declare(*let->variable, value);
            }
            return lower(rest);
        }
    }
    return nullptr;
}

bool FunctionLowering::isNeverNull(const Expression* expression) {
    switch (expression->kind) {
        case ExpressionKind::StringConstant:
        case ExpressionKind::NewObject:
        case ExpressionKind::NewArray:
        case ExpressionKind::ArrayOf:
        case ExpressionKind::ListOf:
        case ExpressionKind::Lambda:
        case ExpressionKind::FunctionValue:
        case ExpressionKind::Concat:
        case ExpressionKind::ToText: return true;
        case ExpressionKind::LocalRead: return static_cast<const LocalRead*>(expression)->variable->isNeverNull;
        case ExpressionKind::Conversion: {
            auto* conversion = static_cast<const Conversion*>(expression);
            return conversion->conversion == ConversionKind::Box || conversion->conversion == ConversionKind::NotNull ||
                   (conversion->conversion == ConversionKind::Reference && isNeverNull(conversion->operand));
        }
        default: return false;
    }
}

// ------------------------------------------------------------------------------------------------- calls

FunctionLowering::Value* FunctionLowering::call(const Call* expression, Value* receiver) {
    FunctionInstance& target = *expression->target;
    llvm::SmallVector<Value*, 8> arguments;
    if (!expression->arguments.empty()) arguments.push_back(receiver);
    for (std::size_t i = 1; i < expression->arguments.size(); i++) arguments.push_back(lower(expression->arguments[i]));
    if (target.hasSelf && !expression->receiverIsSelf && target.owner->isReference() &&
        !isNeverNull(expression->arguments[0]))
        checkNotNull(receiver, expression->place);
    if (module_.session.options().isOptimized) {
        if (ListMethod method = listMethodOf(target); method != ListMethod::None)
            return listCall(expression, method, arguments);
    }
    return dispatchedCall(expression, arguments);
}

FunctionLowering::Value* FunctionLowering::dispatchedCall(const Call* expression, llvm::ArrayRef<Value*> arguments) {
    FunctionInstance& target = *expression->target;
    // Built-in values have no sub-classes, and no class record of theirs holds more than the methods of Object.
    bool isFinal = target.hasSelf && (target.owner->isScalar() || target.owner->kind == TypeKind::String);
    Dispatch dispatch = isFinal || target.slot < 0 ? Dispatch::Direct : expression->dispatch;
    if (dispatch == Dispatch::Direct) return emitCall(module_.function(target), arguments, expression->place);

    Value* code = dispatch == Dispatch::Virtual ? virtualMethod(target, arguments[0], expression->place)
                                                : interfaceMethod(target, arguments[0], expression->place);
    llvm::CallInst* result = emitCall(module_.functionType(target), code, arguments, expression->place);
    llvm::SmallVector<const Type*, 8> types{target.owner};
    types.append(target.parameterTypes.begin(), target.parameterTypes.end());
    module_.extendArguments(*result, expression->type, types);
    return result;
}

FunctionLowering::Value* FunctionLowering::virtualMethod(const FunctionInstance& target, Value* receiver,
                                                         const Place& place) {
    const auto slot = std::uint64_t(target.slot);
    if (slot >= runtime::NEAR_SLOTS) {
        auto* find =
            module_.runtimeFunction("vesk_rt_far_method", module_.pointerType, {module_.pointerType, module_.longType});
        return emitCall(find, {receiver, module_.longConstant(std::int64_t(slot))}, place);
    }
    Value* record = builder_.CreateLoad(module_.pointerType, receiver);
    return builder_.CreateLoad(module_.pointerType, address(record, runtime::RECORD_METHODS_OFFSET + slot * 8));
}

FunctionLowering::Value* FunctionLowering::interfaceMethod(const FunctionInstance& target, Value* receiver,
                                                           const Place& place) {
    auto* find = module_.runtimeFunction("vesk_rt_interface_methods", module_.pointerType,
                                         {module_.pointerType, module_.pointerType});
    Value* methods = emitCall(find, {receiver, module_.record(target.owner)}, place);
    const auto offset = std::uint64_t(target.slot) * 8;
    return builder_.CreateLoad(module_.pointerType, offset ? address(methods, offset) : methods);
}

FunctionLowering::Value* FunctionLowering::closureCall(const ClosureCall* expression, Value* callee) {
    llvm::SmallVector<Value*, 8> arguments{callee};
    for (const Expression* argument : expression->arguments) arguments.push_back(lower(argument));
    if (!isNeverNull(expression->callee)) checkNotNull(callee, expression->place);
    Value* code = builder_.CreateLoad(module_.pointerType, address(callee, runtime::CLOSURE_CODE_OFFSET));
    return emitCall(module_.closureType(withoutNull(expression->callee->type)), code, arguments, expression->place);
}

FunctionLowering::Value* FunctionLowering::newObject(const NewObject* expression) {
    llvm::SmallVector<Value*, 8> arguments{nullptr};
    for (const Expression* argument : expression->arguments) arguments.push_back(lower(argument));
    auto* create = module_.runtimeFunction("vesk_rt_new", module_.pointerType, {module_.pointerType});
    Value* object = emitCall(create, {module_.record(expression->type)}, expression->place);
    if (expression->fieldInitializer)
        emitCall(module_.function(*expression->fieldInitializer), {object}, expression->place);
    arguments[0] = object;
    if (expression->constructor) emitCall(module_.function(*expression->constructor), arguments, expression->place);
    return object;
}

FunctionLowering::Value* FunctionLowering::arrayOf(const ArrayOf* expression) {
    const Type* type = withoutNull(expression->type);
    llvm::SmallVector<Value*, 8> elements;
    for (const Expression* element : expression->elements) elements.push_back(lower(element));
    auto* create =
        module_.runtimeFunction("vesk_rt_new_array", module_.pointerType, {module_.pointerType, module_.intType});
    Value* array =
        emitCall(create, {module_.record(type), module_.intConstant(std::int64_t(elements.size()))}, expression->place);
    if (!elements.empty()) storeElements(type->element(), elements, address(array, runtime::ARRAY_ELEMENTS_OFFSET));
    return array;
}

// ------------------------------------------------------------------------------------- choices and texts

FunctionLowering::Value* FunctionLowering::lazy(const Binary* expression, Value* left) {
    bool isAnd = expression->kind == ExpressionKind::And;
    llvm::BasicBlock *start = builder_.GetInsertBlock(), *other = newBlock(), *end = newBlock();
    builder_.CreateCondBr(left, isAnd ? other : end, isAnd ? end : other);
    startBlock(other);
    Value* right = lower(expression->right);
    llvm::BasicBlock* otherEnd = builder_.GetInsertBlock();
    builder_.CreateBr(end);
    startBlock(end);
    llvm::PHINode* result = builder_.CreatePHI(module_.boolType, 2);
    result->addIncoming(builder_.getInt1(!isAnd), start);
    result->addIncoming(right, otherEnd);
    return result;
}

FunctionLowering::Value* FunctionLowering::conditional(const Conditional* expression) {
    llvm::SmallVector<std::pair<Value*, llvm::BasicBlock*>, 4> values;
    llvm::BasicBlock* end = newBlock();
    // A chain `a if c else b if d else ...` leans to the right.
    const Expression* rest = expression;
    while (rest->kind == ExpressionKind::Conditional) {
        auto* choice = static_cast<const Conditional*>(rest);
        llvm::BasicBlock *chosen = newBlock(), *otherwise = newBlock();
        builder_.CreateCondBr(lower(choice->condition), chosen, otherwise);
        startBlock(chosen);
        Value* value = lower(choice->thenValue);
        values.emplace_back(value, builder_.GetInsertBlock());
        builder_.CreateBr(end);
        startBlock(otherwise);
        rest = choice->elseValue;
    }
    Value* last = lower(rest);
    values.emplace_back(last, builder_.GetInsertBlock());
    builder_.CreateBr(end);
    startBlock(end);
    if (expression->type->isVoid()) return nullptr;
    llvm::PHINode* result = builder_.CreatePHI(module_.valueType(expression->type), unsigned(values.size()));
    for (auto [value, from] : values) result->addIncoming(value, from);
    return result;
}

FunctionLowering::Value* FunctionLowering::concat(const Concat* expression, Value* first) {
    llvm::SmallVector<Value*, 8> parts{first};
    for (std::size_t i = 1; i < expression->parts.size(); i++) parts.push_back(lower(expression->parts[i]));
    llvm::Type* pointer = module_.pointerType;
    if (parts.size() == 2)
        return emitCall(module_.runtimeFunction("vesk_rt_concat2", pointer, {pointer, pointer}), parts,
                        expression->place);
    if (parts.size() == 3)
        return emitCall(module_.runtimeFunction("vesk_rt_concat3", pointer, {pointer, pointer, pointer}), parts,
                        expression->place);
    auto* roomType = llvm::ArrayType::get(pointer, parts.size());
    Value* room = frameRoom(roomType);
    for (std::size_t i = 0; i < parts.size(); i++) builder_.CreateStore(parts[i], i ? address(room, i * 8) : room);
    auto* join = module_.runtimeFunction("vesk_rt_concat", pointer, {pointer, module_.intType});
    return emitCall(join, {room, module_.intConstant(std::int64_t(parts.size()))}, expression->place);
}

FunctionLowering::Value* FunctionLowering::toText(const Expression* operand, Value* value) {
    const Type* type = operand->type;
    if (type->kind == TypeKind::String && isNeverNull(operand)) return value;
    if (type->isScalar()) {
        auto* text =
            module_.runtimeFunction("vesk_" + type->structured + "_toString", module_.pointerType, {value->getType()});
        return emitCall(text, {value}, operand->place);
    }
    return emitCall(module_.runtimeFunction("vesk_rt_text", module_.pointerType, {module_.pointerType}), {value},
                    operand->place);
}

}  // namespace vesk::compiler
