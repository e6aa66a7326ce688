// Statements. What stands behind a return, break or continue has no code.
#include "il/function_lowering.h"
#include "runtime/object_layout.h"

namespace vesk::compiler {

void FunctionLowering::block(const BlockStatement* statements) {
    // The fast register allocator's cost grows with the square of a block's length.
    constexpr std::size_t LONGEST_RUN = 512;
    std::size_t inThisRun = 0;
    for (const Statement* each : statements->statements) {
        if (!isReachable()) return;
        if (++inThisRun > LONGEST_RUN) {
            llvm::BasicBlock* next = newBlock();
            builder_.CreateBr(next);
            startBlock(next);
            inThisRun = 1;
        }
        statement(each);
    }
}

void FunctionLowering::statement(const Statement* statement) {
    switch (statement->kind) {
        case StatementKind::Evaluate: lower(static_cast<const EvaluateStatement*>(statement)->expression); break;
        case StatementKind::DeclareLocal: {
            auto* declaration = static_cast<const DeclareLocal*>(statement);
            Value* value = declaration->initializer
                               ? lower(declaration->initializer)
                               : llvm::Constant::getNullValue(module_.valueType(declaration->variable->type));
            declare(*declaration->variable, value);
            declaration->variable->isNeverNull =
                !declaration->variable->isAssigned && declaration->initializer && isNeverNull(declaration->initializer);
            break;
        }
        case StatementKind::AssignLocal: {
            auto* assignment = static_cast<const AssignLocal*>(statement);
            assign(*assignment->variable, lower(assignment->value));
            break;
        }
        case StatementKind::AssignField: {
            auto* assignment = static_cast<const AssignField*>(statement);
            Value* object = lower(assignment->object);
            Value* value = lower(assignment->value);
            if (!assignment->objectIsSelf && !isNeverNull(assignment->object)) checkNotNull(object, assignment->place);
            store(assignment->field->type, value, address(object, module_.offsetOf(*assignment->field)));
            break;
        }
        case StatementKind::AssignStatic: {
            auto* assignment = static_cast<const AssignStatic*>(statement);
            Value* value = lower(assignment->value);
            store(assignment->value->type, value, module_.staticField(*assignment->field));
            break;
        }
        case StatementKind::AssignElement: {
            auto* assignment = static_cast<const AssignElement*>(statement);
            Value* array = lower(assignment->array);
            Value* index = lower(assignment->index);
            Value* value = lower(assignment->value);
            Value* to = elementAddress(array, index, assignment->array->type, assignment->place);
            store(withoutNull(assignment->array->type)->element(), value, to);
            break;
        }
        case StatementKind::If: ifStatement(static_cast<const IfStatement*>(statement)); break;
        case StatementKind::While: whileStatement(static_cast<const WhileStatement*>(statement)); break;
        case StatementKind::ForRange: forRange(static_cast<const ForRange*>(statement)); break;
        case StatementKind::ForArray: forArray(static_cast<const ForArray*>(statement)); break;
        case StatementKind::ForCollection: forCollection(static_cast<const ForCollection*>(statement)); break;
        case StatementKind::Return: {
            const Expression* value = static_cast<const ReturnStatement*>(statement)->value;
            Value* result = value ? lower(value) : nullptr;
            if (result && !result->getType()->isVoidTy())
                builder_.CreateRet(result);
            else
                builder_.CreateRetVoid();
            builder_.ClearInsertionPoint();
            break;
        }
        case StatementKind::Break:
            builder_.CreateBr(loops_.back().end);
            builder_.ClearInsertionPoint();
            break;
        case StatementKind::Continue:
            builder_.CreateBr(loops_.back().next);
            builder_.ClearInsertionPoint();
            break;
        case StatementKind::Block: block(static_cast<const BlockStatement*>(statement)); break;
    }
}

// Goes along a chain of else-ifs, however long.
void FunctionLowering::ifStatement(const IfStatement* statement) {
    llvm::BasicBlock* end = nullptr;
    auto leave = [&] {
        if (!isReachable()) return;
        if (!end) end = newBlock();
        builder_.CreateBr(end);
        builder_.ClearInsertionPoint();
    };
    for (;;) {
        Value* condition = lower(statement->condition);
        llvm::BasicBlock *thenBlock = newBlock(), *otherwise = newBlock();
        builder_.CreateCondBr(condition, thenBlock, otherwise);
        startBlock(thenBlock);
        block(statement->thenBlock);
        const Statement* next = statement->elseStatement;
        if (!next && !end) {
            // Nothing but the way on: it is the end itself.
            if (isReachable()) builder_.CreateBr(otherwise);
            startBlock(otherwise);
            return;
        }
        leave();
        startBlock(otherwise);
        if (next && next->kind == StatementKind::If) {
            statement = static_cast<const IfStatement*>(next);
            continue;
        }
        if (next) this->statement(next);
        leave();
        break;
    }
    if (end) startBlock(end);
}

void FunctionLowering::whileStatement(const WhileStatement* statement) {
    llvm::BasicBlock *test = newBlock(), *body = newBlock(), *end = newBlock();
    builder_.CreateBr(test);
    startBlock(test);
    builder_.CreateCondBr(lower(statement->condition), body, end);
    startBlock(body);
    loops_.push_back({test, end});
    block(statement->body);
    loops_.pop_back();
    if (isReachable()) builder_.CreateBr(test);
    startBlock(end);
}

// The count is the loop's own; the variable is a fresh one each time round.
void FunctionLowering::forRange(const ForRange* statement) {
    Value* from = lower(statement->from);
    Value* to = lower(statement->to);
    Value* room = frameRoom(module_.intType);
    builder_.CreateStore(from, room);
    llvm::BasicBlock *test = newBlock(), *body = newBlock(), *next = newBlock(), *end = newBlock();
    builder_.CreateBr(test);
    startBlock(test);
    Value* count = builder_.CreateLoad(module_.intType, room);
    builder_.CreateCondBr(builder_.CreateICmpSLT(count, to), body, end);
    startBlock(body);
    declare(*statement->variable, count);
    loops_.push_back({next, end});
    block(statement->body);
    loops_.pop_back();
    if (isReachable()) builder_.CreateBr(next);
    startBlock(next);
    builder_.CreateStore(builder_.CreateNSWAdd(count, module_.intConstant(1)), room);
    builder_.CreateBr(test);
    startBlock(end);
}

void FunctionLowering::forArray(const ForArray* statement) {
    const Type* elementType = withoutNull(statement->array->type)->element();
    Value* array = lower(statement->array);
    checkNotNull(array, statement->array->place);
    Value* length = builder_.CreateLoad(module_.longType, address(array, runtime::ARRAY_LENGTH_OFFSET));
    Value* elements = address(array, runtime::ARRAY_ELEMENTS_OFFSET);
    Value* room = frameRoom(module_.longType);
    builder_.CreateStore(module_.longConstant(0), room);
    llvm::BasicBlock *test = newBlock(), *body = newBlock(), *next = newBlock(), *end = newBlock();
    builder_.CreateBr(test);
    startBlock(test);
    Value* count = builder_.CreateLoad(module_.longType, room);
    builder_.CreateCondBr(builder_.CreateICmpSLT(count, length), body, end);
    startBlock(body);
    Value* element = load(elementType, builder_.CreateInBoundsGEP(module_.memoryType(elementType), elements, count));
    if (elementType->isReference() && elementType->kind != TypeKind::Nullable)
        failIf(builder_.CreateICmpEQ(element, module_.nullPointer()), "vesk_rt_panic_null_element", {},
               statement->place);
    declare(*statement->variable, element);
    loops_.push_back({next, end});
    block(statement->body);
    loops_.pop_back();
    if (isReachable()) builder_.CreateBr(next);
    startBlock(next);
    builder_.CreateStore(builder_.CreateNSWAdd(count, module_.longConstant(1)), room);
    builder_.CreateBr(test);
    startBlock(end);
}

}  // namespace vesk::compiler
