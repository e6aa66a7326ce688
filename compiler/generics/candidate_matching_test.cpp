// The tests before and after specialization, and the partial order of overloads.
#include "generics/candidate_matching.h"

#include "generics/method_program_test.h"

namespace vesk::compiler {
namespace {

class Matching : public testing::Test {
protected:
    Matching()
        : program(folder.path()), scope(program.load("main.vk", R"(import vesk.collections
interface Named:
    def name() -> String
class Animal implements Named:
    def name() -> String:
        return "a"
class Cat extends Animal:
    pass
class Stone:
    pass
class Cats extends ArrayList<Cat>:
    pass
)")) {}

    bool mayMatch(const StrVec& params, const StrVec& args, const StrVec& typeParams = {"T", "U"}) const {
        std::vector<GenericTypeParamInfo> infos;
        for (const Str& name : typeParams) infos.push_back({name, "", ""});
        return genericMethodCandidateMayMatch(params, args, infos, scope, nullptr);
    }

    static GenericMethodInfo method(const StrVec& paramTypes,
                                    std::vector<GenericTypeParamInfo> typeParams = {{"T", "", ""}}) {
        GenericMethodInfo info;
        info.paramTypes = paramTypes;
        info.typeParams = std::move(typeParams);
        return info;
    }

    TemporaryFolder folder;
    MethodProgram program;
    ContextPtr scope;
};

TEST_F(Matching, MayMatch) {
    const struct {
        Str parameter, argument;
        bool answer;
    } cases[] = {
        {"T", "Int", true},
        {"T", "", true},
        {"Int", "", true},
        {"", "Int", false},
        {"Object", "Stone", true},
        {"vesk.Object", "Int", true},
        {"Int", "Int", true},
        {"Long", "Int", true},
        {"Int", "Long", false},
        {"Int", "String", false},
        {"Animal", "Cat", true},
        {"Cat", "Animal", false},
        {"Stone", "Cat", false},
        {"Named", "Cat", true},
        {"Named", "Stone", false},
        {"Animal?", "Cat", true},
        {"Animal?", "Null", true},
        {"T?", "Int", true},
        {"T?", "Null", true},
        {"T[]", "Int[]", true},
        {"Int[]", "Long[]", true},  // both arrays: inference says more
        {"T[]", "Int", true},       // a placeholder is the base: inference says more
        {"(T) -> U", "(Int) -> String", true},
        {"((T) -> U)?", "(Int) -> String", true},
        {"(T) -> U", "Int", false},
        {"Int", "(Int) -> Int", false},
        {"vesk.collections.List<T>", "vesk.collections.ArrayList<Int>", true},
        {"vesk.collections.ArrayList<T>", "vesk.collections.LinkedList<Int>", true},  // one family
        {"vesk.collections.List<T>", "vesk.collections.HashMap<Int, Int>", false},
        {"vesk.collections.Map<T, U>", "vesk.collections.HashMap<Int, Int>", true},
        {"vesk.collections.List<T>", "vesk.collections.HashSet<Int>", false},  // only a super type is of one family
        {"vesk.collections.Collection<T>", "vesk.collections.HashSet<Int>", true},
        {"vesk.collections.Collection<T>", "Cats", true},
        {"vesk.collections.Map<T, U>", "Cats", false},
        {"T<Int>", "Stone", true},
        {"Nowhere", "Int", false},
        {"Int", "Nowhere", false},
    };
    for (const auto& each : cases)
        EXPECT_EQ(mayMatch({each.parameter}, {each.argument}), each.answer)
            << each.parameter << " <- " << each.argument;
    EXPECT_FALSE(mayMatch({"T"}, {"Int", "Int"}));
    EXPECT_TRUE(mayMatch({"T", "Int"}, {"Int"}));
    EXPECT_TRUE(mayMatch({}, {}));
    EXPECT_FALSE(mayMatch({"T", "Int"}, {"Int", "String"}));
    EXPECT_TRUE(genericMethodCandidateMayMatch({"Int"}, {"String"}, {}, nullptr, nullptr));
    EXPECT_FALSE(genericMethodCandidateMayMatch({"Int"}, {"Int", "Int"}, {}, nullptr, nullptr));
}

TEST_F(Matching, Accepts) {
    EXPECT_TRUE(genericMethodAcceptsActualArgs({"Int", "String"}, {"Int"}, nullptr));
    EXPECT_FALSE(genericMethodAcceptsActualArgs({"Int"}, {"Long"}, nullptr));
    EXPECT_TRUE(genericMethodAcceptsActualArgs({"Int"}, {""}, nullptr));
    EXPECT_TRUE(genericMethodAcceptsActualArgs({}, {}, nullptr));
    EXPECT_FALSE(genericMethodAcceptsActualArgs({}, {"Int"}, scope));
    EXPECT_TRUE(genericMethodAcceptsActualArgs({"Long", "Animal"}, {"Int", "Cat"}, scope));
    EXPECT_FALSE(genericMethodAcceptsActualArgs({"Long", "Cat"}, {"Int", "Animal"}, scope));
    EXPECT_FALSE(genericMethodAcceptsActualArgs({""}, {"Int"}, scope));
    EXPECT_TRUE(genericMethodAcceptsActualArgs({""}, {""}, scope));
    EXPECT_TRUE(genericMethodAcceptsActualArgs({"Int", "String"}, {}, scope));
}

TEST_F(Matching, MoreSpecificMeansNarrowerSomewhereAndWiderNowhere) {
    const struct {
        StrVec a, b;
        int verdict;
    } cases[] = {
        {{"Int"}, {"Object"}, 1},
        {{"Object"}, {"Int"}, -1},
        {{"Int", "Object"}, {"Object", "Int"}, 0},
        {{"Int", "Int"}, {"Object", "Int"}, 1},
        {{"T"}, {"Int"}, -1},
        {{"T"}, {"Object"}, 0},
        {{}, {}, 0},
        {{"Int"}, {}, 0},
        {{"Int", "String"}, {"Object"}, 1},  // positions beyond the shorter list do not count
        {{"Cat"}, {"Animal"}, 1},
        {{"Cat"}, {"Named"}, 1},
        {{"Cat"}, {"Stone"}, 0},
        {{"vesk.collections.ArrayList<T>"}, {"vesk.collections.Collection<T>"}, 1},
        {{"vesk.collections.List<Int>"}, {"vesk.collections.List<T>"}, 0},  // the same base says nothing
        {{""}, {"Int"}, 0},
        {{"Nowhere"}, {"Int"}, 0},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(compareGenericMethodSpecificity(method(each.a), method(each.b), scope, nullptr), each.verdict)
            << joinTypes(each.a) << " against " << joinTypes(each.b);
        EXPECT_EQ(compareGenericMethodSpecificity(method(each.b), method(each.a), scope, nullptr), -each.verdict);
    }
    EXPECT_EQ(compareGenericMethodSpecificity(method({"Int"}), method({"Object"}), nullptr, nullptr), 0);
    // A constraint stands for its parameter.
    EXPECT_EQ(compareGenericMethodSpecificity(method({"T"}, {{"T", "Animal", ""}}), method({"T"}), scope, nullptr), 1);
    EXPECT_EQ(compareGenericMethodSpecificity(method({"T"}, {{"T", "Animal", ""}}), method({"Cat"}), scope, nullptr),
              -1);
}

TEST_F(Matching, FormsThatScoringCompares) {
    EXPECT_EQ(genericMethodSpecificityType(method({}, {{"T", "Animal", ""}}), "T", scope, nullptr), "Animal");
    EXPECT_EQ(genericMethodSpecificityType(method({}), "T", scope, nullptr), "Object");
    EXPECT_EQ(genericMethodSpecificityType(method({}), "List", scope, nullptr), "vesk.collections.List");
    EXPECT_EQ(resolveTypeNameForGenericScore("T", {"T"}, scope, nullptr), "T");
    EXPECT_EQ(resolveTypeNameForGenericScore("List<T>", {"T"}, scope, nullptr),
              ClassLoader::resolveTypeName("List<T>", scope, nullptr));
    EXPECT_EQ(canonicalBaseForGenericScore("T<Int>", {"T"}, scope, nullptr), "T");
    EXPECT_EQ(canonicalBaseForGenericScore("List<Int>", {}, scope, nullptr), "vesk.collections.List");
    EXPECT_EQ(canonicalBaseForGenericScore("Nowhere<Int>", {}, scope, nullptr), "Nowhere");
}

}  // namespace
}  // namespace vesk::compiler
