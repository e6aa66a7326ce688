// How the parser records what it sees in scopes. Defined by the semantics folder beside Context: the parser knows the
// operations only.
#pragma once

#include "host/ast_nodes.h"

namespace vesk::compiler {

// Declares a local, a loop variable or a parameter at its node. `type` is the auto marker when it is open; `line` and
// `column` are those of the name, 0 for parameters.
void declareScopeVariable(const ContextPtr& scope, const Str& name, const Str& type, const AbstractNode* declaration,
                          int line, int column);
// Makes room for that many names.
void reserveScopeVariables(const ContextPtr& scope, std::size_t count);
// Forgets the names declared in a scope that nothing looks at any more.
void releaseScopeVariables(const ContextPtr& scope);
// The scope of a declaration that was cut out of `path`: names are looked up in that file first.
void setDeclaringFile(const ContextPtr& scope, const Str& path);

}  // namespace vesk::compiler
