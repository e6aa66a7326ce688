// The line scanners.
#include "generics/source/declaration_blocks.h"

#include <gtest/gtest.h>

#include "generics/sample_program_test.h"
#include "generics/source/source_text_cache.h"

namespace vesk::compiler {
namespace {

TEST(DeclarationBlocks, MeasuresIndentation) {
    const std::vector<std::pair<Str, int>> cases = {{"", 0},      {"x", 0},   {"  x", 2}, {"\tx", 4},
                                                    {" \t x", 6}, {"   ", 3}, {"\v x", 0}};
    for (const auto& [line, width] : cases) EXPECT_EQ(indentationWidth(line), width) << line;
}

TEST(DeclarationBlocks, TellsCodeFromComments) {
    for (const Str line : {"", "# x", "#", "/* x", "* x", "*/"}) EXPECT_TRUE(isNonCodeLine(line)) << line;
    for (const Str line : {"x", "@A", "/x", "x # y"}) EXPECT_FALSE(isNonCodeLine(line)) << line;
}

TEST(DeclarationBlocks, RecognizesHeaders) {
    const std::vector<std::pair<Str, bool>> cases = {
        {"def foo(", true},       {"def foo<T>(x: T) -> T:", true},
        {"  def   foo :", true},  {"def foo", true},
        {"# see def foo(", true}, {"def \tfoo(", true},
        {"(def foo(", true},      {"def foo2(", false},
        {"x_def foo(", false},    {"undef foo() def foo(", false},
        {"def foo:", false},      {"def fo", false},
        {"def", false},           {"", false},
        {"1def foo(", false},     {"def  ", false},
    };
    for (const auto& [line, isHeader] : cases) EXPECT_EQ(isFunctionHeaderForName(line, "foo"), isHeader) << line;
}

TEST(DeclarationBlocks, FindsHeaderEnds) {
    struct Case {
        StrVec lines;
        int start, end;
    };
    const std::vector<Case> cases = {
        {{"def f(", "    a: Int,", "    b: Map<K, V>", ") -> Int:", "    pass"}, 0, 3},
        {{"def f(a: Map<K, V>):", "    pass"}, 0, 0},
        {{"x"}, 0, 0},
        {{"x"}, -1, -1},
        {{"x"}, 1, 1},
        {{"def f(a: (Int) -> Bool,", "      b: Int,", "      c: Int):", "    pass"}, 0, 1},
        {{"def f(", "# :", "", "a: Int):"}, 0, 3},
        {{"a", "b", "c:"}, 1, 2},
        {{"a >>> b:"}, 0, 0},
        {{"f(", "g("}, 1, 1},
    };
    for (const Case& c : cases) EXPECT_EQ(findHeaderEndIndex(c.lines, c.start), c.end) << c.lines[0];
}

TEST(DeclarationBlocks, FindsBlockEnds) {
    struct Case {
        StrVec lines;
        int header, end;
    };
    const std::vector<Case> cases = {
        {{"def f(", "    a: Int,", "    b: Map<K, V>", ") -> Int:", "    pass"}, 3, 5},
        {{"def f(a: (Int) -> Bool,", "      b: Int,", "      c: Int):", "    pass"}, 1, 2},
        {{"def f():", "    x", "", "# c", "y"}, 0, 4},
        {{"def f():", "    x", "", "", "# c", "    y"}, 0, 6},
        {{"    def f():", "\tx"}, 0, 1},
        {{"    def f():", "\t x"}, 0, 2},
        {{"def f():"}, 0, 1},
        {{"def f():"}, -1, -1},
        {{"def f():"}, 1, 1},
        {{"def f():", "    x", "/* c", " * d", " */", "y"}, 0, 5},
    };
    for (const Case& c : cases) EXPECT_EQ(findIndentedBlockEnd(c.lines, c.header), c.end) << c.lines[0];
}

TEST(DeclarationBlocks, TakesAnnotationsAlong) {
    struct Case {
        StrVec lines;
        int header, start;
    };
    const std::vector<Case> cases = {
        {{"import a", "@A", "@B(1)", "", "def f():"}, 4, 1},
        {{"", "@A", "def f():"}, 2, 0},
        {{"# c", "def f():"}, 1, 1},
        {{"  @A", "def f():"}, 1, 1},
        {{"x", "", "def f():"}, 2, 1},
        {{"def f():"}, 0, 0},
        {{"def f():"}, -1, -1},
        {{"@A", "@B(1)", "", "def f():"}, 3, 0},
        {{"class X:", "    @A", "    def f():"}, 2, 1},
    };
    for (const Case& c : cases) EXPECT_EQ(extendBlockStartForAnnotations(c.lines, c.header), c.start) << c.lines[0];
}

TEST(DeclarationBlocks, CollectsPreludes) {
    const StrVec lines = {"/* a", "b", "c */", "package a.b", "", "import c", "class X:", "import d"};
    EXPECT_EQ(collectOrderedModulePreludeLines(lines), StrVec(lines.begin(), lines.begin() + 6));
    EXPECT_EQ(collectOrderedModulePreludeLines({}), StrVec{});
    EXPECT_EQ(collectOrderedModulePreludeLines({"/* one */", "  # two", "x"}), (StrVec{"/* one */", "  # two"}));
    EXPECT_EQ(collectOrderedModulePreludeLines({"packages", "import x"}), StrVec{});
}

TEST(DeclarationBlocks, ReadsModuleHeaders) {
    using Packages = std::unordered_set<Str>;
    struct Case {
        Str text, package;
        Packages imports;
    };
    const std::vector<Case> cases = {
        {"package a\npackage b.c \nimport x\nimport x\n# k\nimport y\nclass Z:\nimport q", "b.c", Packages{"x", "y"}},
        {"/* c */\npackage a", "", {}},
        {"", "", {}},
        {"\n  package  a.b\r\n\nimport\tq\n", "a.b", {}},
        {"import q", "", Packages{"q"}},
    };
    for (const Case& c : cases) {
        const SourceModuleHeader header = sourceModuleHeaderOf(c.text);
        EXPECT_EQ(header.packageName, c.package) << c.text;
        EXPECT_EQ(header.importedPackages, c.imports) << c.text;
    }
    EXPECT_EQ(readSourceModuleHeader("/no/such/file.vk").packageName, "");
}

TEST(DeclarationBlocks, StampsTrees) {
    SampleProgram program;
    program.load("far/away/thing.vk", "package far.away\n\nclass Thing:\n    x: Int\n");
    const Str path = program.write(
        "main.vk",
        "def f(a: Int):\n    if a > 1:\n        pass\n    elif a > 2:\n        pass\n    else:\n        pass\n");
    auto scope = std::make_shared<Context>();
    TreeGenerator generator(path, std::make_shared<Tokenizer>(*sourceTextSnapshot(path), path), scope, true);
    const NodePtr tree = generator.generateTree();
    const NodePtr function = tree->getChildren().at(0);
    const auto statement = std::dynamic_pointer_cast<IfNode>(function->getChildren().at(0));
    const auto elif = std::dynamic_pointer_cast<IfNode>(statement->getElseBranch());
    const ContextPtr elseScope = elif->getElseBranch()->getContext();

    applyCompileUnitToNode("", function);
    EXPECT_EQ(elseScope->getCompileUnitFile(), "");
    applyCompileUnitToNode(path, function);
    EXPECT_EQ(elseScope->getCompileUnitFile(), path);
    EXPECT_EQ(scope->getCompileUnitFile(), "");
    applyCompileUnitToNode(path, nullptr);

    EXPECT_EQ(ClassLoader::resolveTypeName("Thing", elseScope, nullptr), "Thing");
    applySourceModuleHeaderToNode({"", {"far.away"}}, function);
    EXPECT_EQ(ClassLoader::resolveTypeName("Thing", elseScope, nullptr), "far.away.Thing");
    applySourceModuleHeader({"x", {}}, nullptr);
    applySourceModuleHeaderToNode({"x", {}}, nullptr);
}

}  // namespace
}  // namespace vesk::compiler
