// The parser: tokens in, syntax tree out.
#pragma once

#include "host/diagnostics.h"
#include "host/tokens.h"

namespace vesk::compiler {

class TreeGenerator {
public:
    // `reparsed` marks the text of a single declaration cut out of `path`: the scope then looks names up in
    // that file first.
    TreeGenerator(const Str& path, std::shared_ptr<Tokenizer> tokenizer, ContextPtr context, bool reparsed);
    TreeGenerator(const Str& path, TokenVec tokens, ContextPtr context, bool reparsed);
    ~TreeGenerator();
    TreeGenerator(const TreeGenerator&) = delete;
    TreeGenerator& operator=(const TreeGenerator&) = delete;

    // Parses a whole file; the root is a FileNode whose children are the top-level declarations. Applies
    // `package` and `import` lines to the scope. Throws the first CompilerException unless errors are collected.
    NodePtr generateTree();
    // Parses one block of statements into a function, method or block node. The block's first code line sets its
    // depth, which must be at least `indent`.
    void parseBlock(const NodePtr& parent, unsigned indent);

    // From here on mistakes are put there, the parser goes on behind each, and nothing is thrown.
    void collectErrors(std::vector<CompilerException>* errors);

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace vesk::compiler
