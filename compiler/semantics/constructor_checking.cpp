// Making objects: constructors of a class, its type arguments from theirs, and what cannot be instantiated.
#include <algorithm>

#include "semantics/argument_bindings.h"
#include "semantics/checker.h"

namespace vesk::compiler {

namespace {

constexpr std::size_t MOST_NAMES = 20;  // of missing methods in one message

// The class in the lineage whose constructors make the object: the class itself, or the nearest above that has some.
const Type* constructingType(const Type* type) {
    return type ? classDeclaring(type, MemberKind::Constructor, "init") : nullptr;
}

// A class's tables in the order in which people read interfaces: each behind those that it extends.
std::vector<const InterfaceTable*> superInterfacesFirst(const ClassLayout& layout) {
    std::unordered_map<const Type*, const InterfaceTable*> waiting;  // of each interface the nearest table
    for (const ClassLayout* at = &layout; at; at = at->super)
        for (const InterfaceTable& table : at->interfaces()) waiting.emplace(table.interface, &table);
    struct Step {
        const InterfaceTable* table;
        std::vector<const Type*> supers;
        std::size_t next = 0;
    };
    std::vector<const InterfaceTable*> order;
    std::vector<Step> path;
    auto enter = [&](const Type* interface) {
        auto found = waiting.find(interface);
        if (found == waiting.end()) return;
        path.push_back({found->second, directInterfaces(interface)});
        waiting.erase(found);
    };
    for (const Type* interface : lineageOf(layout.type)) {
        enter(interface);
        while (!path.empty()) {
            Step& step = path.back();
            if (step.next < step.supers.size()) {
                enter(step.supers[step.next++]);
            } else {
                order.push_back(step.table);
                path.pop_back();
            }
        }
    }
    return order;
}

}  // namespace

std::vector<FunctionInstance*> Checker::constructorsOf(const Type* type) {
    std::vector<FunctionInstance*> constructors;
    const Type* owner = constructingType(type);
    if (!owner) return constructors;
    for (MethodDeclaration* method : owner->declaration->methodsNamed("init"))
        if (method->isConstructor) constructors.push_back(session_.instanceOf(*method, owner));
    return constructors;
}

void Checker::requireInstantiable(const Type* type, const CallSite& site) {
    if (type->isInterface()) fail(site.node, "Cannot instantiate interface " + type->structured);
    if (session_.isInstantiable(type)) return;
    const ClassLayout& layout = session_.layoutOf(type);
    if (!session_.mayBeShown(site.node.token())) fail(site.node, "Cannot instantiate " + type->structured);
    std::vector<std::string> missing;
    std::unordered_set<std::string> seen;
    auto add = [&](const std::string& name) {
        if (seen.insert(name).second) missing.push_back(name);
    };
    for (const Type* owner : lineageOf(type)) {
        if (!owner->declaration || owner->isInterface()) continue;
        for (auto& method : owner->declaration->methods) {
            if (!method->isAbstract) continue;
            const FunctionInstance* instance = session_.instanceOf(*method, owner);
            const bool isOpen = instance->slot < 0 || !layout.methodAt(static_cast<std::size_t>(instance->slot));
            if (isOpen) add(method->name);
        }
    }
    for (const InterfaceTable* table : superInterfacesFirst(layout)) {
        const ClassLayout& interface = session_.layoutOf(table->interface);
        for (std::size_t i = 0; i < std::min(table->methods.size(), interface.declared.size()); i++)
            if (!table->methods[i]) add(interface.declared[i]->node->name());
    }
    for (const std::string& name : missing)
        if (mayHaveRefusedMember(type, name)) throw Poisoned{};
    std::string names;
    for (std::size_t i = 0; i < std::min(missing.size(), MOST_NAMES); i++)
        names += (names.empty() ? "'" : ", '") + missing[i] + "'";
    if (missing.size() > MOST_NAMES) names += " and " + std::to_string(missing.size() - MOST_NAMES) + " more";
    fail(site.node, "Cannot instantiate " + type->structured +
                        (names.empty() ? ": it is abstract" : ": it does not implement " + names));
}

// `Box(3)`: the class's arguments from those of a constructor that they fit.
const Type* Checker::inferClassArguments(ClassDeclaration& declaration, CallSite& site, ArgumentList& arguments) {
    checkArguments(arguments);
    const std::vector<GenericTypeParam>& parameters = declaration.node->getTypeParams();
    ContextPtr scope = declaration.node->getContext();
    std::vector<const Type*> own;
    for (const GenericTypeParam& parameter : parameters) own.push_back(types_.parameter(parameter.name));
    const Type* openType = types_.classType(&declaration, own);
    const Type* owner = constructingType(openType);
    std::optional<CompilerException> firstError;
    std::vector<const MethodDeclaration*> constructors;
    if (owner)
        for (auto& method : owner->declaration->methods)
            if (method->isConstructor) constructors.push_back(method.get());
    if (constructors.empty()) constructors.push_back(nullptr);
    for (const MethodDeclaration* constructor : constructors) {
        FunctionInstance shape;
        if (constructor) {
            shape.node = constructor->node;
            TypeEnvironment environment = environmentOf(owner);
            for (std::size_t i = 0; i < constructor->node->getParams().size(); i++) {
                const FunctionParam& param = constructor->node->getParams()[i];
                shape.parameterNames.push_back(param.name);
                shape.parameterTypes.push_back(
                    resolveType(declaredParameterType(param), constructor->node->getContext(), &environment));
                if (param.isVariadic) shape.isVariadic = true, shape.variadicIndex = static_cast<int>(i);
                if (param.isNamedVariadic) shape.isNamedVariadic = true, shape.namedVariadicIndex = static_cast<int>(i);
            }
        }
        BoundArguments bound;
        if (!bind(arguments, shape, bound)) continue;
        try {
            ArgumentBindings bindings(parameters, scope, site.token,
                                      [&] { return declaration.name + typeParametersText(parameters); });
            for (std::size_t i = 0; i < arguments.size(); i++) {
                const auto parameter = static_cast<std::size_t>(bound.argumentToParameter[i]);
                bindings.add(shape.parameterNames[parameter], wantedBy(shape, bound, i), arguments[i]);
            }
            bindings.bindFunctions();
            const StrVec texts = bindings.typeArguments();
            std::vector<const Type*> types;
            for (const Str& argument : texts) types.push_back(declaredType(argument, scope, site.token));
            return types_.classType(&declaration, types);
        } catch (const CompilerException& error) {
            if (!firstError) firstError = error;
        }
    }
    if (firstError) throw CheckMistake(*firstError);
    if (constructors.size() == 1 && constructors[0]) {
        FunctionInstance shape;
        shape.kind = InstanceKind::Constructor;
        shape.owner = openType;
        shape.node = constructors[0]->node;
        shape.displayName = declaration.name;
        for (const FunctionParam& param : constructors[0]->node->getParams()) {
            shape.parameterNames.push_back(param.name);
            shape.parameterTypes.push_back(
                resolveType(declaredParameterType(param), constructors[0]->node->getContext()));
        }
        failArity(shape, arguments, site);
    }
    fail(site.node, "No constructor of " + declaration.name + " takes these arguments");
}

Expression* Checker::construct(const Type* type, CallSite& site) {
    ArgumentList arguments = argumentsOf(site.argumentNodes);
    if (type->kind != TypeKind::Class || !type->declaration)
        fail(site.node, type->structured + " is no class that can be instantiated");
    ClassDeclaration& declaration = *type->declaration;
    trackFile(declaration.file);
    if (declaration.isInterface) fail(site.node, "Cannot instantiate interface " + type->structured);
    if (declaration.isGeneric() && type->arguments.empty()) type = inferClassArguments(declaration, site, arguments);
    if (!type->isConcrete) return typedOnly(type, placeOf(site.node));
    validateClassConstraints(type, site.token);
    requireInstantiable(type, site);
    noteConstruction(type, site.token);
    site.name = declaration.name;

    std::vector<FunctionInstance*> constructors = constructorsOf(type);
    if (constructors.empty()) {
        if (!arguments.empty()) failNoConstructor(*type, arguments, site);
        FunctionInstance* initializer = session_.fieldInitializerOf(type);
        if (initializer) noteRequest(*initializer, site.token);
        return make<NewObject>(ExpressionKind::NewObject, type, placeOf(site.node), initializer,
                               static_cast<FunctionInstance*>(nullptr), ExpressionList{});
    }
    auto visibilityOf = [](const FunctionInstance* constructor) {
        return static_cast<const MethodNode&>(*constructor->node).visibility();
    };
    bool anyAccess = std::any_of(constructors.begin(), constructors.end(), [&](const FunctionInstance* constructor) {
        return canAccess(constructor->owner->declaration, visibilityOf(constructor));
    });
    if (!anyAccess) {
        const char* word = visibilityOf(constructors[0]) == MemberVisibility::Private ? "private" : "protected";
        fail(site.node, std::string("Cannot access ") + word + " constructor of " + type->structured);
    }
    std::erase_if(constructors, [&](const FunctionInstance* constructor) {
        return !canAccess(constructor->owner->declaration, visibilityOf(constructor));
    });
    BoundArguments bound;
    FunctionInstance* chosen = chooseOverload(constructors, arguments, bound, site, false);
    return arrange({.function = chosen, .newObject = type}, arguments, bound, site);
}

void Checker::failNoConstructor(const Type& type, const ArgumentList& arguments, const CallSite& site) const {
    if (mayHaveRefusedMember(&type, "init")) throw Poisoned{};
    fail(site.node,
         "constructor of " + type.structured + " expects 0 arguments (got " + std::to_string(arguments.size()) + ")");
}

// `super.init(...)`, also written `super(...)`.
Expression* Checker::callSuperConstructor(CallSite& site) {
    LocalVariable* self = selfVariable(site.node);
    if (function_ && function_->kind != InstanceKind::Constructor)
        fail(site.node, "'super.init' is called only from 'init'");
    const Type* super = directSuperClass(selfType_);
    ArgumentList arguments = argumentsOf(site.argumentNodes);
    std::vector<FunctionInstance*> constructors = super ? constructorsOf(super) : std::vector<FunctionInstance*>{};
    if (constructors.empty()) {
        if (!arguments.empty()) failNoConstructor(super ? *super : *builtin(TypeKind::Object), arguments, site);
        return nullValue(placeOf(site.node));
    }
    BoundArguments bound;
    site.name = super->structured;
    FunctionInstance* chosen = chooseOverload(constructors, arguments, bound, site, false);
    if (!canAccess(chosen->owner->declaration, static_cast<const MethodNode&>(*chosen->node).visibility()))
        fail(site.node, "Cannot access private constructor of " + chosen->owner->structured);
    Expression* receiver = convertAssignable(readLocal(self, placeOf(site.node)), chosen->owner);
    return arrange({.function = chosen, .receiver = receiver, .receiverIsSelf = true}, arguments, bound, site);
}

}  // namespace vesk::compiler
