// Parses one declaration afresh: its text is cut out of the file (prelude, for a method the line of its class, then the
// declaration's block), parsed in a scope of its own, and the wanted node picked out of the tree. The tokens carry the
// places of the file, so that every later message points at the generic source.
// Per thread, the tokens of a text that is asked for again are kept; those that rewriting may change are copied for each
// use.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

// Null when there is no text or no such declaration in it. `name` and `methodName` are plain names.
std::shared_ptr<FunctionNode> parseFunctionFromFile(const Str& path, const Str& name, const ContextPtr& context);
// `lineHint` is the line of the method's header, 0 or less when unknown. `ownerClass` is not flattened.
std::shared_ptr<MethodNode> parseMethodFromFile(const Str& path, const Str& ownerClass, const Str& methodName,
                                                int lineHint, const ContextPtr& context);

// The outermost scope of the caller's compile unit: a re-parsed declaration hangs below it and never sees the scope of
// the call.
ContextPtr genericDeclarationParentContext(const ContextPtr& context);
// A scope below the caller's unit that looks names up as the given file does: for the types that a declaration of that
// file mentions. Kept per thread until another unit asks.
ContextPtr declarationScope(const Str& path, const ContextPtr& context);
// Forgets the scopes kept by declarationScope, which belong to one compile session.
void resetDeclarationScopes();

// Tokenizes a run of a file's lines; `firstLine` is the line number that its first line has in the file.
TokenVec tokenizeAtFileLines(const Str& text, const Str& path, int firstLine);
TokenVec copyTokens(const TokenVec& tokens);

}  // namespace vesk::compiler
