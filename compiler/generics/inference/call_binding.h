// The arguments of one call: their types, their pairing with parameters, and the actual type that each parameter meets.
// The pairing is the host's own, so that specialized calls bind as all calls do. `*items` collects positional arguments
// into an ArrayList, `**named` named ones into a Map keyed by name.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

// One entry per written argument. Keys are "#:Int" for a positional and "x=Int" for a named argument; cache keys are
// made of them.
struct GenericCallArguments {
    std::vector<CallArgInfo> argInfos;
    StrVec argNames, argTypes, argKeys;
};

// Throws "Invalid function argument" and "argument has unknown type".
GenericCallArguments collectGenericCallArguments(const NodeVec& arguments, const TokenPtr& token);
// Pairs arguments with parameters; false when that is impossible or a parameter without a default gets nothing. An empty
// token list is no default. Never throws.
bool bindGenericCall(const StrVec& argNames, const StrVec& paramNames, std::size_t paramCount,
                     const std::vector<TokenVec>& defaults, bool variadic, int variadicIndex, bool namedVariadic,
                     int namedVariadicIndex, CallArgumentBinding& out);
// One actual type per parameter, "" where no argument gives one.
StrVec buildGenericCallParamTypesFromRawTypes(const StrVec& argTypes, const StrVec& argNames, const StrVec& paramNames,
                                              std::size_t paramCount, const std::vector<TokenVec>& defaults,
                                              bool variadic, int variadicIndex, bool namedVariadic,
                                              int namedVariadicIndex, const TokenPtr& token);

}  // namespace vesk::compiler
