// Calls: what a callee's name means, and calls of functions, methods, constructors and closures.
#include <algorithm>

#include "generics/inference/binding_inference.h"
#include "generics/inference/entity_identity.h"
#include "generics/typetext/type_text.h"
#include "semantics/checker.h"
#include "semantics/interactive_session.h"

namespace vesk::compiler {

namespace {

bool areStatic(const std::vector<MethodCandidate>& methods) {
    return std::all_of(methods.begin(), methods.end(),
                       [](const MethodCandidate& each) { return each.method->isStatic; });
}

bool isTypeQuery(const Str& name) {
    return name == "type" || name == "Application.type" || name == "vesk.Application.type";
}

}  // namespace

CallSite Checker::siteOf(const CallableExpressionNode& node, const Type* expected) {
    const Str& name = node.name();
    CallSite site{
        .node = node, .token = node.token(), .argumentNodes = node.getArguments(), .name = name, .typeArguments = {}};
    site.expected = expected;
    std::size_t clause = name.find('<');
    if (clause == std::string::npos || name.back() != '>') return site;
    site.name = name.substr(0, clause);
    site.hasClause = true;
    return site;
}

Expression* Checker::checkCall(const CallableExpressionNode& node, const Type* expected) {
    const Str& name = node.name();
    if (name.starts_with(CAST_PREFIX) && node.token()->getText() == "as") {
        const NodePtr& operand = node.getChildren().at(0);
        const Type* target = declaredType(name.substr(CAST_PREFIX.size()), node.context(), node.token());
        if (!target->isConcrete) return typedOnly(target, placeOf(node));
        return checkCast(checkValue(operand), target, node);
    }
    if (isTypeQuery(name) && node.getArguments().size() == 1 && node.getArguments()[0]->getKind() == NodeKind::Type) {
        auto& written = static_cast<const TypeNode&>(*node.getArguments()[0]);
        const Type* type = declaredType(written.typeText(), written.context(), written.token());
        return text(withoutChunkPackages(session_, type->structured), placeOf(node));
    }
    ArgumentMark mark(*this);
    CallSite site = siteOf(node, expected);
    if (name.ends_with("[]")) {
        std::string element = name.substr(0, name.size() - 2);
        if (NodePtr receiver = node.receiver()) {
            Receiver owner = receiverOf(receiver);
            if (owner.kind == Receiver::Kind::Package)
                element = owner.package + "." + element;
            else if (owner.kind == Receiver::Kind::Class && owner.type->declaration)
                element = owner.type->declaration->qualifiedName + "." + element;
            else
                fail(node, "'" + name + "' is not a member of a value");
        }
        return checkNewArray(declaredType(element, node.context(), node.token()), site);
    }
    return node.receiver() ? checkReceiverCall(node, site) : checkBareCall(node, site);
}

Expression* Checker::checkNewArray(const Type* element, CallSite& site) {
    const Type* type = types_.array(element);
    if (!type->isConcrete) return typedOnly(type, placeOf(site.node));
    if (element->isVoid()) fail(site.node, "There are no arrays of Void");
    ArgumentList arguments = argumentsOf(site.argumentNodes);
    if (arguments.size() != 1 || !arguments[0].name.empty())
        fail(site.node,
             type->structured + " expects 1 argument, its length (got " + std::to_string(arguments.size()) + ")");
    Expression* length = checkInto(arguments[0].node, builtin(TypeKind::Int));
    return make<NewArray>(ExpressionKind::NewArray, type, placeOf(site.node), length);
}

// The types in the clause behind the name.
void Checker::resolveTypeArguments(CallSite& site) {
    if (!site.hasClause || !site.typeArguments.empty()) return;
    const Str& name = static_cast<const CallableExpressionNode&>(site.node).name();
    for (const Str& argument : parseGenericTypeText(name).args)
        site.typeArguments.push_back(declaredType(argument, site.node.context(), site.token));
}

// The entity manager has words of its own for an entity that is no class.
void Checker::requireEntity(const Receiver& receiver, const CallSite& site) {
    const Type* owner = receiver.kind == Receiver::Kind::Value ? withoutNull(receiver.value->type) : receiver.type;
    if (!site.hasClause || !site.node.context() || !owner || owner->kind != TypeKind::Class) return;
    const Str& name = static_cast<const CallableExpressionNode&>(site.node).name();
    try {
        completeEntityManagerIdentityTypeArguments(site.node.context(), site.token, owner->text, site.name,
                                                   parseGenericTypeText(name).args);
    } catch (const CompilerException& error) {
        throw CheckMistake(error);
    }
}

// A call of a plain name: a local, a member of the class around it, a function or a class.
Expression* Checker::checkBareCall(const CallableExpressionNode& node, CallSite& site) {
    const Str& name = site.name;
    if (!site.hasClause) {
        if (name == "super") return callSuperConstructor(site);
        if (isSelfName(name)) fail(node, "'" + name + "' is not a function");
        if (!isTypePutIn(name, node))
            if (LocalVariable* local = findLocal(name, node)) return callClosure(readLocal(local, placeOf(node)), site);
        if (const Type* bound = boundType(name, node)) return constructBound(bound, site);
    }
    if (selfType_ && selfType_->declaration) {
        std::vector<MethodCandidate> methods =
            name == "init" ? std::vector<MethodCandidate>{} : methodsNamed(selfType_, name);
        if (!methods.empty()) {
            Receiver receiver;
            bool hasSelf = mode_ == CheckMode::Inference ? selfType_->isConcrete || !areStatic(methods)
                                                         : function_ && function_->hasSelf;
            if (hasSelf) {
                receiver.value = readLocal(selfVariable(node), placeOf(node));
                receiver.isSelf = true;
            } else {
                receiver.kind = Receiver::Kind::Class;
                receiver.type = types_.classType(selfType_->declaration, {});
            }
            return callMethods(std::move(methods), receiver, site);
        }
        for (const ClassDeclaration* outer = selfType_->declaration->outer; outer; outer = outer->outer) {
            Receiver receiver;
            receiver.kind = Receiver::Kind::Class;
            receiver.type = types_.classType(const_cast<ClassDeclaration*>(outer), {});
            methods = methodsNamed(receiver.type, name);
            std::erase_if(methods, [](const MethodCandidate& candidate) { return !candidate.method->isStatic; });
            if (!methods.empty()) return callMethods(std::move(methods), receiver, site);
        }
    }
    if (!site.hasClause)
        if (Expression* field = bareField(name, node)) return callClosure(field, site);
    // A capital letter makes a class likelier; the other meaning is tried next.
    auto tryClass = [&]() -> Expression* {
        // A type parameter may have become a class with type arguments.
        if (const Type* made = site.hasClause ? nullptr : types_.unflatten(name); made && made->kind == TypeKind::Class)
            return construct(made, site);
        if (!lookupClass(name, node.context())) return nullptr;
        std::optional<Receiver> found = classReceiver(node.name(), node);
        return found ? construct(found->type, site) : nullptr;
    };
    bool looksLikeClass = !name.empty() && name[0] >= 'A' && name[0] <= 'Z';
    if (looksLikeClass)
        if (Expression* created = tryClass()) return created;
    std::vector<FunctionDeclaration*> functions = functionsForUse(name, node);
    // What the program declares hides what package `vesk` does.
    bool isHidden = !functions.empty() && !looksLikeClass && functions[0]->file->package == "vesk";
    if (isHidden)
        if (const ClassDeclaration* nearer = lookupClass(name, node.context()); nearer && nearer->package != "vesk")
            if (Expression* created = tryClass()) return created;
    if (!functions.empty()) return callFunctions(functions, site);
    if (!looksLikeClass)
        if (Expression* created = tryClass()) return created;
    if (types_.builtinNamed(name))
        fail(node, name + " is no class that can be instantiated: 'x as " + name + "' converts");
    failUnknownName(name, node, "function");
}

// `T(x)` makes an object of the class that T is.
Expression* Checker::constructBound(const Type* bound, CallSite& site) {
    if (mode_ == CheckMode::Inference && !bound->isConcrete) return typedOnly(bound, placeOf(site.node));
    if (bound->kind == TypeKind::Class) return construct(bound, site);
    fail(site.node, bound->structured + " is no class that can be instantiated" +
                        (types_.builtinNamed(bound->text) ? ": 'x as " + bound->structured + "' converts" : ""));
}

Expression* Checker::checkReceiverCall(const CallableExpressionNode& node, CallSite& site) {
    Receiver receiver = receiverOf(node.receiver());
    switch (receiver.kind) {
        case Receiver::Kind::Package: {
            std::string qualified = receiver.package + "." + site.name;
            std::vector<FunctionDeclaration*> functions = lookupFunctions(qualified, node.context());
            if (!functions.empty()) {
                // The specializer looks the function up by the name it is given.
                site.functionName = qualified;
                return callFunctions(functions, site);
            }
            if (std::optional<Receiver> found = classReceiver(receiver.package + "." + node.name(), node))
                return construct(found->type, site);
            failUnknownIn(qualified, node, "function");
        }
        case Receiver::Kind::Super:
            if (site.name == "init") return callSuperConstructor(site);
            return callMethod(receiver, site);
        case Receiver::Kind::Class: {
            const ClassDeclaration* declaration = receiver.type->declaration;
            if (declaration && declaration->nestedByName.contains(site.name))
                if (std::optional<Receiver> found = classReceiver(declaration->qualifiedName + "." + node.name(), node))
                    return construct(found->type, site);
            return callMethod(receiver, site);
        }
        case Receiver::Kind::Value: return callMethod(receiver, site);
    }
    return nullptr;
}

// ------------------------------------------------------------------------------------------------ functions

Expression* Checker::callFunctions(const std::vector<FunctionDeclaration*>& functions, CallSite& site) {
    resolveTypeArguments(site);
    ArgumentList arguments = argumentsOf(site.argumentNodes);
    if (functions[0]->generic) return callGenericFunction(*functions[0], site, arguments);
    if (site.hasClause) fail(site.node, "'" + site.name + "' is not generic: it takes no type arguments");
    std::vector<FunctionInstance*> instances;
    for (FunctionDeclaration* function : functions) instances.push_back(session_.instanceOf(*function));
    if (mode_ == CheckMode::Inference) {
        checkArguments(arguments);
        if (hasOpenTypes(site, arguments)) return typedOnly(returnTypeOf(*instances[0]), placeOf(site.node));
    }
    BoundArguments bound;
    FunctionInstance* chosen = chooseOverload(instances, arguments, bound, site, false);
    return arrange({.function = chosen}, arguments, bound, site);
}

Expression* Checker::callClosure(Expression* callee, CallSite& site) {
    const Type* type = withoutNull(callee->type);
    if (type->kind != TypeKind::Function)
        fail(site.node, "A value of type " + callee->type->structured + " cannot be called");
    if (type != callee->type) callee = conversion(ConversionKind::NotNull, callee, type);
    ArgumentList arguments = argumentsOf(site.argumentNodes);
    if (arguments.size() != type->arguments.size())
        fail(site.node, "A call of " + type->structured + " expects " + std::to_string(type->arguments.size()) +
                            " arguments (got " + std::to_string(arguments.size()) + ")");
    std::vector<Expression*> values;
    for (std::size_t i = 0; i < arguments.size(); i++) {
        if (!arguments[i].name.empty()) fail(arguments[i].token, "A call of a function value takes no named arguments");
        values.push_back(checkInto(arguments[i].node, type->arguments[i]));
    }
    return make<ClosureCall>(ExpressionKind::ClosureCall, type->result, placeOf(site.node), callee, list(values));
}

Expression* Checker::checkCallValue(const CallValueNode& node) {
    ArgumentMark mark(*this);
    Expression* callee = checkValue(node.callee());
    NodeVec arguments(node.getChildren().begin() + 1, node.getChildren().end());
    CallSite site{.node = node, .token = node.token(), .argumentNodes = arguments, .name = {}, .typeArguments = {}};
    return callClosure(callee, site);
}

// -------------------------------------------------------------------------------------------------- methods

Expression* Checker::callMethod(const Receiver& given, CallSite& site) {
    Receiver receiver = given;
    const Type* type = receiver.type;
    if (receiver.kind == Receiver::Kind::Value) {
        type = withoutNull(receiver.value->type);
        if (type->kind == TypeKind::Null) fail(site.node, "null has no members");
        if (type != receiver.value->type)
            receiver.value =
                conversion(type->isScalar() ? ConversionKind::Unbox : ConversionKind::Reference, receiver.value, type);
        if (type->kind == TypeKind::Array && site.name == "length" && site.argumentNodes.empty())
            return make<ArrayLength>(ExpressionKind::ArrayLength, builtin(TypeKind::Int), placeOf(site.node),
                                     receiver.value);
    } else if (!type) {
        fail(site.node, "There is no super class here");
    }
    std::vector<MethodCandidate> methods = methodsNamed(type, site.name);
    std::erase_if(methods, [](const MethodCandidate& candidate) { return candidate.method->isConstructor; });
    if (!methods.empty()) return callMethods(std::move(methods), receiver, site);

    // A field that holds a function is called like a method.
    if (receiver.kind == Receiver::Kind::Class) {
        if (type->declaration)
            if (FoundField field = findStaticField(type->declaration, site.name)) {
                requireAccess(*field.declaration, site.node);
                return callClosure(readField(field, nullptr, false, site.node), site);
            }
    } else if (FoundField field = findField(type, site.name)) {
        requireAccess(*field.declaration, site.node);
        return callClosure(readField(field, receiver.value, receiver.isSelf, site.node), site);
    }
    failUnknownMember(type, site.name, site.node);
}

void Checker::requireMethodAccess(std::vector<MethodCandidate>& methods, const CallSite& site) const {
    MethodCandidate first = methods[0];
    const std::vector<MethodCandidate> all = methods;
    std::erase_if(methods, [&](const MethodCandidate& candidate) {
        return !canAccess(candidate.method->owner, candidate.method->node->visibility());
    });
    // Where a private one may be used it is nearer than those that it does not hide.
    for (std::size_t i = 0; i < methods.size(); i++) {
        if (methods[i].method->node->visibility() != MemberVisibility::Private) continue;
        const MethodCandidate nearer = methods[i];
        std::erase_if(methods, [&](const MethodCandidate& candidate) {
            return candidate.method->owner != nearer.method->owner && candidate.instance && nearer.instance &&
                   candidate.instance->parameterTypes == nearer.instance->parameterTypes;
        });
    }
    if (!methods.empty()) return;
    // Of generic methods the specializer says itself that none may be used.
    if (std::all_of(all.begin(), all.end(), [](const auto& candidate) { return candidate.method->isGeneric(); })) {
        methods = all;
        return;
    }
    bool isPrivate = first.method->node->visibility() == MemberVisibility::Private;
    const char* word = isPrivate                                                         ? "private"
                       : first.method->node->visibility() == MemberVisibility::Protected ? "protected"
                                                                                         : "internal";
    const char* what = first.method->isConstructor ? " constructor" : " method '";
    fail(site.token, std::string("Cannot access ") + word + what +
                         (first.method->isConstructor ? "" : first.method->name + "'") + " of " +
                         first.method->owner->name);
}

// Inference with open types: what the declaration says, with the receiver's arguments in it.
Expression* Checker::openMethodResult(const MethodCandidate& candidate, const CallSite& site) {
    const MethodNode& node = *candidate.method->node;
    if (candidate.method->isGeneric()) {
        std::vector<std::string> names;
        for (const GenericTypeParam& parameter : node.getTypeParams()) names.push_back(parameter.name);
        return openGenericResult(names, node.returnType(), node.getContext(), site);
    }
    if (node.returnType().empty()) throw Poisoned{};
    TypeEnvironment environment = environmentOf(candidate.owner);
    return typedOnly(resolveType(node.returnType(), node.getContext(), &environment), placeOf(site.node));
}

Expression* Checker::callMethods(std::vector<MethodCandidate> methods, const Receiver& receiver, CallSite& site) {
    requireMethodAccess(methods, site);
    bool isStaticCall = receiver.kind == Receiver::Kind::Class;
    if (isStaticCall) {
        bool hasStatic =
            std::any_of(methods.begin(), methods.end(), [](const MethodCandidate& c) { return c.method->isStatic; });
        if (!hasStatic) fail(site.node, "'" + site.name + "' needs an object: it is not static");
        std::erase_if(methods, [](const MethodCandidate& candidate) { return !candidate.method->isStatic; });
    } else if (!receiver.isSelf && areStatic(methods)) {
        fail(site.node,
             "'" + site.name + "' is static: call it as " + methods[0].method->owner->name + "." + site.name);
    }
    requireEntity(receiver, site);
    resolveTypeArguments(site);
    ArgumentList arguments = argumentsOf(site.argumentNodes);
    std::vector<MethodCandidate> generic;
    std::vector<FunctionInstance*> plain;
    for (const MethodCandidate& candidate : methods) {
        if (candidate.method->isGeneric())
            generic.push_back(candidate);
        else if (candidate.instance)
            plain.push_back(candidate.instance);
    }
    if (mode_ == CheckMode::Inference) {
        checkArguments(arguments);
        const Type* type = receiver.kind == Receiver::Kind::Value ? receiver.value->type : receiver.type;
        // A class's type arguments say nothing about its static members.
        bool isOpen = (!type->isConcrete && !areStatic(methods)) || hasOpenTypes(site, arguments);
        if (isOpen || (plain.empty() && generic.empty())) return openMethodResult(methods[0], site);
    }
    if (site.hasClause && generic.empty())
        fail(site.node, "'" + site.name + "' is not generic: it takes no type arguments");
    if (!plain.empty() && !site.hasClause) {
        BoundArguments bound;
        if (FunctionInstance* chosen = chooseOverload(plain, arguments, bound, site, !generic.empty())) {
            auto method = std::find_if(methods.begin(), methods.end(),
                                       [&](const MethodCandidate& c) { return c.instance == chosen; });
            return invoke(*chosen, method->method->isStatic, method->method->node->visibility(), receiver, arguments,
                          bound, site);
        }
    }
    if (generic.empty()) fail(site.node, "'" + site.name + "' cannot be called here");
    return callGenericMethod(generic, receiver, site, arguments);
}

Expression* Checker::invoke(FunctionInstance& target, bool isStatic, MemberVisibility visibility,
                            const Receiver& receiver, ArgumentList& arguments, const BoundArguments& bound,
                            const CallSite& site) {
    if (isStatic || !target.hasSelf) return arrange({.function = &target}, arguments, bound, site);
    const Type* owner = target.owner;
    Expression* value = receiver.value;
    if (value->type != owner) value = convertAssignable(value, owner);
    Dispatch dispatch = Dispatch::Direct;
    bool isBuiltin = owner->isScalar() || owner->kind == TypeKind::String;
    bool isSuper = receiver.kind == Receiver::Kind::Super;
    if (isSuper && !target.node->hasBody() && !target.node->isNative())
        fail(site.node, "'" + site.name + "' is abstract in " + owner->structured + ": 'super' has nothing to call");
    if (!isBuiltin && !isSuper && visibility != MemberVisibility::Private && target.kind != InstanceKind::Constructor) {
        if (target.slot < 0 && (owner->kind == TypeKind::Class || owner->kind == TypeKind::Object))
            session_.layoutOf(owner);
        if (target.slot >= 0) dispatch = owner->isInterface() ? Dispatch::Interface : Dispatch::Virtual;
    }
    return arrange({.function = &target, .receiver = value, .dispatch = dispatch, .receiverIsSelf = receiver.isSelf},
                   arguments, bound, site);
}

Expression* Checker::callChecked(Expression* value, std::string_view name, ArgumentList& arguments,
                                 const AbstractNode& node, bool receiverIsSelf) {
    static const NodeVec NO_NODES;
    std::vector<MethodCandidate> methods = methodsNamed(value->type, name);
    std::erase_if(methods,
                  [](const MethodCandidate& candidate) { return candidate.method->isStatic || !candidate.instance; });
    if (methods.empty()) return callCheckedGeneric(value, name, arguments, node, receiverIsSelf);
    CallSite site{
        .node = node, .token = node.token(), .argumentNodes = NO_NODES, .name = std::string(name), .typeArguments = {}};
    requireMethodAccess(methods, site);
    std::vector<FunctionInstance*> instances;
    for (const MethodCandidate& candidate : methods) instances.push_back(candidate.instance);
    BoundArguments bound;
    FunctionInstance* chosen = chooseOverload(instances, arguments, bound, site, true);
    if (!chosen) return callCheckedGeneric(value, name, arguments, node, receiverIsSelf);
    const Receiver receiver = receiverOf(value, receiverIsSelf);
    auto method =
        std::find_if(methods.begin(), methods.end(), [&](const MethodCandidate& c) { return c.instance == chosen; });
    return invoke(*chosen, false, method->method->node->visibility(), receiver, arguments, bound, site);
}

Receiver Checker::receiverOf(Expression* value, bool isSelf) const {
    Receiver receiver;
    receiver.value = value;
    receiver.isSelf =
        isSelf || (value->kind == ExpressionKind::LocalRead && static_cast<LocalRead*>(value)->variable == self_);
    return receiver;
}

// Operators and the like may be generic methods, too: asked for where no plain one takes the arguments.
Expression* Checker::callCheckedGeneric(Expression* value, std::string_view name, ArgumentList& arguments,
                                        const AbstractNode& node, bool receiverIsSelf) {
    checkArguments(arguments);
    std::vector<MethodCandidate> methods = methodsNamed(value->type, name);
    std::erase_if(methods, [](const MethodCandidate& candidate) {
        return candidate.method->isStatic || !candidate.method->isGeneric();
    });
    NodeVec nodes;
    for (Argument& argument : arguments) {
        // What is made up of values alone has no node that the specializer could be told about.
        const bool isOperand = node.getKind() == NodeKind::Operator && node.getChildren().size() == 2;
        if (!argument.node && (isOperand || node.getKind() == NodeKind::Assignment))
            argument.node = node.getChildren()[1];
        if (!argument.node) return nullptr;
        nodes.push_back(argument.node);
    }
    if (methods.empty()) return nullptr;
    CallSite site{
        .node = node, .token = node.token(), .argumentNodes = nodes, .name = std::string(name), .typeArguments = {}};
    if (mode_ == CheckMode::Inference && hasOpenTypes(site, arguments)) return openMethodResult(methods[0], site);
    return callGenericMethod(methods, receiverOf(value, receiverIsSelf), site, arguments);
}

}  // namespace vesk::compiler
