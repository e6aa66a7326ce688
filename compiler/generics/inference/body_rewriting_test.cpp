// Rewriting bodies and inferring return types.
#include "generics/inference/body_rewriting.h"

#include <gtest/gtest.h>

#include "generics/sample_program_test.h"

namespace vesk::compiler {
namespace {

// Every type text of a tree, in the order of the walk.
void collectTexts(const NodePtr& root, StrVec& texts) {
    if (!root) return;
    if (const auto value = std::dynamic_pointer_cast<ValueExpressionNode>(root)) texts.push_back(value->value());
    if (const auto call = std::dynamic_pointer_cast<CallableExpressionNode>(root)) texts.push_back(call->name());
    if (const auto type = std::dynamic_pointer_cast<TypeNode>(root)) texts.push_back(type->typeText());
    if (const auto member = std::dynamic_pointer_cast<MemberExpressionNode>(root)) texts.push_back(member->name());
    if (const auto local = std::dynamic_pointer_cast<DeclarationNode>(root)) texts.push_back(local->declaredType());
    if (const auto lambda = std::dynamic_pointer_cast<LambdaNode>(root)) texts.push_back(lambda->params().at(0).type);
    if (const auto operation = std::dynamic_pointer_cast<OperatorExpressionNode>(root)) {
        if (operation->getTypeOperand()) collectTexts(operation->getTypeOperand(), texts);
    }
    for (const NodePtr& child : root->getChildren()) collectTexts(child, texts);
    if (const auto condition = std::dynamic_pointer_cast<IfNode>(root)) collectTexts(condition->getElseBranch(), texts);
}

const Str HEADER = "class Box<T>:\n    value: T\n    static def of<U>(x: U) -> Box<U>:\n        return Box<U>()\n\n";

// The texts of the body `line` with T = Int and U = String.
StrVec rewritten(const Str& line) {
    SampleProgram program;
    program.load("main.vk", HEADER + "def f<T, U>(x: T, o: Object):\n    " + line + "\n");
    const auto node = program.function("main.vk", "f");
    applyGenericBindingsToNode(node, {"T", "U"}, {"Int", "String"});
    StrVec texts;
    for (const NodePtr& statement : node->getBody()) collectTexts(statement, texts);
    EXPECT_EQ(program.messages(), StrVec{}) << line;
    return texts;
}

TEST(BodyRewriting, ReachesEveryPlace) {
    const std::vector<std::pair<Str, StrVec>> cases = {
        {"y: T = x", {"Int", "x"}},
        {"y: Box<T>[] = other", {"Box<Int>[]", "other"}},
        {"y: T? = null", {"Int?"}},
        {"pick<T>(x)", {"pick<Int>", "x"}},
        {"pick<Box<T>, U[]>(x)", {"pick<Box<Int>, String[]>", "x"}},
        {"Box<T>(x)", {"Box<Int>", "x"}},
        {"T[](10)", {"Int[]"}},
        {"y: Object = o as T", {"Object", "__vesk_cast__Int", "o"}},
        {"y: Object = o as T[]", {"Object", "__vesk_cast__Int[]", "o"}},
        {"y: Bool = o is U", {"Bool", "String", "o"}},
        {"y: Bool = o isnot Box<T>", {"Bool", "Box<Int>", "o"}},
        {"y: String = type(T)", {"String", "type", "Int"}},
        {"y: String = type(Box<U>)", {"String", "type", "Box<String>"}},
        {"y: (Int) -> Int = (z: T) => z", {"(Int) -> Int", "Int", "z"}},
        {"return x", {"x"}},
    };
    for (const auto& [line, texts] : cases) EXPECT_EQ(rewritten(line), texts) << line;
}

TEST(BodyRewriting, KeepsQuestionMarksInsideClauses) {
    const std::vector<std::pair<Str, StrVec>> cases = {
        {"y: Box<T?>? = null", {"Box<Int?>?"}},
        {"y: Box<Box<Box<T?>?>?> = other", {"Box<Box<Box<Int?>?>?>", "other"}},
        {"y: Box<T>?[] = other", {"Box<Int>?[]", "other"}},
        {"y: Box<((T?) -> U?)?> = other", {"Box<((Int?) -> String?)?>", "other"}},
        {"y: Object = o as Box<T?>", {"Object", "__vesk_cast__Box<Int?>", "o"}},
        {"y: Bool = o is Box<Box<T>?>", {"Bool", "Box<Box<Int>?>", "o"}},
        {"y: String = type(Box<T?[]?>)", {"String", "type", "Box<Int?[]?>"}},
        {"pick<Box<T?>, U?>(x)", {"pick<Box<Int?>, String?>", "x"}},
        {"Box<T?>?[](10)", {"Box<Int?>?[]"}},
        {"y: Int = Box<T?>.count", {"Int", "count", "__vesk_typeexpr__Box<Int?>"}},
    };
    for (const auto& [line, texts] : cases) EXPECT_EQ(rewritten(line), texts) << line;
}

TEST(BodyRewriting, NamesBehindDotsAndOfNamedArgumentsAreNoTypeParameters) {
    const std::vector<std::pair<Str, StrVec>> cases = {
        {"o.T(4)", {"T", "o"}},
        {"y: Int = o.T", {"Int", "T", "o"}},
        {"o.T.U.T(4)", {"T", "U", "T", "o"}},
        {"o.T<U>(4)", {"T<String>", "o"}},
        {"o.type(T)", {"type", "o", "Int"}},
        {"Box.T()", {"T", "Box"}},
        {"y: Box.T = Box.T()", {"Box.T", "T", "Box"}},
        {"y: Bool = o is Box.T", {"Bool", "Box.T", "o"}},
        {"y: String = type(Box.T<T?>)", {"String", "type", "Box.T<Int?>"}},
        {"pick(T = x)", {"pick", "x"}},
        {"pick(T = T(x))", {"pick", "Int", "x"}},
        // In front of a dot they are.
        {"T.make(4)", {"make", "Int"}},
        {"y: Int = T.count", {"Int", "count", "Int"}},
        {"y: Int = T.Node<U?>.count", {"Int", "count", "__vesk_typeexpr__Int.Node<String?>"}},
        {"y: Int = Box.T<T>.count", {"Int", "count", "__vesk_typeexpr__Box.T<Int>"}},
        {"T.gen<Box<T?>>(4)", {"gen<Box<Int?>>", "Int"}},
    };
    for (const auto& [line, texts] : cases) EXPECT_EQ(rewritten(line), texts) << line;
}

TEST(BodyRewriting, AnArgumentSpelledLikeAParameterIsReplacedOnce) {
    SampleProgram program;
    program.load("main.vk", HEADER +
                                "def f<Int, T>(a: Int, b: T) -> T:\n    if true:\n        y: T = b\n        "
                                "z: Box<Int?> = Box<Int?>()\n    return b\n");
    const auto node = program.function("main.vk", "f");
    node->setParamTypes({"String", "Int"});
    node->setReturnType("Int");
    applyGenericBindingsToBody(node, {"Int", "T"}, {"String", "Int"});
    EXPECT_EQ(node->getParams()[1].type, "Int");
    EXPECT_EQ(node->returnType(), "Int");
    StrVec texts;
    for (const NodePtr& statement : node->getBody()) collectTexts(statement, texts);
    EXPECT_EQ(texts, (StrVec{"Int", "b", "Box<String?>", "Box<String?>", "b"}));
    const auto branch = std::dynamic_pointer_cast<IfNode>(node->getBody()[0])->getThenBranch();
    EXPECT_EQ(branch->getContext()->getReturnType(), "Int");
}

TEST(BodyRewriting, VisitsBranches) {
    EXPECT_EQ(rewritten("if o is T:\n        a<T>()\n    elif o is U:\n        b<U>()\n    else:\n        c<T>()"),
              (StrVec{"Int", "o", "a<Int>", "String", "o", "b<String>", "c<Int>"}));
    EXPECT_EQ(rewritten("while o is T:\n        a<T>()"), (StrVec{"Int", "o", "a<Int>"}));
}

TEST(BodyRewriting, MarkersOfTheParser) {
    const auto scope = std::make_shared<Context>();
    const auto text = std::make_shared<ValueExpressionNode>("__vesk_typeexpr__List<T>", scope, nullptr);
    applyGenericBindingsToNode(text, {"T"}, {"Int"});
    EXPECT_EQ(text->value(), "__vesk_typeexpr__List<Int>");
    const auto owner = std::make_shared<ValueExpressionNode>("T", scope, nullptr);
    applyGenericBindingsToNode(owner, {"T"}, {"Int"});
    EXPECT_EQ(owner->value(), "Int");
    const auto cast = std::make_shared<CallableExpressionNode>(nullptr, "__vesk_cast__T", NodeVec{}, scope, nullptr);
    applyGenericBindingsToNode(cast, {"T"}, {"Int"});
    EXPECT_EQ(cast->name(), "__vesk_cast__Int");
    const auto member = std::make_shared<MemberExpressionNode>(owner, "List<T>", scope, nullptr);
    applyGenericBindingsToNode(member, {"T"}, {"Int"});
    EXPECT_EQ(member->name(), "List<Int>");
    for (const Str callee : {"type", "Application.type", "vesk.Application.type", "other"}) {
        const auto token = std::make_shared<Token>(nullptr, TokenType::Identifier, "T", 1, 1);
        const auto literal = std::make_shared<Token>(nullptr, TokenType::String, "T", 1, 1);
        const NodeVec arguments = {std::make_shared<TypeNode>(scope, token),
                                   std::make_shared<StringLiteralNode>("T", scope, literal)};
        const auto call = std::make_shared<CallableExpressionNode>(nullptr, callee, arguments, scope, nullptr);
        applyGenericBindingsToNode(call, {"T"}, {"Int"});
        EXPECT_EQ(token->getText(), callee == "other" ? "T" : "Int") << callee;
        EXPECT_EQ(literal->getText(), "T");
    }
    applyGenericBindingsToNode(nullptr, {"T"}, {"Int"});
}

TEST(BodyRewriting, ScopesAndSignatures) {
    SampleProgram program;
    program.load("main.vk", HEADER + "def f<T>(x: T, y: Box<T>) -> T:\n    return x\n");
    const auto node = program.function("main.vk", "f");
    applyGenericBindingsToNode(node, {"T"}, {"Int"});
    EXPECT_EQ(node->getContext()->getReturnType(), "Int");
    EXPECT_EQ(node->returnType(), "Int");
    EXPECT_EQ(node->getParams()[0].type, "Int");
    EXPECT_EQ(node->getParams()[1].type, "Box<Int>");
    EXPECT_EQ(inferReturnTypeFromNodes(node->getBody(), node->getContext()), "Int");
}

TEST(BodyRewriting, DefaultsGetTokensOfTheirOwn) {
    SampleProgram program;
    program.load("main.vk",
                 HEADER + "def f<T>(x: Int = 1, y: Box<T> = Box<T>(), z: T? = null) -> Int:\n    return x\n");
    const auto node = program.function("main.vk", "f");
    const std::vector<FunctionParam> declared = node->getParams();
    applyGenericBindingsToNode(node, {"T"}, {"Int"});
    const std::vector<FunctionParam>& rewritten = node->getParams();
    EXPECT_EQ(declared[1].defaultValueTokens[0]->getText(), "Box<T>");
    EXPECT_EQ(rewritten[1].defaultValueTokens[0]->getText(), "Box<Int>");
    EXPECT_EQ(rewritten[1].type, "Box<Int>");
    EXPECT_EQ(rewritten[0].defaultValueTokens, declared[0].defaultValueTokens);
}

TEST(BodyRewriting, DefaultsKnowDotsAndNamedArguments) {
    const auto defaults = [](const StrVec& args) {
        SampleProgram program;
        program.load("main.vk",
                     HEADER +
                         "def f<T, U>(o: Box<T>, a: Int = o.T(T = 4).U, b: Int = T.make(1), c: Object = o as T?, "
                         "d: Object = T[](2), e: (Int) -> Int = (T: U) => 1, g: Int = o.T<T?>(2)) -> Int:\n"
                         "    return a\n");
        const auto node = program.function("main.vk", "f");
        applyGenericBindingsToNode(node, {"T", "U"}, args);
        StrVec texts;
        for (const FunctionParam& param : node->getParams()) {
            Str text;
            for (const TokenPtr& token : param.defaultValueTokens) text += token->getText();
            if (!text.empty()) texts.push_back(text);
        }
        return texts;
    };
    EXPECT_EQ(defaults({"Int", "String"}),
              (StrVec{"o.T(T=4).U", "Int.make(1)", "oasInt?", "Int[](2)", "(T:String)=>1", "o.T<Int?>(2)"}));
    EXPECT_EQ(defaults({"String?", "Int"}),
              (StrVec{"o.T(T=4).U", "String.make(1)", "oasString?", "String?[](2)", "(T:Int)=>1", "o.T<String?>(2)"}));
    const StrVec withFunction = defaults({"(Int) -> Int", "Int"});
    EXPECT_EQ(withFunction.at(2), "oas((Int) -> Int)?");
    EXPECT_EQ(withFunction.at(3), "((Int) -> Int)[](2)");
}

TEST(BodyRewriting, AutoVariablesTakeTheirInitializersType) {
    SampleProgram program;
    program.load("main.vk", HEADER + "def f<T>(x: T):\n    var y = x\n    return y\n");
    const auto node = program.function("main.vk", "f");
    node->setParamTypes({"Int"});
    applyGenericBindingsToNode(node, {"T"}, {"Int"});
    invalidateTypeInferenceCaches();
    EXPECT_EQ(std::dynamic_pointer_cast<DeclarationNode>(node->getBody()[0])->declaredType(), AUTO_TYPED_VAR);
    EXPECT_EQ(inferReturnTypeFromNodes(node->getBody(), node->getContext()), "Int");
}

TEST(BodyRewriting, AnAutoVariableOfNothingGetsNoType) {
    SampleProgram program;
    program.load("main.vk",
                 "def nothing() -> Void:\n    pass\n\ndef f<T>(x: T):\n    var y = nothing()\n    return y\n");
    const auto node = program.function("main.vk", "f");
    node->setParamTypes({"Int"});
    applyGenericBindingsToNode(node, {"T"}, {"Int"});
    invalidateTypeInferenceCaches();
    EXPECT_EQ(std::dynamic_pointer_cast<DeclarationNode>(node->getBody()[0])->declaredType(), AUTO_TYPED_VAR);
    EXPECT_NE(inferExpressionType(std::dynamic_pointer_cast<ReturnNode>(node->getBody()[1])->getExpression()), "Int");
    EXPECT_THROW(inferReturnTypeFromNodes(node->getBody(), node->getContext()), CompilerException);
}

TEST(BodyRewriting, LongChainsNeedNoStack) {
    SampleProgram program;
    Str body = "def f<T>(x: Int) -> Int:\n    if x == 0:\n        return a<T>(0)\n";
    for (int i = 1; i < 20000; i++)
        body += "    elif x == " + std::to_string(i) + ":\n        return a<T>(" + std::to_string(i) + ")\n";
    Str sum = "    return 1";
    for (int i = 0; i < 20000; i++) sum += " + 1";
    program.load("main.vk", "def a<T>(x: Int) -> Int:\n    return x\n\n" + body + sum + "\n");
    const auto node = program.function("main.vk", "f");
    applyGenericBindingsToNode(node, {"T"}, {"Int"});
    auto branch = std::dynamic_pointer_cast<IfNode>(node->getBody().at(0));
    while (const auto next = std::dynamic_pointer_cast<IfNode>(branch->getElseBranch())) branch = next;
    StrVec texts;
    collectTexts(branch->getThenBranch(), texts);
    EXPECT_EQ(texts, StrVec{"a<Int>"});
}

TEST(ReturnTypes, Unify) {
    const auto scope = std::make_shared<Context>();
    EXPECT_EQ(unifyReturnType(scope, "", "Int", nullptr), "Int");
    EXPECT_EQ(unifyReturnType(scope, "Int", "", nullptr), "Int");
    EXPECT_EQ(unifyReturnType(nullptr, "Int", "Int", nullptr), "Int");
    EXPECT_EQ(unifyReturnType(scope, "Int", "Double", nullptr), "Double");
    EXPECT_EQ(unifyReturnType(scope, "Double", "Int", nullptr), "Double");
    EXPECT_EQ(messageOf([&] { unifyReturnType(scope, "Int", "String", nullptr); }),
              "Inconsistent return types in generic function");
    EXPECT_EQ(messageOf([&] { unifyReturnType(nullptr, "Int", "Double", nullptr); }),
              "Inconsistent return types in generic function");
}

TEST(ReturnTypes, ComeFromReturnStatements) {
    const std::vector<std::pair<Str, Str>> cases = {
        {"pass", ""},
        {"return 1", "Int"},
        {"return", "Void"},
        {"return 1\n    return 1.5", "Double"},
        {"return 1.5\n    return 1", "Double"},
        {"if c:\n        return 1\n    elif c:\n        return 2L\n    else:\n        return 1.5", "Double"},
        {"while c:\n        return 1L\n    return 1", "Long"},
        {"for i in range(0, 3):\n        return i", "Int"},
        {"var f = (x: Int) => \"a\"\n    return 1", "Int"},
        {"if c:\n        if c:\n            return \"a\"\n    return \"b\"", "String"},
    };
    for (const auto& [body, type] : cases) {
        SampleProgram program;
        program.load("main.vk", "def f(c: Bool):\n    " + body + "\n");
        const auto node = program.function("main.vk", "f");
        SCOPED_TRACE(body);
        EXPECT_NO_THROW(EXPECT_EQ(inferReturnTypeFromNodes(node->getBody(), node->getContext()), type));
    }
    EXPECT_EQ(inferReturnTypeFromNodes({}, nullptr), "");
}

TEST(ReturnTypes, FailAtTheirStatement) {
    struct Case {
        Str body, message;
        int line;
    };
    const std::vector<Case> cases = {
        {"return 1\n    return \"a\"", "Inconsistent return types in generic function", 3},
        {"return\n    return 1", "Inconsistent return types in generic function", 3},
        {"return 1\n    if c:\n        return \"a\"", "Inconsistent return types in generic function", 4},
        {"return unheard", "Cannot infer return type for generic function", 2},
    };
    for (const Case& c : cases) {
        SampleProgram program;
        program.load("main.vk", "def f(c: Bool):\n    " + c.body + "\n");
        const auto node = program.function("main.vk", "f");
        const CompilerException error = errorOf([&] { inferReturnTypeFromNodes(node->getBody(), node->getContext()); });
        EXPECT_STREQ(error.what(), c.message.c_str());
        ASSERT_NE(error.getToken(), nullptr) << c.body;
        EXPECT_EQ(error.getToken()->getLine(), c.line) << c.body;
    }
    const auto block = std::make_shared<BlockNode>(nullptr, nullptr);
    const NodeVec nodes = {std::make_shared<ReturnNode>(block, nullptr, nullptr)};
    EXPECT_EQ(messageOf([&] { inferReturnTypeFromNodes(nodes, nullptr); }), "Invalid return expression");
}

}  // namespace
}  // namespace vesk::compiler
