// Distances between names.
#include "generics/typetext/edit_distance.h"

#include <gtest/gtest.h>

namespace vesk::compiler {
namespace {

TEST(EditDistance, CountsEdits) {
    struct Case {
        std::string_view a, b;
        std::size_t distance;
    };
    for (const auto& [a, b, distance] : {Case{"", "", 0},
                                         {"", "abc", 3},
                                         {"map", "map", 0},
                                         {"map", "mop", 1},
                                         {"map", "maps", 1},
                                         {"map", "ap", 1},
                                         {"pritn", "print", 1},
                                         {"abcd", "badc", 2},
                                         {"kitten", "sitting", 3},
                                         {"a", "b", 1}}) {
        EXPECT_EQ(editDistance(a, b, 10), distance) << a << " " << b;
        EXPECT_EQ(editDistance(b, a, 10), distance) << b << " " << a;
    }
}

TEST(EditDistance, EndsAtItsLimit) {
    EXPECT_EQ(editDistance("kitten", "sitting", 2), 3u);
    EXPECT_EQ(editDistance("a", "abcdefgh", 3), 4u);
    EXPECT_EQ(editDistance("kitten", "sitting", 3), 3u);
}

}  // namespace
}  // namespace vesk::compiler
