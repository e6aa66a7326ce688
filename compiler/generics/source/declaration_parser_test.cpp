// Re-parsing single declarations.
#include "generics/source/declaration_parser.h"

#include <gtest/gtest.h>

#include "generics/inference/body_rewriting.h"
#include "generics/sample_program_test.h"
#include "generics/source/file_outline.h"

namespace vesk::compiler {
namespace {

TEST(DeclarationParser, CutsAFunction) {
    SampleProgram program;
    const ContextPtr scope = program.load("cut/main.vk",
                                          "# heading\n"
                                          "package cut\n"
                                          "\n"
                                          "def other() -> Int:\n"
                                          "    return 1\n"
                                          "\n"
                                          "@A\n"
                                          "@B(1)\n"
                                          "\n"
                                          "def pick<T>(\n"
                                          "        a: T,\n"
                                          "        b: Map<T, T>\n"
                                          ") -> T:\n"
                                          "    # first\n"
                                          "    x: T = a\n"
                                          "\n"
                                          "    return x\n"
                                          "# behind\n"
                                          "def last() -> Int:\n"
                                          "    return 2\n");
    const Str path = program.pathOf("cut/main.vk");
    for (int round = 0; round < 4; round++) {  // fresh tokens, then kept ones
        const auto node = parseFunctionFromFile(path, "pick", scope);
        ASSERT_NE(node, nullptr);
        EXPECT_EQ(node->name(), "pick");
        EXPECT_EQ(node->getAnnotations().size(), 2u);
        EXPECT_EQ(node->getParams().size(), 2u);
        ASSERT_EQ(node->getBody().size(), 2u);
        EXPECT_EQ(node->token()->getLine(), 10);
        EXPECT_EQ(node->getBody()[0]->token()->getLine(), 15);
        EXPECT_EQ(node->getBody()[0]->token()->getColumn(), 5);
        EXPECT_EQ(node->getBody()[1]->token()->getFilename(), path);
        EXPECT_NE(node->getContext(), scope);
        node->setName("changed");
    }
    EXPECT_EQ(parseFunctionFromFile(path, "nobody", scope), nullptr);
    EXPECT_EQ(parseFunctionFromFile(program.pathOf("none.vk"), "pick", scope), nullptr);
}

TEST(DeclarationParser, WhatOneUseRewritesIsNotSeenByTheNext) {
    SampleProgram program;
    const ContextPtr scope = program.load(
        "own/main.vk",
        "package own\n\ndef f<T>(x: Object) -> String:\n    if x is T:\n        return type(T)\n    return \"\"\n");
    for (int round = 0; round < 4; round++) {
        const auto node = parseFunctionFromFile(program.pathOf("own/main.vk"), "f", scope);
        const auto test = std::dynamic_pointer_cast<IfNode>(node->getBody().at(0));
        const auto operand = std::dynamic_pointer_cast<OperatorExpressionNode>(test->getCondition())->getTypeOperand();
        const auto branch = std::dynamic_pointer_cast<BlockNode>(test->getThenBranch());
        const NodePtr call = branch->getStatements().at(0)->getChildren().at(0);
        const NodePtr argument = std::dynamic_pointer_cast<CallableExpressionNode>(call)->getArguments().at(0);
        EXPECT_EQ(operand->token()->getText(), "T");
        EXPECT_EQ(argument->token()->getText(), "T");
        applyGenericBindingsToNode(node, {"T"}, {"Int"});
        EXPECT_EQ(operand->token()->getText(), "Int");
        EXPECT_EQ(argument->token()->getText(), "Int");
    }
}

TEST(DeclarationParser, LooksNamesUpInTheDeclaringFile) {
    SampleProgram program;
    program.load("lib/things/thing.vk", "package lib.things\n\nclass Thing:\n    x: Int\n");
    program.load("lib/tools/tool.vk",
                 "package lib.tools\nimport lib.things\n\nclass Own:\n    x: Int\n\ndef make<T>(a: T) -> Thing:\n    "
                 "return Thing()\n");
    const ContextPtr scope = program.load("main.vk", "import lib.tools\n\ndef main():\n    pass\n");
    const auto node = parseFunctionFromFile(program.pathOf("lib/tools/tool.vk"), "make", scope);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(ClassLoader::resolveTypeName("Thing", node->getContext(), nullptr), "lib.things.Thing");
    EXPECT_EQ(ClassLoader::resolveTypeName("Own", node->getContext(), nullptr), "lib.tools.Own");
    EXPECT_EQ(ClassLoader::resolveTypeName("Thing", scope, nullptr), "Thing");
    const ContextPtr types = declarationScope(program.pathOf("lib/tools/tool.vk"), scope);
    EXPECT_EQ(ClassLoader::resolveTypeName("Thing", types, nullptr), "lib.things.Thing");
    EXPECT_EQ(ClassLoader::resolveTypeName("Own", types, nullptr), "lib.tools.Own");
    EXPECT_EQ(declarationScope(program.pathOf("lib/tools/tool.vk"), scope), types);
}

TEST(DeclarationParser, ParsesTheWholeFileWhereTheScannersAreMisled) {
    SampleProgram program;
    // A function type in a header of several lines; a comment whose inner lines are dedented; a method of the same name
    // further up.
    const ContextPtr scope = program.load("misled/main.vk",
                                          "package misled\n"
                                          "\n"
                                          "class C:\n"
                                          "    def third(a: Int) -> Int:\n"
                                          "        return a\n"
                                          "\n"
                                          "def first<T>(a: (T) -> Bool,\n"
                                          "        b: T,\n"
                                          "        c: T) -> Bool:\n"
                                          "    return a(b)\n"
                                          "\n"
                                          "def second<T>(a: T) -> T:\n"
                                          "    b: T = a\n"
                                          "/* a comment\n"
                                          "that tells a story\n"
                                          "*/\n"
                                          "    return b\n"
                                          "\n"
                                          "def third<T>(a: T) -> T:\n"
                                          "    return a\n");
    const Str path = program.pathOf("misled/main.vk");
    const auto first = parseFunctionFromFile(path, "first", scope);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->getParams().size(), 3u);
    const auto second = parseFunctionFromFile(path, "second", scope);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->getBody().size(), 2u);
    const auto third = parseFunctionFromFile(path, "third", scope);
    ASSERT_NE(third, nullptr);
    EXPECT_EQ(third->token()->getLine(), 19);
    for (int round = 0; round < 3; round++) EXPECT_NE(parseFunctionFromFile(path, "third", scope), first);
}

TEST(DeclarationParser, CutsAMethod) {
    SampleProgram program;
    const ContextPtr scope = program.load("cut/box.vk",
                                          "package cut\n"
                                          "\n"
                                          "@Shown\n"
                                          "class Box<T>:\n"
                                          "    value: T\n"
                                          "    class Inner:\n"
                                          "        @Quick\n"
                                          "        def map(x: Int) -> Int:\n"
                                          "            return x\n"
                                          "        def both<U>(x: U) -> U:\n"
                                          "            return x\n"
                                          "    def map(x: Int) -> Int:\n"
                                          "        return x + 1\n"
                                          "    def map(x: String) -> String:\n"
                                          "        return x\n"
                                          "    def both<U>(x: U) -> U:\n"
                                          "        return x\n");
    const Str path = program.pathOf("cut/box.vk");
    struct Case {
        Str owner, method;
        int hint, line;
    };
    const std::vector<Case> cases = {
        {"cut.Box", "map", 12, 12},        {"Box", "map", 14, 14},         {"cut.Box.Inner", "map", 8, 8},
        {"cut.Box", "map", 13, 12},   // a valid line without the probe: the whole file, by name
        {"cut.Box", "both", 16, 16},  // the probe "both(" is in no header: the whole file, by line
        {"cut.Box.Inner", "both", 10, 10}, {"cut.Box.Inner", "map", 0, 8}, {"cut.Box.Inner", "map", 1000, 8},
    };
    for (const Case& c : cases) {
        for (int round = 0; round < 3; round++) {
            const auto node = parseMethodFromFile(path, c.owner, c.method, c.hint, scope);
            ASSERT_NE(node, nullptr) << c.owner << c.hint;
            EXPECT_EQ(node->name(), c.method);
            EXPECT_EQ(node->token()->getLine(), c.line) << c.owner << c.hint;
            EXPECT_EQ(node->getBody().size(), 1u);
        }
    }
    EXPECT_EQ(parseMethodFromFile(path, "cut.Box.Inner", "map", 8, scope)->getAnnotations().size(), 1u);
    EXPECT_EQ(parseMethodFromFile(path, "cut.Other", "map", 12, scope), nullptr);
    EXPECT_EQ(parseMethodFromFile(path, "cut.Box", "none", 12, scope), nullptr);
    EXPECT_EQ(parseMethodFromFile(program.pathOf("none.vk"), "Box", "map", 1, scope), nullptr);
}

TEST(DeclarationParser, KeepsAPackageLineBelowAComment) {
    SampleProgram program;
    const ContextPtr scope = program.load("late/main.vk",
                                          "/* one\n two\n three */\npackage late\n\nclass Own:\n    x: Int\n\ndef "
                                          "f<T>(a: T) -> Own:\n    return Own()\n");
    const auto node = parseFunctionFromFile(program.pathOf("late/main.vk"), "f", scope);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(ClassLoader::resolveTypeName("Own", node->getContext(), nullptr), "late.Own");
    EXPECT_FALSE(fileOutline(program.pathOf("late/main.vk")).preludeTokens.empty());
}

TEST(DeclarationParser, FindsTheOutermostScopeOfAUnit) {
    EXPECT_EQ(genericDeclarationParentContext(nullptr), nullptr);
    const auto root = std::make_shared<Context>();
    const auto file = std::make_shared<Context>(root);
    file->setCompileUnitFile("/a.vk");
    const auto inner = std::make_shared<Context>(std::make_shared<Context>(file));
    EXPECT_EQ(genericDeclarationParentContext(inner), file);
    EXPECT_EQ(genericDeclarationParentContext(file), file);
    EXPECT_EQ(genericDeclarationParentContext(root), root);
}

}  // namespace
}  // namespace vesk::compiler
