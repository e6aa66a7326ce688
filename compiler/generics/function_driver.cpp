// The driver for generic free functions: from a call to the symbol of a concrete function.
//
//     the call        argument types, unit; the memo answers calls of a known shape
//     the signature   type arguments, parameter types, declared return type
//     the body        parsed afresh, rewritten; its return type inferred where none is declared
//     registration    the node goes to the unit, under a symbol made of unit and types
//
// With a declared return type the symbol is known before there is a body: a body that asks for its own specialization then
// gets the symbol. Without one it is an error.
#include <algorithm>

#include "generics/errors.h"
#include "generics/function_memo.h"
#include "generics/function_symbol.h"
#include "generics/generic_specializer.h"
#include "generics/inference/binding_inference.h"
#include "generics/inference/body_rewriting.h"
#include "generics/inference/call_binding.h"
#include "generics/inference/literal_arguments.h"
#include "generics/method_diagnostics.h"
#include "generics/request_stack.h"
#include "generics/resolution_report.h"
#include "generics/session_state.h"
#include "generics/source/declaration_parser.h"
#include "generics/specialization_record.h"
#include "generics/typetext/type_text.h"
#include "host/host_services.h"

namespace vesk::compiler {

namespace {

using Origin = ResolutionOrigin;
using FunctionInfoPtr = std::shared_ptr<const GenericFunctionInfo>;

// One call on its way through the driver. `name` is the name as the caller wrote it.
struct FunctionCall {
    ContextPtr context;
    Str name;
    TokenPtr token;
    FunctionInfoPtr info;
    GenericCallArguments arguments;
    CallArgumentBinding binding;
    StrVec explicitTypeArgs;  // normalized
    StrVec paramTypes;        // what each parameter meets
    Str unit;
};

// The concrete signature that a call leads to, and the scope that its declared types were resolved in.
struct FunctionSignature {
    StrVec typeArgs, paramTypes;
    Str returnType;  // "" while it waits for the body
    Str symbol;
};

FunctionInfoPtr genericFunctionNamed(const ContextPtr& context, const Str& name, const TokenPtr& token) {
    FunctionInfoPtr info = context ? context->getGenericFunction(name) : nullptr;
    if (!info) throw compileError(token, "Unknown generic function '" + name + "'");
    return info;
}

CompilerException typeArgumentCountError(const GenericFunctionInfo& info, const StrVec& explicitTypeArgs,
                                         const TokenPtr& token) {
    return compileError(token, "generic specialization expects " + std::to_string(info.typeParams.size()) +
                                   " type arguments (got " + std::to_string(explicitTypeArgs.size()) + ")");
}

StrVec normalizedTypeArgs(const StrVec& written, const ContextPtr& context, const TokenPtr& token) {
    StrVec normalized;
    normalized.reserve(written.size());
    for (const Str& arg : written) normalized.push_back(normalizeExplicitGenericSpecializationArg(arg, context, token));
    return normalized;
}

StrVec typeParamNames(const GenericFunctionInfo& info) {
    StrVec names;
    names.reserve(info.typeParams.size());
    for (const GenericTypeParam& param : info.typeParams) names.push_back(param.name);
    return names;
}

bool pairArguments(FunctionCall& call) {
    const GenericFunctionInfo& info = *call.info;
    return bindGenericCall(call.arguments.argNames, info.paramNames, info.paramCount, info.defaultValueTokens,
                           info.isVariadic, info.variadicIndex, info.isNamedVariadic, info.namedVariadicIndex,
                           call.binding);
}

// Literals that a variadic parameter collects take the type that given type arguments say, so that they are of one type.
void adaptLiterals(FunctionCall& call) {
    const GenericFunctionInfo& info = *call.info;
    if (call.explicitTypeArgs.empty() || (!info.isVariadic && !info.isNamedVariadic) || !pairArguments(call)) return;
    GenericCallArguments& arguments = call.arguments;
    if (!adaptCollectedLiterals(arguments.argInfos, call.binding,
                                {info.isVariadic, info.isNamedVariadic, info.variadicIndex, info.namedVariadicIndex},
                                info.paramTypes, typeParamNames(info), call.explicitTypeArgs, arguments.argTypes,
                                declarationScope(info.sourceFile, call.context), call.token)) {
        return;
    }
    for (std::size_t i = 0; i < arguments.argTypes.size(); i++)
        arguments.argKeys[i] = callArgumentKey(arguments.argNames[i], arguments.argTypes[i]);
}

void bindCall(FunctionCall& call) {
    const GenericFunctionInfo& info = *call.info;
    if (!pairArguments(call)) {
        throw InferenceError(call.token,
                             "function " + call.name + " expects " + std::to_string(info.paramCount) +
                                 " arguments (got " + std::to_string(call.arguments.argTypes.size()) + ")",
                             {InferenceFailureReason::WrongArgumentCount});
    }
    call.paramTypes = buildGenericCallParamTypesFromRawTypes(
        call.arguments.argTypes, call.arguments.argNames, info.paramNames, info.paramCount, info.defaultValueTokens,
        info.isVariadic, info.variadicIndex, info.isNamedVariadic, info.namedVariadicIndex, call.token);
}

// The list of type arguments, checked. Bindings, defaults and constraints are the declaration's business and are resolved
// in its scope; what the call contributes is resolved already.
StrVec typeArgumentsOf(const FunctionCall& call, const ContextPtr& scope, InferenceTrace& trace) {
    const GenericFunctionInfo& info = *call.info;
    StrVec typeArgs = call.explicitTypeArgs;
    if (typeArgs.empty()) {
        GenericBindingMap bindings =
            collectGenericBindings(info.typeParams, info.paramTypes, call.paramTypes, scope, call.token, &trace);
        typeArgs = orderedGenericArgs(info.typeParams, bindings, scope, call.token);
        for (Str& arg : typeArgs) {
            if (arg.find('<') != Str::npos) arg = resolveTypeNameOrKeep(arg, call.context, call.token);
        }
    }
    validateGenericConstraints(info.typeParams, typeArgs, scope, call.token);
    return typeArgs;
}

// What a variadic parameter has collected stays what it is, literals and null apart: it has to fit written type arguments
// as it would have to fit those of a method.
void requireCollectedToFit(const FunctionCall& call, const StrVec& paramTypes) {
    if (call.explicitTypeArgs.empty()) return;
    const GenericFunctionInfo& info = *call.info;
    const auto require = [&](bool hasCollected, int position) {
        if (!hasCollected) return;
        const auto at = static_cast<std::size_t>(position);
        if (call.context->isAssignable(paramTypes[at], call.paramTypes[at])) return;
        CompilerException error = compileError(call.token, "Arguments do not match generic callable");
        error.addNote({"parameter '" + info.paramNames[at] + "' is " + structuredTypeText(paramTypes[at]) +
                           ", but collects " + structuredTypeText(call.paramTypes[at]),
                       placeOfGenericMethod(describableFunction(info))});
        throw error;
    };
    require(info.isVariadic && !call.binding.variadicArgs.empty(), info.variadicIndex);
    require(info.isNamedVariadic && !call.binding.namedVariadicArgs.empty(), info.namedVariadicIndex);
}

void countFunction(Origin origin) {
    SpecializationCounts& counts = specializationCounts();
    (origin == Origin::CurrentUnit ? counts.functionsSpecialized : counts.functionsFound)
        .fetch_add(1, std::memory_order_relaxed);
}

void reportFunction(const FunctionCall& call, Origin origin, const Str& symbol, const Str& returnType) {
    countFunction(origin);
    ResolutionReport* const report = ReportedResolution::current();
    if (!report) return;
    report->symbol = symbol;
    report->returnType = returnType;
    report->origin = origin;
    report->sourcePath = call.unit;
    report->failed = false;
}

// What is known of a call before anything can go wrong with it, and when its signature is known.
void reportCandidate(const FunctionCall& call, const FunctionSignature* signature, const InferenceTrace* trace) {
    ResolutionReport* const report = ReportedResolution::current();
    if (!report) return;
    report->argumentTypes = call.arguments.argTypes;
    ResolutionReport::Candidate candidate{describableFunction(*call.info), "", 0, {}, {}, false, false, false};
    report->typeArguments.clear();
    if (signature) {
        candidate.typeArgs = signature->typeArgs;
        candidate.paramTypes = signature->paramTypes;
        candidate.isChosen = true;
        report->typeArguments = describeTypeArguments(candidate.declaration, signature->typeArgs, call.explicitTypeArgs,
                                                      call.token, *trace);
    }
    report->candidates.clear();
    report->candidates.push_back(std::move(candidate));
}

// The signature as far as the declaration tells it.
FunctionSignature signatureOf(const FunctionCall& call, const ContextPtr& scope) {
    const GenericFunctionInfo& info = *call.info;
    const TypeParameterIndex names(info.typeParams);
    FunctionSignature signature;
    InferenceTrace trace;
    try {
        signature.typeArgs = typeArgumentsOf(call, scope, trace);
    } catch (CompilerException& error) {
        explainInferenceError(error, describableFunction(info), trace, call.paramTypes,
                              boundArgumentTokens(call.binding, call.arguments));
        throw;
    }
    const auto specialized = [&](const Str& type) {
        return resolveTypeNameOrKeep(substituteIndexedType(type, names, signature.typeArgs), scope, call.token);
    };
    signature.paramTypes.reserve(info.paramTypes.size());
    for (const Str& type : info.paramTypes) signature.paramTypes.push_back(specialized(type));
    if (!info.returnType.empty()) signature.returnType = specialized(info.returnType);
    requireCollectedToFit(call, signature.paramTypes);
    reportCandidate(call, &signature, &trace);
    return signature;
}

// The symbol for a complete signature; two files may each declare a function of this name.
Str symbolFor(const FunctionCall& call, const FunctionSignature& signature) {
    const Str& name = call.info->name;
    const Str key = genericFunctionCacheKey(name, signature.typeArgs, signature.paramTypes, signature.returnType);
    Str symbol = genericFunctionSymbol(call.unit, name, key);
    if (!call.context->hasSpecializedFunctionForUnit(call.unit, symbol)) return symbol;
    const Str owner = ClassLoader::sourceFileForSymbol(symbol);
    if (owner.empty() || owner == call.info->sourceFile ||
        SourceManager::normalizePath(owner) == SourceManager::normalizePath(call.info->sourceFile)) {
        return symbol;
    }
    return genericFunctionSymbol(call.unit, name, key, call.info->sourceFile);
}

GenericFunctionSpec specOf(const FunctionCall& call, const FunctionSignature& signature) {
    GenericFunctionSpec spec;
    spec.symbol = signature.symbol;
    spec.paramTypes = signature.paramTypes;
    spec.returnType = signature.returnType;
    takeOverDeclaration(spec, *call.info);
    return spec;
}

void registerSignature(const FunctionCall& call, const GenericFunctionSpec& spec, const ContextPtr& scope) {
    call.context->addFunction(spec.symbol, spec.paramTypes, spec.returnType, spec.paramNames, spec.defaultValueTokens,
                              spec.isVariadic, spec.variadicIndex, spec.paramHasDefault, spec.isNamedVariadic,
                              spec.namedVariadicIndex, spec.passingModes, scope, call.info->sourceFile);
}

std::shared_ptr<FunctionNode> parsedDeclaration(const FunctionCall& call) {
    const GenericFunctionInfo& info = *call.info;
    auto node = parseFunctionFromFile(info.sourceFile, info.name, call.context);
    if (!node) {
        throw CompilerException(call.token, "Cannot load generic function '" + call.name + "'",
                                CompilerErrorKind::DeclarationLoad, "", "");
    }
    return node;
}

// A declaration that cannot be loaded is reported before what is wrong with the call's type arguments; a call that is in
// order loads nothing here.
FunctionSignature signatureOrLoadFailure(const FunctionCall& call, const ContextPtr& scope) {
    try {
        return signatureOf(call, scope);
    } catch (const CompilerException&) {
        parsedDeclaration(call);
        throw;
    }
}

// Makes the declaration's node concrete; completes the signature's return type. The body is rewritten below the specialized
// signature: a type argument may have the name of a type parameter.
void specializeNode(const FunctionCall& call, FunctionSignature& signature, const std::shared_ptr<FunctionNode>& node) {
    node->setParamTypes(signature.paramTypes);
    if (!signature.returnType.empty()) node->setReturnType(signature.returnType);
    applyGenericBindingsToBody(node, typeParamNames(*call.info), signature.typeArgs);
    // What the body now calls "T" is a class of that name.
    if (const ContextPtr scope = node->getContext()) scope->clearGenericTypeParams();
    invalidateTypeInferenceCaches();
    if (signature.returnType.empty()) {
        signature.returnType = inferReturnTypeFromNodes(node->getBody(), node->getContext());
        if (signature.returnType.empty()) signature.returnType = "Void";
        node->setReturnType(signature.returnType);
    }
}

void registerSpecialization(const FunctionCall& call, FunctionSignature& signature, const Str& displayName,
                            const std::shared_ptr<FunctionNode>& node) {
    if (call.context->hasSpecializedFunctionForUnit(call.unit, signature.symbol)) return;
    node->setName(signature.symbol);
    node->setSymbolBaseName(signature.symbol);
    node->setDisplayName(displayName);
    registerSignature(call, specOf(call, signature), node->getContext());
    call.context->addSpecializedFunctionForUnit(call.unit, signature.symbol, node);
}

// Makes the specialization of a signature that the unit does not have yet.
void makeSpecialization(const FunctionCall& call, FunctionSignature& signature, const Str& requestKey) {
    const GenericFunctionInfo& info = *call.info;
    const Str displayName = specializationDisplayName(info.name, signature.typeArgs);
    const SpecializationRequest request(
        requestKey,
        {displayName, genericDeclarationKey(info.sourceFile, info.declarationLine, info.name), signature.typeArgs,
         call.token},
        call.context);
    const std::shared_ptr<FunctionNode> node = parsedDeclaration(call);
    try {
        specializeNode(call, signature, node);
    } catch (CompilerException& error) {
        error.addNote(specializationRequestNote(displayName, call.token));
        throw;
    }
    if (signature.symbol.empty()) signature.symbol = symbolFor(call, signature);
    registerSpecialization(call, signature, displayName, node);
}

// Completes a signature with its symbol. True when the specialization is made for this call.
bool ensureSignature(const FunctionCall& call, FunctionSignature& signature, const ContextPtr& scope) {
    checkTypeArgumentsLength(call.info->name, "", signature.typeArgs, call.context, call.token);
    const FunctionMemoKey key =
        FunctionMemoKey('s', call.unit, *call.info).add(signature.typeArgs).add(signature.paramTypes);
    const bool isUnderWay = SpecializationRequest::isUnderWay(key.text());
    if (signature.returnType.empty()) {
        if (isUnderWay) throw returnTypeNotInferrable(call.token);
        if (const Str* symbol = rememberedFunctionSymbol(key, call.unit, call.context)) {
            signature.returnType = call.context->getFunctionReturn(*symbol);
            signature.symbol = *symbol;
            return false;
        }
        makeSpecialization(call, signature, key.text());
        rememberFunctionSymbol(key, signature.symbol);
        return true;
    }
    signature.symbol = symbolFor(call, signature);
    if (call.context->hasSpecializedFunctionForUnit(call.unit, signature.symbol)) return false;
    if (isUnderWay) {
        registerSignature(call, specOf(call, signature), scope);
        return false;
    }
    makeSpecialization(call, signature, key.text());
    return true;
}

}  // namespace

namespace {

Str resolveCall(const ContextPtr& context, const Str& name, const NodeVec& arguments, const TokenPtr& token,
                const StrVec& explicitTypeArguments) {
    FunctionCall call{context, name, token, genericFunctionNamed(context, name, token), {}, {}, {}, {}, {}};
    call.arguments = collectGenericCallArguments(arguments, token);
    call.unit = specializationUnitTag(context, token);
    const bool hasTypeArgumentCount = explicitTypeArguments.size() == call.info->typeParams.size();
    if (hasTypeArgumentCount) call.explicitTypeArgs = normalizedTypeArgs(explicitTypeArguments, context, token);
    adaptLiterals(call);
    const FunctionMemoKey shape =
        FunctionMemoKey('c', call.unit, *call.info).add(call.arguments.argKeys).add(call.explicitTypeArgs);
    if (hasTypeArgumentCount || explicitTypeArguments.empty()) {
        const Str* symbol = recordsResolutions() ? nullptr : rememberedFunctionSymbol(shape, call.unit, context);
        if (symbol) {
            countFunction(Origin::SessionCache);
            return *symbol;
        }
    }

    reportCandidate(call, nullptr, nullptr);
    bindCall(call);
    if (!hasTypeArgumentCount && !explicitTypeArguments.empty()) {
        parsedDeclaration(call);
        throw typeArgumentCountError(*call.info, explicitTypeArguments, token);
    }
    const bool isReplChunk = isReplChunkUnit(call.unit);
    Str replKey;
    if (isReplChunk) {
        replKey = replGenericFunctionCacheKey(call.info->sourceFile, name, call.paramTypes, call.explicitTypeArgs);
        if (const auto found = gReplGenericFunctionSpecCache.find(replKey);
            found != gReplGenericFunctionSpecCache.end()) {
            const GenericFunctionSpec spec = found->second;
            registerSignature(call, spec, context);
            reportFunction(call, Origin::SessionCache, spec.symbol, spec.returnType);
            return spec.symbol;
        }
    }

    const ContextPtr scope = declarationScope(call.info->sourceFile, context);
    FunctionSignature signature = signatureOrLoadFailure(call, scope);
    const bool isMade = ensureSignature(call, signature, scope);
    reportFunction(call, isMade ? Origin::CurrentUnit : Origin::Unit, signature.symbol, signature.returnType);
    // A body that asks for itself gets here before there is a node: nothing is remembered until the unit has it.
    if (context->hasSpecializedFunctionForUnit(call.unit, signature.symbol)) {
        rememberFunctionSymbol(shape, signature.symbol);
        if (isReplChunk) gReplGenericFunctionSpecCache.insert_or_assign(replKey, specOf(call, signature));
    }
    return signature.symbol;
}

}  // namespace

Str ensureGenericFunctionSpecialization(const ContextPtr& context, const Str& name, const NodeVec& arguments,
                                        const TokenPtr& token, const StrVec& explicitTypeArguments) {
    if (!recordsResolutions()) return resolveCall(context, name, arguments, token, explicitTypeArguments);
    ReportedResolution report("", name, false, token);
    try {
        return resolveCall(context, name, arguments, token, explicitTypeArguments);
    } catch (const CompilerException& error) {
        report.fail(error.what());
        throw;
    }
}

}  // namespace vesk::compiler
