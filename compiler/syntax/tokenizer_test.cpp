// Tokens: texts, kinds, places and layout.
#include "syntax/parse_check_test.h"
#include "syntax/string_literal.h"

namespace vesk::compiler {
namespace {

StrVec tokenTexts(const Str& text) {
    StrVec texts;
    for (const TokenPtr& token : Tokenizer(text, SAMPLE_PATH).tokens()) texts.push_back(token->getText());
    return texts;
}

Str tokenizerError(const Str& text) {
    try {
        Tokenizer(text, SAMPLE_PATH).tokens();
    } catch (const CompilerException& error) {
        return placedMessage(error);
    }
    return "no error";
}

struct TokenCase {
    const char* text;
    StrVec tokens;
};

TEST(Tokenizer, GenericClauseOrComparison) {
    const TokenCase cases[] = {
        {"Map<String, List<Int>>", {"Map<String, List<Int>>"}},
        {"Map<String,List<Int>>()", {"Map<String,List<Int>>", "(", ")"}},
        {"a < b", {"a", "<", "b"}},
        {"a<b", {"a", "<", "b"}},
        {"a<b>c", {"a", "<", "b", ">", "c"}},
        {"a<b> c", {"a<b>", "c"}},
        {"a<b>1", {"a", "<", "b", ">", "1"}},
        {"a<b> 1", {"a", "<", "b", ">", "1"}},
        {"a<b>\"x\"", {"a", "<", "b", ">", "\"x\""}},
        {"a<b> + c", {"a", "<", "b", ">", "+", "c"}},
        {"a<b> -c", {"a", "<", "b", ">", "-", "c"}},
        {"f(a<b, c>d)", {"f", "(", "a", "<", "b", ",", "c", ">", "d", ")"}},
        {"f(a<b, c>(d))", {"f", "(", "a<b, c>", "(", "d", ")", ")"}},
        {"a<b<c>+d>e", {"a", "<", "b", "<", "c", ">", "+", "d", ">", "e"}},
        {"a<b<c>(d)", {"a", "<", "b<c>", "(", "d", ")"}},
        {"a<1>b", {"a", "<", "1", ">", "b"}},
        {"a<b && c>d", {"a", "<", "b", "&&", "c", ">", "d"}},
        {"a<b c>(d)", {"a", "<", "b", "c", ">", "(", "d", ")"}},
        {"(a<b) + (c>(d))", {"(", "a", "<", "b", ")", "+", "(", "c", ">", "(", "d", ")", ")"}},
        {"x is A<b>c", {"x", "is", "A<b>", "c"}},
        {"x isnot A<b>1", {"x", "isnot", "A<b>", "1"}},
        {"x as p.A<b> + c", {"x", "as", "p", ".", "A<b>", "+", "c"}},
        {"x: A<b> -1", {"x", ":", "A<b>", "-", "1"}},
        {"-> A<b>c", {"->", "A<b>", "c"}},
        {"extends A<b> implements C<d>, E", {"extends", "A<b>", "implements", "C<d>", ",", "E"}},
        {"F<(A, B) -> C?, D[]>", {"F<(A, B) -> C?, D[]>"}},
        {"F<>", {"F<>"}},
        {"A<\n    B,\n    C<(\n  D) -> E>>(x)", {"A<B, C<(D) -> E>>", "(", "x", ")"}},
        {"A<B\n>", {"A", "<", "B", ">"}},
        {"f<A.B<C>>.g", {"f<A.B<C>>", ".", "g"}},
        {"A<B]>", {"A", "<", "B", "]", ">"}},
        {"x >= a<b>", {"x", ">=", "a<b>"}},
        {"a<<b", {"a", "<", "<", "b"}},
    };
    for (const TokenCase& c : cases) EXPECT_EQ(tokenTexts(c.text), c.tokens) << c.text;
}

TEST(Tokenizer, ClauseOfADeclarationIsReadAsTokens) {
    const TokenCase cases[] = {
        {"def f<T: Comparable<T>, U = List<T>>(a: T)",
         {"def", "f", "<", "T", ":", "Comparable<T>", ",", "U", "=", "List<T>", ">", "(", "a", ":", "T", ")"}},
        {"class Box<T> extends Base<T>:", {"class", "Box", "<", "T", ">", "extends", "Base<T>", ":"}},
        {"interface I<A, B>:", {"interface", "I", "<", "A", ",", "B", ">", ":"}},
        {"def operator[]=(i: Int)", {"def", "operator[]=", "(", "i", ":", "Int", ")"}},
        {"def operator**(i: Int)", {"def", "operator**", "(", "i", ":", "Int", ")"}},
        {"def operator<(o: T)", {"def", "operator<", "(", "o", ":", "T", ")"}},
        {"def operator<=(o: T)", {"def", "operator<=", "(", "o", ":", "T", ")"}},
        {"def operator<<U>(o: U)", {"def", "operator<", "<", "U", ">", "(", "o", ":", "U", ")"}},
        {"def operator(x)", {"def", "operator", "(", "x", ")"}},
        {"operator + 1", {"operator", "+", "1"}},
    };
    for (const TokenCase& c : cases) EXPECT_EQ(tokenTexts(c.text), c.tokens) << c.text;
}

TEST(Tokenizer, KindsOfLiteralsAndWords) {
    const struct {
        const char* text;
        TokenType type;
    } cases[] = {
        {"1", TokenType::Integer},        {"1L", TokenType::Integer},      {"1u", TokenType::Integer},
        {"1uL", TokenType::Integer},      {"0xFF", TokenType::Integer},    {"0xffuL", TokenType::Integer},
        {"1_000", TokenType::Integer},    {"1.5", TokenType::Floating},    {"1e3", TokenType::Floating},
        {"1.5e-3", TokenType::Floating},  {"1.5f", TokenType::Floating},   {"2E+10f", TokenType::Floating},
        {"\"a # b\"", TokenType::String}, {"while", TokenType::Keyword},   {"true", TokenType::Keyword},
        {"type", TokenType::Identifier},  {"init", TokenType::Identifier}, {"_x9", TokenType::Identifier},
        {"**=", TokenType::Symbol},       {"//=", TokenType::Symbol},      {"=>", TokenType::Symbol},
    };
    for (const auto& c : cases) {
        const TokenVec tokens = Tokenizer(c.text, SAMPLE_PATH).tokens();
        ASSERT_EQ(tokens.size(), 1U) << c.text;
        EXPECT_EQ(tokens[0]->getType(), c.type) << c.text;
        EXPECT_EQ(tokens[0]->getText(), c.text);
    }
}

TEST(Tokenizer, SymbolsAreTheLongest) {
    EXPECT_EQ(tokenTexts("a**=b//=c//d**e==f!=g<=h>=i"),
              (StrVec{"a", "**=", "b", "//=", "c", "//", "d", "**", "e", "==", "f", "!=", "g", "<=", "h", ">=", "i"}));
    EXPECT_EQ(tokenTexts("a++b--c"), (StrVec{"a", "+", "+", "b", "-", "-", "c"}));
    EXPECT_EQ(tokenTexts("1.toString()"), (StrVec{"1", ".", "toString", "(", ")"}));
}

TEST(Tokenizer, PlacesAndLayout) {
    EXPECT_EQ(printTokens(Tokenizer("a = f(\n  b)  # c\n\t /* x\n y */ z\n", SAMPLE_PATH).tokens()),
              "1:1\t| identifier\ta\n1:3\t  symbol\t=\n1:5\t  identifier\tf\n1:6\t  symbol\t(\n"
              "2:3\t  identifier\tb\n2:4\t  symbol\t)\n4:7\t| identifier\tz\n");
    const TokenVec tokens = Tokenizer("x\n\t y", SAMPLE_PATH).tokens();
    EXPECT_EQ(tokens[1]->lineBlanks(), "\t ");
    EXPECT_EQ(tokens[1]->lineIndent(), 5);
    EXPECT_EQ(tokens[1]->getFilename(), SAMPLE_PATH);
}

TEST(Tokenizer, ClauseOverSeveralLinesKeepsPlaces) {
    const TokenVec tokens = Tokenizer("x: A<\n  B> = 1\ny", SAMPLE_PATH).tokens();
    ASSERT_EQ(tokens.size(), 6U);
    EXPECT_EQ(tokens[2]->getText(), "A<B>");
    EXPECT_EQ(tokens[2]->getLine(), 1);
    EXPECT_EQ(tokens[3]->getLine(), 2);
    EXPECT_EQ(tokens[3]->getColumn(), 6);
    EXPECT_FALSE(tokens[3]->startsLine());
    EXPECT_TRUE(tokens[5]->startsLine());
}

TEST(Tokenizer, CarriageReturnsByteOrderMarkAndMissingLineEnd) {
    EXPECT_EQ(tokenTexts("\xEF\xBB\xBF"
                         "a\r\nb"),
              (StrVec{"a", "b"}));
    EXPECT_EQ(Tokenizer("a\r\n  b", SAMPLE_PATH).tokens()[1]->getColumn(), 3);
    EXPECT_EQ(Tokenizer("\xEF\xBB\xBF"
                        "a",
                        SAMPLE_PATH)
                  .tokens()[0]
                  ->getColumn(),
              1);
}

TEST(Tokenizer, LineCount) {
    const struct {
        const char* text;
        int lines;
    } cases[] = {{"", 0}, {"\n", 1}, {"x", 1}, {"x\n", 1}, {"x\ny", 2}, {"x\ny\n\n", 3}, {"x: A<\nB>\n", 2}};
    for (const auto& c : cases) {
        Tokenizer tokenizer(c.text, SAMPLE_PATH);
        tokenizer.tokens();
        EXPECT_EQ(tokenizer.lineCount(), c.lines) << c.text;
    }
}

TEST(Tokenizer, HandedBackTokensComeLastFirst) {
    Tokenizer tokenizer("a b c", SAMPLE_PATH);
    const TokenPtr a = tokenizer.nextToken(), b = tokenizer.nextToken();
    tokenizer.unToken(b);
    tokenizer.unToken(a);
    EXPECT_EQ(tokenizer.nextToken(), a);
    EXPECT_EQ(tokenizer.nextToken(), b);
    EXPECT_EQ(tokenizer.nextToken()->getText(), "c");
    EXPECT_EQ(tokenizer.nextToken(), nullptr);
    EXPECT_EQ(tokenizer.nextToken(), nullptr);
}

TEST(Tokenizer, TokensOutliveTheirTokenizer) {
    TokenPtr kept;
    {
        Tokenizer tokenizer("alpha beta", SAMPLE_PATH);
        tokenizer.nextToken();
        kept = tokenizer.nextToken();
    }
    EXPECT_EQ(kept->getText(), "beta");
    EXPECT_EQ(kept->withPlace(7, 9)->getLine(), 7);
    EXPECT_EQ(kept->withPlace(7, 9)->getColumn(), 9);
}

TEST(Tokenizer, Mistakes) {
    const struct {
        Str text, error;
    } cases[] = {
        {"x = \"ab\ny", "1:5: this string is not closed: expected '\"' before the end of the line"},
        {"\"ab\\", "1:1: this string is not closed: expected '\"' before the end of the line"},
        {"a\n /* b\n* / c", "2:2: this comment is not closed: expected '*/'"},
        {"/*/", "1:1: this comment is not closed: expected '*/'"},
        {"\"a\\q\"", "1:3: unknown escape: expected \\n \\t \\r \\\" \\\\ \\0 or \\u{1F600}"},
        {"\"\\u{110000}\"", "1:2: unknown escape: expected \\n \\t \\r \\\" \\\\ \\0 or \\u{1F600}"},
        {"\"\\u{D800}\"", "1:2: unknown escape: expected \\n \\t \\r \\\" \\\\ \\0 or \\u{1F600}"},
        {"x = 1 $ 2", "1:7: unexpected character '$'"},
        {"a & b", "1:3: unexpected character '&': write '&&'"},
        {"a | b", "1:3: unexpected character '|': write '||'"},
        {"a; b", "1:2: unexpected character ';': a statement ends with its line"},
        {"'x'", "1:1: unexpected character ''': strings stand in double quotes"},
        {"x\ry", "1:2: unexpected control character"},
        {"caf\xC3\xA9 = 1", "1:4: unexpected character '\xC3\xA9'"},
        {"12ab", "1:1: malformed number '12ab'"},
        {"0x", "1:1: malformed number '0x'"},
        {"1__0", "1:1: malformed number '1__0'"},
        {"1_", "1:1: malformed number '1_'"},
        {"1e", "1:1: malformed number '1e'"},
        {"1Lu", "1:1: malformed number '1Lu'"},
        {"1f", "1:1: malformed number '1f'"},
        {Str("ab\nc\0d", 6), "2:2: the file holds a NUL byte"},
        {"# \xFF", "1:3: the file is not UTF-8"},
        {"\n\"\xC0\x80\"", "2:2: the file is not UTF-8"},
        {"\"\xED\xA0\x80\"", "1:2: the file is not UTF-8"},
        {"\"\xF4\x90\x80\x80\"", "1:2: the file is not UTF-8"},
        {"\"\xE2\x82", "1:2: the file is not UTF-8"},
    };
    for (const auto& c : cases) EXPECT_EQ(tokenizerError(c.text), c.error) << c.text;
}

TEST(StringLiteral, Values) {
    const struct {
        Str text, value;
    } cases[] = {
        {"\"\"", ""},
        {"\"a\\n\\t\\r\\\"\\\\b\"", "a\n\t\r\"\\b"},
        {"\"\\0\"", Str(1, '\0')},
        {"\"\\u{41}\\u{e9}\\u{20AC}\\u{1F600}\"", "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {"\"\xC3\xA9\"", "\xC3\xA9"},
    };
    for (const auto& c : cases) EXPECT_EQ(decodeStringLiteral(c.text), c.value) << c.text;
}

// What is printed has the same tokens, with the same blocks.
TEST(Tokenizer, PrintedTokensAreTheSameTokens) {
    const Str texts[] = {
        "",
        "# only\n",
        "def f<T: A<T>, U = List<T>>(a: T) -> Map<\n  K,\n  V>:\n\tif a<b && c>d:  # x\n\t\treturn a ** -1\n",
        "    x = [1,\n  2] /* a\n b */ + 3\n    y\n",
        "class A:\n    def operator[]=(i: Int):\n        f(a<b, c>d)\n        f(a<b, c>(d))\n",
    };
    for (const Str& text : texts) {
        const TokenVec first = Tokenizer(text, SAMPLE_PATH).tokens();
        const Str printed = printTokensAsSource(first);
        const TokenVec second = Tokenizer(printed, SAMPLE_PATH).tokens();
        ASSERT_EQ(first.size(), second.size()) << printed;
        for (std::size_t i = 0; i < first.size(); i++) {
            EXPECT_EQ(first[i]->getText(), second[i]->getText());
            EXPECT_EQ(first[i]->getType(), second[i]->getType());
            EXPECT_EQ(first[i]->startsLine(), second[i]->startsLine()) << first[i]->getText();
            if (!first[i]->startsLine()) continue;
            EXPECT_EQ(first[i]->lineBlanks(), second[i]->lineBlanks());
        }
        EXPECT_EQ(printTokensAsSource(second), printed);
    }
}

}  // namespace
}  // namespace vesk::compiler
