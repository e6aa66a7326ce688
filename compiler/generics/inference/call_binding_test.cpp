// Arguments meet parameters.
#include "generics/inference/call_binding.h"

#include <gtest/gtest.h>

#include "generics/sample_program_test.h"

namespace vesk::compiler {
namespace {

const TokenVec NO_DEFAULT = {};
const TokenVec A_DEFAULT = {std::make_shared<Token>(nullptr, TokenType::Integer, "1", 1, 1)};

TEST(CallBinding, TypesArguments) {
    SampleProgram program;
    program.load("main.vk",
                 "def nothing() -> Void:\n    pass\n\ndef use():\n    f(1, x = 2)\n    f()\n    f(nothing())\n    "
                 "f(\"a\", y = 1.5)\n    f(unheard)\n");
    const auto arguments = [&](std::size_t statement) {
        return collectGenericCallArguments(program.call("main.vk", "use", statement)->getArguments(), nullptr);
    };
    const GenericCallArguments call = arguments(0);
    EXPECT_EQ(call.argKeys, (StrVec{"#:Int", "x=Int"}));
    EXPECT_EQ(call.argNames, (StrVec{"", "x"}));
    EXPECT_EQ(call.argTypes, (StrVec{"Int", "Int"}));
    EXPECT_EQ(call.argInfos.size(), 2u);
    EXPECT_TRUE(arguments(1).argKeys.empty());
    EXPECT_EQ(messageOf([&] { arguments(2); }), "argument has unknown type");
    EXPECT_EQ(arguments(3).argKeys, (StrVec{"#:String", "y=Double"}));
    EXPECT_EQ(messageOf([&] { arguments(4); }), "argument has unknown type");
    const NodeVec statement = {std::make_shared<ReturnNode>(nullptr, nullptr, nullptr)};
    EXPECT_EQ(messageOf([&] { collectGenericCallArguments(statement, nullptr); }), "Invalid function argument");
}

TEST(CallBinding, BindsLikeEveryCall) {
    struct Case {
        StrVec argNames, paramNames;
        std::vector<TokenVec> defaults;
        int variadic, namedVariadic;
        bool binds;
    };
    const std::vector<Case> cases = {
        {{}, {}, {}, -1, -1, true},
        {{"", ""}, {"a", "b"}, {{}, {}}, -1, -1, true},
        {{""}, {"a", "b"}, {{}, {}}, -1, -1, false},
        {{""}, {"a", "b"}, {NO_DEFAULT, A_DEFAULT}, -1, -1, true},
        {{"b"}, {"a", "b"}, {A_DEFAULT, NO_DEFAULT}, -1, -1, true},
        {{"c"}, {"a"}, {A_DEFAULT}, -1, -1, false},
        {{"", "a"}, {"a"}, {{}}, -1, -1, false},
        {{"", ""}, {"a"}, {{}}, -1, -1, false},
        {{"", "", ""}, {"a", "rest"}, {{}, {}}, 1, -1, true},
        {{""}, {"a", "rest"}, {{}, {}}, 1, -1, true},
        {{"", "x"}, {"a", "named"}, {{}, {}}, -1, 1, true},
        {{"x"}, {"a", "named"}, {{}, {}}, -1, 1, false},
        {{"", "", "k"}, {"rest", "named"}, {{}, {}}, 0, 1, true},
    };
    for (std::size_t i = 0; i < cases.size(); i++) {
        const Case& c = cases[i];
        CallArgumentBinding binding;
        EXPECT_EQ(bindGenericCall(c.argNames, c.paramNames, c.paramNames.size(), c.defaults, c.variadic >= 0,
                                  c.variadic, c.namedVariadic >= 0, c.namedVariadic, binding),
                  c.binds)
            << i;
    }
}

TEST(CallBinding, GivesActualTypes) {
    struct Case {
        StrVec argTypes, argNames, paramNames;
        std::vector<TokenVec> defaults;
        int variadic, namedVariadic;
        StrVec types;
    };
    const std::vector<Case> cases = {
        {{"Int", "String"}, {"", ""}, {"a", "b"}, {{}, {}}, -1, -1, {"Int", "String"}},
        {{"Int", "String"}, {"b", "a"}, {"a", "b"}, {{}, {}}, -1, -1, {"String", "Int"}},
        {{"Int"}, {""}, {"a", "b"}, {NO_DEFAULT, A_DEFAULT}, -1, -1, {"Int", ""}},
        {{}, {}, {"rest"}, {{}}, 0, -1, {"vesk.collections.ArrayList<Object>"}},
        {{"Int", "Int"}, {"", ""}, {"rest"}, {{}}, 0, -1, {"vesk.collections.ArrayList<Int>"}},
        {{"Int", "Int", "String"},
         {"", "x", "y"},
         {"a", "named"},
         {{}, {}},
         -1,
         1,
         {"Int", "vesk.collections.Map<String,Object>"}},
        {{"Int", "Int"}, {"x", "y"}, {"named"}, {{}}, -1, 0, {"vesk.collections.Map<String,Int>"}},
        {{}, {}, {"named"}, {{}}, -1, 0, {"vesk.collections.Map<String,Object>"}},
    };
    for (std::size_t i = 0; i < cases.size(); i++) {
        const Case& c = cases[i];
        EXPECT_EQ(buildGenericCallParamTypesFromRawTypes(c.argTypes, c.argNames, c.paramNames, c.paramNames.size(),
                                                         c.defaults, c.variadic >= 0, c.variadic, c.namedVariadic >= 0,
                                                         c.namedVariadic, nullptr),
                  c.types)
            << i;
    }
    const auto build = [](const StrVec& types, const StrVec& names, const StrVec& params, int variadic) {
        return messageOf([&] {
            buildGenericCallParamTypesFromRawTypes(types, names, params, params.size(),
                                                   std::vector<TokenVec>(params.size()), variadic >= 0, variadic, false,
                                                   -1, nullptr);
        });
    };
    EXPECT_EQ(build({"Int"}, {}, {"a"}, -1), "Invalid generic call arguments");
    EXPECT_EQ(build({}, {}, {"a"}, -1), "Arguments do not match generic callable");
    EXPECT_EQ(build({"Int", "Long"}, {"", ""}, {"rest"}, 0),
              "Variadic generic call expects homogeneous positional argument types");
}

}  // namespace
}  // namespace vesk::compiler
