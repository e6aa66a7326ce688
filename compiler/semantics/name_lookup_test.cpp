// What names mean: order of look-up, re-parsed scopes, ambiguity, hints; and ClassLoader's questions about types.
#include "semantics/name_lookup.h"

#include "semantics/context_state.h"
#include "semantics/model_session_test.h"
#include "syntax/scope_building.h"

namespace vesk::compiler {

namespace {

struct LookupTest : testing::Test {
    ModelSession session;

    LookupTest() {
        session.load("/app/one.vk",
                     "package one\nclass Shared:\n    x: Int\nclass OnlyOne:\n    x: Int\ndef helper(x: Int) -> Int:\n "
                     "   return x\n");
        session.load("/app/two.vk",
                     "package two\nclass Shared:\n    x: Int\nclass OnlyTwo<T = Int>:\n    x: Int\ndef helper(x: Int) "
                     "-> Int:\n    return x\n");
    }
};

TEST_F(LookupTest, InnerFindsHideOuterOnes) {
    ContextPtr own = session.load(
        "/app/own.vk",
        "package own\nimport one\nimport two\nclass OnlyOne:\n    x: Int\n"
        "class Iterable<T>:\n    class OnlyTwo:\n        x: Int\n    def f(x: OnlyTwo) -> Int:\n        return 1\n");
    struct Case {
        const char *name, *found;
    };
    for (const Case& each : std::vector<Case>{{"OnlyOne", "own.OnlyOne"},
                                              {"OnlyTwo", "two.OnlyTwo"},
                                              {"one.OnlyOne", "one.OnlyOne"},
                                              {"Iterable", "own.Iterable"},
                                              {"vesk.Iterable", "vesk.Iterable"},
                                              {"Comparable", "vesk.Comparable"},
                                              {"Iterable.OnlyTwo", "own.Iterable.OnlyTwo"},
                                              {"Nowhere", "Nowhere"},
                                              {"one.Nowhere", "one.Nowhere"}})
        EXPECT_EQ(session.resolve(each.name, own), each.found) << each.name;
    // Inside the class its own nested class is nearer than an import.
    ClassDeclaration* outer = lookupClass("Iterable", own);
    ASSERT_NE(outer, nullptr);
    EXPECT_EQ(session.resolve("OnlyTwo", outer->node->context()), "own.Iterable.OnlyTwo");
    EXPECT_EQ(session.resolve("OnlyTwo", outer->methods.at(0)->node->context()), "own.Iterable.OnlyTwo");
    EXPECT_EQ(session.resolve("T", outer->methods.at(0)->node->context()), "T");
}

// What stands in front of a dot is remembered as no class only until something is declared.
TEST_F(LookupTest, ALaterClassIsFoundInFrontOfADot) {
    ContextPtr own = session.load("/app/own.vk", "package own\nimport one\nx: Int = 1\n");
    for (int round = 0; round < 2; round++) {
        EXPECT_EQ(lookupClass("Late.Inner", own), nullptr);
        EXPECT_EQ(lookupClass("one.Shared", own), lookupClass("Shared", own));
        EXPECT_EQ(lookupClass("one.Late", own), nullptr);
    }
    session.load("/app/late.vk", "package own\nclass Late:\n    class Inner:\n        x: Int\n");
    ASSERT_NE(lookupClass("Late.Inner", own), nullptr);
    EXPECT_EQ(lookupClass("Late.Inner", own)->qualifiedName, "own.Late.Inner");
    session.load("/app/named.vk", "package own\nclass one:\n    class Shared:\n        x: Int\n");
    EXPECT_EQ(lookupClass("one.Shared", own)->qualifiedName, "own.one.Shared");
}

TEST_F(LookupTest, TwoImportsOfOneNameAreAnError) {
    ContextPtr own = session.load("/app/own.vk", "import one\nimport two\nx: Int = 1\n");
    EXPECT_EQ(ambiguityOf("Shared", own), "'Shared' is ambiguous: it is declared in the imported packages one and two");
    EXPECT_EQ(ambiguityOf("helper", own), "'helper' is ambiguous: it is declared in the imported packages one and two");
    EXPECT_EQ(ambiguityOf("OnlyOne", own), "");
    EXPECT_EQ(ambiguityOf("one.Shared", own), "");
    EXPECT_EQ(ModelSession::thrown([&] { resolveDeclaredType("Shared", own, nullptr); }),
              "'Shared' is ambiguous: it is declared in the imported packages one and two");
    EXPECT_EQ(ModelSession::thrown([&] { resolveDeclaredType("one.Shared", own, nullptr); }), "");
}

TEST_F(LookupTest, DeclaredTypesAreChecked) {
    ContextPtr own = session.load("/app/own.vk", "import two\nclass Box<T>:\n    x: T\nclass Plain:\n    x: Int\n");
    struct Case {
        const char *text, *message;
    };
    for (const Case& each : std::vector<Case>{
             {"Plian", "Unknown type 'Plian' (did you mean 'Plain'?)"},
             {"int", "Unknown type 'int' (did you mean 'Int'?)"},
             {"Zzzzzz", "Unknown type 'Zzzzzz'"},
             {"Box", "Generic class Box needs 1 type argument"},
             {"Box[]", "Generic class Box needs 1 type argument"},
             {"Box<Int, Int>", "Type Box expects 1 type arguments (got 2)"},
             {"Plain<Int>", "Type Plain has no type parameters"},
             {"Int<Int>", "Type Int has no type parameters"},
             {"Box<>", "Type parameter T of Box has no default"},
             {"Box<Zzzzzz>", "Unknown type 'Zzzzzz'"},
             {"OnlyTwo", ""},
             {"(Plain, OnlyTwo<Long>) -> Box<Int>?", ""},
             {"(Plain) ->", "'(Plain) ->' is not a type"},
         })
        EXPECT_EQ(ModelSession::thrown([&] { resolveDeclaredType(each.text, own, nullptr); }), each.message)
            << each.text;
    EXPECT_EQ(resolveDeclaredType("OnlyTwo", own, nullptr)->structured, "two.OnlyTwo<Int>");
    EXPECT_EQ(session.resolve("OnlyTwo", own), "two.OnlyTwo");
    EXPECT_EQ(session.resolve("OnlyTwo<>", own), "two.OnlyTwo__T_Int");
    EXPECT_EQ(session.resolve("Box<OnlyTwo>", own), "Box__T_two_dOnlyTwo_lInt_g");
    EXPECT_EQ(ModelSession::thrown([&] { session.resolve("Box<>", own); }), "Type parameter T of Box has no default");
    EXPECT_EQ(session.resolve("Box<Int, Int>", own), "Box<Int, Int>");
}

TEST_F(LookupTest, ReparsedScopesLookInTheirFileFirst) {
    ContextPtr caller = session.load("/app/caller.vk", "package caller\nclass Shared:\n    x: Int\n");
    ContextPtr reparsed = std::make_shared<Context>(caller);
    EXPECT_EQ(session.resolve("Shared", reparsed), "caller.Shared");
    ContextPtr declaring = std::make_shared<Context>(caller);
    setDeclaringFile(declaring, "/app/two.vk");
    EXPECT_EQ(session.resolve("Shared", declaring), "two.Shared");
    ContextPtr header = std::make_shared<Context>(caller);
    header->setPackageName("one");
    EXPECT_EQ(session.resolve("Shared", header), "one.Shared");
    ContextPtr synthetic = std::make_shared<Context>(caller);
    synthetic->setEnclosingClassSelfType("two.OnlyTwo__T_Int");
    EXPECT_EQ(session.resolve("Shared", synthetic), "two.Shared");
    EXPECT_EQ(enclosingClassOf(std::make_shared<Context>(synthetic))->qualifiedName, "two.OnlyTwo");
    EXPECT_EQ(lookupFunctions("helper", declaring).at(0)->qualifiedName, "two.helper");
    EXPECT_TRUE(lookupFunctions("helper", caller).empty());
    EXPECT_EQ(lookupFunctions("one.helper", caller).size(), 1u);
    EXPECT_EQ(lookupFunctions("print", caller).size(), 1u);
}

TEST_F(LookupTest, ScopesAnswerTheirSurroundings) {
    ContextPtr file = session.load("/app/own.vk", "package own\n");
    ContextPtr inner = std::make_shared<Context>(std::make_shared<Context>(file));
    EXPECT_EQ(inner->getCompileUnitFile(), "/app/own.vk");
    inner->setCompileUnitFile("/app/other.vk");
    EXPECT_EQ(inner->getCompileUnitFile(), "/app/other.vk");
    EXPECT_EQ(file->getCompileUnitFile(), "/app/own.vk");
    EXPECT_EQ(session->rootContext()->getCompileUnitFile(), "");
    file->addVariable("x", "Int");
    EXPECT_TRUE(lookupVariable("x", inner.get()));
    inner->setVariableType("x", "Long");
    EXPECT_EQ(file->state().variables.at(0).type, "Long");
    EXPECT_FALSE(lookupVariable("y", inner.get()));
    inner->getParent()->setReturnType("Int");
    EXPECT_EQ(inner->getReturnType(), "Int");
}

TEST_F(LookupTest, DeepScopesAreTakenApartWithoutRecursion) {
    ContextPtr scope = session->rootContext();
    for (int i = 0; i < 200000; i++) scope = std::make_shared<Context>(scope);
    scope.reset();
}

TEST_F(LookupTest, PackagesAreFoundByPrefix) {
    session.load("/app/deep.vk", "package alpha.beta.gamma\nclass X:\n    x: Int\n");
    for (const char* name : {"alpha", "alpha.beta", "alpha.beta.gamma", "vesk"})
        EXPECT_TRUE(isPackagePrefix(name)) << name;
    for (const char* name : {"alph", "beta", "", ".", "..", "alpha..beta", "/", "alpha.beta.gamma.delta"})
        EXPECT_FALSE(isPackagePrefix(name)) << name;
    EXPECT_TRUE(session->packageExists("alpha.beta.gamma"));
    EXPECT_FALSE(session->packageExists("alpha.beta"));
}

TEST_F(LookupTest, UnknownNamesBecomeKnownWhenTheirFileIsLoaded) {
    ContextPtr own = session.load("/app/own.vk", "x: Int = 1\n");
    EXPECT_EQ(session.resolve("Late<Int>", own), "Late<Int>");
    session.load("/app/late.vk", "class Late<T>:\n    x: T\n");
    EXPECT_EQ(session.resolve("Late<Int>", own), "Late__T_Int");
}

TEST_F(LookupTest, CanonicalBaseTakesEverySpelling) {
    ContextPtr own = session.load("/app/own.vk", "package own\nclass Box<T>:\n    x: T\n");
    session.resolve("Box<Int>", own);
    struct Case {
        const char *text, *base;
    };
    for (const Case& each : std::vector<Case>{{"Box", "own.Box"},
                                              {"Box<Int>", "own.Box"},
                                              {"own.Box__T_Int", "own.Box"},
                                              {"Box<Int>[]?", "own.Box"},
                                              {"Box<Q>", "own.Box"},
                                              {"Box<>", "own.Box"},
                                              {"Box<Int, Int>", "own.Box"},
                                              {"Int", "Int"},
                                              {"vesk.Object", "Object"},
                                              {"Int[]", "Int"},
                                              {"Nowhere<Int>", "Nowhere"},
                                              {"(Int) -> Int", ""},
                                              {"", ""}})
        EXPECT_EQ(ClassLoader::canonicalBaseTypeName(each.text, own, nullptr), each.base) << each.text;
}

TEST_F(LookupTest, BindingsOfGenericTypes) {
    ContextPtr own =
        session.load("/app/own.vk", "package own\nclass Pair<A, B>:\n    x: A\nclass Plain:\n    x: Int\n");
    StrVec names, args;
    ASSERT_TRUE(ClassLoader::resolveGenericTypeBindings("Pair<Int, Pair<Int, Int>>", own, nullptr, names, args));
    EXPECT_EQ(names, (StrVec{"A", "B"}));
    EXPECT_EQ(args, (StrVec{"Int", "own.Pair__T_Int_cInt"}));
    ASSERT_TRUE(ClassLoader::resolveGenericTypeBindings("Pair", own, nullptr, names, args));
    EXPECT_TRUE(args.empty());
    for (const char* text : {"Plain", "Int", "Nowhere<Int>", "Pair<Int, Int>[]", "(Int) -> Int", ""})
        EXPECT_FALSE(ClassLoader::resolveGenericTypeBindings(text, own, nullptr, names, args)) << text;
}

TEST_F(LookupTest, LoadingClasses) {
    ContextPtr own =
        session.load("/app/own.vk", "package own\nclass Box<T>:\n    x: T\nclass Lost extends Nowhere:\n    x: Int\n");
    for (const char* text :
         {"Int", "Int[]", "Box<Int>", "Box", "Box<Q>", "Box<>", "(Q) -> Q", "one.Shared", "Object", "Box<Int>?"})
        EXPECT_EQ(ModelSession::thrown([&] { ClassLoader::ensureClassLoaded(text, own, nullptr); }), "") << text;
    EXPECT_EQ(ModelSession::thrown([&] { ClassLoader::ensureClassLoaded("Nowhere", own, nullptr); }),
              "Cannot load class 'Nowhere'");
    EXPECT_EQ(ModelSession::thrown([&] { ClassLoader::ensureClassLoaded("Lost", own, nullptr); }),
              "Unknown type 'Nowhere'");
    EXPECT_EQ(ClassLoader::sourceFileForClass("Box<Int>", own), "/app/own.vk");
    EXPECT_EQ(ClassLoader::sourceFileForClass("Box<Q>[]", own), "/app/own.vk");
    EXPECT_EQ(ClassLoader::sourceFileForClass("Nowhere", own), "");
    EXPECT_EQ(classloader::normalizeBuiltinGenericArg("vesk.Int"), "Int");
    EXPECT_EQ(classloader::normalizeBuiltinGenericArg(" String "), "String");
    EXPECT_EQ(classloader::normalizeBuiltinGenericArg("own.Box"), "own.Box");
    EXPECT_EQ(classloader::normalizeBuiltinGenericArg(""), "");
}

TEST_F(LookupTest, GeneratedSourcesGoWhereTheirTypesComeFrom) {
    ContextPtr own = session.load("/app/own.vk", "package own\nclass Box<T>:\n    x: T\n");
    auto root = [&](const Str& owner, const StrVec& args) {
        return ClassLoader::genericOutputRootForType(owner, args, "/app/own.vk", own, nullptr);
    };
    EXPECT_EQ(root("vesk.Iterable", {"Int"}), Runtime::getGenericsPath());
    EXPECT_EQ(root("vesk.Iterable", {"(Int) -> String[]"}), Runtime::getGenericsPath());
    EXPECT_EQ(root("vesk.Iterable", {"own.Box<Int>"}), Runtime::getAppGenericsPath());
    EXPECT_EQ(root("vesk.Iterable", {"(Int) -> Box<Int>"}), Runtime::getAppGenericsPath());
    EXPECT_EQ(root("own.Box", {"Int"}), Runtime::getAppGenericsPath());
    EXPECT_EQ(root("vesk.Iterable", {"Nowhere"}), Runtime::getAppGenericsPath());
    EXPECT_EQ(root("own.Box__T_Int", {}), Runtime::getAppGenericsPath());
    EXPECT_NE(Runtime::getGenericsPath(), Runtime::getAppGenericsPath());
    EXPECT_EQ(Runtime::getGenericsPath(), Runtime::getCacheBranchPath() + "/generics");
    EXPECT_EQ(Runtime::getCacheBranchPath().rfind("/nowhere/cache/branches/", 0), 0u);
}

TEST(NearMatchTest, TheClosestNameWins) {
    struct Case {
        const char* wanted;
        StrVec names;
        const char* nearest;
    };
    for (const Case& each : std::vector<Case>{{"lenght", {"length", "left"}, "length"},
                                              {"int", {"Int", "in"}, "Int"},
                                              {"x", {"y", "z"}, ""},
                                              {"value", {"values", "valve"}, "values"},
                                              {"abc", {"abd", "abe"}, "abd"},
                                              {"print", {"print"}, ""},
                                              {"completely", {"different"}, ""},
                                              {"", {"a"}, ""}})
        EXPECT_EQ(nearestName(each.wanted, each.names), each.nearest) << each.wanted;
    EXPECT_EQ(nearMatchHint("prnt", {"print"}), " (did you mean 'print'?)");
    EXPECT_EQ(nearMatchHint(Str(100000, 'a'), {Str(100000, 'b')}), "");
}

}  // namespace

}  // namespace vesk::compiler
