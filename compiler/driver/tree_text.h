// Tokens and syntax trees as text, for `veskc emit --emit=tokens|ast`.
#pragma once

#include <ostream>

#include "host/ast_nodes.h"

namespace vesk::compiler {

// One token a line: line:column, kind, text; the width of the blanks where the token begins a line.
void writeTokens(std::ostream& out, const TokenVec& tokens);
// One node a line, indented by its depth: kind, name and types as written, line:column. Does not recurse.
void writeTree(std::ostream& out, const NodePtr& root);

}  // namespace vesk::compiler
