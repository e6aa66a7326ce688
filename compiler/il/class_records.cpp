// Data of a module: class records, literal texts, static fields, and where the fields of objects lie.
#include "il/module_builder.h"
#include "runtime/exports.h"
#include "runtime/object_layout.h"
#include "runtime/string_index.h"
#include "semantics/interactive_session.h"

namespace vesk::compiler {
namespace {

using runtime::RecordKind;
using runtime::ValueKind;

ValueKind valueKindOf(const Type* type) {
    if (!type->isScalar()) return ValueKind::Reference;
    return ValueKind(int(type->kind) - int(TypeKind::Bool) + int(ValueKind::Bool));
}
static_assert(int(TypeKind::Double) - int(TypeKind::Bool) == int(ValueKind::Double) - int(ValueKind::Bool));
static_assert(int(TypeKind::Int) - int(TypeKind::Bool) == int(ValueKind::Int) - int(ValueKind::Bool));
static_assert(int(TypeKind::ULong) - int(TypeKind::Bool) == int(ValueKind::ULong) - int(ValueKind::Bool));

std::uint32_t aligned(std::uint32_t offset, std::uint32_t width) { return (offset + width - 1) / width * width; }

}  // namespace

// ----------------------------------------------------------------------------------------------- objects

// Fields lie in their order, each on a multiple of its own width, behind the record's address or the native part of
// the nearest native super class. Inherited fields come first, so a field has one offset in all sub-classes.
const ModuleBuilder::Offsets& ModuleBuilder::offsetsOf(const Type* type) {
    if (auto found = offsets_.find(type); found != offsets_.end()) return *found->second;
    // Super classes first, without recursion.
    std::vector<const ClassLayout*> open;
    const Offsets* above = nullptr;
    for (const ClassLayout* at = &session.layoutOf(type); at; at = at->super) {
        if (auto known = offsets_.find(at->type); known != offsets_.end()) {
            above = known->second.get();
            break;
        }
        open.push_back(at);
    }
    for (auto layout = open.rbegin(); layout != open.rend(); ++layout) above = &addOffsets(**layout, above);
    return *above;
}

const ModuleBuilder::Offsets& ModuleBuilder::addOffsets(const ClassLayout& layout, const Offsets* above) {
    Offsets offsets;
    offsets.end = above ? above->end : std::uint32_t(runtime::OBJECT_HEADER_SIZE);
    offsets.pointerFree = !above || above->pointerFree;
    const ClassDeclaration* declaration = layout.type->declaration;
    if (unsigned native = declaration ? runtime::nativeInstanceSize(declaration->qualifiedName) : 0) {
        offsets.end = native;
        offsets.pointerFree = false;
    }
    for (const FieldSlot& field : layout.fields) {
        std::uint32_t width = widthOf(field.type);
        offsets.end = aligned(offsets.end, width);
        offsets.own.push_back(offsets.end);
        offsets.end += width;
        if (!field.type->isScalar()) offsets.pointerFree = false;
    }
    return *(offsets_[layout.type] = std::make_unique<const Offsets>(std::move(offsets)));
}

std::uint64_t ModuleBuilder::offsetOf(const FieldSlot& field) {
    return offsetsOf(field.owner).own[field.declaration->ordinal];
}

// ----------------------------------------------------------------------------------------------- records

llvm::GlobalVariable* ModuleBuilder::dataGlobal(llvm::StringRef name) {
    if (auto* known = module.getNamedGlobal(name)) return known;
    // Declared as bytes; the definition brings its own type.
    auto* variable =
        new llvm::GlobalVariable(module, byteType, true, llvm::GlobalValue::ExternalLinkage, nullptr, name);
    return variable;
}

llvm::Constant* ModuleBuilder::record(const Type* type) {
    if (auto known = records_.find(type); known != records_.end()) return known->second;
    if (type->kind == TypeKind::Null) type = session.types().builtin(TypeKind::Object);
    if (const char* symbol = runtime::recordSymbolOf(type->structured)) {
        llvm::Constant* known = dataGlobal(symbol);
        records_[type] = known;
        return known;
    }
    if (type->kind == TypeKind::Class) return classRecord(type);
    // Arrays, functions and `T?`: the same record wherever it is used.
    std::string symbol = "vesk_class " + type->structured;
    auto* variable =
        new llvm::GlobalVariable(module, byteType, true, llvm::GlobalValue::LinkOnceODRLinkage, nullptr, symbol);
    records_[type] = variable;
    fillRecord(variable, type, nullptr);
    return records_[type];
}

llvm::Constant* ModuleBuilder::classRecord(const Type* type) {
    const ClassLayout& layout = session.layoutOf(type);
    llvm::GlobalVariable* variable = dataGlobal(layout.symbol);
    records_[type] = variable;
    if (layout.isOnDemand && isElsewhere(type)) {
        neededMembers.push_back({type, layout.symbol});
    } else if (layout.isOnDemand) {
        if (variable->isDeclaration() && !isProvided(layout.symbol)) {
            variable->setLinkage(llvm::GlobalValue::LinkOnceODRLinkage);
            fillRecord(variable, type, &layout);
        }
    } else {
        needFile(type->declaration->file);
    }
    return records_[type];
}

void ModuleBuilder::defineRecord(const Type* type) {
    if (runtime::recordSymbolOf(type->structured)) return;
    record(type);
    llvm::GlobalVariable* variable = llvm::cast<llvm::GlobalVariable>(records_[type]);
    if (variable->isDeclaration()) fillRecord(variable, type, &session.layoutOf(type));
}

// What a class declares in slots for which its record has no room, null when it declares none: see runtime::FarMethods.
llvm::Constant* ModuleBuilder::farMethods(const ClassLayout& layout,
                                          llvm::function_ref<llvm::Constant*(FunctionInstance*)> addressOf) {
    std::vector<std::uint32_t> slots;
    for (const FunctionInstance* method : layout.declared)
        if (std::uint32_t(method->slot) >= runtime::NEAR_SLOTS) slots.push_back(std::uint32_t(method->slot));
    if (slots.empty()) return nullPointer_;
    std::sort(slots.begin(), slots.end());
    slots.erase(std::unique(slots.begin(), slots.end()), slots.end());
    auto* methodType = llvm::StructType::get(context, {longType, pointerType});
    llvm::SmallVector<llvm::Constant*, 8> methods;
    for (std::uint32_t slot : slots)
        methods.push_back(
            llvm::ConstantStruct::get(methodType, {longConstant(slot), addressOf(layout.methodAt(slot))}));
    auto* arrayType = llvm::ArrayType::get(methodType, methods.size());
    auto* contents = llvm::ConstantStruct::getAnon(
        context, {longConstant(std::int64_t(methods.size())), llvm::ConstantArray::get(arrayType, methods)});
    return new llvm::GlobalVariable(module, contents->getType(), true, llvm::GlobalValue::PrivateLinkage, contents);
}

// Gives a record its contents. They need another type than the bytes it was declared with, so a new global takes the
// place of the declared one wherever that has been used.
void ModuleBuilder::fillRecord(llvm::GlobalVariable* declared, const Type* type, const ClassLayout* layout) {
    const Type* object = session.types().builtin(TypeKind::Object);
    RecordKind kind = type->kind == TypeKind::Array      ? RecordKind::Array
                      : type->kind == TypeKind::Function ? RecordKind::Function
                      : type->kind == TypeKind::Nullable ? RecordKind::Nullable
                      : layout && layout->isInterface    ? RecordKind::Interface
                                                         : RecordKind::Class;
    llvm::Constant *super = nullPointer_, *element = nullPointer_;
    ValueKind valueKind = ValueKind::Reference;
    std::uint32_t size = 0;
    bool pointerFree = false;
    llvm::SmallVector<llvm::Constant*, 16> methods;
    llvm::SmallVector<llvm::Constant*, 8> entries;
    auto addObjectMethods = [&](const char* toString) {
        methods = {runtimeFunction(toString, pointerType, {pointerType}),
                   runtimeFunction("vesk_Object_equals", boolType, {pointerType, pointerType}),
                   runtimeFunction("vesk_Object_hashCode", intType, {pointerType})};
    };
    auto methodAddress = [&](FunctionInstance* method) -> llvm::Constant* {
        if (!method) return runtimeFunction("vesk_rt_panic_abstract", voidType, {}, false);
        return function(*method);
    };

    switch (kind) {
        case RecordKind::Array:
            super = record(object);
            element = record(type->element());
            valueKind = valueKindOf(type->element());
            size = runtime::ARRAY_ELEMENTS_OFFSET;
            pointerFree = type->element()->isScalar();
            addObjectMethods("vesk_rt_array_text");
            break;
        case RecordKind::Function:
            super = record(object);
            size = runtime::CLOSURE_CAPTURES_OFFSET;
            addObjectMethods("vesk_rt_function_text");
            break;
        case RecordKind::Nullable: element = record(type->element()); break;
        case RecordKind::Interface: break;
        default: {
            super = record(layout->super ? layout->super->type : object);
            const Offsets& offsets = offsetsOf(type);
            size = aligned(offsets.end, 8);
            pointerFree = offsets.pointerFree;
            for (std::uint32_t slot = 0; slot < std::min(layout->slotCount, runtime::NEAR_SLOTS); slot++)
                methods.push_back(methodAddress(layout->methodAt(slot)));
            element = farMethods(*layout, methodAddress);
            for (const InterfaceTable& table : layout->interfaces()) {
                llvm::SmallVector<llvm::Constant*, 8> own;
                for (FunctionInstance* method : table.methods) own.push_back(methodAddress(method));
                auto* arrayType = llvm::ArrayType::get(pointerType, own.size());
                auto* array = new llvm::GlobalVariable(module, arrayType, true, llvm::GlobalValue::PrivateLinkage,
                                                       llvm::ConstantArray::get(arrayType, own));
                entries.push_back(llvm::ConstantStruct::get(entryType_, {record(table.interface), array}));
            }
        }
    }

    llvm::Constant* interfaces = nullPointer_;
    if (!entries.empty()) {
        auto* arrayType = llvm::ArrayType::get(entryType_, entries.size());
        interfaces = new llvm::GlobalVariable(module, arrayType, true, llvm::GlobalValue::PrivateLinkage,
                                              llvm::ConstantArray::get(arrayType, entries));
    }
    auto byte = [&](unsigned value) { return llvm::ConstantInt::get(byteType, value); };
    auto count = [&](std::size_t value) { return llvm::ConstantInt::get(intType, value); };
    auto* methodsType = llvm::ArrayType::get(pointerType, methods.size());
    llvm::StructType*& recordType = recordTypes_[methods.size()];
    if (!recordType)
        recordType = llvm::StructType::create(context,
                                              {pointerType, pointerType, pointerType, pointerType, intType, intType,
                                               byteType, byteType, byteType, byteType, intType, methodsType},
                                              "vesk.class." + std::to_string(methods.size()));
    llvm::Constant* contents = llvm::ConstantStruct::get(
        recordType,
        {nameConstant(withoutChunkPackages(session, type->structured)), super, element, interfaces,
         count(entries.size()), count(size), byte(unsigned(kind)), byte(unsigned(valueKind)), byte(pointerFree),
         byte(0), count(methods.size()), llvm::ConstantArray::get(methodsType, methods)});
    auto* defined = new llvm::GlobalVariable(module, contents->getType(), true, declared->getLinkage(), contents, "");
    defined->takeName(declared);
    declared->replaceAllUsesWith(defined);
    declared->eraseFromParent();
    records_[type] = defined;
}

// ------------------------------------------------------------------------------------------ texts, fields

llvm::Constant* ModuleBuilder::nameConstant(std::string_view text) {
    auto* contents = llvm::ConstantDataArray::getString(context, llvm::StringRef(text.data(), text.size()));
    auto* variable =
        new llvm::GlobalVariable(module, contents->getType(), true, llvm::GlobalValue::PrivateLinkage, contents);
    variable->setUnnamedAddr(llvm::GlobalValue::UnnamedAddr::Global);
    return variable;
}

llvm::Constant* ModuleBuilder::text(std::string_view value) {
    if (auto known = texts_.find(value); known != texts_.end()) return known->second;
    const std::int64_t length = std::int64_t(value.size());
    const std::int64_t codePoints = length - std::count_if(value.begin(), value.end(), runtime::isContinuationByte);
    auto* bytes = llvm::ConstantDataArray::getString(context, llvm::StringRef(value.data(), value.size()));
    std::vector<llvm::Constant*> parts{record(session.types().builtin(TypeKind::String)), longConstant(length),
                                       longConstant(codePoints), bytes};
    if (runtime::hasIndex(length, codePoints)) {
        std::vector<std::uint32_t> index = runtime::indexedPositions(value, runtime::indexEntries(codePoints));
        index.insert(index.begin(), 1);
        parts.push_back(llvm::ConstantDataArray::get(context, index));
    }
    auto* contents = llvm::ConstantStruct::getAnon(context, parts);
    auto* variable =
        new llvm::GlobalVariable(module, contents->getType(), true, llvm::GlobalValue::PrivateLinkage, contents);
    // The key outlives the body that the text came from: it is the constant's own copy.
    std::string_view key = value.empty() ? std::string_view() : [&]() -> std::string_view {
        if (auto* data = llvm::dyn_cast<llvm::ConstantDataSequential>(bytes)) {
            llvm::StringRef raw = data->getRawDataValues();
            return {raw.data(), value.size()};
        }
        return {};
    }();
    if (key == value) texts_.emplace(key, variable);
    return variable;
}

// Every static field has eight bytes of its own, whatever its type: all zero bits are its first value.
llvm::Constant* ModuleBuilder::staticField(const FieldDeclaration& field) {
    if (auto* known = module.getNamedGlobal(field.symbol)) return known;
    needFile(field.owner->file);
    return new llvm::GlobalVariable(module, longType, false, llvm::GlobalValue::ExternalLinkage, nullptr, field.symbol);
}

void ModuleBuilder::defineStaticField(const FieldDeclaration& field) {
    auto* variable = llvm::cast<llvm::GlobalVariable>(staticField(field));
    if (variable->isDeclaration()) variable->setInitializer(longConstant(0));
}

llvm::Constant* ModuleBuilder::constantClosure(llvm::Function* code, const Type* type) {
    std::string symbol = (code->getName() + ".value").str();
    if (auto* known = module.getNamedGlobal(symbol)) return known;
    auto* contents = llvm::ConstantStruct::getAnon(context, {record(type), code});
    auto linkage = code->hasLocalLinkage() ? llvm::GlobalValue::PrivateLinkage : llvm::GlobalValue::LinkOnceODRLinkage;
    return new llvm::GlobalVariable(module, contents->getType(), true, linkage, contents, symbol);
}

}  // namespace vesk::compiler
