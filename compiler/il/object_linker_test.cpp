// Objects made by the code generator, linked and called; and bytes that are no objects.
#include "il/object_linker.h"

#include <gtest/gtest.h>

#include "il/unit_module.h"

namespace vesk::compiler {
namespace {

int twice(int number) { return 2 * number; }

void* outside(std::string_view symbol) { return symbol == "twice" ? reinterpret_cast<void*>(&twice) : nullptr; }

std::string objectOf(const std::string& text) {
    const auto module = parseIL("target triple = \"x86_64-pc-linux-gnu\"\n" + text, "test");
    return emitObject(*module, OptimizationLevel::O0);
}

int call(const ObjectLinker& linker, const char* symbol, int argument) {
    void* address = linker.addressOf(symbol);
    EXPECT_TRUE(address) << symbol;
    return address ? reinterpret_cast<int (*)(int)>(address)(argument) : -1;
}

const char* const FIRST = R"(
declare i32 @second(i32)
declare i32 @twice(i32)
@counter = global i32 5
@constant = constant i32 7
@table = constant [2 x ptr] [ptr @first, ptr @second]
define i32 @first(i32 %x) {
  %a = call i32 @second(i32 %x)
  %b = call i32 @twice(i32 %a)
  %c = load i32, ptr @constant
  %d = add i32 %b, %c
  ret i32 %d
}
define i32 @count(i32 %x) {
  %a = load i32, ptr @counter
  %b = add i32 %a, %x
  store i32 %b, ptr @counter
  ret i32 %b
}
define weak_odr i32 @both(i32 %x) {
  ret i32 1
}
)";

const char* const SECOND = R"(
@table = external constant [2 x ptr]
@zero = global [100 x i32] zeroinitializer
define i32 @second(i32 %x) {
  %y = add i32 %x, 1
  ret i32 %y
}
define i32 @throughTable(i32 %x) {
  %place = getelementptr [2 x ptr], ptr @table, i32 0, i32 0
  %code = load ptr, ptr %place
  %y = call i32 %code(i32 %x)
  ret i32 %y
}
define weak_odr i32 @both(i32 %x) {
  ret i32 2
}
define i32 @callBoth(i32 %x) {
  %y = call i32 @both(i32 %x)
  ret i32 %y
}
)";

TEST(ObjectLinker, LinksObjectsWithEachOtherAndTheOutside) {
    const std::string first = objectOf(FIRST), second = objectOf(SECOND);
    ObjectLinker linker(outside);
    ASSERT_TRUE(linker.link({first, second})) << linker.problem();
    EXPECT_EQ(call(linker, "first", 10), 2 * 11 + 7);
    EXPECT_EQ(call(linker, "throughTable", 1), 2 * 2 + 7);
    EXPECT_EQ(call(linker, "count", 1), 6);
    EXPECT_EQ(call(linker, "count", 1), 7);
    EXPECT_EQ(linker.addressOf("nothing"), nullptr);
    EXPECT_EQ(*static_cast<int*>(linker.addressOf("zero")), 0);
}

TEST(ObjectLinker, TakesTheFirstOfSeveralDefinitions) {
    const std::string first = objectOf(FIRST), second = objectOf(SECOND);
    ObjectLinker linker(outside);
    ASSERT_TRUE(linker.link({first, second})) << linker.problem();
    EXPECT_EQ(call(linker, "callBoth", 0), 1);
    ObjectLinker other(outside);
    ASSERT_TRUE(other.link({second, first})) << other.problem();
    EXPECT_EQ(call(other, "callBoth", 0), 2);
}

TEST(ObjectLinker, RefusesWhatNobodyDefines) {
    const std::string first = objectOf(FIRST);
    ObjectLinker linker(outside);
    EXPECT_FALSE(linker.link({first}));
    EXPECT_NE(linker.problem().find("'second'"), std::string::npos) << linker.problem();
    EXPECT_EQ(linker.addressOf("first"), nullptr);
}

TEST(ObjectLinker, RefusesBytesThatAreNoObject) {
    const std::string whole = objectOf(SECOND) + objectOf(FIRST);
    for (std::size_t size = 0; size < objectOf(SECOND).size(); size += 7) {
        ObjectLinker linker(outside);
        EXPECT_FALSE(linker.link({std::string_view(whole).substr(0, size)})) << size;
    }
    ObjectLinker linker(outside);
    EXPECT_FALSE(linker.link({std::string_view("no object at all, but long enough for a header of one ......")}));
    ObjectLinker empty(outside);
    EXPECT_TRUE(empty.link({}));
}

TEST(ObjectLinker, KnowsWhereCodeLies) {
    const std::string second = objectOf(std::string(SECOND) + "@other = constant i32 1");
    const std::string first = objectOf(FIRST);
    ObjectLinker linker(outside);
    ASSERT_TRUE(linker.link({first, second}));
    const auto address = reinterpret_cast<std::uintptr_t>(linker.addressOf("second"));
    ASSERT_EQ(linker.linked().size(), 2U);
    ASSERT_EQ(linker.linked()[1].code.size(), 1U);
    EXPECT_LE(linker.linked()[1].code[0].begin, address);
    EXPECT_GT(linker.linked()[1].code[0].end, address);
}

}  // namespace
}  // namespace vesk::compiler
