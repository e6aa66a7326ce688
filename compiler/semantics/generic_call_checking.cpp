// Calls of generic functions and methods: what the host works out before the specializer is asked, and the call of what
// it answers.
// The specializer types the arguments through inferExpressionType; they have been checked by then, and Checker::active()
// answers for them at once. A shape of call that this body has made before is not asked for again.
#include <algorithm>
#include <set>
#include <unordered_set>

#include "generics/errors.h"
#include "generics/generic_specializer.h"
#include "generics/typetext/parameter_shape.h"
#include "semantics/argument_bindings.h"
#include "semantics/checker.h"

namespace vesk::compiler {

std::optional<CompilerException>& keptInferenceMistake() {
    thread_local std::optional<CompilerException> kept;
    return kept;
}

namespace {

// Which type parameters stand in some types outside of and inside of function types.
struct Occurrences {
    std::unordered_set<std::string_view> outside, inside;
};

void findOccurrences(const Type* type, bool isInside, Occurrences& found) {
    if (type->isConcrete) return;
    if (type->kind == TypeKind::Parameter) (isInside ? found.inside : found.outside).insert(type->structured);
    bool inner = isInside || type->kind == TypeKind::Function;
    for (const Type* argument : type->arguments) findOccurrences(argument, inner, found);
    if (type->result) findOccurrences(type->result, inner, found);
}

Occurrences occurrencesIn(const std::vector<const Type*>& types) {
    Occurrences found;
    for (const Type* type : types) findOccurrences(type, false, found);
    return found;
}

std::vector<bool> parametersWithArgument(const BoundArguments& bound, const FunctionInstance& declared) {
    std::vector<bool> has(declared.parameterTypes.size(), false);
    for (const int parameter : bound.argumentToParameter)
        if (parameter >= 0) has[static_cast<std::size_t>(parameter)] = true;
    return has;
}

// Types that a call binds type parameters by: those of its arguments, and of what collects any number. Where a default
// stands in, nothing is bound.
std::vector<const Type*> boundTypes(const FunctionInstance& declared, const std::vector<bool>& hasArgument) {
    std::vector<const Type*> types;
    for (std::size_t i = 0; i < hasArgument.size(); i++) {
        const bool collects = (declared.isVariadic && static_cast<int>(i) == declared.variadicIndex) ||
                              (declared.isNamedVariadic && static_cast<int>(i) == declared.namedVariadicIndex);
        if (hasArgument[i] || collects) types.push_back(declared.parameterTypes[i]);
    }
    return types;
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
        const TypeParameterIndex index(names);
        type = types_.substitute(type, {&index, &site.typeArguments});
    } else {
        const Occurrences found = occurrencesIn({type});
        for (const std::string& name : names)
            if (found.outside.contains(name) || found.inside.contains(name)) throw Poisoned{};
    }
    return typedOnly(type, placeOf(site.node));
}

std::unique_ptr<Checker::DeclaredSignature> Checker::declaredSignature(const CallableDeclarationNode& node,
                                                                       const TypeEnvironment* environment) const {
    auto made = std::make_unique<DeclaredSignature>();
    FunctionInstance& parameters = made->parameters;
    for (const FunctionParam& param : node.getParams()) {
        const int index = static_cast<int>(parameters.parameterTypes.size());
        if (param.isVariadic) parameters.isVariadic = true, parameters.variadicIndex = index;
        if (param.isNamedVariadic) parameters.isNamedVariadic = true, parameters.namedVariadicIndex = index;
        parameters.parameterTypes.push_back(resolveType(declaredParameterType(param), node.getContext(), environment));
        parameters.parameterNames.push_back(param.name);
    }
    made->typeParameters = &node.getTypeParams();
    for (const GenericTypeParam& parameter : node.getTypeParams()) made->typeParameterNames.push_back(parameter.name);
    made->typeParameterIndex = TypeParameterIndex(made->typeParameterNames);
    made->scope = node.getContext();
    return made;
}

std::string Checker::describe(const DeclaredSignature& declaration) {
    const FunctionInstance& parameters = declaration.parameters;
    const CallableDeclarationNode& node = *parameters.node;
    FunctionInstance shown;
    shown.displayName = node.name() + typeParametersText(*declaration.typeParameters);
    shown.parameterNames = parameters.parameterNames;
    shown.parameterTypes = parameters.parameterTypes;
    shown.isVariadic = parameters.isVariadic, shown.variadicIndex = parameters.variadicIndex;
    shown.isNamedVariadic = parameters.isNamedVariadic, shown.namedVariadicIndex = parameters.namedVariadicIndex;
    if (node.returnType().empty()) return signatureText(shown);
    TypeEnvironment environment;
    if (declaration.method.method) environment = environmentOf(*declaration.method.method, declaration.method.owner);
    shown.returnType = resolveType(node.returnType(), declaration.scope, &environment);
    return signatureText(shown);
}

const Checker::DeclaredSignature& Checker::declaredSignatureOf(const MethodCandidate& candidate) {
    auto& known = declaredSignatures_[{candidate.method, candidate.owner}];
    if (known) return *known;
    const TypeEnvironment environment = environmentOf(*candidate.method, candidate.owner);
    known = declaredSignature(*candidate.method->node, &environment);
    known->parameters.node = candidate.method->node;
    known->method = candidate;
    StrVec types;
    for (const Type* type : known->parameters.parameterTypes) types.push_back(type->structured);
    known->shape = parameterShape(types, known->typeParameterNames);
    return *known;
}

const Checker::DeclaredSignature& Checker::declaredSignatureOf(const FunctionDeclaration& function) {
    auto& known = declaredSignatures_[{&function, nullptr}];
    if (known) return *known;
    known = declaredSignature(*function.node, nullptr);
    known->parameters.node = function.node;
    return *known;
}

std::vector<Checker::BoundDeclaration> Checker::declarationsThatBind(const std::vector<MethodCandidate>& methods,
                                                                     const ArgumentList& arguments) {
    std::vector<BoundDeclaration> callees;
    for (const MethodCandidate& candidate : methods) {
        BoundDeclaration callee{&declaredSignatureOf(candidate), {}};
        if (bind(arguments, callee.declaration->parameters, callee.bound)) callees.push_back(std::move(callee));
    }
    return callees;
}

// The complete list of type arguments where the specializer cannot find it alone: a parameter occurs only in function
// types, or an argument is `null`. Else what is written, or nothing.
StrVec Checker::explicitArguments(const BoundDeclaration& callee, const CallSite& site, const ArgumentList& arguments) {
    StrVec texts;
    if (site.hasClause) {
        for (const Type* type : site.typeArguments) texts.push_back(type->text);
        return texts;
    }
    const FunctionInstance& declared = callee.declaration->parameters;
    const std::vector<GenericTypeParam>& parameters = *callee.declaration->typeParameters;
    const ContextPtr& scope = callee.declaration->scope;
    bool isNeeded = std::any_of(arguments.begin(), arguments.end(),
                                [](const Argument& a) { return a.value->type->kind == TypeKind::Null; });
    const std::vector<bool> hasArgument = parametersWithArgument(callee.bound, declared);
    const Occurrences found = occurrencesIn(boundTypes(declared, hasArgument));
    for (const GenericTypeParam& parameter : parameters)
        isNeeded |= found.inside.contains(parameter.name) && !found.outside.contains(parameter.name);
    if (!isNeeded) return texts;

    ArgumentBindings bindings(parameters, scope, site.token, [&] { return describe(*callee.declaration); });
    for (std::size_t i = 0; i < arguments.size(); i++) {
        const Type* wanted = wantedBy(declared, callee.bound, i);
        const Type* actual = arguments[i].value->type;
        // Another kind of value in a function's place: the specializer says that the call fits no declaration.
        if (withoutNull(wanted)->kind == TypeKind::Function && actual->kind != TypeKind::Null &&
            withoutNull(actual)->kind != TypeKind::Function)
            return texts;
        const auto parameter = static_cast<std::size_t>(callee.bound.argumentToParameter[i]);
        bindings.add(declared.parameterNames[parameter], wanted, arguments[i]);
    }
    bindings.bindFunctions();
    // null alone says nothing about a type.
    std::vector<const Type*> ofNull;
    for (std::size_t i = 0; i < arguments.size(); i++)
        if (arguments[i].value->type->kind == TypeKind::Null) ofNull.push_back(wantedBy(declared, callee.bound, i));
    const Occurrences withNull = occurrencesIn(ofNull);
    for (const GenericTypeParam& parameter : parameters)
        if (withNull.outside.contains(parameter.name) && !bindings.hasBound(parameter.name) &&
            parameter.defaultType.empty())
            fail(site.token, "argument has unknown type");
    return bindings.typeArguments();
}

// The same where several declarations take the arguments: nothing is handed over but what all of them agree on.
StrVec Checker::explicitArguments(const std::vector<BoundDeclaration>& callees, const CallSite& site,
                                  const ArgumentList& arguments) {
    if (callees.size() == 1) return explicitArguments(callees[0], site, arguments);
    StrVec agreed;
    if (site.hasClause) {
        for (const Type* type : site.typeArguments) agreed.push_back(type->text);
        return agreed;
    }
    for (const BoundDeclaration& callee : callees)
        if (callee.declaration->typeParameterNames != callees[0].declaration->typeParameterNames) return {};
    for (const BoundDeclaration& callee : callees) {
        StrVec own;
        try {
            own = explicitArguments(callee, site, arguments);
        } catch (const CompilerException&) {
            continue;  // not what is meant: if none is, the specializer says why
        }
        if (own.empty()) continue;
        if (!agreed.empty() && agreed != own) return {};
        agreed = std::move(own);
    }
    return agreed;
}

// Lambdas become what their parameters are with these type arguments: the result of a lambda converts like any value.
void Checker::adaptLambdas(ArgumentList& arguments, const BoundDeclaration& callee, const StrVec& typeArguments) {
    const std::vector<std::string>& names = callee.declaration->typeParameterNames;
    if (typeArguments.size() != names.size()) return;
    std::vector<const Type*> types;
    for (const Str& argument : typeArguments) types.push_back(resolveType(argument, callee.declaration->scope));
    const TypeEnvironment environment{&callee.declaration->typeParameterIndex, &types};
    for (std::size_t i = 0; i < arguments.size(); i++) {
        Expression* value = arguments[i].value;
        if (value->kind != ExpressionKind::Lambda) continue;
        const Type* target =
            withoutNull(types_.substitute(wantedBy(callee.declaration->parameters, callee.bound, i), environment));
        if (target->kind != TypeKind::Function || !target->isConcrete || !adaptLambda(value, target)) continue;
        if (auto known = argumentPositions_.find(arguments[i].node.get()); known != argumentPositions_.end())
            for (std::size_t at = known->second; at; at = argumentTypes_[at - 1].hidden)
                argumentTypes_[at - 1].type = value->type;
    }
}

void Checker::rethrowWithRequest(const CompilerException& error, const CallSite& site, const std::string& displayName) {
    std::optional<CompilerException>& kept = keptInferenceMistake();
    const InferenceFailure* failure = inferenceFailureOf(error);
    bool hidesAnother = kept && failure && failure->reason == InferenceFailureReason::ReturnTypeNotInferrable;
    // A reason is meant for this call: further out it would be taken for one of the calls around it.
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

// Checks list and map literals with the declared type of their parameter in mind, into which written type arguments are
// put.
void Checker::checkGenericArguments(ArgumentList& arguments, const BoundDeclaration& callee, const CallSite& site) {
    const std::vector<std::string>& typeParameters = callee.declaration->typeParameterNames;
    for (std::size_t i = 0; i < arguments.size(); i++) {
        NodeKind kind = arguments[i].node->getKind();
        if (arguments[i].value || (kind != NodeKind::ListLiteral && kind != NodeKind::MapLiteral)) continue;
        const Type* declared = wantedBy(callee.declaration->parameters, callee.bound, i);
        if (site.typeArguments.size() == typeParameters.size())
            declared = types_.substitute(declared, {&callee.declaration->typeParameterIndex, &site.typeArguments});
        // An array of an open type still says that the literal is an array.
        if (declared->isConcrete || withoutNull(declared)->kind == TypeKind::Array)
            arguments[i].value = checkValue(arguments[i].node, declared);
    }
}

Expression* Checker::callGenericFunction(const FunctionDeclaration& function, CallSite& site, ArgumentList& arguments) {
    const GenericFunctionInfo& info = *function.generic;
    const Str& name = site.functionName.empty() ? site.name : site.functionName;
    BoundDeclaration callee{&declaredSignatureOf(function), {}};
    const bool isBound = bind(arguments, callee.declaration->parameters, callee.bound);
    if (isBound) checkGenericArguments(arguments, callee, site);
    checkInferredArguments(arguments, site);
    const std::vector<std::string>& typeParameters = callee.declaration->typeParameterNames;
    const ContextPtr& scope = site.node.context() ? site.node.context() : inferenceScope_;
    if (mode_ == CheckMode::Inference && hasOpenTypes(site, arguments)) {
        return openGenericResult(typeParameters, info.returnType, function.node->getContext(), site);
    }

    std::vector<const void*> shape{&function, reinterpret_cast<const void*>(site.typeArguments.size())};
    shape.insert(shape.end(), site.typeArguments.begin(), site.typeArguments.end());
    // A shape says nothing about names and null, nor about literals that take a written type before they are collected.
    bool isShapeEnough = !site.hasClause || !(info.isVariadic || info.isNamedVariadic);
    for (const Argument& argument : arguments) {
        isShapeEnough &= argument.name.empty() && argument.value->type->kind != TypeKind::Null;
        shape.push_back(argument.value->type);
    }
    FunctionInstance* instance = nullptr;
    if (isShapeEnough)
        if (auto known = specialized_.find(shape); known != specialized_.end() && !recordsResolutions())
            instance = known->second;
    if (!instance) {
        if (requestDepth_ >= MAX_REQUEST_DEPTH) {
            CompilerException error = nestedTooDeeplyError(site.token);
            throw CheckMistake(error);
        }
        for (const Argument& argument : arguments) addArgumentType(argument.node.get(), argument.value->type);
        StrVec typeArguments;
        if (isBound) {
            typeArguments = explicitArguments(callee, site, arguments);
            adaptLambdas(arguments, callee, typeArguments);
        } else {
            for (const Type* type : site.typeArguments) typeArguments.push_back(type->text);
        }
        keptInferenceMistake().reset();
        Str symbol;
        try {
            ScopedRequester requester(function_ ? function_ : ScopedRequester::current(), site.token);
            symbol = ensureGenericFunctionSpecialization(scope, name, site.argumentNodes, site.token, typeArguments);
        } catch (CompilerException& error) {
            const InferenceFailure* failure = inferenceFailureOf(error);
            if (failure && failure->reason == InferenceFailureReason::WrongArgumentCount) {
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
        if (isShapeEnough) specialized_.emplace(std::move(shape), instance);
    }
    trackFile(function.file);
    if (mode_ == CheckMode::Inference) return typedOnly(returnTypeOf(*instance), placeOf(site.node));
    BoundArguments bound;
    if (!bind(arguments, *instance, bound)) failArity(*instance, arguments, site);
    coerceArguments(*instance, arguments, bound, site.node);
    return arrange({.function = instance}, arguments, bound, site);
}

Expression* Checker::callGenericMethod(const std::vector<MethodCandidate>& methods, const Receiver& receiver,
                                       CallSite& site, ArgumentList& arguments) {
    const std::vector<BoundDeclaration> callees = declarationsThatBind(methods, arguments);
    if (callees.size() == 1) checkGenericArguments(arguments, callees[0], site);
    checkInferredArguments(arguments, site);
    const ContextPtr& scope = site.node.context() ? site.node.context() : inferenceScope_;
    for (const Argument& argument : arguments) addArgumentType(argument.node.get(), argument.value->type);
    const Type* owner = receiver.kind == Receiver::Kind::Value ? withoutNull(receiver.value->type) : receiver.type;
    const StrVec typeArguments = explicitArguments(callees, site, arguments);
    if (callees.size() == 1) adaptLambdas(arguments, callees[0], typeArguments);
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
