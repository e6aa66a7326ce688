// Which parameter lists count as the same.
#include "generics/typetext/parameter_shape.h"

#include <gtest/gtest.h>

namespace vesk::compiler {
namespace {

TEST(ParameterShapeTest, EqualUpToOneToOneRenaming) {
    const struct {
        StrVec a, aNames, b, bNames;
        bool areSame;
    } cases[] = {
        {{}, {}, {}, {"T"}, true},
        {{"T"}, {"T"}, {"U"}, {"U"}, true},
        {{"T"}, {"T"}, {"T"}, {}, false},  // a class named T is no parameter
        {{"T"}, {"T"}, {"T", "Int"}, {"T"}, false},
        {{"T"}, {"T"}, {"U"}, {"T", "U"}, true},  // their number does not count
        {{"A", "B"}, {"A", "B"}, {"B", "A"}, {"A", "B"}, true},
        {{"A", "B"}, {"A", "B"}, {"A", "A"}, {"A", "B"}, false},
        {{"A", "A"}, {"A"}, {"A", "B"}, {"A", "B"}, false},
        {{"Map<K, List<V>>"}, {"K", "V"}, {"Map<V, List<K>>"}, {"K", "V"}, true},
        {{"Map<K, List<V>>"}, {"K", "V"}, {"Map<V, List<V>>"}, {"K", "V"}, false},
        {{"(T) -> U", "T[]"}, {"T", "U"}, {"(A) -> B", "A[]"}, {"B", "A"}, true},
        {{"T[]"}, {"T"}, {"T"}, {"T"}, false},
        {{"T?"}, {"T"}, {"U?"}, {"U"}, true},
        {{"a.T", "T"}, {"T"}, {"a.T", "U"}, {"U"}, true},  // a qualified name is no parameter
        {{"a.T"}, {"T"}, {"a.U"}, {"U"}, false},
        {{"Tx"}, {"T"}, {"Ux"}, {"U"}, false},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(parameterShape(each.a, each.aNames) == parameterShape(each.b, each.bNames), each.areSame)
            << parameterShape(each.a, each.aNames) << " and " << parameterShape(each.b, each.bNames);
    }
}

}  // namespace
}  // namespace vesk::compiler
