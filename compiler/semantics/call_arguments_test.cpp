// Binding of arguments to parameters, and function type texts.
#include "host/ast_nodes.h"
#include "host/inference_services.h"
#include "semantics/model_session_test.h"

namespace vesk::compiler {

namespace {

TEST(CallArgumentsTest, Binding) {
    struct Case {
        StrVec args, params;
        int variadic, namedVariadic;
        bool binds;
        std::vector<int> paramToArg, argToParam, variadicArgs, namedArgs;
    };
    for (const Case& each : std::vector<Case>{
             {{"", ""}, {"a", "b"}, -1, -1, true, {0, 1}, {0, 1}, {}, {}},
             {{"", "b"}, {"a", "b"}, -1, -1, true, {0, 1}, {0, 1}, {}, {}},
             {{"b", "a"}, {"a", "b"}, -1, -1, true, {1, 0}, {1, 0}, {}, {}},
             {{""}, {"a", "b"}, -1, -1, true, {0, -1}, {0}, {}, {}},
             {{}, {"a"}, -1, -1, true, {-1}, {}, {}, {}},
             {{"", ""}, {"a"}, -1, -1, false, {}, {}, {}, {}},
             {{"c"}, {"a"}, -1, -1, false, {}, {}, {}, {}},
             {{"", "a"}, {"a"}, -1, -1, false, {}, {}, {}, {}},
             {{"a", "a"}, {"a"}, -1, -1, false, {}, {}, {}, {}},
             {{"a", ""}, {"a", "b"}, -1, -1, false, {}, {}, {}, {}},
             {{"", "", ""}, {"a", "items"}, 1, -1, true, {0, -1}, {0, 1, 1}, {1, 2}, {}},
             {{"", "", "b"}, {"items", "b"}, 0, -1, true, {-1, 2}, {0, 0, 1}, {0, 1}, {}},
             {{"items"}, {"items"}, 0, -1, false, {}, {}, {}, {}},
             {{"", "x", "y"}, {"a", "named"}, -1, 1, true, {0, -1}, {0, 1, 1}, {}, {1, 2}},
             {{"named"}, {"named"}, -1, 0, true, {-1}, {0}, {}, {0}},
             {{"x", "x"}, {"named"}, -1, 0, false, {}, {}, {}, {}},
             {{""}, {"named"}, -1, 0, false, {}, {}, {}, {}},
             {{"", "x"}, {"items", "named"}, 0, 1, true, {-1, -1}, {0, 1}, {0}, {1}},
             {{}, {"items", "named"}, 0, 1, true, {-1, -1}, {}, {}, {}},
         }) {
        std::vector<CallArgInfo> args;
        for (const Str& name : each.args) args.push_back({nullptr, name});
        CallArgumentBinding out;
        bool binds = bindCallArgInfos(args, each.params, each.params.size(), each.variadic >= 0, each.variadic,
                                      each.namedVariadic >= 0, each.namedVariadic, out);
        Str label = ::testing::PrintToString(each.args) + " to " + ::testing::PrintToString(each.params);
        ASSERT_EQ(binds, each.binds) << label;
        EXPECT_EQ(collectCallArgNames(args), each.args);
        if (!binds) continue;
        EXPECT_EQ(out.paramToArg, each.paramToArg) << label;
        EXPECT_EQ(out.argToParam, each.argToParam) << label;
        EXPECT_EQ(out.variadicArgs, each.variadicArgs) << label;
        EXPECT_EQ(out.namedVariadicArgs, each.namedArgs) << label;
    }
}

TEST(CallArgumentsTest, NamedArgumentsAreTakenApart) {
    auto token = std::make_shared<Token>(nullptr, TokenType::Identifier, "x", 1, 1);
    NodePtr value = std::make_shared<LiteralNode>(LiteralKind::Integer, "1", nullptr, token);
    NodePtr named = std::make_shared<NamedArgumentNode>("x", value, nullptr, token);
    auto infos = collectCallArgInfos({value, named});
    ASSERT_EQ(infos.size(), 2u);
    EXPECT_EQ(infos[0].node, value);
    EXPECT_EQ(infos[0].name, "");
    EXPECT_EQ(infos[1].node, value);
    EXPECT_EQ(infos[1].name, "x");
}

TEST(FunctionTypeTextTest, ParseAndFormat) {
    struct Case {
        const char* text;
        bool parses;
        StrVec params;
        const char *result, *formatted;
    };
    for (const Case& each : std::vector<Case>{
             {"(A, B) -> C", true, {"A", "B"}, "C", "(A, B) -> C"},
             {" ( A,B )->C ", true, {"A", "B"}, "C", "(A, B) -> C"},
             {"() -> Void", true, {}, "Void", "() -> Void"},
             {"(Map<A, B>, (C) -> D) -> E[]", true, {"Map<A, B>", "(C) -> D"}, "E[]", "(Map<A, B>, (C) -> D) -> E[]"},
             {"(A) -> (B) -> C", true, {"A"}, "(B) -> C", "(A) -> (B) -> C"},
             {"(F<(A) -> B>) -> C", true, {"F<(A) -> B>"}, "C", "(F<(A) -> B>) -> C"},
             {"((A) -> B)[]", false, {}, "", ""},
             {"((A) -> B)?", false, {}, "", ""},
             {"(A)", false, {}, "", ""},
             {"(A) ->", false, {}, "", ""},
             {"(A, ) -> B", false, {}, "", ""},
             {"(A -> B", false, {}, "", ""},
             {"F<(A) -> B>", false, {}, "", ""},
             {"A", false, {}, "", ""},
             {"", false, {}, "", ""},
         }) {
        FunctionTypeSignature signature;
        ASSERT_EQ(parseFunctionTypeName(each.text, signature), each.parses) << each.text;
        if (!each.parses) continue;
        EXPECT_EQ(signature.paramTypes, each.params) << each.text;
        EXPECT_EQ(signature.returnType, each.result) << each.text;
        EXPECT_EQ(formatFunctionTypeName(signature), each.formatted) << each.text;
    }
}

}  // namespace

}  // namespace vesk::compiler
