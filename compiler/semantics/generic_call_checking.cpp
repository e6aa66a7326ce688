// Calls of generic functions and methods: what the host works out before the specializer is asked, and the call of what
// it answers.
// The specializer types the arguments through inferExpressionType; they have been checked by then, and Checker::active()
// answers for them at once. A shape of call that this body has made before is not asked for again.
#include <algorithm>
#include <set>

#include "generics/generic_specializer.h"
#include "generics/inference/binding_inference.h"
#include "semantics/checker.h"

namespace vesk::compiler {

std::optional<CompilerException>& keptInferenceMistake() {
    thread_local std::optional<CompilerException> kept;
    return kept;
}

namespace {

// Whether a type parameter stands in a type outside of and inside of function types.
struct Occurrence {
    bool outside = false, inside = false;
};

void findOccurrences(const Type* type, const std::string& name, bool isInside, Occurrence& found) {
    if (type->kind == TypeKind::Parameter && type->structured == name) (isInside ? found.inside : found.outside) = true;
    bool inner = isInside || type->kind == TypeKind::Function;
    for (const Type* argument : type->arguments) findOccurrences(argument, name, inner, found);
    if (type->result) findOccurrences(type->result, name, inner, found);
}

}  // namespace

bool hasFunctionType(const Type* type) {
    return type->kind == TypeKind::Function ||
           std::any_of(type->arguments.begin(), type->arguments.end(), hasFunctionType);
}

namespace {

// One part of a function type, or of a type with a function type inside.
void bindPart(const Type* wanted, const Type* actual, const GenericPlaceholderSet& placeholders,
              GenericBindingMap& bindings, const ContextPtr& scope, const TokenPtr& token) {
    const Type* plain = withoutNull(wanted);
    const Type* given = withoutNull(actual);
    if (plain->kind == TypeKind::Function) {
        bindFunctionType(plain, given, placeholders, bindings, scope, token);
    } else if (!hasFunctionType(plain)) {
        collectGenericBindingsFromType(wanted->structured, actual->text, placeholders, bindings, scope, token);
    } else if (plain->kind == TypeKind::Class && given->kind == TypeKind::Class) {
        // The given class as the wanted one, which it may extend or implement.
        const Type* same = superTypeOf(given, plain->declaration);
        if (!same || same->arguments.size() != plain->arguments.size()) return;
        for (std::size_t i = 0; i < plain->arguments.size(); i++)
            bindPart(plain->arguments[i], same->arguments[i], placeholders, bindings, scope, token);
    } else if (plain->kind == given->kind && plain->arguments.size() == given->arguments.size()) {
        for (std::size_t i = 0; i < plain->arguments.size(); i++)
            bindPart(plain->arguments[i], given->arguments[i], placeholders, bindings, scope, token);
    } else {
        collectGenericBindingsFromType(wanted->structured, actual->text, placeholders, bindings, scope, token);
    }
}

// What is wrong with the names of a call whose arguments do not pair with the parameters.
void noteMistakenNames(CompilerException& error, const GenericFunctionInfo& info, const ArgumentList& arguments) {
    std::size_t positional = 0;
    for (const Argument& argument : arguments) positional += argument.name.empty();
    std::set<std::string_view> given;
    for (const Argument& argument : arguments) {
        if (argument.name.empty()) continue;
        const auto named = std::find(info.paramNames.begin(), info.paramNames.end(), argument.name);
        const auto place = static_cast<std::size_t>(named - info.paramNames.begin());
        const std::string shown = "'" + std::string(argument.name) + "'";
        if (!given.insert(argument.name).second)
            error.addNote({"parameter " + shown + " is given twice", argument.node->token()});
        else if (named == info.paramNames.end() && !info.isNamedVariadic)
            error.addNote({"it has no parameter " + shown, argument.node->token()});
        else if (place < positional && (!info.isVariadic || place < static_cast<std::size_t>(info.variadicIndex)))
            error.addNote({"parameter " + shown + " is given by position and by name", argument.node->token()});
    }
}

}  // namespace

void bindFunctionType(const Type* wanted, const Type* actual, const GenericPlaceholderSet& placeholders,
                      GenericBindingMap& bindings, const ContextPtr& scope, const TokenPtr& token) {
    if (wanted->kind != TypeKind::Function) return bindPart(wanted, actual, placeholders, bindings, scope, token);
    if (actual->kind != TypeKind::Function || actual->arguments.size() != wanted->arguments.size()) return;
    for (std::size_t i = 0; i < wanted->arguments.size(); i++)
        bindPart(wanted->arguments[i], actual->arguments[i], placeholders, bindings, scope, token);
    if (!actual->result->isVoid() && actual->result->kind != TypeKind::Null)
        bindPart(wanted->result, actual->result, placeholders, bindings, scope, token);
    else if (actual->result->isVoid() && wanted->result->kind == TypeKind::Parameter)
        bindings.try_emplace(wanted->result->structured, "Void");
}

bool Checker::hasOpenTypes(const CallSite& site, const ArgumentList& arguments) const {
    return std::any_of(site.typeArguments.begin(), site.typeArguments.end(),
                       [](const Type* type) { return !type->isConcrete; }) ||
           std::any_of(arguments.begin(), arguments.end(),
                       [](const Argument& argument) { return !argument.value->type->isConcrete; });
}

// Inference in a scope whose type parameters are open: the declared return type with the written arguments.
Expression* Checker::openGenericResult(const std::vector<std::string>& names, const Str& returnType,
                                       const ContextPtr& scope, const CallSite& site) {
    if (returnType.empty()) throw Poisoned{};
    const Type* type = resolveType(returnType, scope);
    if (site.typeArguments.size() == names.size()) {
        type = types_.substitute(type, names, site.typeArguments);
    } else {
        for (const std::string& name : names) {
            Occurrence found;
            findOccurrences(type, name, false, found);
            if (found.outside || found.inside) throw Poisoned{};
        }
    }
    return typedOnly(type, placeOf(site.node));
}

// The complete list of type arguments where the specializer cannot find it alone: a parameter occurs only in function
// types, or an argument is `null`. Else what is written, or nothing.
StrVec Checker::explicitArguments(const std::vector<GenericTypeParam>& parameters, const StrVec& parameterTypes,
                                  const CallSite& site, const ArgumentList& arguments, const StrVec& parameterNames,
                                  const ContextPtr& scope, int variadicIndex) {
    StrVec texts;
    if (site.hasClause) {
        for (const Type* type : site.typeArguments) texts.push_back(type->text);
        return texts;
    }
    bool hasFunction = std::any_of(parameterTypes.begin(), parameterTypes.end(),
                                   [](const Str& t) { return t.find("->") != Str::npos; });
    bool hasNull = std::any_of(arguments.begin(), arguments.end(),
                               [](const Argument& a) { return a.value->type->kind == TypeKind::Null; });
    if (!hasFunction && !hasNull) return texts;

    std::vector<const Type*> declared;
    for (const Str& type : parameterTypes) declared.push_back(resolveType(type, scope));
    GenericPlaceholderSet placeholders;
    bool isNeeded = hasNull;
    for (const GenericTypeParam& parameter : parameters) {
        placeholders.insert(parameter.name);
        Occurrence found;
        for (const Type* type : declared) findOccurrences(type, parameter.name, false, found);
        isNeeded |= found.inside && !found.outside;
    }
    if (!isNeeded) return texts;

    GenericBindingMap bindings;
    std::vector<bool> hasArgument(declared.size(), false);
    std::vector<std::pair<const Type*, const Type*>> functionPairs;
    for (std::size_t i = 0; i < arguments.size(); i++) {
        std::size_t parameter = i;
        if (!arguments[i].name.empty())
            parameter = static_cast<std::size_t>(
                std::find(parameterNames.begin(), parameterNames.end(), arguments[i].name) - parameterNames.begin());
        const bool isCollected =
            variadicIndex >= 0 && arguments[i].name.empty() && i >= static_cast<std::size_t>(variadicIndex);
        if (isCollected) parameter = static_cast<std::size_t>(variadicIndex);
        if (parameter >= declared.size()) continue;  // mistaken: the specializer's matter
        const Type* wanted = withoutNull(declared[parameter]);
        if (isCollected && wanted->arguments.size() == 1) wanted = withoutNull(wanted->arguments[0]);
        const Type* actual = arguments[i].value->type;
        // Another kind of value in a function's place: the specializer says that the call fits no declaration.
        if (wanted->kind == TypeKind::Function && actual->kind != TypeKind::Null &&
            withoutNull(actual)->kind != TypeKind::Function)
            return texts;
        hasArgument[parameter] = true;
        if (actual->kind == TypeKind::Null) continue;
        if (hasFunctionType(wanted))
            functionPairs.emplace_back(wanted, withoutNull(actual));
        else
            collectGenericBindingsFromType(wanted->structured, actual->text, placeholders, bindings, scope, site.token);
    }
    // So it does for a function that was left out.
    for (std::size_t i = 0; i < declared.size(); i++) {
        if (!hasArgument[i] && withoutNull(declared[i])->kind == TypeKind::Function &&
            arguments.size() < declared.size())
            return texts;
    }
    for (auto [wanted, actual] : functionPairs)
        bindFunctionType(wanted, actual, placeholders, bindings, scope, site.token);
    // null alone says nothing about a type.
    for (std::size_t i = 0; i < arguments.size() && i < declared.size(); i++) {
        if (arguments[i].value->type->kind != TypeKind::Null) continue;
        for (const GenericTypeParam& parameter : parameters) {
            Occurrence found;
            findOccurrences(declared[i], parameter.name, false, found);
            if (found.outside && !bindings.contains(parameter.name) && parameter.defaultType.empty())
                fail(site.token, "argument has unknown type");
        }
    }
    return orderedGenericArgs(parameters, bindings, scope, site.token);
}

// Lambdas become what their parameters are with these type arguments: the result of a lambda converts like any value.
void Checker::adaptLambdas(ArgumentList& arguments, const std::vector<GenericTypeParam>& parameters,
                           const StrVec& parameterTypes, const StrVec& parameterNames, const StrVec& typeArguments,
                           const ContextPtr& scope) {
    if (typeArguments.size() != parameters.size()) return;
    std::vector<std::string> names;
    std::vector<const Type*> types;
    for (std::size_t i = 0; i < parameters.size(); i++) {
        names.push_back(parameters[i].name);
        types.push_back(resolveType(typeArguments[i], scope));
    }
    for (std::size_t i = 0; i < arguments.size(); i++) {
        Expression* value = arguments[i].value;
        if (value->kind != ExpressionKind::Lambda) continue;
        std::size_t parameter = i;
        if (!arguments[i].name.empty())
            parameter = static_cast<std::size_t>(
                std::find(parameterNames.begin(), parameterNames.end(), arguments[i].name) - parameterNames.begin());
        if (parameter >= parameterTypes.size()) continue;
        const Type* target =
            withoutNull(types_.substitute(resolveType(parameterTypes[parameter], scope), names, types));
        if (target->kind != TypeKind::Function || !target->isConcrete || !adaptLambda(value, target)) continue;
        for (auto& [node, type] : argumentTypes_)
            if (node == arguments[i].node.get()) type = value->type;
    }
}

void Checker::rethrowWithRequest(const CompilerException& error, const CallSite& site, const std::string& displayName) {
    std::optional<CompilerException>& kept = keptInferenceMistake();
    bool hidesAnother = kept && std::string_view(error.what()) == "Cannot infer return type for generic function";
    if (!hidesAnother) throw CompilerException(error);
    // The specializer only sees that a type is missing: what went wrong inside is the better message.
    CheckMistake better(*kept);
    kept.reset();
    for (const DiagnosticNote& note : error.getNotes()) better.addNote(note);
    if (better.getNotes().empty()) better.addNote(specializationRequestNote(displayName, site.token));
    throw better;
}

// What is to bind type parameters needs a type.
void Checker::checkInferredArguments(ArgumentList& arguments, const CallSite& site) {
    for (Argument& argument : arguments) {
        if (argument.value) continue;
        argument.value = check(argument.node, nullptr);
        if (argument.value->type->kind == TypeKind::Unknown) throw Poisoned{};
        if (argument.value->type->isVoid()) fail(site.token, "argument has unknown type");
    }
}

// Checks the arguments; list and map literals with the declared type of their parameter in mind, into which written
// type arguments are put.
void Checker::checkGenericArguments(ArgumentList& arguments, const StrVec& parameterTypes, const StrVec& parameterNames,
                                    const std::vector<std::string>& typeParameters, const CallSite& site,
                                    const ContextPtr& declaringScope) {
    for (std::size_t i = 0; i < arguments.size(); i++) {
        NodeKind kind = arguments[i].node->getKind();
        if (arguments[i].value || (kind != NodeKind::ListLiteral && kind != NodeKind::MapLiteral)) continue;
        std::size_t parameter = i;
        if (!arguments[i].name.empty()) {
            auto named = std::find(parameterNames.begin(), parameterNames.end(), arguments[i].name);
            parameter = static_cast<std::size_t>(named - parameterNames.begin());
        }
        if (parameter >= parameterTypes.size()) continue;
        const Type* declared = resolveType(parameterTypes[parameter], declaringScope);
        if (site.typeArguments.size() == typeParameters.size())
            declared = types_.substitute(declared, typeParameters, site.typeArguments);
        // An array of an open type still says that the literal is an array.
        if (declared->isConcrete || withoutNull(declared)->kind == TypeKind::Array)
            arguments[i].value = checkValue(arguments[i].node, declared);
    }
    checkInferredArguments(arguments, site);
}

// With written type arguments a `*p` collects elements of a known type: every argument becomes one.
void Checker::adaptCollected(ArgumentList& arguments, std::size_t variadicIndex, const Str& listType,
                             const std::vector<std::string>& typeParameters, const CallSite& site,
                             const ContextPtr& declaringScope) {
    if (typeParameters.empty() || site.typeArguments.size() != typeParameters.size()) return;
    const Type* list = types_.substitute(resolveType(listType, declaringScope), typeParameters, site.typeArguments);
    if (!list->isConcrete || list->arguments.size() != 1) return;
    for (std::size_t i = variadicIndex; i < arguments.size(); i++) {
        Argument& argument = arguments[i];
        if (!argument.name.empty() || !accepts(argument.node.get(), argument.value, list->arguments[0])) continue;
        argument.value = coerce(argument.value, list->arguments[0], *argument.node);
    }
}

Expression* Checker::callGenericFunction(const FunctionDeclaration& function, CallSite& site, ArgumentList& arguments) {
    const GenericFunctionInfo& info = *function.generic;
    const Str& name = site.functionName.empty() ? site.name : site.functionName;
    std::vector<std::string> typeParameters;
    for (const GenericTypeParam& parameter : info.typeParams) typeParameters.push_back(parameter.name);
    checkGenericArguments(arguments, info.paramTypes, info.paramNames, typeParameters, site,
                          function.node->getContext());
    if (info.isVariadic) {
        const auto index = static_cast<std::size_t>(info.variadicIndex);
        adaptCollected(arguments, index, info.paramTypes[index], typeParameters, site, function.node->getContext());
    }
    const ContextPtr& scope = site.node.context() ? site.node.context() : inferenceScope_;
    if (mode_ == CheckMode::Inference && hasOpenTypes(site, arguments)) {
        return openGenericResult(typeParameters, info.returnType, function.node->getContext(), site);
    }

    std::vector<const void*> shape{&function, reinterpret_cast<const void*>(site.typeArguments.size())};
    shape.insert(shape.end(), site.typeArguments.begin(), site.typeArguments.end());
    bool isPositional = true;
    for (const Argument& argument : arguments) {
        isPositional &= argument.name.empty() && argument.value->type->kind != TypeKind::Null;
        shape.push_back(argument.value->type);
    }
    FunctionInstance* instance = nullptr;
    if (isPositional)
        if (auto known = specialized_.find(shape); known != specialized_.end() && !recordsResolutions())
            instance = known->second;
    if (!instance) {
        if (requestDepth_ >= MAX_REQUEST_DEPTH) {
            CompilerException error = nestedTooDeeplyError(site.token);
            throw CheckMistake(error);
        }
        for (const Argument& argument : arguments)
            argumentTypes_.emplace_back(argument.node.get(), argument.value->type);
        StrVec typeArguments =
            explicitArguments(info.typeParams, info.paramTypes, site, arguments, info.paramNames,
                              function.node->getContext(), info.isVariadic ? info.variadicIndex : -1);
        adaptLambdas(arguments, info.typeParams, info.paramTypes, info.paramNames, typeArguments,
                     function.node->getContext());
        keptInferenceMistake().reset();
        Str symbol;
        try {
            ScopedRequester requester(function_ ? function_ : ScopedRequester::current(), site.token);
            symbol = ensureGenericFunctionSpecialization(scope, name, site.argumentNodes, site.token, typeArguments);
        } catch (CompilerException& error) {
            if (std::string_view(error.what()).starts_with("function " + name + " expects ")) {
                noteMistakenNames(error, info, arguments);
                std::string signature = function.name + "(";
                for (std::size_t i = 0; i < info.paramNames.size(); i++)
                    signature += (i ? ", " : "") + info.paramNames[i] + ": " + info.paramTypes[i] +
                                 (info.paramHasDefault[i] ? " = ..." : "");
                error.addNote(
                    {"declared as " + signature + ")" + (info.returnType.empty() ? "" : " -> " + info.returnType),
                     function.node->nameToken()});
            }
            rethrowWithRequest(error, site, function.name);
        }
        instance = session_.specializedInstance(symbol);
        if (!instance && mode_ == CheckMode::Inference) {
            // Asked for while it is being made: the signature alone is known.
            Str returnType = scope->getFunctionReturn(symbol);
            if (returnType.empty()) throw Poisoned{};
            return typedOnly(resolveType(returnType, scope), placeOf(site.node));
        }
        if (!instance) fail(site.token, "The specialization " + symbol + " is not registered");
        if (isPositional) specialized_.emplace(std::move(shape), instance);
    }
    trackFile(function.file);
    if (mode_ == CheckMode::Inference) return typedOnly(returnTypeOf(*instance), placeOf(site.node));
    BoundArguments bound;
    if (!bind(arguments, *instance, bound)) failArity(*instance, arguments, site);
    coerceArguments(*instance, arguments, bound, site.node);
    return arrange({.function = instance}, arguments, bound, site);
}

const Checker::DeclaredParameters& Checker::declaredParametersOf(const MethodCandidate& candidate) {
    auto& known = declaredParameters_[{candidate.method, candidate.owner}];
    if (known) return *known;
    const MethodNode& node = *candidate.method->node;
    TypeEnvironment environment = environmentOf(candidate.owner);
    auto made = std::make_unique<DeclaredParameters>();
    for (const FunctionParam& param : node.getParams()) {
        if (param.isVariadic) made->variadicIndex = static_cast<int>(made->types.size());
        made->types.push_back(resolveType(declaredParameterType(param), node.getContext(), &environment)->structured);
        made->names.push_back(param.name);
    }
    for (const GenericTypeParam& parameter : node.getTypeParams()) made->typeParameters.push_back(parameter.name);
    known = std::move(made);
    return *known;
}

Expression* Checker::callGenericMethod(const std::vector<MethodCandidate>& methods, const Receiver& receiver,
                                       CallSite& site, ArgumentList& arguments) {
    const MethodNode& first = *methods[0].method->node;
    if (methods.size() == 1) {
        const DeclaredParameters& declared = declaredParametersOf(methods[0]);
        checkGenericArguments(arguments, declared.types, declared.names, declared.typeParameters, site,
                              first.getContext());
        if (declared.variadicIndex >= 0) {
            const auto index = static_cast<std::size_t>(declared.variadicIndex);
            adaptCollected(arguments, index, declared.types[index], declared.typeParameters, site, first.getContext());
        }
    }
    checkInferredArguments(arguments, site);
    const ContextPtr& scope = site.node.context() ? site.node.context() : inferenceScope_;
    for (const Argument& argument : arguments) argumentTypes_.emplace_back(argument.node.get(), argument.value->type);
    const Type* owner = receiver.kind == Receiver::Kind::Value ? withoutNull(receiver.value->type) : receiver.type;

    // The host completes the type arguments only where all overloads agree on their parameters.
    StrVec typeArguments;
    if (site.hasClause && methods.size() > 1) {
        for (const Type* type : site.typeArguments) typeArguments.push_back(type->text);
    } else {
        bool agree = std::all_of(methods.begin() + 1, methods.end(), [&](const MethodCandidate& candidate) {
            const auto& own = candidate.method->node->getTypeParams();
            return std::equal(own.begin(), own.end(), first.getTypeParams().begin(), first.getTypeParams().end(),
                              [](const auto& a, const auto& b) { return a.name == b.name; });
        });
        if (agree) {
            const DeclaredParameters& declared = declaredParametersOf(methods[0]);
            typeArguments = explicitArguments(first.getTypeParams(), declared.types, site, arguments, declared.names,
                                              first.getContext(), declared.variadicIndex);
            if (methods.size() == 1)
                adaptLambdas(arguments, first.getTypeParams(), declared.types, declared.names, typeArguments,
                             first.getContext());
        }
    }
    keptInferenceMistake().reset();
    GenericMethodSpec spec;
    try {
        ScopedRequester requester(function_ ? function_ : ScopedRequester::current(), site.token);
        spec = ensureGenericMethodSpecialization(scope, owner->text, site.name, site.argumentNodes, site.token,
                                                 receiver.kind == Receiver::Kind::Class, typeArguments);
    } catch (const CompilerException& error) {
        rethrowWithRequest(error, site, site.name);
    }
    FunctionInstance* instance = session_.specializedMethod(spec, owner, site.name);
    if (!instance) fail(site.token, "The specialization " + spec.symbol + " is not registered");
    if (mode_ == CheckMode::Inference) return typedOnly(returnTypeOf(*instance), placeOf(site.node));
    if (receiver.kind == Receiver::Kind::Class && !spec.isStatic)
        fail(site.node, "'" + site.name + "' needs an object: it is not static");
    BoundArguments bound;
    if (!bind(arguments, *instance, bound)) failArity(*instance, arguments, site);
    coerceArguments(*instance, arguments, bound, site.node);
    if (spec.isStatic) return arrange({.function = instance}, arguments, bound, site);
    // Generic methods are bound at compile time.
    Expression* value = receiver.value;
    if (instance->owner && value->type != instance->owner) value = convertAssignable(value, instance->owner);
    return arrange({.function = instance, .receiver = value, .receiverIsSelf = receiver.isSelf}, arguments, bound,
                   site);
}

}  // namespace vesk::compiler
