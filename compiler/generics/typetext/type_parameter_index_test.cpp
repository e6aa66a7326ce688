// Looking type parameters up by name, in short lists and in long ones.
#include "generics/typetext/type_parameter_index.h"

#include <gtest/gtest.h>

namespace vesk::compiler {
namespace {

TEST(TypeParameterIndex, FindsEachNameAtItsFirstPlaceHoweverManyThereAre) {
    for (std::size_t count = 0; count <= 40; count++) {
        StrVec names;
        for (std::size_t i = 0; i < count; i++) names.push_back("T" + std::to_string(i));
        StrVec twice = names;
        twice.insert(twice.end(), names.begin(), names.end());
        for (const StrVec& given : {names, twice}) {
            const TypeParameterIndex index(given);
            EXPECT_EQ(index.empty(), count == 0);
            for (std::size_t i = 0; i < count; i++) EXPECT_EQ(index.positionOf(names[i]), i) << count;
            EXPECT_EQ(index.positionOf("T" + std::to_string(count)), TypeParameterIndex::NONE) << count;
            EXPECT_FALSE(index.contains("")) << count;
        }
    }
}

TEST(TypeParameterIndex, ReadsDeclaredParameters) {
    EXPECT_EQ(TypeParameterIndex(std::vector<GenericTypeParam>{{"T", "", ""}, {"U", "T", ""}}).positionOf("U"), 1U);
    EXPECT_EQ(TypeParameterIndex(std::vector<GenericTypeParamInfo>{{"T", "", ""}, {"U", "", "T"}}).positionOf("U"), 1U);
    EXPECT_TRUE(TypeParameterIndex().empty());
}

}  // namespace
}  // namespace vesk::compiler
