// Generic declarations as the specializer wants to hear of them.
// A class's generic methods are its own and its super types'. They are told in this order: super classes farthest
// first, then interfaces farthest first, then the class's own; one that has the parameter types of a nearer one (up to
// the names of type parameters) is hidden. The texts are resolved where the method is declared, with the class's type
// arguments in them.
#include <algorithm>

#include "host/diagnostics.h"
#include "semantics/session_tables.h"

namespace vesk::compiler {

namespace {

using MethodInfos = std::vector<GenericMethodInfo>;

// A method's class environment without the names that the method's own type parameters hide.
TypeEnvironment visibleClassEnvironment(const MethodDeclaration& method, const Type* owner) {
    TypeEnvironment whole = environmentOf(owner), visible;
    for (std::size_t i = 0; i < whole.names.size(); i++) {
        const auto& own = method.node->getTypeParams();
        if (std::any_of(own.begin(), own.end(),
                        [&](const GenericTypeParam& parameter) { return parameter.name == whole.names[i]; }))
            continue;
        visible.names.push_back(whole.names[i]);
        visible.arguments.push_back(whole.arguments[i]);
    }
    return visible;
}

Str resolvedText(const Str& text, const MethodDeclaration& method, const TypeEnvironment& environment) {
    if (text.empty()) return text;
    try {
        return resolveType(text, method.node->context(), &environment)->text;
    } catch (const CompilerException&) {
        return text;
    }
}

GenericMethodInfo infoOf(const MethodDeclaration& method, const Type* owner) {
    GenericMethodInfo info;
    const MethodNode& node = *method.node;
    TypeEnvironment environment = visibleClassEnvironment(method, owner);
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

// What two overloads must share for one to hide the other.
std::string hidingKey(const MethodDeclaration& method, const Type* owner) {
    TypeTable& types = CompileSession::current().types();
    TypeEnvironment environment = visibleClassEnvironment(method, owner);
    std::size_t position = 0;
    for (const GenericTypeParam& parameter : method.node->getTypeParams()) {
        environment.names.push_back(parameter.name);
        environment.arguments.push_back(types.parameter("#" + std::to_string(position++)));
    }
    std::string key = method.name + "/" + std::to_string(position);
    for (const FunctionParam& parameter : method.node->getParams()) {
        key += ';';
        key += resolveType(declaredParameterType(parameter), method.node->context(), &environment)->text;
    }
    return key;
}

// All generic methods on a type, or those of one name ("" = all).
std::shared_ptr<const MethodInfos> genericMethodsOf(const Type* owner, const Str& name) {
    CompileSession& session = CompileSession::current();
    CompileSession::State& state = session.state();
    std::lock_guard lock(state.modelMutex);
    auto key = std::make_pair(owner, name);
    if (auto known = state.genericMethods.find(key); known != state.genericMethods.end()) return known->second;
    struct Level {
        const Type* type;
        MethodInfos infos;
    };
    // Nearest first; what is nearer hides what is farther.
    std::vector<Level> classes, interfaces;
    std::set<std::string> taken;
    for (const Type* type : std::vector<const Type*>(lineageOf(owner))) {
        const ClassDeclaration* declaration = declarationOf(type);
        if (!declaration) continue;
        Level level{type, {}};
        std::vector<std::string> keys;
        for (const auto& method : declaration->methods) {
            if (!method->isGeneric() || (!name.empty() && method->name != name)) continue;
            std::string methodKey = hidingKey(*method, type);
            if (taken.count(methodKey)) continue;
            keys.push_back(std::move(methodKey));
            level.infos.push_back(infoOf(*method, type));
        }
        taken.insert(keys.begin(), keys.end());
        if (!level.infos.empty())
            (type != owner && type->isInterface() ? interfaces : classes).push_back(std::move(level));
    }
    auto made = std::make_shared<MethodInfos>();
    auto append = [&](std::vector<Level>& levels, bool own) {
        for (auto level = levels.rbegin(); level != levels.rend(); ++level)
            if ((level->type == owner) == own)
                std::move(level->infos.begin(), level->infos.end(), std::back_inserter(*made));
    };
    append(classes, false);
    append(interfaces, false);
    append(classes, true);
    state.genericMethods.emplace(key, made);
    return made;
}

std::shared_ptr<const MethodInfos> genericMethodsOf(const Str& owner, const Str& name, const Context* scope) {
    static const auto NONE = std::make_shared<const MethodInfos>();
    ContextPtr self = std::const_pointer_cast<Context>(scope->weak_from_this().lock());
    try {
        const Type* type = withoutNull(resolveType(owner, self));
        if (type && declarationOf(type)) return genericMethodsOf(type, name);
        // Unknown arguments of a known base, and what the base alone can answer.
        ClassDeclaration* declaration = lookupClass(std::string_view(owner).substr(0, owner.find('<')), self);
        if (declaration) return genericMethodsOf(CompileSession::current().types().classType(declaration, {}), name);
    } catch (const CompilerException&) {}
    return NONE;
}

FunctionDeclaration* genericFunction(const Str& name, const Context* scope) {
    ContextPtr self = std::const_pointer_cast<Context>(scope->weak_from_this().lock());
    for (FunctionDeclaration* function : lookupFunctions(name, self))
        if (function->generic) return function;
    return nullptr;
}

}  // namespace

bool Context::isGenericMethod(const Str& owner, const Str& method) const {
    return !genericMethodsOf(owner, method, this)->empty();
}

std::vector<GenericMethodInfo> Context::getGenericMethods(const Str& owner, const Str& method) const {
    return *genericMethodsOf(owner, method, this);
}

std::vector<GenericMethodInfo> Context::getAllGenericMethods(const Str& owner) const {
    return *genericMethodsOf(owner, "", this);
}

bool Context::isGenericFunction(const Str& name) const { return genericFunction(name, this) != nullptr; }

std::shared_ptr<const GenericFunctionInfo> Context::getGenericFunction(const Str& name) const {
    FunctionDeclaration* function = genericFunction(name, this);
    return function ? function->generic : nullptr;
}

}  // namespace vesk::compiler
