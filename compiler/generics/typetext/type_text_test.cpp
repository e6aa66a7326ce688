// Parsing and printing type texts.
#include "generics/typetext/type_text.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "generics/sample_program_test.h"

namespace vesk::compiler {
namespace {

TEST(TypeText, TrimsFourKindsOfBlanks) {
    const std::vector<std::pair<Str, Str>> cases = {
        {"", ""},        {"x", "x"},       {" \t\n\r x \v ", "x \v"}, {"\vx", "\vx"},
        {" \t\r\n", ""}, {" a b ", "a b"}, {"\fx\f", "\fx\f"},
    };
    for (const auto& [text, trimmed] : cases) EXPECT_EQ(trimCopy(text), trimmed) << text;
    EXPECT_EQ(quickTrimCopy("\v\f x \v"), "x");
    EXPECT_EQ(quickTrimCopy(" \v"), "");
}

TEST(TypeText, Parses) {
    struct Case {
        Str text, base;
        StrVec args;
        Str suffix;
    };
    const std::vector<Case> cases = {
        {"", "", {}, ""},
        {"[]", "", {}, "[]"},
        {"Int", "Int", {}, ""},
        {"Int[]", "Int", {}, "[]"},
        {" Int[][] ", "Int", {}, "[][]"},
        {"Int [] []", "Int [] ", {}, "[]"},
        {"vesk.collections.Map<String, List<Int>>", "vesk.collections.Map", {"String", "List<Int>"}, ""},
        {"List<Int>[]", "List", {"Int"}, "[]"},
        {"List< Int >", "List", {"Int"}, ""},
        {"List<Int>?", "List", {"Int"}, ""},
        {"Fn<(Int, Int) -> Bool>", "Fn", {"(Int, Int) -> Bool"}, ""},
        {"F<(A, B) -> C, D>", "F", {"(A, B) -> C", "D"}, ""},
        {"F<A -> B, C>", "F", {"A -> B", "C"}, ""},
        {"Pair<A, Map<B, C>>", "Pair", {"A", "Map<B, C>"}, ""},
        {"Foo<>", "Foo", {}, ""},
        {"Map<String, >", "Map", {"String"}, ""},
        {"Foo<a,b,,c>", "Foo", {"a", "b", "c"}, ""},
        {">a<", ">a<", {}, ""},
        {"a<b", "a<b", {}, ""},
        {"a>b", "a>b", {}, ""},
        {" A < B , C[ ] > ", "A", {"B", "C[ ]"}, ""},
        {"F<A>>, B>", "F", {"A>>, B"}, ""},
        {"F<a[1,2],b>", "F", {"a[1,2]", "b"}, ""},
        {"Box<T>.Inner<U>", "Box", {"T>.Inner<U"}, ""},
        {"A<B>junk", "A", {"B"}, ""},
    };
    for (const Case& c : cases) {
        const ParsedGenericType parsed = parseGenericTypeText(c.text);
        EXPECT_EQ(parsed.base, c.base) << c.text;
        EXPECT_EQ(parsed.args, c.args) << c.text;
        EXPECT_EQ(parsed.arraySuffix, c.suffix) << c.text;
    }
    EXPECT_EQ(ParsedGenericType{}, parseGenericTypeText(""));
}

TEST(TypeText, FindsClosedClauses) {
    const std::vector<std::pair<Str, bool>> cases = {
        {"Foo<Bar", false},    {"Foo<>", true},    {"<>", true},   {"Foo<A)>", false},  {"Foo<(A>", true},
        {"Foo<A -> B>", true}, {"a<b>c", true},    {"", false},    {"(A) -> B", false}, {"Foo<A]>", false},
        {"Foo<[A>", true},     {"Foo<A->", false}, {"Int", false},
    };
    for (const auto& [text, closed] : cases) EXPECT_EQ(hasGenericClauseText(text), closed) << text;
}

TEST(TypeText, ShortNames) {
    EXPECT_EQ(shortTypeNameLocal("vesk.collections.Map<String, a.B>"), "B>");
    EXPECT_EQ(shortTypeNameLocal("Map"), "Map");
    EXPECT_EQ(shortTypeNameLocal(""), "");
    EXPECT_EQ(shortTypeNameGeneric("a.b.Map<String, a.B>"), "Map");
    EXPECT_EQ(shortTypeNameGeneric("vesk.collections.ArrayList<Int>"), "ArrayList");
    EXPECT_EQ(shortTypeNameGeneric("Int"), "Int");
    EXPECT_EQ(shortTypeNameGeneric("<Int>"), "");
}

TEST(TypeText, Joins) {
    EXPECT_EQ(joinTypes({}), "");
    EXPECT_EQ(joinTypes({"Int"}), "Int");
    EXPECT_EQ(joinTypes({"Int", "String"}), "Int,String");
}

// Well-formed type texts, as the language writes them.
rc::Gen<Str> typeTextOfDepth(int depth) {
    const auto name = rc::gen::element<Str>("Int", "String", "T", "U", "a.b.Box", "vesk.collections.Map", "x_1");
    if (depth == 0) return name;
    return rc::gen::oneOf(name, rc::gen::exec([=] {
                              const StrVec args = *rc::gen::resize(
                                  3, rc::gen::nonEmpty(rc::gen::container<StrVec>(typeTextOfDepth(depth - 1))));
                              Str text = *name + "<";
                              for (std::size_t i = 0; i < args.size(); i++) text += (i ? ", " : "") + args[i];
                              return text + ">" + *rc::gen::element<Str>("", "[]", "[][]");
                          }));
}

Str printed(const ParsedGenericType& parsed) {
    Str text = parsed.base;
    for (std::size_t i = 0; i < parsed.args.size(); i++) text += (i ? ", " : "<") + parsed.args[i];
    return text + (parsed.args.empty() ? "" : ">") + parsed.arraySuffix;
}

RC_GTEST_PROP(TypeTextProperty, PrintsWhatItParsed, ()) {
    const Str text = *typeTextOfDepth(3);
    RC_ASSERT(printed(parseGenericTypeText(text)) == text);
}

RC_GTEST_PROP(TypeTextProperty, SubstitutionWithNothingIsTheText, (Str text)) {
    RC_ASSERT(substituteGenericTypeParamsLocal(text, {}, {"Int"}) == text);
    RC_ASSERT(substituteGenericIdentifierType(text, {"T"}, {}) == text);
    RC_ASSERT(substituteTypeThroughout(text, {}, {}) == text);
}

RC_GTEST_PROP(TypeTextProperty, AllSubstitutionsAgreeWithoutSuffixes, ()) {
    Str text = *typeTextOfDepth(3);
    for (std::size_t at; (at = text.find("[]")) != Str::npos;) text.erase(at, 2);
    const StrVec names = {"T", "U"}, args = {"Long", "a.b.Box<Int>"};
    const Str expected = substituteGenericTypeParamsLocal(text, names, args);
    RC_ASSERT(substituteGenericIdentifierType(text, names, args) == expected);
    RC_ASSERT(substituteTypeThroughout(text, names, args) == expected);
}

RC_GTEST_PROP(TypeTextProperty, AnyBytesAreHarmless, ()) {
    const auto text = *rc::gen::container<Str>(
        rc::gen::element('<', '>', '(', ')', '[', ']', ',', '-', '.', '?', ' ', 'T', 'a', '\xe9'));
    const StrVec names = {"T"}, args = {"Int"};
    parseGenericTypeText(text);
    hasGenericClauseText(text);
    substituteGenericTypeParamsLocal(text, names, args);
    substituteGenericIdentifierType(text, names, args);
    // A name that is not there changes nothing but blanks.
    const auto withoutBlanks = [](Str from) {
        std::erase(from, ' ');
        return from;
    };
    RC_ASSERT(withoutBlanks(substituteTypeThroughout(text, {"Q"}, args)) == withoutBlanks(text));
    substituteTypeThroughout(text, names, args);
    structuredTypeText(text + "__T_" + text);
}

TEST(TypeText, DeepTextsComeBackAsTheyAre) {
    constexpr int DEPTH = 100000;
    Str text;
    for (int i = 0; i < DEPTH; i++) text += "A<";
    text += "T" + Str(DEPTH, '>');
    EXPECT_EQ(substituteGenericTypeParamsLocal(text, {"T"}, {"Int"}), text);
    EXPECT_EQ(substituteGenericIdentifierType(text, {"T"}, {"Int"}), text);
    EXPECT_EQ(parseGenericTypeText(text).args.size(), 1u);
    EXPECT_TRUE(hasGenericClauseText(text));
    // One pass does not mind the depth.
    EXPECT_NE(substituteTypeThroughout(text, {"T"}, {"Int"}).find("<Int>"), Str::npos);
}

TEST(TypeText, ResolvedForms) {
    SampleProgram program;
    const ContextPtr scope = program.load("texts/main.vk",
                                          "package texts\n\nclass Box<T = Int>:\n    value: T\n\nclass Raw<T>:\n    "
                                          "value: T\n\nclass Plain:\n    x: Int\n");
    EXPECT_EQ(canonicalTypeForBinding("", scope, nullptr), "");
    EXPECT_EQ(canonicalTypeForBinding("Plain", scope, nullptr), "texts.Plain");
    EXPECT_EQ(canonicalTypeForBinding("texts.Box<Int>", scope, nullptr), "texts.Box");
    EXPECT_EQ(canonicalTypeForBinding("Int", scope, nullptr), "Int");
    // A raw class that no default completes is kept as it was, also where the host throws.
    EXPECT_EQ(canonicalTypeForBinding("Raw<>", scope, nullptr), "texts.Raw");

    EXPECT_EQ(normalizeExplicitGenericSpecializationArg("", scope, nullptr), "");
    EXPECT_EQ(normalizeExplicitGenericSpecializationArg("Int", scope, nullptr), "Int");
    EXPECT_EQ(normalizeExplicitGenericSpecializationArg("Plain", scope, nullptr), "texts.Plain");
    const Str flattened = ClassLoader::resolveTypeName("Box<Int>", scope, nullptr);
    EXPECT_NE(flattened.find("__T_"), Str::npos);
    EXPECT_EQ(normalizeExplicitGenericSpecializationArg("Box<Int>", scope, nullptr), flattened);
    EXPECT_EQ(normalizeExplicitGenericSpecializationArg("Box", scope, nullptr), flattened);
    EXPECT_EQ(normalizeExplicitGenericSpecializationArg("Raw", scope, nullptr), "texts.Raw");
    EXPECT_EQ(normalizeExplicitGenericSpecializationArg("Unheard", scope, nullptr), "Unheard");

    EXPECT_EQ(structuredTypeText("Int"), "Int");
    EXPECT_EQ(structuredTypeText(flattened), "texts.Box<Int>");
    EXPECT_EQ(structuredTypeText("(" + flattened + "[], Int) -> " + flattened + "?"),
              "(texts.Box<Int>[], Int) -> texts.Box<Int>?");
    EXPECT_EQ(structuredTypeText(ClassLoader::resolveTypeName("Box<Box<Int>>", scope, nullptr)),
              "texts.Box<texts.Box<Int>>");
    EXPECT_EQ(structuredTypeText("Nobody__T_x"), "Nobody__T_x");
}

TEST(TypeText, RecoversStructure) {
    SampleProgram program;
    const ContextPtr scope = program.load("texts/main.vk", "package texts\n\nclass Box<T>:\n    value: T\n");
    ParsedGenericType parsed;
    parsed.arraySuffix = "[]";
    EXPECT_TRUE(recoverStructuredGenericType("x", scope, nullptr, parsed));
    EXPECT_EQ(parsed.base, "x");
    parsed = parseGenericTypeText("Map<K, V>");
    EXPECT_TRUE(recoverStructuredGenericType("Map<K, V>", scope, nullptr, parsed));
    EXPECT_EQ(parsed.base, "Map");
    parsed = parseGenericTypeText("Int");
    EXPECT_FALSE(recoverStructuredGenericType("Int", scope, nullptr, parsed));
    parsed = parseGenericTypeText("Nobody__T_x");
    EXPECT_FALSE(recoverStructuredGenericType("Nobody__T_x", scope, nullptr, parsed));
    EXPECT_EQ(parsed, parseGenericTypeText("Nobody__T_x"));
    const Str flattened = ClassLoader::resolveTypeName("Box<Int>", scope, nullptr);
    parsed = parseGenericTypeText(flattened);
    EXPECT_TRUE(recoverStructuredGenericType(flattened, scope, nullptr, parsed));
    EXPECT_EQ(parsed.base, "texts.Box");
    EXPECT_EQ(parsed.args, StrVec{"Int"});
}

}  // namespace
}  // namespace vesk::compiler
