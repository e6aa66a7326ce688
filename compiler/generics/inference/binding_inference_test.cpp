// Bindings, ordering, defaults, widening and constraints.
#include "generics/inference/binding_inference.h"

#include <gtest/gtest.h>

#include "generics/sample_program_test.h"

namespace vesk::compiler {
namespace {

const Str WORLD =
    "package world\n"
    "\n"
    "interface Source<T>:\n"
    "    def next() -> T\n"
    "interface Wide<A, B> extends Source<B>:\n"
    "    def first() -> A\n"
    "class Base<T>:\n"
    "    value: T\n"
    "class Box<T> extends Base<T>:\n"
    "    other: T\n"
    "class IntBox extends Box<Int>:\n"
    "    x: Int\n"
    "class Both implements Wide<String, Long>:\n"
    "    def next() -> Long:\n"
    "        return 1L\n"
    "    def first() -> String:\n"
    "        return \"\"\n"
    "class Torn extends Base<Int> implements Source<String>:\n"
    "    def next() -> String:\n"
    "        return \"\"\n"
    "class Pair<A, B>:\n"
    "    a: A\n"
    "    b: B\n"
    "class Plain:\n"
    "    x: Int\n";

// The bindings as "T=Int U=String", in the order of the placeholders.
class Bindings : public testing::Test {
protected:
    Str bind(const StrVec& placeholders, const std::vector<std::pair<Str, Str>>& pairs) {
        const GenericPlaceholderSet set(placeholders.begin(), placeholders.end());
        GenericBindingMap bindings;
        for (const auto& [declared, actual] : pairs) {
            collectGenericBindingsFromType(declared, resolved(actual), set, bindings, scope, nullptr);
        }
        Str text;
        for (const Str& name : placeholders) {
            if (bindings.contains(name))
                text += (text.empty() ? "" : " ") + name + "=" + structuredTypeText(bindings[name]);
        }
        return text;
    }
    Str resolved(const Str& type) { return ClassLoader::resolveTypeName(type, scope, nullptr); }

    SampleProgram program;
    ContextPtr scope = program.load("world/main.vk", WORLD);
};

TEST_F(Bindings, FollowTheShapes) {
    struct Case {
        Str declared, actual, bound;
    };
    const std::vector<Case> cases = {
        {"T", "Int", "T=Int"},
        {"T", "Box<Int>", "T=world.Box<Int>"},
        {"Box<T>", "Box<Int>", "T=Int"},
        {"world.Box<T>", "Box<String>", "T=String"},
        {"Pair<T, U>", "Pair<Int, String>", "T=Int U=String"},
        {"Pair<T, Box<U>>", "Pair<Int, Box<String>>", "T=Int U=String"},
        {"T[]", "Int[]", "T=Int"},
        {"T[][]", "Int[][]", "T=Int"},
        {"Box<T[]>", "Box<Int[]>", "T=Int"},
        {"Box<T>[]", "Box<Int>[]", "T=Int"},
        // the elements of an array with more dimensions are arrays
        {"T[]", "Int[][]", "T=Int[]"},
        {"T[]", "Int[][][]", "T=Int[][]"},
        {"T[][]", "Int[][][]", "T=Int[]"},
        {"T[][]", "Int[]", ""},
        {"Box<T[]>", "Box<Int[][]>", "T=Int[]"},
        {"Box<T>[]", "Box<Int>[][]", ""},
        {"T[]?", "Int[][]", "T=Int[]"},
        {"Pair<T[], U>", "Pair<Int[][], String>", "T=Int[] U=String"},
        // a raw class binds nothing, whatever its own parameters are called
        {"Box", "Box<Int>", ""},
        {"Base", "Box<Int>", ""},
        {"Pair<Box, U>", "Pair<Box<Int>, String>", "U=String"},
        {"T?", "Plain?", "T=world.Plain"},
        {"T?", "Plain", "T=world.Plain"},
        {"Box<T>?", "Box<Int>", "T=Int"},
        {"Box<T>", "Box<Int>?", "T=Int"},
        {"Box<T?>", "Box<Plain?>", "T=world.Plain"},
        {"T[]", "Int", ""},
        {"Box<T>", "Pair<Int, Int>", ""},
        {"Int", "Int", ""},
        {"Box<Int>", "Box<Int>", ""},
        // through supertypes, at any distance
        {"Base<T>", "Box<Int>", "T=Int"},
        {"Base<T>", "IntBox", "T=Int"},
        {"Source<T>", "Both", "T=Long"},
        {"Wide<T, U>", "Both", "T=String U=Long"},
        {"Source<T>", "Torn", "T=String"},
        {"Base<T>", "Torn", "T=Int"},
        {"Box<T>", "Base<Int>", ""},
        // function types are the host's business
        {"(T) -> U", "(Int) -> String", ""},
        {"", "Int", ""},
        {"T", "", ""},
    };
    for (const Case& c : cases)
        EXPECT_EQ(bind({"T", "U"}, {{c.declared, c.actual}}), c.bound) << c.declared << " " << c.actual;
}

TEST_F(Bindings, AgreeOrFail) {
    EXPECT_EQ(bind({"T"}, {{"T", "Int"}, {"T", "Int"}}), "T=Int");
    EXPECT_EQ(bind({"T"}, {{"T", "Box<Int>"}, {"T", "Box<Int>"}}), "T=world.Box<Int>");
    EXPECT_EQ(messageOf([&] { bind({"T"}, {{"T", "Int"}, {"T", "String"}}); }), "Inconsistent generic argument for T");
    EXPECT_EQ(messageOf([&] { bind({"T"}, {{"T", "Box<Int>"}, {"T", "Box<Long>"}}); }),
              "Inconsistent generic argument for T");
    EXPECT_EQ(messageOf([&] { bind({"U"}, {{"Pair<U, U>", "Pair<Int, Long>"}}); }),
              "Inconsistent generic argument for U");
    // The first spelling stays where another one means the same type.
    GenericBindingMap bindings{{"T", "Plain"}};
    collectGenericBindingsFromType("T", "world.Plain", {"T"}, bindings, scope, nullptr);
    EXPECT_EQ(bindings["T"], "Plain");
    // Bindings made before a failure stay.
    bindings.clear();
    EXPECT_THROW(collectGenericBindingsFromType("Pair<T, Pair<U, U>>", "world.Pair<Int, Pair<Int, Long>>", {"T", "U"},
                                                bindings, scope, nullptr),
                 CompilerException);
    EXPECT_EQ(bindings["T"], "Int");
}

TEST_F(Bindings, ErrorsHaveTheCallsPlace) {
    const auto token = std::make_shared<Token>(nullptr, TokenType::Identifier, "f", 3, 7);
    GenericBindingMap bindings{{"T", "Int"}};
    const CompilerException error =
        errorOf([&] { collectGenericBindingsFromType("T", "String", {"T"}, bindings, scope, token); });
    EXPECT_EQ(error.getToken(), token);
    EXPECT_EQ(error.getKind(), CompilerErrorKind::CompileError);
}

TEST_F(Bindings, NeedNoScope) {
    GenericBindingMap bindings;
    collectGenericBindingsFromType("T", "Int", {"T"}, bindings, nullptr, nullptr);
    collectGenericBindingsFromType("Nobody<U>", "Int", {"U"}, bindings, nullptr, nullptr);
    EXPECT_EQ(bindings, (GenericBindingMap{{"T", "Int"}}));
}

TEST_F(Bindings, AreOrdered) {
    struct Case {
        std::vector<GenericTypeParam> params;
        GenericBindingMap bindings;
        StrVec args;
    };
    const std::vector<Case> cases = {
        {{{"T", "", "", false, nullptr}}, {{"T", "Int"}}, {"Int"}},
        {{{"T", "", "", false, nullptr}, {"U", "", "List<T>", false, nullptr}}, {{"T", "Int"}}, {"Int", "List<Int>"}},
        {{{"U", "", "T", false, nullptr}, {"T", "", "", false, nullptr}}, {{"T", "Int"}}, {"T", "Int"}},
        {{{"T", "AbstractFloat", "", false, nullptr}}, {{"T", "Int"}}, {"Double"}},
        {{{"T", "AbstractFloat", "", false, nullptr}}, {{"T", "ULong"}}, {"Double"}},
        {{{"T", "AbstractFloat", "", false, nullptr}}, {{"T", "Float"}}, {"Float"}},
        {{{"T", "AbstractFloat", "", false, nullptr}}, {{"T", "String"}}, {"String"}},
        {{{"T", "Number", "", false, nullptr}}, {{"T", "Int"}}, {"Int"}},
        {{{"T", "Base<Int>", "world.Base<Int>", false, nullptr}}, {{"T", "world.IntBox"}}, {"world.IntBox"}},
        {{{"T", "AbstractInt", "Long", false, nullptr}}, {{"T", "String"}}, {"String"}},
        {{{"T", "AbstractFloat", "Float", false, nullptr}}, {{"T", "Short"}}, {"Double"}},
        {{{"T", "String", "Object", false, nullptr}}, {{"T", "Int"}}, {"Int"}},
        {{}, {}, {}},
    };
    for (const Case& c : cases) {
        GenericBindingMap bindings = c.bindings;
        EXPECT_EQ(orderedGenericArgs(c.params, bindings, scope, nullptr), c.args) << testing::PrintToString(c.args);
    }
    for (const char* integer : {"Byte", "SByte", "Short", "UShort", "Int", "UInt", "Long", "ULong"}) {
        GenericBindingMap bindings{{"T", integer}};
        EXPECT_EQ(orderedGenericArgs({{"T", "AbstractFloat", "", false, nullptr}}, bindings, scope, nullptr),
                  StrVec{"Double"})
            << integer;
    }
    GenericBindingMap none;
    EXPECT_EQ(messageOf([&] { orderedGenericArgs({{"T", "", "", false, nullptr}}, none, scope, nullptr); }),
              "Cannot infer generic type parameter T");
    GenericBindingMap completed{{"T", "Int"}};
    orderedGenericArgs({{"T", "AbstractFloat", "", false, nullptr}, {"U", "", "List<T>", false, nullptr}}, completed,
                       scope, nullptr);
    EXPECT_EQ(completed, (GenericBindingMap{{"T", "Double"}, {"U", "List<Double>"}}));
    // A default stands in where the binding fails the constraint and the default takes its values.
    GenericBindingMap widened{{"T", "Int"}};
    EXPECT_EQ(orderedGenericArgs({{"T", "AbstractFloat", "Double", false, nullptr}}, widened, nullptr, nullptr),
              StrVec{"Int"});
    GenericBindingMap replaced{{"T", "Null"}};
    EXPECT_EQ(orderedGenericArgs({{"T", "Plain", "Plain?", false, nullptr}}, replaced, scope, nullptr),
              StrVec{"world.Plain?"});
    EXPECT_EQ(replaced["T"], "world.Plain?");
}

TEST_F(Bindings, MeetConstraints) {
    const std::vector<GenericTypeParam> params = {{"T", "AbstractFloat", "", false, nullptr},
                                                  {"U", "Base<T>", "", false, nullptr}};
    validateGenericConstraints(params, {"Double"}, scope, nullptr);
    validateGenericConstraints(params, {}, scope, nullptr);
    validateGenericConstraints(params, {"Double", "world.Box<Double>", "more"}, scope, nullptr);
    EXPECT_EQ(messageOf([&] { validateGenericConstraints(params, {"String"}, scope, nullptr); }),
              "Type String does not satisfy generic constraint AbstractFloat");
    EXPECT_EQ(
        structuredTypeText(messageOf([&] { validateGenericConstraints(params, {"Double", "Plain"}, scope, nullptr); })),
        "Type world.Plain does not satisfy generic constraint world.Base<Double>");
    const std::vector<GenericTypeParam> comparable = {{"T", "Comparable<T>", "", false, nullptr}};
    validateGenericConstraints(comparable, {"Int"}, scope, nullptr);
    EXPECT_THROW(validateGenericConstraints(comparable, {"Plain"}, scope, nullptr), CompilerException);
    EXPECT_THROW(validateGenericConstraints(params, {"Double"}, nullptr, nullptr), CompilerException);
}

TEST_F(Bindings, FindPlaceholders) {
    const GenericPlaceholderSet set = {"T"};
    const std::vector<std::pair<Str, bool>> cases = {
        {"Map<String, T[]>", true},
        {"Tx", false},
        {" T ", true},
        {"T<Int>", true},
        {"T[]", true},
        {"", false},
        {"  ", false},
        {"Map<A, B>", false},
        {"List<List<T>>", true},
    };
    for (const auto& [text, contains] : cases) EXPECT_EQ(typeContainsGenericPlaceholder(text, set), contains) << text;
}

TEST_F(Bindings, MatchNominally) {
    EXPECT_TRUE(nominalTypeMatchesBase("a.List<Int>", "b.List", scope, nullptr));
    EXPECT_TRUE(nominalTypeMatchesBase("Box<Int>", "world.Box", scope, nullptr));
    EXPECT_TRUE(nominalTypeMatchesBase("x", "x", scope, nullptr));
    EXPECT_FALSE(nominalTypeMatchesBase("", "x", scope, nullptr));
    EXPECT_FALSE(nominalTypeMatchesBase("x", "", scope, nullptr));
    EXPECT_FALSE(nominalTypeMatchesBase("Int", "Long", scope, nullptr));
}

}  // namespace
}  // namespace vesk::compiler
