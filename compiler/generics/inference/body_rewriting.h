// Makes a re-parsed declaration concrete: type parameters in its body are replaced by the bound types, and a return type
// that is not declared is inferred from the return statements.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

class CallableDeclarationNode;

// Rewrites a subtree in place, parents before children: every type text in it, the scopes' return types, and the types of
// local variables. A name behind a dot and the name of a named argument are looked up elsewhere, never among type
// parameters: only the clause of such a name is rewritten.
void applyGenericBindingsToNode(const NodePtr& node, const StrVec& names, const StrVec& args);
// The same below a declaration whose parameter and return types are concrete already: these are left as they are, since
// an argument may be spelled like a type parameter (`def f<Int, T>(...)` with T = Int).
void applyGenericBindingsToBody(const std::shared_ptr<CallableDeclarationNode>& declaration, const StrVec& names,
                                const StrVec& args);
// "" when the statements hold no return. Lambda bodies do not count. Throws "Invalid return expression", "Cannot infer
// return type for generic function" and what unifyReturnType throws.
Str inferReturnTypeFromNodes(const NodeVec& nodes, const ContextPtr& context);
// The wider of the two types; throws "Inconsistent return types in generic function".
Str unifyReturnType(const ContextPtr& context, const Str& current, const Str& next, const TokenPtr& token);

}  // namespace vesk::compiler
