// Typing and pairing call arguments.
#include "generics/inference/call_binding.h"

#include "generics/inference/literal_arguments.h"
#include "host/ast_nodes.h"
#include "host/diagnostics.h"
#include "host/inference_services.h"

namespace vesk::compiler {

namespace {

bool isExpression(const NodePtr& node) { return node && node->getKind() >= NodeKind::Value; }

// The types of the arguments with these indices.
StrVec typesAt(const std::vector<int>& indices, const StrVec& argTypes) {
    StrVec types;
    for (const int index : indices) types.push_back(argTypes[static_cast<std::size_t>(index)]);
    return types;
}

bool allEqual(const StrVec& types) {
    for (const Str& type : types) {
        if (type != types.front()) return false;
    }
    return true;
}

}  // namespace

GenericCallArguments collectGenericCallArguments(const NodeVec& arguments, const TokenPtr& token) {
    GenericCallArguments call;
    call.argInfos = collectCallArgInfos(arguments, token);
    call.argNames = collectCallArgNames(call.argInfos);
    call.argTypes.reserve(call.argInfos.size());
    call.argKeys.reserve(call.argInfos.size());
    for (const CallArgInfo& info : call.argInfos) {
        if (!isExpression(info.node)) throw compileError(token, "Invalid function argument");
        Str type = inferExpressionType(info.node);
        if (type.empty() || type == "Void") throw compileError(token, "argument has unknown type");
        call.argKeys.push_back(callArgumentKey(info.name, type));
        call.argTypes.push_back(std::move(type));
    }
    return call;
}

bool bindGenericCall(const StrVec& argNames, const StrVec& paramNames, std::size_t paramCount,
                     const std::vector<TokenVec>& defaults, bool variadic, int variadicIndex, bool namedVariadic,
                     int namedVariadicIndex, CallArgumentBinding& out) {
    std::vector<CallArgInfo> arguments;
    arguments.reserve(argNames.size());
    for (const Str& name : argNames) arguments.push_back({nullptr, name});
    if (!bindCallArgInfos(arguments, paramNames, paramCount, variadic, variadicIndex, namedVariadic, namedVariadicIndex,
                          out)) {
        return false;
    }
    for (std::size_t p = 0; p < paramCount; p++) {
        const int index = static_cast<int>(p);
        if ((variadic && index == variadicIndex) || (namedVariadic && index == namedVariadicIndex)) continue;
        const bool isBound = p < out.paramToArg.size() && out.paramToArg[p] >= 0;
        const bool hasDefault = p < defaults.size() && !defaults[p].empty();
        if (!isBound && !hasDefault) return false;
    }
    return true;
}

StrVec buildGenericCallParamTypesFromRawTypes(const StrVec& argTypes, const StrVec& argNames, const StrVec& paramNames,
                                              std::size_t paramCount, const std::vector<TokenVec>& defaults,
                                              bool variadic, int variadicIndex, bool namedVariadic,
                                              int namedVariadicIndex, const TokenPtr& token) {
    if (argNames.size() != argTypes.size()) throw compileError(token, "Invalid generic call arguments");
    CallArgumentBinding binding;
    if (!bindGenericCall(argNames, paramNames, paramCount, defaults, variadic, variadicIndex, namedVariadic,
                         namedVariadicIndex, binding)) {
        throw compileError(token, "Arguments do not match generic callable");
    }
    StrVec types(paramCount);
    for (std::size_t p = 0; p < paramCount && p < binding.paramToArg.size(); p++) {
        if (binding.paramToArg[p] >= 0) types[p] = argTypes[static_cast<std::size_t>(binding.paramToArg[p])];
    }
    if (variadic && variadicIndex >= 0 && static_cast<std::size_t>(variadicIndex) < paramCount) {
        const StrVec collected = typesAt(binding.variadicArgs, argTypes);
        if (!allEqual(collected)) {
            throw compileError(token, "Variadic generic call expects homogeneous positional argument types");
        }
        types[static_cast<std::size_t>(variadicIndex)] =
            "vesk.collections.ArrayList<" + (collected.empty() ? "Object" : collected.front()) + ">";
    }
    if (namedVariadic && namedVariadicIndex >= 0 && static_cast<std::size_t>(namedVariadicIndex) < paramCount) {
        const StrVec collected = typesAt(binding.namedVariadicArgs, argTypes);
        const bool isUniform = !collected.empty() && allEqual(collected);
        types[static_cast<std::size_t>(namedVariadicIndex)] =
            "vesk.collections.Map<String," + (isUniform ? collected.front() : "Object") + ">";
    }
    return types;
}

}  // namespace vesk::compiler
