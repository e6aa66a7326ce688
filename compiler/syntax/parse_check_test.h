// What the tests of this folder share: parse a text, and print what came of it.
#pragma once

#include <gtest/gtest.h>

#include "host/context.h"
#include "host/tree_generator.h"
#include "syntax/tree_printer.h"

namespace vesk::compiler {

inline constexpr const char* SAMPLE_PATH = "/sample/main.vk";

// "line:column: message", as the tests write errors.
inline Str placedMessage(const CompilerException& error) {
    const TokenPtr at = error.getToken();
    if (!at) return Str("no place: ") + error.what();
    return std::to_string(at->getLine()) + ":" + std::to_string(at->getColumn()) + ": " + error.what();
}

struct ParsedSample {
    NodePtr tree;
    StrVec errors;
};

inline ParsedSample parseSample(const Str& text, bool reparsed = false) {
    ParsedSample sample;
    std::vector<CompilerException> errors;
    TreeGenerator generator(SAMPLE_PATH, std::make_shared<Tokenizer>(text, SAMPLE_PATH), std::make_shared<Context>(),
                            reparsed);
    generator.collectErrors(&errors);
    sample.tree = generator.generateTree();
    for (const CompilerException& error : errors) sample.errors.push_back(placedMessage(error));
    return sample;
}

inline Str joinLines(const StrVec& lines) {
    Str text;
    for (const Str& line : lines) text += line + "\n";
    return text;
}

// The tree of a text without mistakes.
inline Str treeOf(const Str& text) {
    const ParsedSample sample = parseSample(text);
    EXPECT_EQ(joinLines(sample.errors), "") << text;
    return printTree(sample.tree);
}

// The errors of a text, a line each; the first of them must be the one that is thrown when errors are not collected.
inline Str errorsOf(const Str& text) {
    const Str all = joinLines(parseSample(text).errors);
    Str thrown;
    try {
        TreeGenerator(SAMPLE_PATH, std::make_shared<Tokenizer>(text, SAMPLE_PATH), std::make_shared<Context>(), false)
            .generateTree();
    } catch (const CompilerException& error) {
        thrown = placedMessage(error) + "\n";
    }
    EXPECT_EQ(all.substr(0, all.find('\n') + 1), thrown) << text;
    return all;
}

// One expression, in prefix form.
inline Str expressionOf(const Str& text) {
    const Str tree = treeOf("def f():\n    return " + text + "\n");
    const Str before = "def f():\n    return ";
    if (tree.compare(0, before.size(), before) != 0) return tree;
    return tree.substr(before.size(), tree.size() - before.size() - 1);
}

}  // namespace vesk::compiler
