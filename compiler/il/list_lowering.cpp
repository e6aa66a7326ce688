// Lists without calls: the literals, the loops over them, and in optimized code the commonest methods of ArrayList.
// An object may be of a class that extends ArrayList and overrides what it likes, so all of this looks at the record
// first; where it is another, the ordinary calls follow.
#include "il/function_lowering.h"
#include "runtime/collections/native_objects.h"

namespace vesk::compiler {

// An object has one record all its life, so a loop needs to look at it once.
FunctionLowering::Value* FunctionLowering::hasRecord(Value* object, const Type* type) {
    llvm::LoadInst* record = builder_.CreateLoad(module_.pointerType, object);
    if (module_.session.options().isOptimized)
        record->setMetadata(llvm::LLVMContext::MD_invariant_load, llvm::MDNode::get(module_.context, {}));
    return builder_.CreateICmpEQ(record, module_.record(type));
}

FunctionLowering::Value* FunctionLowering::loadHeader(Value* list, llvm::Type* type, std::uint64_t offset) {
    llvm::LoadInst* value = builder_.CreateLoad(type, address(list, offset));
    module_.tagMemory(*value, ModuleBuilder::MemoryKind::ListHeader);
    return value;
}

FunctionLowering::Value* FunctionLowering::loadLong(Value* list, std::uint64_t offset) {
    return loadHeader(list, module_.longType, offset);
}

FunctionLowering::Value* FunctionLowering::loadData(Value* list) {
    return loadHeader(list, module_.pointerType, runtime::LIST_DATA_OFFSET);
}

void FunctionLowering::storeLong(Value* list, Value* value, std::uint64_t offset) {
    module_.tagMemory(*builder_.CreateStore(value, address(list, offset)), ModuleBuilder::MemoryKind::ListHeader);
}

FunctionLowering::Value* FunctionLowering::loadElement(const Type* type, Value* from) {
    llvm::LoadInst* value = builder_.CreateLoad(module_.memoryType(type), from);
    module_.tagMemory(*value, ModuleBuilder::MemoryKind::ListElement);
    return type->kind == TypeKind::Bool ? builder_.CreateTrunc(value, module_.boolType) : value;
}

void FunctionLowering::storeElement(const Type* type, Value* value, Value* to) {
    if (type->kind == TypeKind::Bool) value = builder_.CreateZExt(value, module_.byteType);
    module_.tagMemory(*builder_.CreateStore(value, to), ModuleBuilder::MemoryKind::ListElement);
}

FunctionLowering::Value* FunctionLowering::listElement(Value* list, Value* index, const Type* element, Place place) {
    Value* length = loadLong(list, runtime::LIST_LENGTH_OFFSET);
    Value* wide = builder_.CreateZExt(index, module_.longType);
    failIf(builder_.CreateICmpUGE(wide, length), "vesk_rt_panic_index", {index, length}, place);
    Value* data = loadData(list);
    return builder_.CreateInBoundsGEP(module_.memoryType(element), data, wide);
}

FunctionLowering::Value* FunctionLowering::listOf(const ListOf* expression) {
    const Type* type = withoutNull(expression->type);
    const Type* element = type->arguments[0];
    llvm::SmallVector<Value*, 8> elements;
    for (const Expression* each : expression->elements) elements.push_back(lower(each));
    auto* create = module_.runtimeFunction("vesk_rt_new_list", module_.pointerType,
                                           {module_.pointerType, module_.pointerType, module_.intType});
    llvm::Constant* elementRecord = module_.record(element);
    Value* list =
        emitCall(create, {elementRecord, module_.record(type), module_.intConstant(std::int64_t(elements.size()))},
                 expression->place);
    if (elements.empty()) return list;
    Value* data = loadData(list);
    storeElements(element, elements, data);
    return list;
}

// The elements of a literal. Many constants are copied from one table: a store for each would be long code.
void FunctionLowering::storeElements(const Type* element, llvm::ArrayRef<Value*> values, Value* data) {
    constexpr std::size_t LEAST_FOR_A_TABLE = 16;
    const std::uint64_t width = ModuleBuilder::widthOf(element);
    const bool isTable = element->isScalar() && values.size() >= LEAST_FOR_A_TABLE &&
                         std::all_of(values.begin(), values.end(),
                                     [](const Value* value) { return llvm::isa<llvm::ConstantData>(value); });
    if (!isTable) {
        std::uint64_t offset = 0;
        for (Value* each : values) {
            store(element, each, offset ? address(data, offset) : data);
            offset += width;
        }
        return;
    }
    llvm::Type* stored = module_.memoryType(element);
    std::vector<llvm::Constant*> constants;
    constants.reserve(values.size());
    for (Value* each : values) {
        auto* constant = llvm::cast<llvm::Constant>(each);
        constants.push_back(element->kind == TypeKind::Bool ? llvm::ConstantInt::get(stored, constant->isOneValue())
                                                            : constant);
    }
    llvm::Constant* contents = llvm::ConstantArray::get(llvm::ArrayType::get(stored, constants.size()), constants);
    auto* table = new llvm::GlobalVariable(module_.module, contents->getType(), true, llvm::GlobalValue::PrivateLinkage,
                                           contents);
    table->setUnnamedAddr(llvm::GlobalValue::UnnamedAddr::Global);
    builder_.CreateMemCpy(data, llvm::MaybeAlign(), table, llvm::MaybeAlign(), width * values.size());
}

// One body for both ways of walking; which one it is does not change on the way, so the optimizer may part them.
void FunctionLowering::forCollection(const ForCollection* statement) {
    const Type* element = statement->variable->type;
    Value* list = lower(statement->collection);
    if (!isNeverNull(statement->collection)) checkNotNull(list, statement->collection->place);
    declare(*statement->source, list);
    llvm::BasicBlock *test = newBlock(), *body = newBlock(), *end = newBlock();
    Value *isDirect = nullptr, *room = nullptr, *changes = nullptr;

    // Before the loop: what each way starts with.
    if (statement->listType) {
        llvm::BasicBlock *direct = newBlock(), *otherwise = newBlock(), *begin = newBlock();
        room = frameRoom(module_.longType);
        builder_.CreateStore(module_.longConstant(0), room);
        isDirect = hasRecord(list, statement->listType);
        builder_.CreateCondBr(isDirect, direct, otherwise);
        startBlock(direct);
        Value* countedChanges = loadLong(list, runtime::LIST_CHANGES_OFFSET);
        builder_.CreateBr(begin);
        startBlock(otherwise);
        Value* iterator = lower(statement->makeIterator);
        llvm::BasicBlock* otherEnd = builder_.GetInsertBlock();
        builder_.CreateBr(begin);
        startBlock(begin);
        llvm::PHINode* ownIterator = builder_.CreatePHI(module_.pointerType, 2);
        ownIterator->addIncoming(module_.nullPointer(), direct);
        ownIterator->addIncoming(iterator, otherEnd);
        llvm::PHINode* ownChanges = builder_.CreatePHI(module_.longType, 2);
        ownChanges->addIncoming(countedChanges, direct);
        ownChanges->addIncoming(module_.longConstant(0), otherEnd);
        changes = ownChanges;
        declare(*statement->iterator, ownIterator);
    } else {
        declare(*statement->iterator, lower(statement->makeIterator));
    }
    builder_.CreateBr(test);

    startBlock(test);
    llvm::BasicBlock* directEnd = nullptr;
    Value* directElement = nullptr;
    if (statement->listType) {
        llvm::BasicBlock *byPosition = newBlock(), *inside = newBlock(), *byIterator = newBlock();
        builder_.CreateCondBr(isDirect, byPosition, byIterator);
        startBlock(byPosition);
        Value* now = loadLong(list, runtime::LIST_CHANGES_OFFSET);
        failIf(builder_.CreateICmpNE(now, changes), "vesk_rt_panic_changed", {}, statement->place);
        Value* position = builder_.CreateLoad(module_.longType, room);
        builder_.CreateCondBr(builder_.CreateICmpULT(position, loadLong(list, runtime::LIST_LENGTH_OFFSET)), inside,
                              end);
        startBlock(inside);
        Value* data = loadData(list);
        directElement = loadElement(element, builder_.CreateInBoundsGEP(module_.memoryType(element), data, position));
        builder_.CreateStore(builder_.CreateNSWAdd(position, module_.longConstant(1)), room);
        directEnd = builder_.GetInsertBlock();
        builder_.CreateBr(body);
        startBlock(byIterator);
    }
    llvm::BasicBlock* take = newBlock();
    builder_.CreateCondBr(lower(statement->hasNext), take, end);
    startBlock(take);
    Value* value = lower(statement->next);
    llvm::BasicBlock* takeEnd = builder_.GetInsertBlock();
    builder_.CreateBr(body);

    startBlock(body);
    if (directEnd) {
        llvm::PHINode* either = builder_.CreatePHI(module_.valueType(element), 2);
        either->addIncoming(directElement, directEnd);
        either->addIncoming(value, takeEnd);
        value = either;
    }
    declare(*statement->variable, value);
    loops_.push_back({test, end});
    block(statement->body);
    loops_.pop_back();
    if (isReachable()) builder_.CreateBr(test);
    startBlock(end);
}

FunctionLowering::ListMethod FunctionLowering::listMethodOf(const FunctionInstance& target) {
    if (target.linkage != InstanceLinkage::Native || !target.hasSelf || !target.owner->declaration)
        return ListMethod::None;
    const ClassDeclaration& owner = *target.owner->declaration;
    if (owner.name != "ArrayList" || owner.package != "vesk.collections") return ListMethod::None;
    const std::string& name = target.node->name();
    std::size_t count = target.parameterTypes.size();
    if (name == "size" && count == 0) return ListMethod::Size;
    if (name == "isEmpty" && count == 0) return ListMethod::IsEmpty;
    if ((name == "get" || name == "operator[]") && count == 1) return ListMethod::Get;
    if ((name == "set" || name == "operator[]=") && count == 2) return ListMethod::Set;
    if (name == "add" && count == 1) return ListMethod::Add;
    return ListMethod::None;
}

FunctionLowering::Value* FunctionLowering::listCall(const Call* expression, ListMethod method,
                                                    llvm::ArrayRef<Value*> arguments) {
    const Type* type = expression->target->owner;
    const Type* element = type->arguments[0];
    Value* list = arguments[0];
    llvm::BasicBlock *direct = newBlock(), *call = newBlock(), *end = newBlock();
    builder_.CreateCondBr(hasRecord(list, type), direct, call);

    startBlock(direct);
    Value* result = nullptr;
    switch (method) {
        case ListMethod::Size:
            result = builder_.CreateTrunc(loadLong(list, runtime::LIST_LENGTH_OFFSET), module_.intType);
            break;
        case ListMethod::IsEmpty:
            result = builder_.CreateICmpEQ(loadLong(list, runtime::LIST_LENGTH_OFFSET), module_.longConstant(0));
            break;
        case ListMethod::Get:
            result = loadElement(element, listElement(list, arguments[1], element, expression->place));
            break;
        case ListMethod::Set:
            storeElement(element, arguments[2], listElement(list, arguments[1], element, expression->place));
            break;
        default: {
            // While there is room.
            Value* length = loadLong(list, runtime::LIST_LENGTH_OFFSET);
            llvm::BasicBlock* place = newBlock();
            builder_.CreateCondBr(builder_.CreateICmpSLT(length, loadLong(list, runtime::LIST_CAPACITY_OFFSET)), place,
                                  call);
            startBlock(place);
            Value* data = loadData(list);
            storeElement(element, arguments[1], builder_.CreateInBoundsGEP(module_.memoryType(element), data, length));
            Value* one = module_.longConstant(1);
            storeLong(list, builder_.CreateNSWAdd(length, one), runtime::LIST_LENGTH_OFFSET);
            Value* changes = loadLong(list, runtime::LIST_CHANGES_OFFSET);
            storeLong(list, builder_.CreateAdd(changes, one), runtime::LIST_CHANGES_OFFSET);
            result = builder_.getTrue();
        }
    }
    llvm::BasicBlock* directEnd = builder_.GetInsertBlock();
    builder_.CreateBr(end);

    startBlock(call);
    Value* called = dispatchedCall(expression, arguments);
    llvm::BasicBlock* callEnd = builder_.GetInsertBlock();
    builder_.CreateBr(end);

    startBlock(end);
    if (!result) return called;
    llvm::PHINode* either = builder_.CreatePHI(module_.valueType(expression->type), 2);
    either->addIncoming(result, directEnd);
    either->addIncoming(called, callEnd);
    return either;
}

}  // namespace vesk::compiler
