// Natives of generic classes and generic natives: one function of the run-time library serves all their types.
// It takes descriptors beside the values, and values of a bare type parameter by address (collections/README.md of the
// run-time library has the rule and an example). Generated code calls a forwarder of the ordinary shape, which also
// stands in vtables; the optimizer puts it in place where the call is direct.
#include "il/module_builder.h"

namespace vesk::compiler {
namespace {

using Names = std::vector<std::string>;

// What the native was declared as, before its type parameters were replaced.
struct NativeDeclaration {
    const CallableDeclarationNode* node;
    Names classNames, names;  // type parameters: of the class, of class and method
};

NativeDeclaration declarationOfNative(const FunctionInstance& instance) {
    NativeDeclaration declaration{instance.node.get(), {}, {}};
    const ClassDeclaration& owner = *instance.owner->declaration;
    if (instance.hasSelf) declaration.classNames = declaration.names = owner.typeParameters;
    if (instance.typeArguments.empty()) return declaration;
    auto* own = static_cast<const MethodNode*>(instance.node.get());
    for (const auto& method : owner.methods) {
        bool isOne =
            method->isGeneric() && method->name == own->name() && method->node->overloadIndex() == own->overloadIndex();
        if (!isOne) continue;
        declaration.node = method->node.get();
        for (const GenericTypeParam& parameter : method->node->getTypeParams())
            declaration.names.push_back(parameter.name);
    }
    return declaration;
}

bool isOneOf(const std::string& text, const Names& names) {
    return std::find(names.begin(), names.end(), text) != names.end();
}

// Whether a type text names one of the type parameters.
bool namesOneOf(const std::string& text, const Names& names) {
    auto isPart = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '.'; };
    for (std::size_t from = 0; from < text.size();) {
        std::size_t to = from;
        while (to < text.size() && isPart(text[to])) to++;
        if (to > from && isOneOf(text.substr(from, to - from), names)) return true;
        from = to + 1;
    }
    return false;
}

// Whether a native whose result has this type makes the object itself.
bool makesResult(const Type* result) {
    return result->kind == TypeKind::Array ||
           (result->kind == TypeKind::Class && !result->arguments.empty() && !result->declaration->isInterface);
}

}  // namespace

llvm::Function* ModuleBuilder::defineNativeForwarder(FunctionInstance& instance, const std::string& target) {
    std::string symbol = "native " + instance.owner->structured + " " + instance.symbol;
    llvm::Function* forwarder = definedFunction(symbol, functionType(instance), llvm::GlobalValue::LinkOnceODRLinkage);
    if (!forwarder->empty()) return forwarder;
    functions_[&instance] = forwarder;  // the records that it names may name it in turn
    const Type* result = returnTypeOf(instance);
    extendOwnArguments(*forwarder, instance);
    if (isMemberElsewhere(instance)) {
        forwarder->setLinkage(llvm::GlobalValue::ExternalLinkage);
        neededMembers.push_back({instance.owner, symbol});
        return forwarder;
    }

    NativeDeclaration declaration = declarationOfNative(instance);
    const Type* address = session.types().builtin(TypeKind::Object);
    llvm::IRBuilder<> builder(llvm::BasicBlock::Create(context, "", forwarder));
    llvm::SmallVector<llvm::Value*, 8> arguments;
    llvm::SmallVector<const Type*, 8> argumentTypes;
    auto add = [&](llvm::Value* value, const Type* type) {
        arguments.push_back(value);
        argumentTypes.push_back(type);
    };

    if (!declaration.classNames.empty())
        for (const Type* argument : instance.owner->arguments) add(record(argument), address);
    for (const Type* argument : instance.typeArguments) add(record(argument), address);
    const std::string& declaredResult = declaration.node->getReturnType();
    llvm::Value* resultRoom = nullptr;
    if (isOneOf(declaredResult, declaration.names)) {
        add(resultRoom = builder.CreateAlloca(memoryType(result)), address);
    } else if (makesResult(result) && namesOneOf(declaredResult, declaration.names)) {
        add(record(result), address);
    }
    unsigned next = 0;
    if (instance.hasSelf) add(forwarder->getArg(next++), address);
    const auto& declared = declaration.node->getParams();
    for (std::size_t i = 0; i < instance.parameterTypes.size(); i++, next++) {
        const Type* type = instance.parameterTypes[i];
        llvm::Value* argument = forwarder->getArg(next);
        if (i < declared.size() && isOneOf(declared[i].type, declaration.names)) {
            llvm::Value* room = builder.CreateAlloca(memoryType(type));
            builder.CreateStore(type->kind == TypeKind::Bool ? builder.CreateZExt(argument, byteType) : argument, room);
            add(room, address);
        } else {
            add(argument, type);
        }
    }

    llvm::SmallVector<llvm::Type*, 8> types;
    for (llvm::Value* argument : arguments) types.push_back(argument->getType());
    llvm::Function* native = runtimeFunction(target, resultRoom ? voidType : valueType(result), types);
    llvm::CallInst* call = builder.CreateCall(native, arguments);
    extendArguments(*call, resultRoom ? address : result, argumentTypes);
    llvm::Value* value = call;
    if (resultRoom) {
        value = builder.CreateLoad(memoryType(result), resultRoom);
        if (result->kind == TypeKind::Bool) value = builder.CreateTrunc(value, boolType);
    }
    if (result->isVoid())
        builder.CreateRetVoid();
    else
        builder.CreateRet(value);
    return forwarder;
}

void ModuleBuilder::defineArgumentsOf(FunctionInstance& main) {
    ClassDeclaration* arrayList = session.classNamed("vesk.collections.ArrayList");
    if (!arrayList) return;
    auto* function = definedFunction(main.symbol + ".arguments", llvm::FunctionType::get(pointerType, false),
                                     llvm::GlobalValue::ExternalLinkage);
    llvm::IRBuilder<> builder(llvm::BasicBlock::Create(context, "", function));
    const Type* listType = session.types().classType(arrayList, {session.types().builtin(TypeKind::String)});
    builder.CreateRet(builder.CreateCall(runtimeFunction("vesk_rt_program_arguments", pointerType, {pointerType}),
                                         {record(listType)}));
}

}  // namespace vesk::compiler
