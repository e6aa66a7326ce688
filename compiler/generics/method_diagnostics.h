// The errors of generic method calls, and the notes under them. The notes say what a reader needs to repair the call: which
// overloads tie and why, what dropped an overload, which arguments disagree, where a constraint stands.
#pragma once

#include "generics/inference/call_binding.h"
#include "generics/method_signature.h"
#include "generics/resolution_report.h"
#include "host/diagnostics.h"
#include "host/model_records.h"

namespace vesk::compiler {

// "map<R>(f: (T) -> R) -> ArrayList<R>", as declared.
Str describeGenericMethod(const GenericMethodInfo& info);
// The place of a method's header; of one of its type parameters where a name is given.
TokenPtr placeOfGenericMethod(const GenericMethodInfo& info, const Str& typeParam = {});

struct DroppedOverload {
    GenericMethodInfo info;
    Str reason;
};
CompilerException unknownGenericMethod(const ContextPtr& context, const TokenPtr& token, const Str& owner,
                                       const Str& method, const std::vector<DroppedOverload>& dropped);
CompilerException inaccessibleGenericMethod(const TokenPtr& token, const Str& owner, const Str& method,
                                            const std::vector<GenericMethodInfo>& overloads);
CompilerException unloadableGenericMethod(const TokenPtr& token, const Str& owner, const Str& method);
CompilerException mismatchedArguments(const TokenPtr& token, const GenericMethodInfo& info, const StrVec& expected,
                                      const StrVec& actual);

struct TiedOverload {
    GenericMethodInfo info;
    std::vector<std::size_t> betterAt;  // argument positions
};
CompilerException ambiguousGenericMethod(const TokenPtr& token, const Str& owner, const Str& method,
                                         const std::vector<TiedOverload>& tied);

// Why the arguments do not pair with the parameters.
Str describeBindingFailure(const GenericMethodInfo& info, const StrVec& argNames);

// Adds to an error of inference what it was about: for a parameter bound to two types, the two arguments; for a constraint,
// its declaration. `argumentTokens` runs by parameter position and may hold nulls.
void explainInferenceError(CompilerException& error, const GenericMethodInfo& info, const InferenceTrace& trace,
                           const StrVec& argTypes, const TokenVec& argumentTokens);

// The tokens of the arguments, by parameter position; null where none or several are bound.
TokenVec boundArgumentTokens(const CallArgumentBinding& binding, const GenericCallArguments& arguments);
// What each type parameter became, and what decided it.
std::vector<ResolutionReport::TypeArgument> describeTypeArguments(const GenericMethodInfo& info, const StrVec& typeArgs,
                                                                  const StrVec& explicitTypeArgs, const TokenPtr& token,
                                                                  const InferenceTrace& trace);

}  // namespace vesk::compiler
