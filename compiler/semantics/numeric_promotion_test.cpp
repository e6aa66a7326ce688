// The numeric types among themselves, every pair of them.
#include "semantics/numeric_promotion.h"

#include <gtest/gtest.h>

#include <map>

#include "semantics/literals.h"

namespace vesk::compiler {

using enum TypeKind;

namespace {

constexpr TypeKind NUMBERS[] = {Byte, SByte, Short, UShort, Int, UInt, Long, ULong, Float, Double};

// The single steps of the language; widening is what steps lead to.
const std::map<TypeKind, std::vector<TypeKind>> STEPS = {
    {SByte, {Short, Float, Double}},
    {Short, {Int, Float, Double}},
    {Int, {Long, Double}},
    {Byte, {UShort, Short, Float, Double}},
    {UShort, {UInt, Int, Float, Double}},
    {UInt, {ULong, Long, Double}},
    {Long, {Double}},
    {ULong, {Double}},
    {Float, {Double}},
    {Double, {}},
};

bool reaches(TypeKind target, TypeKind source) {
    if (target == source) return true;
    for (TypeKind next : STEPS.at(source))
        if (reaches(target, next)) return true;
    return false;
}

}  // namespace

TEST(NumericPromotion, WidensAlongTheSteps) {
    for (TypeKind source : NUMBERS)
        for (TypeKind target : NUMBERS)
            EXPECT_EQ(widensTo(target, source), reaches(target, source)) << int(source) << " to " << int(target);
    EXPECT_FALSE(widensTo(Int, Bool));
    EXPECT_FALSE(widensTo(Object, Int));
}

TEST(NumericPromotion, MeetsInTheFirstCommonType) {
    for (TypeKind left : NUMBERS)
        for (TypeKind right : NUMBERS) {
            TypeKind expected = Unknown;
            if (left >= Float || right >= Float) {
                expected = reaches(Float, left) && reaches(Float, right) ? Float : Double;
            } else {
                for (TypeKind candidate : {ULong, Long, UInt, Int})
                    if (reaches(candidate, left) && reaches(candidate, right)) expected = candidate;
            }
            EXPECT_EQ(promotedType(left, right), expected) << int(left) << " and " << int(right);
            EXPECT_EQ(promotedType(left, right), promotedType(right, left));
        }
    EXPECT_EQ(promotedType(Int, String), Unknown);
}

TEST(Literals, AreReadAsWritten) {
    struct Case {
        const char* text;
        std::uint64_t magnitude;
        TypeKind suffix;
    };
    for (const Case& each : {Case{"1", 1, Unknown},
                             {"1L", 1, Long},
                             {"1u", 1, UInt},
                             {"1uL", 1, ULong},
                             {"0xFF", 255, Unknown},
                             {"0xFFL", 255, Long},
                             {"1_000", 1000, Unknown},
                             {"0b101", 5, Unknown},
                             {"18446744073709551615", 18446744073709551615ull, Unknown}}) {
        std::optional<IntegerLiteral> literal = parseIntegerLiteral(each.text);
        ASSERT_TRUE(literal) << each.text;
        EXPECT_EQ(*literal, (IntegerLiteral{each.magnitude, false, false, each.suffix})) << each.text;
    }
    EXPECT_TRUE(parseIntegerLiteral("18446744073709551616")->isTooLarge);
    for (const char* text : {"", "L", "1x", "0x", "_", "1.5"}) EXPECT_FALSE(parseIntegerLiteral(text)) << text;
    EXPECT_EQ(parseFloatingLiteral("1_0.5")->value, 10.5);
    EXPECT_EQ(parseFloatingLiteral("1e3")->value, 1000);
    EXPECT_TRUE(parseFloatingLiteral("1.5f")->isFloat);
    EXPECT_FALSE(parseFloatingLiteral("abc"));
}

TEST(Literals, FitTheirRange) {
    auto fits = [](std::int64_t value, TypeKind kind) {
        IntegerLiteral literal;
        literal.isNegative = value < 0;
        literal.magnitude = literal.isNegative ? std::uint64_t{0} - static_cast<std::uint64_t>(value)
                                               : static_cast<std::uint64_t>(value);
        return literalFits(literal, kind);
    };
    EXPECT_TRUE(fits(255, Byte) && !fits(256, Byte) && !fits(-1, Byte));
    EXPECT_TRUE(fits(-128, SByte) && !fits(-129, SByte) && !fits(128, SByte));
    EXPECT_TRUE(fits(32767, Short) && !fits(32768, Short) && fits(65535, UShort) && !fits(65536, UShort));
    EXPECT_TRUE(fits(-2147483648LL, Int) && !fits(2147483648LL, Int) && fits(4294967295LL, UInt) &&
                !fits(4294967296LL, UInt));
    EXPECT_TRUE(fits(INT64_MIN, Long) && fits(INT64_MAX, ULong) && !fits(-1, ULong) && fits(1, Double) &&
                fits(1, Float) && !fits(1, String));
}

}  // namespace vesk::compiler
