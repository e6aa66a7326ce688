// Files, declarations and statements: the trees they become, and what the parser notes in nodes.
#include "syntax/parse_check_test.h"

namespace vesk::compiler {
namespace {

// A text whose tree prints as the text itself.
void checkPrintsAsWritten(const Str& text) { EXPECT_EQ(treeOf(text), text); }

template <class Node>
std::shared_ptr<Node> childAt(const NodePtr& parent, std::size_t index) {
    return std::dynamic_pointer_cast<Node>(parent->getChildren().at(index));
}

TEST(Declarations, Files) {
    EXPECT_EQ(treeOf(""), "");
    EXPECT_EQ(treeOf("# only\n/* comments\n */\n\n"), "");
    checkPrintsAsWritten("package a.b\nimport vesk.collections\nimport c\ndef f():\n    pass\n");
    EXPECT_EQ(treeOf("def f():\n    pass"), "def f():\n    pass\n");
    EXPECT_EQ(treeOf("def f():\r\n    pass\r\n"), "def f():\n    pass\n");
}

TEST(Declarations, Functions) {
    checkPrintsAsWritten(
        "@Pure\ndef pick<T: Comparable<T>, U = List<T>>(a: T, b: (T) -> U, first: Bool = true) -> T:\n"
        "    return a\n");
    EXPECT_EQ(treeOf("@Named(\"x\", n = 1)\ndef f():\n  pass\n"), "@Named \"x\" (n = 1)\ndef f():\n    pass\n");
    EXPECT_EQ(treeOf("def total(*items: Int, **named: Int) -> Int:\n    return 1\n"),
              "def total(*items: vesk.collections.ArrayList<Int>, **named: vesk.collections.Map<String, Int>) -> Int:\n"
              "    return 1\n");
    EXPECT_EQ(treeOf("native def f(a: Int)\nnative def g<T>(a: T) -> T\n"),
              "native def f(a: Int) -> Void\nnative def g<T>(a: T) -> T\n");
    EXPECT_EQ(treeOf("def f(\n    a: Map<\n        K, V>,\n  b: Int = g(\n 1)\n) -> Int:\n    return 1\n"),
              "def f(a: Map<K, V>, b: Int = g ( 1 )) -> Int:\n    return 1\n");
    EXPECT_EQ(treeOf("def f<\n  T: A<T>,\n  U\n>(a: T):\n    pass\n"), "def f<T: A<T>, U>(a: T):\n    pass\n");
}

TEST(Declarations, Classes) {
    checkPrintsAsWritten(
        "interface Named extends Shown, a.Sized<Int>:\n    def name() -> String\n"
        "    def shown() -> Bool:\n        return true\n");
    EXPECT_EQ(treeOf("class Box<T> extends a.Base<T> implements Comparable<Box<T>>, Named:\n"
                     "    private value: T\n"
                     "    static made: Int = -1\n"
                     "    @Id\n"
                     "    protected static other: (T)->Void\n"
                     "    def init(value: T):\n"
                     "        self.value = value\n"
                     "    private static def of<U>(x: U) -> Box<U>:\n"
                     "        return Box<U>(x)\n"
                     "    def operator[]=(i: Int, v: T):\n"
                     "        pass\n"
                     "    native def size() -> Int\n"
                     "    interface Inner extends A, B:\n"
                     "        def name()\n"
                     "class Empty:\n"
                     "    pass\n"
                     "native class Nothing:\n"
                     "    pass\n"),
              "class Box<T> extends a.Base<T> implements Comparable<Box<T>>, Named:\n"
              "    private field value: T\n"
              "    static field made: Int = (- 1)\n"
              "    @Id\n"
              "    protected static field other: (T) -> Void\n"
              "    def init(value: T) -> Void:\n"
              "        (= (. self value) value)\n"
              "    private static def of<U>(x: U) -> Box<U>:\n"
              "        return (call Box<U> x)\n"
              "    def operator[]=(i: Int, v: T):\n"
              "        pass\n"
              "    native def size() -> Int\n"
              "    interface Inner extends A, B:\n"
              "        def name() -> Void\n"
              "class Empty:\n"
              "native class Nothing:\n");
}

TEST(Statements, Forms) {
    EXPECT_EQ(treeOf("def f():\n"
                     "    x: Map<K,V> = 1\n"
                     "    y: Int\n"
                     "    var z = 2\n"
                     "    var w: Int = 3\n"
                     "    x = 1\n"
                     "    a[i] //= 2\n"
                     "    o.f **= v\n"
                     "    g(1)\n"
                     "    if a:\n"
                     "        pass\n"
                     "    elif b:\n"
                     "      return\n"
                     "    else:\n"
                     "        while c:\n"
                     "            break\n"
                     "    for i in range(0, 3):\n"
                     "        continue\n"
                     "    return x if y else z\n"),
              "def f():\n"
              "    var x: Map<K, V> = 1\n"
              "    var y: Int\n"
              "    var z = 2\n"
              "    var w: Int = 3\n"
              "    (= x 1)\n"
              "    (//= (index a i) 2)\n"
              "    (**= (. o f) v)\n"
              "    (call g 1)\n"
              "    if a\n"
              "        pass\n"
              "    elif b\n"
              "        return\n"
              "    else\n"
              "        while c\n"
              "            break\n"
              "    for i in (call range 0 3)\n"
              "        continue\n"
              "    return (if y x z)\n");
}

TEST(Statements, BlocksOfAnyDepthAndComments) {
    EXPECT_EQ(treeOf("def f():\n"
                     "# a comment at the left\n"
                     " if a:\n"
                     "\t\t\t# deep\n"
                     " \tif b:\n"
                     " \t /* x\n"
                     "*/\n"
                     " \t  pass\n"
                     "\n"
                     " g()\n"),
              "def f():\n    if a\n        if b\n            pass\n    (call g)\n");
}

TEST(Nodes, MethodsAndFunctionsKnowTheirLines) {
    const NodePtr tree = parseSample(
                             "def f():\n"             // 1
                             "    pass\n"             // 2
                             "\n"                     // 3
                             "    # comment\n"        // 4
                             "@A\n"                   // 5
                             "class C:\n"             // 6
                             "    def m(a: Int):\n"   // 7
                             "        pass\n"         // 8
                             "    static def m(\n"    // 9
                             "        a: T) -> T:\n"  // 10
                             "        pass\n"         // 11
                             "# end\n"                // 12
                             "\n")
                             .tree;  // 13
    const auto function = childAt<FunctionNode>(tree, 0);
    EXPECT_EQ(function->nextCodeLine(), 5);
    EXPECT_EQ(function->getToken()->getLine(), 1);
    const auto cls = childAt<ClassNode>(tree, 1);
    const auto first = childAt<MethodNode>(cls, 0), second = childAt<MethodNode>(cls, 1);
    EXPECT_EQ(first->nextCodeLine(), 9);
    EXPECT_EQ(second->nextCodeLine(), 14);
    EXPECT_EQ(second->getToken()->getLine(), 9);
    EXPECT_EQ(first->overloadIndex(), 1U);
    EXPECT_EQ(second->overloadIndex(), 2U);
    EXPECT_TRUE(second->isStatic());
    EXPECT_EQ(second->nameToken()->getColumn(), 16);
    EXPECT_EQ(first->getBody().size(), 1U);
}

TEST(Nodes, DefaultsKeepTheirTokens) {
    const NodePtr tree = parseSample("def f(a: Int = 1 + g(2), b: Bool = true):\n    pass\n").tree;
    const auto& params = childAt<FunctionNode>(tree, 0)->getParams();
    Str text;
    for (const TokenPtr& token : params[0].defaultValueTokens) text += token->getText() + " ";
    EXPECT_EQ(text, "1 + g ( 2 ) ");
    EXPECT_TRUE(params[1].hasDefault);
    EXPECT_EQ(params[1].defaultValueTokens.size(), 1U);
    EXPECT_EQ(params[1].token->getText(), "b");
}

TEST(Nodes, ScopesAreNested) {
    const NodePtr tree = parseSample(
                             "class C:\n    def m():\n        if a:\n            x: Int = 1\n        for i in e:\n     "
                             "       f((y: Int) => y)\n")
                             .tree;
    const auto cls = childAt<ClassNode>(tree, 0);
    const auto method = childAt<MethodNode>(cls, 0);
    EXPECT_EQ(cls->context()->parent(), tree->context());
    EXPECT_EQ(method->context()->parent(), cls->context());
    const auto branch = childAt<IfNode>(method, 0);
    EXPECT_EQ(branch->context(), method->context());
    EXPECT_FALSE(branch->ownsContext());
    EXPECT_EQ(branch->getThenBranch()->context()->parent(), method->context());
    const auto loop = childAt<ForNode>(method, 1);
    EXPECT_EQ(loop->context()->parent(), method->context());
    EXPECT_EQ(loop->iterable()->context(), method->context());
    const auto lambda = childAt<LambdaNode>(loop->getStatements()[0], 0);
    EXPECT_EQ(lambda->context()->parent(), loop->context());
    EXPECT_EQ(lambda->body()->context(), lambda->context());
}

TEST(Nodes, TypeOperandsHaveTokensOfTheirOwn) {
    const TokenVec tokens = Tokenizer("x is T", SAMPLE_PATH).tokens();
    auto block = std::make_shared<BlockNode>(std::make_shared<Context>(), nullptr);
    TreeGenerator(SAMPLE_PATH, tokens, block->context(), false).parseBlock(block, 0);
    const auto test = std::dynamic_pointer_cast<OperatorExpressionNode>(block->getStatements().at(0));
    ASSERT_TRUE(test);
    test->getTypeOperand()->token()->setText("Int");
    EXPECT_EQ(tokens[2]->getText(), "T");
    EXPECT_EQ(test->getTypeOperand()->token()->getType(), TokenType::Identifier);
    EXPECT_EQ(test->getTypeOperand()->token()->getFilename(), SAMPLE_PATH);
}

TEST(Nodes, AKeptPartOutlivesItsTree) {
    NodePtr tree = parseSample("def f():\n    return a + (b + c)\n").tree;
    const NodePtr statement = tree->getChildren()[0]->getChildren()[0];
    const NodePtr kept = statement->getChildren()[0]->getChildren()[1];
    const std::weak_ptr<AbstractNode> rest = tree->getChildren()[0];
    tree.reset();
    EXPECT_TRUE(rest.expired());
    EXPECT_EQ(printTree(kept), "(+ b c)\n");
}

// A declaration cut out of its file may stand deeper than the lines before it.
TEST(Reparsing, IndentedDeclarationBehindTheHeader) {
    const Str text = "import a.b\n\n    class Inner<T>:\n        def m(x: T) -> T:\n            return x\n";
    const ParsedSample sample = parseSample(text, true);
    EXPECT_EQ(joinLines(sample.errors), "");
    EXPECT_EQ(printTree(sample.tree), "import a.b\nclass Inner<T>:\n    def m(x: T) -> T:\n        return x\n");
    EXPECT_EQ(joinLines(parseSample(text, false).errors),
              "3:5: mixed indentation: this line is deeper than the lines of its block\n");
}

TEST(Reparsing, BlockIntoAMethod) {
    auto scope = std::make_shared<Context>();
    auto method = std::make_shared<MethodNode>("m", "Int", std::vector<FunctionParam>(), StrVec{"T"},
                                               std::vector<std::shared_ptr<AnnotationNode>>(), false, scope, nullptr);
    auto tokenizer = std::make_shared<Tokenizer>("\n\n  if a:\n    return 1\n  return 2\n", SAMPLE_PATH);
    const TokenVec tokens = tokenizer->tokens();
    for (std::size_t i = tokens.size(); i-- > 0;) tokenizer->unToken(tokens[i]);
    TreeGenerator(SAMPLE_PATH, tokenizer, scope, true).parseBlock(method, 0);
    EXPECT_TRUE(method->hasBody());
    ASSERT_EQ(method->getBody().size(), 2U);
    EXPECT_EQ(method->getBody()[1]->token()->getLine(), 5);
    EXPECT_EQ(method->getTypeParams()[0].name, "T");
    EXPECT_THROW(TreeGenerator(SAMPLE_PATH, std::make_shared<Tokenizer>("    a\n  b\n", SAMPLE_PATH), scope, true)
                     .parseBlock(method, 0),
                 CompilerException);
    EXPECT_THROW(TreeGenerator(SAMPLE_PATH, std::make_shared<Tokenizer>("  a\n", SAMPLE_PATH), scope, true)
                     .parseBlock(method, 4),
                 CompilerException);
}

TEST(Reparsing, NoTokensMakeNoBody) {
    auto scope = std::make_shared<Context>();
    auto function = std::make_shared<FunctionNode>("f", "", std::vector<FunctionParam>(), scope, nullptr);
    TreeGenerator(SAMPLE_PATH, std::make_shared<Tokenizer>("\n# nothing\n", SAMPLE_PATH), scope, true)
        .parseBlock(function, 0);
    EXPECT_FALSE(function->hasBody());
    EXPECT_TRUE(function->getBody().empty());
}

TEST(Nodes, SettersReachTheParameters) {
    const NodePtr tree = parseSample("def f(a: T, b: U) -> T:\n    pass\n").tree;
    const auto function = childAt<FunctionNode>(tree, 0);
    function->setParamTypes({"Int", "String"});
    function->setReturnType("Int");
    EXPECT_EQ(function->getParams()[1].type, "String");
    EXPECT_EQ(function->getReturnType(), "Int");
    EXPECT_EQ(function->context()->getReturnType(), "Int");
}

}  // namespace
}  // namespace vesk::compiler
