// The parser's face: where tokens come from and how mistakes leave.
#include "host/tree_generator.h"

#include "syntax/parser.h"
#include "syntax/scope_building.h"

namespace vesk::compiler {

struct TreeGenerator::State {
    Str path;
    std::shared_ptr<Tokenizer> tokenizer;  // null: the tokens were given
    TokenVec tokens;
    ContextPtr context;
    bool reparsed;
    std::vector<CompilerException>* errors = nullptr;

    Parser makeParser() {
        Parser parser(path, context, reparsed, errors);
        if (tokenizer)
            parser.readTokens(*tokenizer);
        else
            parser.readTokens(std::move(tokens));
        tokens.clear();
        return parser;
    }
};

TreeGenerator::TreeGenerator(const Str& path, std::shared_ptr<Tokenizer> tokenizer, ContextPtr context, bool reparsed)
    : state_(new State{path, std::move(tokenizer), {}, std::move(context), reparsed}) {
    if (reparsed && state_->context) setDeclaringFile(state_->context, path);
}

TreeGenerator::TreeGenerator(const Str& path, TokenVec tokens, ContextPtr context, bool reparsed)
    : state_(new State{path, nullptr, std::move(tokens), std::move(context), reparsed}) {
    if (reparsed && state_->context) setDeclaringFile(state_->context, path);
}

TreeGenerator::~TreeGenerator() = default;

NodePtr TreeGenerator::generateTree() { return state_->makeParser().parseFile(); }

void TreeGenerator::parseBlock(const NodePtr& parent, unsigned indent) {
    state_->makeParser().parseBlockInto(parent, indent);
}

void TreeGenerator::collectErrors(std::vector<CompilerException>* errors) { state_->errors = errors; }

}  // namespace vesk::compiler
