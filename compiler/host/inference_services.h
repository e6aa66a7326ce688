// Static types of expressions, and how call arguments meet parameters.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

// One entry per argument node; named arguments are taken apart into name and value.
std::vector<CallArgInfo> collectCallArgInfos(const NodeVec& args, const TokenPtr& token = nullptr);
StrVec collectCallArgNames(const std::vector<CallArgInfo>& args);

// Pairs arguments with parameters: positional ones first, in order, then named ones; surplus ones go to the
// variadic parameters. False when an argument finds no parameter, or a parameter two arguments. Missing
// arguments are the caller's matter.
bool bindCallArgInfos(const std::vector<CallArgInfo>& args, const StrVec& paramNames, std::size_t paramCount,
                      bool variadic, int variadicIndex, bool namedVariadic, int namedVariadicIndex,
                      CallArgumentBinding& out);

// Resolved static type of an expression, "" when unknown. A null scope means the node's own.
Str inferExpressionType(const NodePtr& expression, const ContextPtr& context = nullptr);
// The type a literal takes where `expected` is wanted; `actual` when it takes none.
Str inferExpectedLiteralType(const NodePtr& expression, const Str& expected, const Str& actual);

// False for everything that is not `(A, B) -> R` as a whole.
bool parseFunctionTypeName(const Str& text, FunctionTypeSignature& out);
Str formatFunctionTypeName(const FunctionTypeSignature& signature);

// Forgets every inferred type on this thread: bodies or symbols have changed.
void invalidateTypeInferenceCaches();

}  // namespace vesk::compiler
