// The members of String against what they promise, on ASCII and on other text.
#include "runtime/strings.h"

#include <gtest/gtest.h>

#include "runtime/memory.h"
#include "runtime/panic.h"
#include "runtime/records.h"
#include "runtime/string_index.h"
#include "runtime/text.h"

namespace vesk::runtime {
namespace {

class Strings : public testing::Test {
protected:
    void SetUp() override { startMemory(); }
};

String* make(std::string_view text) { return makeString(text); }

std::string textOf(const String* string) {
    EXPECT_EQ(string->bytes[string->byteLength], '\0');
    EXPECT_EQ(string->codePoints, countCodePoints(viewOf(string)));
    return std::string(viewOf(string));
}

TEST_F(Strings, LengthCountsCodePoints) {
    struct Case {
        const char* text;
        int length;
    };
    for (auto [text, length] : {Case{"", 0}, {"abc", 3}, {"häh", 3}, {"€uro", 4}, {"😀", 1}, {"a😀b", 3}})
        EXPECT_EQ(vesk_String_length(make(text)), length) << text;
}

TEST_F(Strings, PiecesAreCutAtCodePoints) {
    struct Case {
        const char* text;
        int from, to;
        const char* piece;
    };
    for (auto [text, from, to, piece] : {Case{"hello", 1, 3, "el"},
                                         {"hello", 0, 5, "hello"},
                                         {"hello", 5, 5, ""},
                                         {"", 0, 0, ""},
                                         {"größe", 2, 4, "öß"},
                                         {"a😀b", 1, 2, "😀"},
                                         {"a😀b", 2, 3, "b"}})
        EXPECT_EQ(textOf(vesk_String_substring(make(text), from, to)), piece) << text;
    EXPECT_EQ(textOf(vesk_String_charAt(make("größe"), 3)), "ß");
    EXPECT_EQ(textOf(vesk_String_charAt(make("abc"), 2)), "c");
    EXPECT_EQ(textOf(vesk_String_charAt(make("x😀"), 1)), "😀");
}

TEST_F(Strings, PositionsOutsideArePanics) {
    EXPECT_EXIT(vesk_String_charAt(make("abc"), 3), testing::ExitedWithCode(PANIC_STATUS),
                "panic: index 3 out of range for length 3");
    EXPECT_EXIT(vesk_String_charAt(make("ä"), 1), testing::ExitedWithCode(PANIC_STATUS),
                "index 1 out of range for length 1");
    EXPECT_EXIT(vesk_String_charAt(make("abc"), -1), testing::ExitedWithCode(PANIC_STATUS), "index -1 out of range");
    EXPECT_EXIT(vesk_String_substring(make("abc"), 2, 1), testing::ExitedWithCode(PANIC_STATUS),
                "index 1 out of range");
    EXPECT_EXIT(vesk_String_substring(make("abc"), 0, 4), testing::ExitedWithCode(PANIC_STATUS),
                "index 4 out of range");
    EXPECT_EXIT(vesk_String_length(nullptr), testing::ExitedWithCode(PANIC_STATUS), "null receiver");
}

TEST_F(Strings, Searching) {
    struct Case {
        const char *text, *wanted;
        int index;
    };
    for (auto [text, wanted, index] :
         {Case{"hello", "l", 2}, {"hello", "", 0}, {"hello", "x", -1}, {"äöü", "ü", 2}, {"", "a", -1}}) {
        EXPECT_EQ(vesk_String_indexOf(make(text), make(wanted)), index) << text;
        EXPECT_EQ(vesk_String_contains(make(text), make(wanted)), index >= 0) << text;
    }
    EXPECT_TRUE(vesk_String_startsWith(make("größe"), make("grö")));
    EXPECT_FALSE(vesk_String_startsWith(make("a"), make("ab")));
    EXPECT_TRUE(vesk_String_endsWith(make("größe"), make("ße")));
    EXPECT_FALSE(vesk_String_endsWith(make("a"), make("b")));
}

TEST_F(Strings, Changing) {
    EXPECT_EQ(textOf(vesk_String_trim(make(" \t a b\n"))), "a b");
    EXPECT_EQ(textOf(vesk_String_trim(make("   "))), "");
    EXPECT_EQ(textOf(vesk_String_trim(make(" ä "))), "ä");
    EXPECT_EQ(textOf(vesk_String_upper(make("straße, ÿ: žluťoučký, αβς, ёж"))), "STRAßE, Ÿ: ŽLUŤOUČKÝ, ΑΒΣ, ЁЖ");
    EXPECT_EQ(textOf(vesk_String_lower(make("ÄÖÜ Ÿ ŽLUŤ ΑΒΣ ЁЖ ×"))), "äöü ÿ žluť αβσ ёж ×");
    EXPECT_EQ(textOf(vesk_String_upper(make("😀 €"))), "😀 €");
    // Armenian, Georgian, Cherokee, Deseret, Greek with accents, Latin with dots below, full width, digraphs, Roman numbers.
    struct CasePair {
        const char *lower, *upper;
    };
    for (const auto& [lower, upper] :
         {CasePair{"բարեւ", "ԲԱՐԵՒ"}, CasePair{"აბგ", "ᲐᲑᲒ"}, CasePair{"ꭰꭱ", "ᎠᎡ"}, CasePair{"𐐨𐐩", "𐐀𐐁"},
          CasePair{"άέώ", "ΆΈΏ"}, CasePair{"ạệ", "ẠỆ"}, CasePair{"ａｚ", "ＡＺ"}, CasePair{"ǆ", "Ǆ"},
          CasePair{"ⅷ", "Ⅷ"}, CasePair{"ɐ", "Ɐ"}}) {
        EXPECT_EQ(textOf(vesk_String_upper(make(lower))), upper);
        EXPECT_EQ(textOf(vesk_String_lower(make(upper))), lower);
    }
    struct Case {
        const char *text, *what, *with, *result;
    };
    for (auto [text, what, with, result] : {Case{"aaa", "a", "bb", "bbbbbb"},
                                            {"aaa", "aa", "b", "ba"},
                                            {"abc", "", "x", "abc"},
                                            {"größe", "öß", "os", "grose"},
                                            {"abc", "x", "y", "abc"},
                                            {"", "a", "b", ""}})
        EXPECT_EQ(textOf(vesk_String_replace(make(text), make(what), make(with))), result) << text;
}

TEST_F(Strings, Splitting) {
    struct Case {
        const char *text, *separator;
        std::vector<std::string> parts;
    };
    for (const auto& [text, separator, parts] :
         {Case{"a,b,,c", ",", {"a", "b", "", "c"}}, Case{"", ",", {""}}, Case{"abc", "", {"a", "b", "c"}},
          Case{"äö", "", {"ä", "ö"}}, Case{"a--b", "--", {"a", "b"}}, Case{",", ",", {"", ""}}, Case{"", "", {}}}) {
        const Array* array = vesk_String_split(make(text), make(separator));
        EXPECT_EQ(array->record, &vesk_class_StringArray.record);
        std::vector<std::string> found;
        for (int i = 0; i < array->length; i++)
            found.push_back(textOf(static_cast<const String* const*>(array->elements())[i]));
        EXPECT_EQ(found, parts) << text;
    }
}

TEST_F(Strings, Comparing) {
    EXPECT_EQ(vesk_String_compareTo(make("a"), make("b")), -1);
    EXPECT_EQ(vesk_String_compareTo(make("b"), make("a")), 1);
    EXPECT_EQ(vesk_String_compareTo(make("a"), make("a")), 0);
    EXPECT_EQ(vesk_String_compareTo(make("a"), make("ab")), -1);
    EXPECT_EQ(vesk_String_compareTo(make("z"), make("ä")), -1);
    EXPECT_TRUE(vesk_String_equals(make("ab"), make("ab")));
    EXPECT_FALSE(vesk_String_equals(make("ab"), make("ac")));
    EXPECT_FALSE(vesk_String_equals(make("ab"), nullptr));
    EXPECT_EQ(vesk_String_hashCode(make("ab")), 'a' * 31 + 'b');
}

// Text that is not UTF-8 may come from outside: nothing may read beyond its end.
// Positions of long texts against walking, for strings made whole, joined, cut, and of bytes that are not UTF-8.
TEST_F(Strings, PositionsOfLongTextsAreFound) {
    const std::string_view pieces[] = {"a", "ö", "€", "😀", "\xFF", "z"};
    std::uint32_t random = 1;
    for (int length = 0; length < 700; length += 23) {
        std::string text;
        for (int i = 0; i < length; i++) text += pieces[(random = random * 1103515245 + 12345) >> 16 & 3];
        if (length % 2 == 1) text += "\xFF";
        String* const whole = make(text);
        String* const joined =
            vesk_rt_concat2(make(text.substr(0, text.size() / 2)), make(text.substr(text.size() / 2)));
        for (const String* string : {whole, joined}) {
            if (string->codePoints != whole->codePoints) continue;  // cut inside a sequence
            std::vector<std::size_t> starts;
            for (std::size_t at = 0; at < text.size(); at = nextCodePoint(text, at)) starts.push_back(at);
            starts.push_back(text.size());
            ASSERT_EQ(std::int64_t(starts.size()) - 1, string->codePoints);
            for (std::size_t i = starts.size(); i-- > 0;) {
                ASSERT_EQ(byteOffset(string, std::int64_t(i)), starts[i]) << i << " of " << length;
            }
            const auto half = std::int32_t(starts.size() / 2);
            const String* const tail = vesk_String_substring(string, half, std::int32_t(string->codePoints));
            EXPECT_EQ(viewOf(tail), std::string_view(text).substr(starts[std::size_t(half)]));
            if (tail->codePoints > 0) {
                EXPECT_EQ(byteOffset(tail, tail->codePoints - 1) + starts[std::size_t(half)],
                          starts[starts.size() - 2]);
            }
        }
    }
}

TEST_F(Strings, BrokenText) {
    for (std::string_view text : {"\x80", "\xC3", "a\xE2\x82", "\xFF\xFE", "\xBF\xBF"}) {
        String* string = make(text);
        EXPECT_EQ(vesk_String_upper(string)->byteLength, string->byteLength);
        for (int i = 0; i < string->codePoints; i++) vesk_String_charAt(string, i);
        EXPECT_EQ(textOf(vesk_String_substring(string, 0, int(string->codePoints))), text);
    }
}

}  // namespace
}  // namespace vesk::runtime
