// Feeds arbitrary bytes to the tokenizer and the parser.
// What must hold: no crash; every mistake has a place inside the text; a mistake is thrown exactly where one is found when
// errors are collected; tokens printed as source are the same tokens again.
#include <cstdint>
#include <cstdlib>

#include "host/context.h"
#include "host/tree_generator.h"
#include "syntax/tree_printer.h"

namespace {

using namespace vesk::compiler;

const Str FUZZED_PATH = "/fuzz/main.vk";

void require(bool holds) {
    if (!holds) std::abort();
}

std::shared_ptr<Tokenizer> tokenizerOf(const Str& text) { return std::make_shared<Tokenizer>(text, FUZZED_PATH); }

void checkPlace(const CompilerException& error, const Str& text) {
    const TokenPtr at = error.getToken();
    require(at != nullptr && at->getLine() >= 1 && at->getColumn() >= 1);
    require(static_cast<std::size_t>(at->getLine()) <= text.size() + 1);
}

void checkTree(const Str& text, bool reparsed) {
    std::vector<CompilerException> errors;
    TreeGenerator collecting(FUZZED_PATH, tokenizerOf(text), std::make_shared<Context>(), reparsed);
    collecting.collectErrors(&errors);
    printTree(collecting.generateTree());
    for (const CompilerException& error : errors) checkPlace(error, text);
    bool threw = false;
    try {
        TreeGenerator(FUZZED_PATH, tokenizerOf(text), std::make_shared<Context>(), reparsed).generateTree();
    } catch (const CompilerException& error) {
        checkPlace(error, text);
        threw = true;
    }
    require(threw == !errors.empty());
}

void checkBlock(const Str& text) {
    auto block = std::make_shared<BlockNode>(std::make_shared<Context>(), nullptr);
    try {
        TreeGenerator(FUZZED_PATH, tokenizerOf(text), block->context(), true).parseBlock(block, 0);
        printTree(block);
    } catch (const CompilerException& error) {
        checkPlace(error, text);
    }
}

void checkTokens(const Str& text) {
    TokenVec tokens;
    try {
        tokens = tokenizerOf(text)->tokens();
    } catch (const CompilerException&) {
        return;
    }
    const TokenVec again = tokenizerOf(printTokensAsSource(tokens))->tokens();
    require(tokens.size() == again.size());
    for (std::size_t i = 0; i < tokens.size(); i++)
        require(tokens[i]->getText() == again[i]->getText() && tokens[i]->startsLine() == again[i]->startsLine());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Str text(reinterpret_cast<const char*>(data), size);
    checkTokens(text);
    checkTree(text, false);
    checkTree(text, true);
    checkBlock(text);
    return 0;
}
