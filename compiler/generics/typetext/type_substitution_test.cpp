// Replacing type parameters.
#include <gtest/gtest.h>

#include "generics/typetext/type_text.h"

namespace vesk::compiler {
namespace {

struct SubstitutionCase {
    Str text;
    StrVec params, args;
    Str result;
};

TEST(Substitution, FollowsTheStructure) {
    const std::vector<SubstitutionCase> cases = {
        {"", {"T"}, {"Int"}, ""},
        {"T", {}, {"Int"}, "T"},
        {"T", {"T"}, {}, "T"},
        {"T", {"T", "U"}, {"Int"}, "Int"},
        {"T", {"U", "T"}, {"Int"}, "T"},
        {"T", {"T", "T"}, {"Int", "Long"}, "Int"},
        {" T", {"T"}, {"Int"}, " T"},
        {"Map<K,List<V>>", {"K", "V"}, {"String", "Int"}, "Map<String, List<Int>>"},
        {"Map<K, V>[]", {"K", "V"}, {"String", "Int"}, "Map<String, Int>[]"},
        {"Map<String,Int>", {"T"}, {"X"}, "Map<String, Int>"},
        {"List< T >", {"T"}, {"Int"}, "List<Int>"},
        {"T[]", {"T"}, {"Int"}, "T[]"},
        {"List<T[]>", {"T"}, {"Int"}, "List<T[]>"},
        {"T<Int>", {"T"}, {"Int"}, "T<Int>"},
        {"List<Int>?", {"T"}, {"X"}, "List<Int>"},
        {"Foo<>", {"T"}, {"Int"}, "Foo<>"},
        {"<T>", {"T"}, {"Int"}, "<T>"},
        {"(T, List<U>) -> T", {"T", "U"}, {"Int", "Long"}, "(Int, List<Long>) -> Int"},
        {"Fn<(T) -> U, T>", {"T", "U"}, {"Int", "Long"}, "Fn<(Int) -> Long, Int>"},
        {"List<T", {"T"}, {"Int"}, "List<T"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(substituteGenericTypeParamsLocal(c.text, c.params, c.args), c.result) << c.text;
}

TEST(Substitution, GoesOnBehindTheFirstClause) {
    const std::vector<SubstitutionCase> cases = {
        {"T", {"T"}, {"Int"}, "Int"},
        {"", {"T"}, {"Int"}, ""},
        {"List<T>?", {"T"}, {"Int"}, "List<Int>?"},
        {"List<T>", {"T"}, {"Int"}, "List<Int>"},
        {"List<T> []", {"T"}, {"Int"}, "List<Int>[]"},
        {"Box<T>.Inner", {"T"}, {"Int"}, "Box<Int>.Inner"},
        {"Box<T>.Inner<U>", {"T", "U"}, {"Int", "Long"}, "Box<Int>.Inner<U>"},
        {"List<T", {"T"}, {"Int"}, "List<T"},
        {"x", {"T"}, {"Int"}, "x"},
        {"(T) -> List<T>", {"T"}, {"Int"}, "(Int) -> List<Int>"},
        {"T[]", {"T"}, {"Int"}, "T[]"},
        {"Map<K,V>?", {"K", "V"}, {"A", "B"}, "Map<A, B>?"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(substituteGenericIdentifierType(c.text, c.params, c.args), c.result) << c.text;
}

TEST(Substitution, ReachesEveryPlaceOfAType) {
    const std::vector<SubstitutionCase> cases = {
        {"T", {"T"}, {"Int"}, "Int"},
        {"Tx", {"T"}, {"Int"}, "Tx"},
        {"T[]", {"T"}, {"Int"}, "Int[]"},
        {"T?", {"T"}, {"Int"}, "Int?"},
        {"T?", {"T"}, {"Box?"}, "Box?"},
        {"T[][]?", {"T"}, {"Int"}, "Int[][]?"},
        {"List<T?>", {"T"}, {"Int"}, "List<Int?>"},
        {"Map< K,V[] >", {"K", "V"}, {"String", "Int"}, "Map<String, Int[]>"},
        {"((T) -> U)[]", {"T", "U"}, {"Int", "Long"}, "((Int) -> Long)[]"},
        {"((T)->U)?", {"T", "U"}, {"Int", "Long"}, "((Int) -> Long)?"},
        {"T[]", {"T"}, {"(Int) -> Long"}, "((Int) -> Long)[]"},
        {"List<T>", {"T"}, {"(Int) -> Long"}, "List<(Int) -> Long>"},
        {"T<Int>", {"T"}, {"Int"}, "T<Int>"},
        {"a.T", {"T"}, {"Int"}, "a.T"},
        {"T.Inner", {"T"}, {"Int"}, "T.Inner"},
        {"Box<T>.Inner<U>", {"T", "U"}, {"Int", "Long"}, "Box<Int>.Inner<Long>"},
        {"Pair<T,U>", {"T", "U"}, {"U", "T"}, "Pair<U, T>"},
        {"T", {"U", "T"}, {"Int"}, "T"},
        {"T[](", {"T"}, {"Int"}, "Int[]("},
        {"T\xc3\xa9", {"T"}, {"Int"}, "T\xc3\xa9"},
    };
    for (const auto& c : cases) EXPECT_EQ(substituteTypeThroughout(c.text, c.params, c.args), c.result) << c.text;
    const StrVec t{"T"};
    const TypeParameterIndex index(t);
    Str untouched = "as before";
    EXPECT_FALSE(substituteTypeThroughout(std::string_view("Map<String, Int>"), index, {"Int"}, untouched));
    EXPECT_FALSE(substituteTypeThroughout(std::string_view("T"), index, {"T"}, untouched));
    EXPECT_EQ(untouched, "as before");
}

TEST(Substitution, FindsMentionedNames) {
    const StrVec names{"T", "U"};
    const TypeParameterIndex index(names);
    EXPECT_TRUE(mentionsTypeName("Map<String, T[]>", index));
    EXPECT_FALSE(mentionsTypeName("Map<String, Tx>", index));
    EXPECT_TRUE(mentionsTypeName("(A) -> T?", index));
    EXPECT_FALSE(mentionsTypeName("", index));
    EXPECT_EQ(mentionedTypeNames({"Map<String, U[]>", "Int"}, index), (std::vector<bool>{false, true}));
    EXPECT_EQ(mentionedTypeNames({"(U) -> T", "Tx"}, index), (std::vector<bool>{true, true}));
    EXPECT_EQ(mentionedTypeNames({}, index), (std::vector<bool>{false, false}));
}

TEST(Substitution, IsTheSameForOneOfManyParameters) {
    StrVec names, args;
    for (int i = 0; i < 50; i++) {
        names.push_back("T" + std::to_string(i));
        args.push_back("C" + std::to_string(i));
    }
    const StrVec fewArgs(args.begin(), args.begin() + 20);
    for (int i = 0; i < 50; i++) {
        const Str name = "T" + std::to_string(i), arg = "C" + std::to_string(i), few = i < 20 ? arg : name;
        EXPECT_EQ(substituteTypeThroughout("Map<" + name + "?, (T) -> " + name + "[]>", names, args),
                  "Map<" + arg + "?, (T) -> " + arg + "[]>");
        EXPECT_EQ(substituteTypeThroughout(name, names, fewArgs), few);
        EXPECT_EQ(substituteGenericTypeParamsLocal("List<" + name + ">", names, fewArgs), "List<" + few + ">");
        EXPECT_EQ(substituteGenericIdentifierType("List<" + name + ">?", names, fewArgs), "List<" + few + ">?");
    }
}

}  // namespace
}  // namespace vesk::compiler
