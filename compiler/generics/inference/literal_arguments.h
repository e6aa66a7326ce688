// Literals among the arguments of a call. A literal has a type of its own, and takes another where its place expects that.
//
// A parameter's place is known once the signature is. What a variadic parameter collects must be of one type before, so
// there literals and null take the element type where the call's type arguments are given: `of<Double>(1, 2.5, null)` fails
// on null alone. Everything else that is collected keeps its type.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

// A number, text, truth value, null, list or map as written, also behind a sign.
bool isLiteralArgument(const NodePtr& node);

// `argTypes` runs by argument; `collected` are those that a variadic parameter of type `collectorType` takes. True when
// one of them changed.
bool adaptCollectedLiterals(const std::vector<CallArgInfo>& arguments, const std::vector<int>& collected,
                            const Str& collectorType, StrVec& argTypes, const ContextPtr& context,
                            const TokenPtr& token);
// The same for both variadic parameters of a declaration whose type parameters are given their arguments. `paramTypes` are
// the declared ones and are resolved in `scope`.
struct VariadicParameters {
    bool isVariadic = false, isNamedVariadic = false;
    int variadicIndex = -1, namedVariadicIndex = -1;
};
bool adaptCollectedLiterals(const std::vector<CallArgInfo>& arguments, const CallArgumentBinding& binding,
                            const VariadicParameters& variadics, const StrVec& paramTypes, const StrVec& typeParamNames,
                            const StrVec& typeArgs, StrVec& argTypes, const ContextPtr& scope, const TokenPtr& token);

// What is written before an argument's type in a key: "x=" or "#:".
Str callArgumentKey(const Str& name, const Str& type);

}  // namespace vesk::compiler
