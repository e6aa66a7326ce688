// What grows, the exact bound of growth, and whose requests are whose.
#include "semantics/request_chain.h"

#include "semantics/model_session_test.h"

namespace vesk::compiler {

namespace {

struct RequestChainTest : testing::Test {
    ModelSession session;
    ContextPtr scope =
        session.load("/app/f.vk", "class L<T>:\n    pass\nclass M<T>:\n    pass\nclass P<A, B>:\n    pass\n");

    bool holds(const StrVec& larger, const StrVec& smaller) { return properlyHolds(types(larger), types(smaller)); }
    std::vector<const Type*> types(const StrVec& texts) {
        std::vector<const Type*> all;
        for (const Str& text : texts) all.push_back(session.type(text, scope));
        return all;
    }
    static TokenPtr place(int line) {
        auto token = std::make_shared<Token>(nullptr, TokenType::Identifier, "f", line, 1);
        token->setFilename("/app/f.vk");
        return token;
    }
    RequestedSpecialization request(const Str& type, int line, const Str& declaration = "f") {
        return {declaration + "<" + type + ">", declaration, {session.resolve(type, scope)}, place(line)};
    }
};

TEST_F(RequestChainTest, TypeArgumentsHoldOthersWholeOrWithMoreInBetween) {
    const struct {
        StrVec larger, smaller;
        bool expected;
    } cases[] = {
        {{"L<Int>"}, {"Int"}, true},
        {{"Int"}, {"Int"}, false},
        {{"Int"}, {"L<Int>"}, false},
        {{"L<String>"}, {"Int"}, false},
        {{"P<L<Int>, String>"}, {"P<Int, String>"}, true},
        {{"P<M<L<Int>>, String>"}, {"P<L<Int>, String>"}, true},
        {{"P<M<Int>, String>"}, {"P<L<Int>, String>"}, false},
        {{"String", "Int"}, {"Int", "String"}, false},
        {{"String", "L<Int>"}, {"Int", "String"}, true},
        {{"Int", "P<String, Int>"}, {"String", "Int"}, true},
        {{"(Int) -> L<Int>"}, {"(Int) -> Int"}, true},
        {{"Int[][]"}, {"Int[]"}, true},
        {{"L<Int>?"}, {"L<Int>"}, true},
        {{"L<Int>"}, {}, false},
    };
    for (const auto& each : cases)
        EXPECT_EQ(holds(each.larger, each.smaller), each.expected) << each.larger[0] << " and " << each.larger.size();
}

TEST_F(RequestChainTest, OneMoreThanTenThousandThatGrowIsTheError) {
    const ScopedSpecialization first(request("Int", 1), scope);
    const Str names[] = {"L", "M"};
    std::size_t made = 0;
    const auto typeNumber = [&](std::size_t number) {
        Str type = "Int";
        for (; number > 1; number /= 2) type = names[number % 2] + "<" + type + ">";
        return type;
    };
    for (std::size_t number = 2; made < MAX_GROWING_SPECIALIZATIONS; number++, made++)
        ScopedSpecialization(request(typeNumber(number), 2), scope);
    // Those that are known already, and what does not grow, are no more.
    ScopedSpecialization(request(typeNumber(2), 2), scope);
    ScopedSpecialization(request("String", 2), scope);
    ScopedSpecialization(request("L<Int>", 2, "g"), scope);
    try {
        ScopedSpecialization(request(typeNumber(made + 2), 3), scope);
        FAIL();
    } catch (const CompilerException& error) {
        EXPECT_STREQ(error.what(), "Generic specialization grows without end");
        EXPECT_EQ(error.getToken()->getLine(), 1);
        ASSERT_EQ(error.getNotes().size(), 3u);
        EXPECT_EQ(error.getNotes()[0].message, "f<" + typeNumber(made + 2) + "> asked for by f<Int>");
        EXPECT_EQ(error.getNotes()[0].token->getLine(), 3);
        EXPECT_EQ(error.getNotes()[2].message, "in specialization of f<Int> requested here");
    }
}

TEST_F(RequestChainTest, WhatADriverRegistersStandsInTheChainOfItsRequest) {
    const ScopedSpecialization outer(request("Int", 1), scope);
    FunctionInstance* requester = nullptr;
    {
        const ScopedRequester call(ScopedRequester::current(), place(2));
        const ScopedSpecialization inner(request("String", 2, "g"), scope);
        FunctionInstance made;
        ASSERT_TRUE(takeRequestUnderWay(made));
        requester = made.requester;
        EXPECT_EQ(made.requestDepth, 2);
        EXPECT_EQ(made.requestToken->getLine(), 2);
    }
    ASSERT_TRUE(requester);
    EXPECT_EQ(requester->displayName, "f<Int>");
    EXPECT_EQ(requester->requestToken->getLine(), 1);
    EXPECT_EQ(requester->requester, nullptr);
    FunctionInstance made;
    ASSERT_TRUE(takeRequestUnderWay(made));
    EXPECT_EQ(made.requester, nullptr);
}

TEST_F(RequestChainTest, LengthsOfTypesAreThoseOfTheirWholeTexts) {
    Str type = "Int";
    EXPECT_EQ(wholeTypeTextLength("P<L<Int>, String>", scope), 17u);
    EXPECT_EQ(wholeTypeTextLength("(Int, L<Int>) -> Int[]", scope), 22u);
    for (int i = 0; i < 60; i++) type = session.resolve("P<" + type + ", " + type + ">", scope);
    EXPECT_EQ(wholeTypeTextLength(type, scope), Type::MAX_WHOLE_LENGTH);
}

}  // namespace

}  // namespace vesk::compiler
