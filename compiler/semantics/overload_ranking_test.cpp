// Points and specificity of overloads.
#include "semantics/overload_ranking.h"

#include "semantics/model_session_test.h"

namespace vesk::compiler {

namespace {

struct World {
    ModelSession session;
    ContextPtr scope = session.load(
        "/app/main.vk", "class Animal:\n    pass\n\nclass Dog extends Animal:\n    pass\n\nclass Box<T>:\n    pass\n");

    FunctionInstance function(const StrVec& types, int variadic = -1, int namedVariadic = -1) {
        FunctionInstance made;
        for (const Str& type : types) made.parameterTypes.push_back(session.type(type, scope));
        made.isVariadic = variadic >= 0;
        made.variadicIndex = variadic;
        made.isNamedVariadic = namedVariadic >= 0;
        made.namedVariadicIndex = namedVariadic;
        return made;
    }
    int score(const FunctionInstance& made, const StrVec& arguments) {
        RankedOverload overload{&made, {}};
        for (const Str& argument : arguments)
            overload.argumentTypes.push_back(argument.empty() ? nullptr : session.type(argument, scope));
        return overloadScore(overload, arguments.size());
    }
};

}  // namespace

TEST(OverloadRanking, CountsPoints) {
    World world;
    struct Case {
        StrVec parameters, arguments;
        int score;
    };
    for (const Case& each : {
             Case{{"Int"}, {"Int"}, 6},
             {{"Long"}, {"Int"}, 3},
             {{"Object"}, {"Dog"}, 3},
             {{"Box<Int>"}, {"Box<String>"}, 5},
             {{}, {}, 2},
             {{"String"}, {"Int"}, 2},
             {{"Animal", "Int"}, {"Dog", "Int"}, 7},
             {{"Int", "Int"}, {"Int"}, 4},
             {{"Dog?"}, {"Dog"}, 5},
         }) {
        FunctionInstance made = world.function(each.parameters);
        EXPECT_EQ(world.score(made, each.arguments), each.score) << ::testing::PrintToString(each.parameters);
    }
    FunctionInstance variadic = world.function({"Object"}, 0);
    EXPECT_EQ(world.score(variadic, {"Int"}), -1);
    FunctionInstance both = world.function({"Object", "Object"}, 0, 1);
    EXPECT_EQ(world.score(both, {"Int", "Int"}), -3);
}

TEST(OverloadRanking, PrefersTheNarrower) {
    World world;
    auto compare = [&](const StrVec& a, const StrVec& b) {
        return compareSpecificity(world.function(a), world.function(b));
    };
    EXPECT_EQ(compare({"Int"}, {"Object"}), 1);
    EXPECT_EQ(compare({"Object"}, {"Int"}), -1);
    EXPECT_EQ(compare({"Int", "Object"}, {"Object", "Int"}), 0);
    EXPECT_EQ(compare({"Dog", "Int"}, {"Animal", "Int"}), 1);
    EXPECT_EQ(compare({}, {}), 0);
    EXPECT_EQ(compare({"Box<Int>"}, {"Box<String>"}), 0);
}

TEST(OverloadRanking, FindsOneWinner) {
    World world;
    FunctionInstance animal = world.function({"Animal"}), dog = world.function({"Dog"}),
                     object = world.function({"Object"});
    const Type* argument = world.session.type("Dog", world.scope);
    auto ranked = [&](std::vector<const FunctionInstance*> functions) {
        std::vector<RankedOverload> overloads;
        for (const FunctionInstance* each : functions) overloads.push_back({each, {argument}});
        return bestOverload(overloads, 1);
    };
    EXPECT_EQ(ranked({&object, &animal, &dog}), 2u);
    EXPECT_EQ(ranked({&object, &animal}), 1u);
    FunctionInstance first = world.function({"Object", "Int"}), second = world.function({"Int", "Object"});
    const Type* number = world.session.type("Int", world.scope);
    EXPECT_EQ(bestOverload({{&first, {number, number}}, {&second, {number, number}}}, 2), std::nullopt);
}

}  // namespace vesk::compiler
