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
    Str untouched = "as before";
    EXPECT_FALSE(substituteTypeThroughout(std::string_view("Map<String, Int>"), {"T"}, {"Int"}, untouched));
    EXPECT_FALSE(substituteTypeThroughout(std::string_view("T"), {"T"}, {"T"}, untouched));
    EXPECT_EQ(untouched, "as before");
}

TEST(Substitution, FindsMentionedNames) {
    EXPECT_TRUE(mentionsTypeName("Map<String, T[]>", StrVec{"T"}));
    EXPECT_FALSE(mentionsTypeName("Map<String, Tx>", StrVec{"T"}));
    EXPECT_TRUE(mentionsTypeName("(A) -> T?", GenericPlaceholderSet{"T"}));
    EXPECT_FALSE(mentionsTypeName("", GenericPlaceholderSet{"T"}));
}

}  // namespace
}  // namespace vesk::compiler
