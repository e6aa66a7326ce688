// Stored units come back as they were written, or not at all.
#include "driver/stored_unit.h"

#include <gtest/gtest.h>

namespace vesk::compiler {
namespace {

StoredUnit sampleUnit() {
    StoredUnit unit;
    unit.name = "/c/generics/Box__GM_1.vk";
    unit.environment = "branch\nO0";
    unit.source = 77;
    unit.inputs = {{"/p/main.vk", 5}, {"/p", 6}};
    unit.defines = {"a", "b", "c d"};
    unit.needs = {{StoredUnit::Need::Kind::Bundle, "/c/generics/Other__GM_2.vk", {"x", "y"}},
                  {StoredUnit::Need::Kind::Instantiation, "vesk.collections.ArrayList<Int>", {}}};
    unit.initializer = "vesk_u_1";
    unit.object = std::string(
        "\x7f"
        "ELF\0\0some code",
        15);
    return unit;
}

TEST(StoredUnit, ComesBackAsWritten) {
    for (const StoredUnit& unit : {sampleUnit(), StoredUnit{}}) {
        const auto back = parseStoredUnit(renderStoredUnit(unit));
        ASSERT_TRUE(back);
        EXPECT_TRUE(*back == unit);
    }
}

TEST(StoredUnit, BeginsWithTheObject) {
    const StoredUnit unit = sampleUnit();
    EXPECT_TRUE(renderStoredUnit(unit).starts_with(unit.object));
}

TEST(StoredUnit, IsNothingWhenCutOff) {
    const std::string bytes = renderStoredUnit(sampleUnit());
    for (std::size_t size = 0; size < bytes.size(); size++)
        EXPECT_FALSE(parseStoredUnit(bytes.substr(0, size))) << size;
    EXPECT_FALSE(parseStoredUnit(bytes + "x"));
}

TEST(StoredUnit, IsNothingWithAnyByteChanged) {
    const std::string bytes = renderStoredUnit(sampleUnit());
    for (std::size_t at = 0; at < bytes.size(); at++) {
        for (const int flip : {1, 0x80, 0xFF}) {
            std::string damaged = bytes;
            damaged[at] = char(damaged[at] ^ flip);
            EXPECT_FALSE(parseStoredUnit(damaged)) << at;
        }
    }
}

TEST(StoredUnit, KnowsWhatItDefines) {
    const StoredUnit unit = sampleUnit();
    EXPECT_TRUE(unit.definesAll({}));
    EXPECT_TRUE(unit.definesAll({"c d", "a"}));
    EXPECT_FALSE(unit.definesAll({"a", "d"}));
}

}  // namespace
}  // namespace vesk::compiler
