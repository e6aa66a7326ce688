// Readable texts of tokens and trees, for `emit --emit=tokens|ast` and for tests.
#pragma once

#include "host/ast_nodes.h"

namespace vesk::compiler {

// One token a line: place, kind and text, with a mark where a line begins.
Str printTokens(const TokenVec& tokens);
// Source text with the same tokens and the same blocks; comments and empty lines are gone.
Str printTokensAsSource(const TokenVec& tokens);
// The tree: declarations and statements on lines of their own, indented, expressions in prefix form,
// `(+ a (* b c))`. Works for trees of any depth.
Str printTree(const NodePtr& root);

}  // namespace vesk::compiler
