// Texts of values, arithmetic helpers and built-in records.
#include "runtime/text.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "runtime/exports.h"
#include "runtime/memory.h"
#include "runtime/numbers.h"
#include "runtime/panic.h"
#include "runtime/records.h"
#include "runtime/strings.h"

namespace vesk::runtime {
namespace {

class Text : public testing::Test {
protected:
    void SetUp() override { startMemory(); }
};

std::string shown(const Object* value) { return std::string(viewOf(vesk_rt_text(value))); }

TEST_F(Text, FloatsReadBack) {
    struct Case {
        double value;
        const char* text;
    };
    for (auto [value, text] : {Case{1, "1.0"},
                               {0.1, "0.1"},
                               {-2.5, "-2.5"},
                               {1e21, "1e+21"},
                               {1e-7, "1e-07"},
                               {0, "0.0"},
                               {-0.0, "-0.0"},
                               {1.0 / 3, "0.3333333333333333"},
                               {123456789, "123456789.0"}})
        EXPECT_EQ(floatText(value), text);
    EXPECT_EQ(floatText(0.1f), "0.1");
    EXPECT_EQ(floatText(16777216.0f), "16777216.0");
    EXPECT_EQ(floatText(std::numeric_limits<double>::infinity()), "inf");
    EXPECT_EQ(floatText(-std::numeric_limits<double>::infinity()), "-inf");
    EXPECT_EQ(floatText(std::nan("")), "nan");
}

TEST_F(Text, BoxedValues) {
    EXPECT_EQ(shown(nullptr), "null");
    EXPECT_EQ(shown(vesk_rt_box_Bool(true)), "true");
    EXPECT_EQ(shown(vesk_rt_box_Byte(200)), "200");
    EXPECT_EQ(shown(vesk_rt_box_SByte(-100)), "-100");
    EXPECT_EQ(shown(vesk_rt_box_Short(-30000)), "-30000");
    EXPECT_EQ(shown(vesk_rt_box_UShort(60000)), "60000");
    EXPECT_EQ(shown(vesk_rt_box_Int(std::numeric_limits<int>::min())), "-2147483648");
    EXPECT_EQ(shown(vesk_rt_box_UInt(4000000000u)), "4000000000");
    EXPECT_EQ(shown(vesk_rt_box_Long(std::numeric_limits<std::int64_t>::min())), "-9223372036854775808");
    EXPECT_EQ(shown(vesk_rt_box_ULong(~std::uint64_t(0))), "18446744073709551615");
    EXPECT_EQ(shown(vesk_rt_box_Float(1.5f)), "1.5");
    EXPECT_EQ(shown(vesk_rt_box_Double(2)), "2.0");
    EXPECT_EQ(shown(makeString("text")), "text");
}

TEST_F(Text, BoxesAreEqualByTypeAndValue) {
    EXPECT_TRUE(vesk_rt_equals(vesk_rt_box_Int(1), vesk_rt_box_Int(1)));
    EXPECT_FALSE(vesk_rt_equals(vesk_rt_box_Int(1), vesk_rt_box_Long(1)));
    EXPECT_FALSE(vesk_rt_equals(vesk_rt_box_Int(1), nullptr));
    EXPECT_TRUE(vesk_rt_equals(nullptr, nullptr));
    EXPECT_TRUE(vesk_rt_equals(vesk_rt_box_Double(0.0), vesk_rt_box_Double(-0.0)));
    EXPECT_EQ(vesk_rt_hash(vesk_rt_box_Double(0.0)), vesk_rt_hash(vesk_rt_box_Double(-0.0)));
    const Object* nan = vesk_rt_box_Double(std::nan(""));
    EXPECT_FALSE(vesk_rt_equals(nan, nan));
    EXPECT_EQ(vesk_rt_hash(vesk_rt_box_Int(-7)), -7);
    EXPECT_TRUE(vesk_Int_equals(3, vesk_rt_box_Int(3)));
    EXPECT_FALSE(vesk_Int_equals(3, makeString("3")));
}

TEST_F(Text, Comparing) {
    EXPECT_EQ(vesk_Int_compareTo(-1, 1), -1);
    EXPECT_EQ(vesk_UInt_compareTo(0xFFFFFFFFu, 1), 1);
    EXPECT_EQ(vesk_Double_compareTo(1, 1), 0);
    EXPECT_EQ(vesk_Double_compareTo(std::nan(""), 1), 1);
    EXPECT_EQ(vesk_Double_compareTo(1, std::nan("")), -1);
    EXPECT_EQ(vesk_Bool_compareTo(false, true), -1);
    // The same through the table that an interface call reads.
    const Object* box = vesk_rt_box_Int(5);
    auto* interface = static_cast<const ClassRecord*>(exportedSymbol(recordSymbolOf("vesk.Comparable<Int>")));
    ASSERT_TRUE(vesk_rt_is_instance(box, interface));
    auto compare =
        reinterpret_cast<std::int32_t (*)(const Object*, std::int32_t)>(vesk_rt_interface_methods(box, interface)[0]);
    EXPECT_EQ(compare(box, 7), -1);
}

TEST_F(Text, JoiningCountsNullAsItsName) {
    const String* parts[] = {makeString("a"), nullptr, makeString("ä"), makeString("")};
    String* joined = vesk_rt_concat(parts, 4);
    EXPECT_EQ(viewOf(joined), "anullä");
    EXPECT_EQ(joined->codePoints, 6);
    EXPECT_EQ(viewOf(vesk_rt_concat2(makeString("x"), nullptr)), "xnull");
    EXPECT_EQ(viewOf(vesk_rt_concat3(nullptr, makeString("-"), nullptr)), "null-null");
}

TEST_F(Text, ObjectsAreShownByShortNameAndHash) {
    EXPECT_EQ(shortTypeName("a.b.Outer.Inner"), "Inner");
    EXPECT_EQ(shortTypeName("a.Box<b.C>"), "Box<b.C>");
    EXPECT_EQ(shortTypeName("Plain"), "Plain");
    const Object* object = vesk_rt_new(&vesk_class_Object.record);
    EXPECT_EQ(shown(object), "Object@" + std::to_string(vesk_Object_hashCode(object)));
    EXPECT_TRUE(vesk_Object_equals(object, object));
    EXPECT_FALSE(vesk_Object_equals(object, vesk_rt_new(&vesk_class_Object.record)));
}

TEST_F(Text, Arrays) {
    Array* array = vesk_rt_new_array(&vesk_class_StringArray.record, 2);
    static_cast<const String**>(array->elements())[1] = makeString("b");
    EXPECT_EQ(shown(array), "[null, b]");
    EXPECT_EXIT(vesk_rt_new_array(&vesk_class_StringArray.record, -1), testing::ExitedWithCode(PANIC_STATUS),
                "negative array length -1");
}

TEST(Numbers, Power) {
    EXPECT_EQ(vesk_rt_power_signed(2, 10), 1024);
    EXPECT_EQ(vesk_rt_power_signed(-3, 3), -27);
    EXPECT_EQ(vesk_rt_power_signed(0, 0), 1);
    EXPECT_EQ(vesk_rt_power_signed(2, 64), 0);
    EXPECT_EQ(vesk_rt_power_unsigned(3, 40), 12157665459056928801u);
    EXPECT_EXIT(vesk_rt_power_signed(2, -1), testing::ExitedWithCode(PANIC_STATUS), "negative exponent");
}

TEST(Numbers, FloorDivision) {
    struct Case {
        double dividend, divisor, quotient, remainder;
    };
    for (auto [a, b, q, r] : {Case{7, 2, 3, 1},
                              {-7, 2, -4, 1},
                              {7, -2, -4, -1},
                              {-7, -2, 3, -1},
                              {6, 3, 2, 0},
                              {1.5, 0.5, 3, 0},
                              {-1, 3, -1, 2}}) {
        EXPECT_EQ(vesk_rt_floor_divide_double(a, b), q) << a << "//" << b;
        EXPECT_EQ(vesk_rt_remainder_double(a, b), r) << a << "%" << b;
        EXPECT_EQ(vesk_rt_floor_divide_float(float(a), float(b)), float(q));
        EXPECT_EQ(vesk_rt_remainder_float(float(a), float(b)), float(r));
    }
    EXPECT_TRUE(std::isinf(vesk_rt_floor_divide_double(1, 0)));
    EXPECT_TRUE(std::isnan(vesk_rt_remainder_double(1, 0)));
}

TEST(Records, Instances) {
    startMemory();
    const Object* text = makeString("x");
    EXPECT_TRUE(vesk_rt_is_instance(text, &vesk_class_String.record));
    EXPECT_TRUE(vesk_rt_is_instance(text, &vesk_class_Object.record));
    EXPECT_FALSE(vesk_rt_is_instance(text, &vesk_class_Int.record));
    EXPECT_FALSE(vesk_rt_is_instance(nullptr, &vesk_class_Object.record));
    vesk_rt_check_cast_or_null(nullptr, &vesk_class_String.record);
    EXPECT_EXIT(vesk_rt_check_cast(nullptr, &vesk_class_String.record), testing::ExitedWithCode(PANIC_STATUS),
                "cannot cast null to String");
    EXPECT_EXIT(vesk_rt_check_cast(text, &vesk_class_Int.record), testing::ExitedWithCode(PANIC_STATUS),
                "cannot cast String to Int");
}

TEST(Exports, NamesAreFoundAndOthersAreNot) {
    EXPECT_EQ(exportedSymbol("vesk_rt_concat2"), reinterpret_cast<void*>(&vesk_rt_concat2));
    EXPECT_EQ(exportedSymbol("vesk_class_String"), reinterpret_cast<const void*>(&vesk_class_String));
    for (const char* name : {"", "vesk_", "vesk_rt_concat", "vesk_zzz", "malloc", "vesk_rt_concat2x"})
        EXPECT_EQ(exportedSymbol(name) != nullptr, std::string_view(name) == "vesk_rt_concat") << name;
    EXPECT_STREQ(recordSymbolOf("Int"), "vesk_class_Int");
    EXPECT_EQ(recordSymbolOf("app.Int"), nullptr);
}

}  // namespace
}  // namespace vesk::runtime
