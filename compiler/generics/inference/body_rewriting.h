// Makes a re-parsed declaration concrete: type parameters in its body are replaced by the bound types, and a return type
// that is not declared is inferred from the return statements.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

// Rewrites a subtree in place, parents before children: every type text in it, the scopes' return types, and the types of
// local variables.
void applyGenericBindingsToNode(const NodePtr& node, const StrVec& names, const StrVec& args);
// "" when the statements hold no return. Lambda bodies do not count. Throws "Invalid return expression", "Cannot infer
// return type for generic function" and what unifyReturnType throws.
Str inferReturnTypeFromNodes(const NodeVec& nodes, const ContextPtr& context);
// The wider of the two types; throws "Inconsistent return types in generic function".
Str unifyReturnType(const ContextPtr& context, const Str& current, const Str& next, const TokenPtr& token);

}  // namespace vesk::compiler
