// Generic declarations as the specializer wants to hear of them.
// A class answers for what it declares itself, and tells which of its super types declare more. The texts are resolved
// where the method is declared, with the class's type arguments in them.
#include <algorithm>
#include <unordered_set>

#include "host/diagnostics.h"
#include "semantics/session_tables.h"

namespace vesk::compiler {

namespace {

using MethodInfos = std::vector<GenericMethodInfo>;

Str resolvedText(const Str& text, const MethodDeclaration& method, const TypeEnvironment& environment) {
    if (text.empty()) return text;
    try {
        return resolveType(text, method.node->context(), &environment)->text;
    } catch (const CompilerException&) {
        return text;
    }
}

// The method's type parameters that have names of built-in types.
std::unordered_set<std::string_view> parametersCalledLikeTypes(const MethodNode& node) {
    std::unordered_set<std::string_view> names;
    for (const GenericTypeParam& parameter : node.getTypeParams())
        if (CompileSession::current().types().builtinNamed(parameter.name)) names.insert(parameter.name);
    return names;
}

// A type in texts in which some names mean type parameters: built-in types of these names are spelled with their package.
const Type* spelledApart(TypeTable& types, const Type* type, const std::unordered_set<std::string_view>& names) {
    const auto apart = [&](const Type* part) { return spelledApart(types, part, names); };
    switch (type->kind) {
        case TypeKind::Class:
        case TypeKind::Parameter:
        case TypeKind::Unknown: return type;
        case TypeKind::Nullable: return types.nullable(apart(type->arguments[0]));
        case TypeKind::Array: return types.array(apart(type->arguments[0]));
        case TypeKind::Function: {
            std::vector<const Type*> arguments;
            for (const Type* argument : type->arguments) arguments.push_back(apart(argument));
            return types.function(arguments, apart(type->result));
        }
        default: return names.contains(type->structured) ? types.parameter("vesk." + type->structured) : type;
    }
}

GenericMethodInfo infoOf(const MethodDeclaration& method, const Type* owner) {
    GenericMethodInfo info;
    const MethodNode& node = *method.node;
    TypeEnvironment environment = environmentOf(method, owner);
    std::vector<const Type*> argumentsApart;
    if (const auto names = parametersCalledLikeTypes(node); environment.arguments && !names.empty()) {
        for (const Type* argument : *environment.arguments)
            argumentsApart.push_back(spelledApart(CompileSession::current().types(), argument, names));
        environment.arguments = &argumentsApart;
    }
    info.ownerClass = owner->text;
    info.name = method.name;
    info.sourceFile = method.owner->file->path;
    info.declarationLine = node.token() ? node.token()->getLine() : 0;
    for (const GenericTypeParam& parameter : node.getTypeParams())
        info.typeParams.push_back({parameter.name, resolvedText(parameter.constraint, method, environment),
                                   resolvedText(parameter.defaultType, method, environment)});
    info.paramCount = node.getParams().size();
    for (std::size_t i = 0; i < info.paramCount; i++) {
        const FunctionParam& parameter = node.getParams()[i];
        info.paramNames.push_back(parameter.name);
        info.paramTypes.push_back(resolvedText(declaredParameterType(parameter), method, environment));
        info.paramHasDefault.push_back(parameter.hasDefault);
        info.passingModes.push_back(parameter.passingMode);
        info.defaultValueTokens.push_back(parameter.defaultValueTokens);
        if (parameter.isVariadic) {
            info.isVariadic = true;
            info.variadicIndex = static_cast<int>(i);
        }
        if (parameter.isNamedVariadic) {
            info.isNamedVariadic = true;
            info.namedVariadicIndex = static_cast<int>(i);
        }
    }
    info.returnType = resolvedText(node.returnType(), method, environment);
    if (info.returnType.empty() && !node.hasBody()) info.returnType = "Void";
    info.isStatic = method.isStatic;
    info.isNative = method.isNative;
    info.overloadIndex = node.overloadIndex();
    info.visibility = node.visibility();
    info.nextCodeLine = node.nextCodeLine();
    return info;
}

// The generic methods that exactly this type declares, or those of one name ("" = all).
std::shared_ptr<const MethodInfos> declaredOn(const Type* owner, const Str& name) {
    CompileSession& session = CompileSession::current();
    CompileSession::State& state = session.state();
    std::lock_guard lock(state.modelMutex);
    auto key = std::make_pair(owner, name);
    if (auto known = state.genericMethods.find(key); known != state.genericMethods.end()) return known->second;
    auto made = std::make_shared<MethodInfos>();
    const ClassDeclaration* declaration = declarationOf(owner);
    if (declaration && name.empty()) {
        for (const auto& method : declaration->methods)
            if (method->isGeneric()) made->push_back(infoOf(*method, owner));
    } else if (declaration) {
        for (const MethodDeclaration* method : declaration->methodsNamed(name))
            if (method->isGeneric()) made->push_back(infoOf(*method, owner));
    }
    state.genericMethods.emplace(key, made);
    return made;
}

// The class that a text names for its generic methods, null when there is none.
const Type* genericMethodOwner(const Str& owner, const Context* scope) {
    ContextPtr self = std::const_pointer_cast<Context>(scope->weak_from_this().lock());
    try {
        const Type* type = withoutNull(resolveType(owner, self));
        if (type && declarationOf(type)) return type;
        // Unknown arguments of a known base, and what the base alone can answer.
        ClassDeclaration* declaration = lookupClass(std::string_view(owner).substr(0, owner.find('<')), self);
        if (declaration) return CompileSession::current().types().classType(declaration, {});
    } catch (const CompilerException&) {}
    return nullptr;
}

std::vector<GenericMethodInfo> declaredOn(const Str& owner, const Str& name, const Context* scope) {
    const Type* type = genericMethodOwner(owner, scope);
    return type ? *declaredOn(type, name) : MethodInfos();
}

FunctionDeclaration* genericFunction(const Str& name, const Context* scope) {
    ContextPtr self = std::const_pointer_cast<Context>(scope->weak_from_this().lock());
    for (FunctionDeclaration* function : lookupFunctions(name, self))
        if (function->generic) return function;
    return nullptr;
}

}  // namespace

TypeEnvironment environmentOf(const MethodDeclaration& method, const Type* owner) {
    TypeEnvironment environment = environmentOf(owner);
    if (environment.names) environment.hidden = TypeParameterIndex(method.node->getTypeParams());
    return environment;
}

bool Context::isGenericMethod(const Str& owner, const Str& method) const {
    return !getGenericMethodOwners(owner, method).empty();
}

std::vector<GenericMethodOwner> Context::getGenericMethodOwners(const Str& owner, const Str& method) const {
    std::vector<GenericMethodOwner> owners;
    const Type* self = genericMethodOwner(owner, this);
    if (!self) return owners;
    const bool isRaw = self->kind == TypeKind::Class && self->arguments.empty();
    for (const Type* type : allDeclaring(self, MemberKind::GenericMethod, method)) {
        const auto place = type == self          ? GenericMethodOwner::Place::Self
                           : type->isInterface() ? GenericMethodOwner::Place::Interface
                                                 : GenericMethodOwner::Place::SuperClass;
        // What a class without its arguments extends is known without arguments, too.
        const bool namesParameters = isRaw && !type->isConcrete && type->kind == TypeKind::Class;
        owners.push_back({namesParameters ? type->declaration->qualifiedName : type->text, place});
    }
    return owners;
}

std::vector<GenericMethodInfo> Context::getGenericMethods(const Str& owner, const Str& method) const {
    return declaredOn(owner, method, this);
}

std::vector<GenericMethodInfo> Context::getAllGenericMethods(const Str& owner) const {
    return declaredOn(owner, "", this);
}

bool Context::isGenericFunction(const Str& name) const { return genericFunction(name, this) != nullptr; }

std::shared_ptr<const GenericFunctionInfo> Context::getGenericFunction(const Str& name) const {
    FunctionDeclaration* function = genericFunction(name, this);
    return function ? function->generic : nullptr;
}

}  // namespace vesk::compiler
