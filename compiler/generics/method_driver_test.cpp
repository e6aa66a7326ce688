// Calls of generic methods, from the source text to the specialization that the unit holds.
#include "generics/bundles/bundle_manifest.h"
#include "generics/bundles/bundle_paths.h"
#include "generics/candidate_cache.h"
#include "generics/method_memo.h"
#include "generics/method_program_test.h"
#include "generics/overload_resolution.h"
#include "generics/resolution_report.h"
#include "host/il_gen_context.h"

namespace vesk::compiler {
namespace {

class MethodDriver : public testing::Test {
protected:
    // A file with a class Box of these members, and a function `run` that makes one call.
    void load(const Str& members, const Str& statement, const Str& more = "") {
        unit.reset();
        program.emplace(folder.path());
        Str text = "import vesk.collections\n\n" + more + "\nclass Box<E>:\n";
        for (const Str& line : splitSourceLines(members)) text += "    " + line + "\n";
        program->load("main.vk",
                      text + "\ndef run(b: Box<Int>, i: Int, s: String, o: Object, xs: ArrayList<Int>) -> Void:\n    " +
                          statement + "\n");
        unit.emplace(program->pathOf("main.vk"));
    }
    GenericMethodSpec specialize() { return program->specialize("main.vk", "run"); }
    GenericMethodSpec call(const Str& members, const Str& statement, const Str& more = "") {
        load(members, statement, more);
        return specialize();
    }
    CompilerException error(const Str& members, const Str& statement, const Str& more = "") {
        load(members, statement, more);
        return errorOf([&] { specialize(); });
    }
    Str message(const Str& members, const Str& statement, const Str& more = "") {
        const CompilerException thrown = error(members, statement, more);
        EXPECT_TRUE(thrown.getToken());
        Str text = thrown.what();
        if (const std::size_t at = text.find("Box__T_Int"); at != Str::npos) text.replace(at, 10, "Box<Int>");
        return text;
    }
    std::size_t registered() { return program->session().registrationsOf(program->pathOf("main.vk")).size(); }

    TemporaryFolder folder;
    std::optional<MethodProgram> program;
    std::optional<ScopedSpecializationUnit> unit;
};

Str describe(const GenericMethodSpec& spec) {
    Str text = "(";
    for (std::size_t i = 0; i < spec.paramTypes.size(); i++)
        text += (i ? ", " : "") + structuredTypeText(spec.paramTypes[i]);
    return text + ") -> " + structuredTypeText(spec.returnType);
}

TEST_F(MethodDriver, SpecializesForTheCall) {
    const struct {
        Str members, statement, signature;
    } cases[] = {
        {"def m<T>(x: T) -> T:\n    return x", "b.m(i)", "(Int) -> Int"},
        {"def m<T>(x: T) -> T:\n    return x", "b.m<Long>(i)", "(Long) -> Long"},
        {"def m<T>(x: T) -> T:\n    return x", "b.m(x = s)", "(String) -> String"},
        {"def m<T>(x: T) -> List<T>:\n    return ArrayList<T>()", "b.m(i)", "(Int) -> vesk.collections.List<Int>"},
        {"def m<T>(xs: Collection<T>) -> T?:\n    return null", "b.m(xs)",
         "(vesk.collections.Collection<Int>) -> Int?"},
        {"def m<T>(x: T):\n    return x", "b.m(s)", "(String) -> String"},
        {"def m<T>(x: T):\n    pass", "b.m(s)", "(String) -> Void"},
        {"def m<T>(e: E, x: T) -> E:\n    return e", "b.m(i, s)", "(Int, String) -> Int"},
        {"def m<T>(x: T):\n    return self.n<T>(x)\ndef n<T>(x: T):\n    return x", "b.m(s)", "(String) -> String"},
        {"def m<T>(x: T, y: Int = 3) -> T:\n    return x", "b.m(s)", "(String, Int) -> String"},
        {"def m<T>(*xs: T) -> Int:\n    return xs.size()", "b.m(1, 2)", "(vesk.collections.ArrayList<Int>) -> Int"},
        {"def m<T>(*xs: T) -> Int:\n    return xs.size()", "b.m()", "(vesk.collections.ArrayList<Object>) -> Int"},
        {"def m<T>(x: T, **n: Int) -> T:\n    return x", "b.m(s, a = 1)",
         "(String, vesk.collections.Map<String, Int>) -> String"},
        {"static def m<T>(x: T) -> T:\n    return x", "Box.m(i)", "(Int) -> Int"},
        {"def m<T: AbstractFloat>(x: T) -> T:\n    return x", "b.m(i)", "(Double) -> Double"},
        {"def m<T>(x: T, y: Byte) -> T:\n    return x", "b.m(s, 1)", "(String, Byte) -> String"},  // the literal fits
        {"def m<T>(x: T) -> T:\n    return x", "b.m<Byte>(1)", "(Byte) -> Byte"},
        // collected literals and null take the written type
        {"def m<T>(*xs: T) -> Int:\n    return 1", "b.m<Double>(1, 2.5)",
         "(vesk.collections.ArrayList<Double>) -> Int"},
        {"def m<T>(*xs: T) -> Int:\n    return 1", "b.m<Object>(1, \"a\")",
         "(vesk.collections.ArrayList<Object>) -> Int"},
        {"def m<T>(*xs: T) -> Int:\n    return 1", "b.m<Int?>(1, null)", "(vesk.collections.ArrayList<Int?>) -> Int"},
        {"def m<T>(**xs: T) -> Int:\n    return 1", "b.m<Double>(a = 1, c = 2.5)",
         "(vesk.collections.Map<String, Double>) -> Int"},
        {"def m<T>(**xs: T) -> Int:\n    return 1", "b.m<Object>(a = i, c = s)",
         "(vesk.collections.Map<String, Object>) -> Int"},
        {"def m<T>(x: T, *xs: Byte) -> Int:\n    return 1", "b.m(s, 1, 2)",
         "(String, vesk.collections.ArrayList<Byte>) -> Int"},
        {"def m<T>(x: T[]) -> T:\n    return x[0]", "b.m(Int[][](1))", "(Int[][]) -> Int[]"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.members + "\n" + each.statement);
        EXPECT_EQ(describe(call(each.members, each.statement)), each.signature);
        EXPECT_EQ(program->messages(), StrVec{});
    }
}

TEST_F(MethodDriver, RanksOverloads) {
    // The winner answers its number.
    const struct {
        StrVec parameters;
        Str statement, winner;
    } cases[] = {
        {{"x: Object", "x: Int"}, "b.m<Int>(i)", "(Int)"},
        {{"x: Int", "x: Object"}, "b.m<Int>(i)", "(Int)"},
        {{"x: Long", "x: Int"}, "b.m<Int>(i)", "(Int)"},
        {{"x: T", "x: Int"}, "b.m<Int>(i)", "(Int)"},
        {{"x: T", "x: Object"}, "b.m<Int>(i)", "(Int)"},  // T is Int here
        {{"x: Collection<T>", "x: ArrayList<T>"}, "b.m(xs)", "(vesk.collections.ArrayList<Int>)"},
        {{"*x: T", "x: T"}, "b.m(i)", "(Int)"},
        {{"x: T, y: Int = 1", "x: T"}, "b.m(i)", "(Int)"},  // the count decides
        {{"x: T, y: T", "x: T"}, "b.m(i, i)", "(Int, Int)"},
        {{"x: Int, y: Object", "x: Object, y: Object"}, "b.m<Int>(i, s)", "(Int, Object)"},
        {{"a: T", "b: T"}, "b.m(b = i)", "(Int)"},
    };
    for (const auto& each : cases) {
        Str members;
        for (const Str& parameters : each.parameters) members += "def m<T>(" + parameters + ") -> Void:\n    pass\n";
        SCOPED_TRACE(members + each.statement);
        EXPECT_EQ(describe(call(members, each.statement)), each.winner + " -> Void");
    }
}

TEST_F(MethodDriver, ErrorsCarryTheCallsPlaceAndTheirMessages) {
    const Str ID = "def m<T>(x: T) -> T:\n    return x\n";
    EXPECT_EQ(message(ID, "b.m<Int>(s)"),
              "Arguments do not match generic method signature: expected (Int), got (String)");
    EXPECT_EQ(message(ID, "b.m(i, i)"), "Unknown generic method Box<Int>.m");
    EXPECT_EQ(message(ID, "b.m()"), "Unknown generic method Box<Int>.m");
    EXPECT_EQ(message(ID, "b.n(i)"), "Unknown generic method Box<Int>.n");
    EXPECT_EQ(message(ID, "b.m<Int, Int>(i)"), "generic specialization expects 1 type arguments (got 2)");
    EXPECT_EQ(message("def m<T>(x: T, y: Int) -> T:\n    return x", "b.m(i, s)"), "Unknown generic method Box<Int>.m");
    EXPECT_EQ(message("def m<T>(x: T, y: T) -> T:\n    return x", "b.m(i, s)"), "Inconsistent generic argument for T");
    EXPECT_EQ(message("def m<T>() -> Void:\n    pass", "b.m()"), "Cannot infer generic type parameter T");
    EXPECT_EQ(message("def m<T: AbstractFloat>(x: T) -> T:\n    return x", "b.m(s)"),
              "Type String does not satisfy generic constraint AbstractFloat");
    EXPECT_EQ(message("def m<T>(x: Int, y: Object) -> Void:\n    pass\ndef m<T>(x: Object, y: Int) -> Void:\n    pass",
                      "b.m<Int>(i, i)"),
              "Ambiguous generic method call Box<Int>.m");
    EXPECT_EQ(message("def m<T>(*x: T) -> Void:\n    pass", "b.m(i, s)"),
              "Variadic generic call expects homogeneous positional argument types");
    EXPECT_EQ(message("def m<T>(*x: T) -> Void:\n    pass", "b.m<Object>(i, s)"),
              "Variadic generic call expects homogeneous positional argument types");
    EXPECT_EQ(message("def m<T>(*x: T) -> Void:\n    pass", "b.m<Object>(i, 1, s)"),
              "Variadic generic call expects homogeneous positional argument types");
    EXPECT_EQ(message("def m<T>(*x: T) -> Void:\n    pass", "b.m<Byte>(1, 256)"),
              "Variadic generic call expects homogeneous positional argument types");
    EXPECT_EQ(message("private def m<T>(x: T) -> T:\n    return x", "b.m(i)"),
              "Cannot access generic method m in Box<Int>");
    EXPECT_EQ(message("def m<T>(x: T):\n    return self.m<T>(x)", "b.m(i)"),
              "Cannot infer return type for generic function");
    const CompilerException thrown = error(ID, "b.n(i)");
    EXPECT_EQ(thrown.getKind(), CompilerErrorKind::CompileError);
    EXPECT_EQ(thrown.getToken()->getText(), "n");
    // Without a scope nothing is known.
    EXPECT_EQ(
        Str(errorOf([] { ensureGenericMethodSpecialization(nullptr, "Box", "m", {}, nullptr, false, {}); }).what()),
        "Unknown generic method Box.m");
}

TEST_F(MethodDriver, NotesSayWhatToRepair) {
    const auto notes = [&](const Str& members, const Str& statement) {
        StrVec texts = notesOf(error(members, statement));
        for (Str& text : texts) text = structuredTypeText(text);
        return texts;
    };
    EXPECT_EQ(notes("def m<T>(x: Int, y: Object) -> Void:\n    pass\ndef m<T>(x: Object, y: Int) -> Void:\n    pass",
                    "b.m<Int>(i, i)"),
              (StrVec{"candidate m<T>(x: Int, y: Object) -> Void is better for argument 1",
                      "candidate m<T>(x: Object, y: Int) -> Void is better for argument 2"}));
    EXPECT_EQ(notes("def m<T>(x: T, y: Int) -> T:\n    return x\ndef m<T>(x: T) -> T:\n    return x", "b.m(i, s)"),
              (StrVec{"m<T>(x: T, y: Int) -> T does not take this call: the argument types (Int, String) do not fit "
                      "its parameters",
                      "m<T>(x: T) -> T does not take this call: it takes 1 argument, 2 given"}));
    EXPECT_EQ(notes("def mapAll<T>(x: T) -> T:\n    return x", "b.mapAl(i)"), StrVec{"did you mean 'mapAll'?"});
    EXPECT_EQ(notes("def m<T>(x: T, y: T) -> T:\n    return x", "b.m(i, s)"),
              (StrVec{"parameter 'x' makes T Int", "parameter 'y' gets String, which disagrees"}));
    EXPECT_EQ(notes("def m<T: AbstractFloat>(x: T) -> T:\n    return x", "b.m(s)"),
              StrVec{"the constraint T: AbstractFloat is declared here"});
    const CompilerException constraint = error("def m<T: AbstractFloat>(x: T) -> T:\n    return x", "b.m(s)");
    EXPECT_EQ(constraint.getNotes()[0].token->getLine(), 5);
    EXPECT_EQ(constraint.getNotes()[0].token->getColumn(), 11);
    const CompilerException disagreement = error("def m<T>(x: T, y: T) -> T:\n    return x", "b.m(i, s)");
    EXPECT_EQ(disagreement.getNotes()[1].token->getText(), "s");
}

TEST_F(MethodDriver, RepeatedCallsMakeNothingNew) {
    load("def m<T>(x: T) -> T:\n    return x", "b.m(i)");
    const GenericMethodSpec first = specialize();
    EXPECT_EQ(registered(), 1u);
    const GenericMethodSpec second = specialize();
    EXPECT_EQ(second.symbol, first.symbol);
    EXPECT_EQ(second.paramTypes, first.paramTypes);
    EXPECT_EQ(registered(), 1u);
    resetMethodMemo();  // from the specialization cache
    EXPECT_EQ(specialize().symbol, first.symbol);
    resetMethodMemo();
    gGenericMethodSpecCache.clear();  // from the candidates
    EXPECT_EQ(specialize().symbol, first.symbol);
    EXPECT_EQ(gGenericMethodSpecCache.size(), 1u);
    EXPECT_EQ(registered(), 1u);
}

TEST_F(MethodDriver, EachUnitGetsItsOwnRegistration) {
    load("def m<T>(x: T) -> T:\n    return x", "b.m(i)");
    const GenericMethodSpec first = specialize();
    unit.reset();
    const Str other = folder.path() + "/other.vk";
    const ScopedSpecializationUnit otherUnit(other);
    const GenericMethodSpec second = specialize();
    EXPECT_EQ(second.symbol, first.symbol);
    EXPECT_EQ(program->session().registrationsOf(other).size(), 1u);  // the scope's own unit declares the method
}

TEST_F(MethodDriver, WhatIsStoredIsStoredUnderItsKeys) {
    load("def m<T>(x: T) -> T:\n    return x", "b.m(i)");
    const GenericMethodSpec spec = specialize();
    const Str caller = program->pathOf("main.vk");
    ASSERT_EQ(gGenericMethodSpecCache.size(), 1u);
    const auto& [key, cached] = *gGenericMethodSpecCache.begin();
    EXPECT_EQ(key, genericMethodBundleCacheKey(cached.ownerClass, "m", false, {"Int"}, {}, caller));
    EXPECT_EQ(cached.callerSourceUnit, caller);
    EXPECT_EQ(cached.sourcePath, caller);  // the unit that got it
    EXPECT_EQ(cached.typeArgs, StrVec{"Int"});
    ASSERT_EQ(gGenericMethodCandidateCache.size(), 1u);
    EXPECT_EQ(gGenericMethodCandidateCache.begin()->first,
              genericMethodCandidateCacheKey(cached.ownerClass, "m", false, caller));
    EXPECT_EQ(ClassLoader::sourceFileForSymbol(spec.symbol), caller);
}

// One declaration that is reached on two ways is one candidate's equal: never ambiguous, the later one is taken.
TEST_F(MethodDriver, TheSameOverloadReachedTwiceIsNotAmbiguous) {
    load("def m<T>(x: T) -> T:\n    return x\ndef m<T>(x: Object) -> Void:\n    pass", "b.m<Int>(i)");
    const auto node = program->call("main.vk", "run");
    GenericMethodCall request;
    request.context = node->context();
    request.token = node->token();
    request.ownerAsPassed = request.owner = inferExpressionType(node->receiver(), node->context());
    request.method = "m";
    request.arguments = collectGenericCallArguments(node->getArguments(), node->token());
    request.explicitTypeArgs = {"Int"};
    std::vector<GenericMethodInfo> overloads = request.context->getGenericMethods(request.owner, "m");
    ASSERT_EQ(overloads.size(), 2u);
    overloads.insert(overloads.begin(), overloads[0]);
    OverloadResolution twice(request, overloads);
    EXPECT_EQ(twice.choose().signature.paramTypes, StrVec{"Int"});
    // Another declaration with equal parameter types is another candidate.
    overloads[0].overloadIndex = 7;
    OverloadResolution two(request, overloads);
    EXPECT_STREQ(errorOf([&] { two.choose(); }).what(),
                 ("Ambiguous generic method call " + request.owner + ".m").c_str());
}

TEST_F(MethodDriver, StaticAndInstanceCallsAreStoredApart) {
    load("static def m<T>(x: T) -> T:\n    return x", "Box.m(i)");
    specialize();
    const auto has = [&](const char* flag, const auto& cache) {
        return std::any_of(cache.begin(), cache.end(),
                           [&](const auto& entry) { return entry.first.find(Str("Box|m|") + flag) != Str::npos; });
    };
    EXPECT_TRUE(has("1", gGenericMethodSpecCache));
    EXPECT_FALSE(has("0", gGenericMethodSpecCache));
    EXPECT_TRUE(has("1", gGenericMethodCandidateCache));
    EXPECT_FALSE(has("0", gGenericMethodCandidateCache));
    // The same method through an instance: found anew, stored under a key of its own.
    const auto node = program->call("main.vk", "run");
    ensureGenericMethodSpecialization(node->context(), "Box", "m", node->getArguments(), node->token(), false, {});
    EXPECT_TRUE(has("0", gGenericMethodSpecCache));
    EXPECT_TRUE(has("0", gGenericMethodCandidateCache));
}

// What a literal is taken for depends on its value: no later call of the same types may be answered from memory.
TEST_F(MethodDriver, LiteralsDecideForTheirOwnCallOnly) {
    load("def m<T>(x: SByte, y: T) -> T:\n    return y\ndef m<T>(x: Byte, y: T) -> T:\n    return y",
         "b.m(200, i)\n\ndef low(b: Box<Int>, i: Int) -> Void:\n    b.m(-100, i)");
    for (int round = 0; round < 2; round++) {
        EXPECT_EQ(describe(program->specialize("main.vk", "run")), "(Byte, Int) -> Int");
        EXPECT_EQ(describe(program->specialize("main.vk", "low")), "(SByte, Int) -> Int");
    }
}

TEST_F(MethodDriver, FailedRequestsLeaveNoTrace) {
    load("def m<T>(x: T, y: T) -> T:\n    return x", "b.m(i, s)");
    EXPECT_THROW(specialize(), CompilerException);
    EXPECT_TRUE(gGenericMethodSpecCache.empty());
    EXPECT_TRUE(gGenericMethodCandidateCache.empty());
    EXPECT_EQ(registered(), 0u);
}

TEST_F(MethodDriver, NoResultDependsOnTheOrderOfCalls) {
    const Str members = "def m<T>(x: T) -> Int:\n    return 1\ndef m<T>(x: Int) -> String:\n    return \"2\"\n";
    load(members, "b.m<Int>(i)", "");
    const Str alone = describe(specialize());
    EXPECT_EQ(alone, "(Int) -> String");
    // A specialization of the other overload for the same types does not get in the way.
    load(members, "b.m<Int>(i)");
    CachedGenericMethodSpec other;
    const auto overloads =
        program->session().loadedFile(program->pathOf("main.vk"))->context->getGenericMethods("Box<Int>", "m");
    ASSERT_EQ(overloads.size(), 2u);
    other.info = overloads[0];
    other.spec.symbol = "wrong";
    other.spec.paramTypes = {"Int"};
    other.typeArgs = {"Int"};
    const Str owner = canonicalOwnerClassName(program->root(), nullptr, other.info.ownerClass);
    gGenericMethodSpecCache[genericMethodBundleCacheKey(owner, "m", false, {"Int"}, {"Int"}, "")] = other;
    registerGenericMethodCandidate(owner, "m", false, other);
    EXPECT_EQ(describe(specialize()), alone);
}

TEST_F(MethodDriver, InheritedMethodsBelongToTheirClass) {
    const Str more =
        "interface Shown:\n    def show<T>(x: T) -> T:\n        return x\n\nclass Base<E>:\n    def base<T>(x: T, e: "
        "E) -> T:\n        return x\n\n"
        "class Derived extends Base<String> implements Shown:\n    pass\n\n";
    load("def m<T>(x: T) -> T:\n    return x", "b.m(i)",
         more +
             "def more(d: Derived, i: Int, s: String) -> Void:\n    d.base(i, s)\n\ndef shown(d: Derived, i: Int) -> "
             "Void:\n    d.show(i)\n");
    const GenericMethodSpec base = program->specialize("main.vk", "more");
    EXPECT_EQ(describe(base), "(Int, String) -> Int");
    EXPECT_NE(base.symbol.find("Base__T_"), Str::npos);
    const GenericMethodSpec shown = program->specialize("main.vk", "shown");
    EXPECT_NE(shown.symbol.find("_Shown_show__T_"), Str::npos);
    EXPECT_TRUE(gGenericMethodCandidateCache.contains(
        genericMethodCandidateCacheKey("Derived", "show", false, program->pathOf("main.vk"))));
    EXPECT_TRUE(gGenericMethodCandidateCache.contains(
        genericMethodCandidateCacheKey("Shown", "show", false, program->pathOf("main.vk"))));
}

TEST_F(MethodDriver, NativeMethodsAreForwarders) {
    load("def m<T>(x: T) -> T:\n    return x", "xs.castTo<Long>()");
    const GenericMethodSpec spec = specialize();
    EXPECT_TRUE(spec.isNative);
    EXPECT_EQ(structuredTypeText(spec.returnType), "vesk.collections.ArrayList<Long>");
    EXPECT_NE(spec.symbol.find("__U_"), Str::npos);
    const auto registrations = program->session().registrationsOf(program->pathOf("main.vk"));
    ASSERT_EQ(registrations.size(), 1u);
    EXPECT_EQ(registrations[0].sourceOrTarget, "vesk_collections_Collection_castTo");
    EXPECT_TRUE(registrations[0].node->isNative());
    resetMethodMemo();
    EXPECT_EQ(specialize().symbol, spec.symbol);
    // Another unit gets another forwarder.
    unit.reset();
    const ScopedSpecializationUnit other(folder.path() + "/other.vk");
    const GenericMethodSpec second = specialize();
    EXPECT_NE(second.symbol, spec.symbol);
    EXPECT_EQ(program->session().registrationsOf(folder.path() + "/other.vk").size(), 1u);
}

TEST_F(MethodDriver, ReportsTellHowACallWasResolved) {
    load(
        "def m<T>(x: T) -> T:\n    return x\ndef m<T>(x: Int, y: T) -> T:\n    return y\ndef m<T>(x: Object, *y: T) -> "
        "T?:\n    return null",
        "b.m(i)");
    std::vector<ResolutionReport> reports;
    {
        const ScopedResolutionRecording recording(reports);
        specialize();
        specialize();
    }
    ASSERT_EQ(reports.size(), 2u);
    ASSERT_EQ(reports[0].candidates.size(), 3u);
    EXPECT_EQ(reports[0].candidates[1].droppedBecause, "parameter 'y' gets no argument");
    EXPECT_EQ(reports[1].origin, ResolutionOrigin::SessionCache);
    specialize();
    EXPECT_EQ(reports.size(), 2u);  // off again
}

TEST_F(MethodDriver, ReportTextNamesEverything) {
    load("def m<T>(x: T) -> T:\n    return x\ndef m<T>(x: Int, y: T) -> T:\n    return y", "b.m(i)");
    std::vector<ResolutionReport> reports;
    {
        const ScopedResolutionRecording recording(reports);
        specialize();
    }
    ASSERT_EQ(reports.size(), 1u);
    const Str path = program->pathOf("main.vk");
    EXPECT_EQ(formatResolutionReport(reports[0]),
              "call of Box<Int>.m(Int)\n"
              "  candidate m<T>(x: T) -> T at " +
                  path +
                  ":5\n"
                  "    as (Int), score 6, chosen\n"
                  "  candidate m<T>(x: Int, y: T) -> T at " +
                  path +
                  ":7\n"
                  "    dropped: parameter 'y' gets no argument\n"
                  "  T = Int (argument for parameter 'x')\n"
                  "  returns Int\n"
                  "  symbol " +
                  reports[0].symbol +
                  "\n"
                  "  made in unit " +
                  path + "\n");
    EXPECT_GT(reports[0].nanoseconds, 0);
}

TEST_F(MethodDriver, MayNotDoubleForever) {
    const Str two = "class Two<A, B>:\n    def init(a: A, b: B):\n        pass\n";
    const CompilerException thrown =
        error("def twice<T>(x: T):\n    return self.twice(Two<T, T>(x, x))", "b.twice(i)", two);
    EXPECT_STREQ(thrown.what(), "Type arguments of twice are too long");
    ASSERT_GT(thrown.getNotes().size(), 5u);
    EXPECT_LT(thrown.getNotes().size(), 30u);  // ended by the length of the type, long before the depth
    EXPECT_EQ(thrown.getNotes().back().message, "in specialization of Box.twice<Int> requested here");
    EXPECT_EQ(registered(), 0u);
}

TEST_F(MethodDriver, ATypeThatIsNamedAtLengthIsRefusedWhereTheReturnTypeIsDeclared) {
    Str type = "Int";
    for (int i = 0; i < 14; i++) type = "Two<" + type + ", " + type + ">";
    const Str two = "class Two<A, B>:\n    def init(a: A, b: B):\n        pass\n";
    EXPECT_EQ(message("def m<T>() -> Void:\n    pass", "b.m<" + type + ">()", two), "Type arguments of m are too long");
}

// What a call of a known shape would need to be worked out again is taken away: only the memo can answer.
TEST_F(MethodDriver, ARepeatedCallReadsNothing) {
    load("def m<T>(x: T) -> T:\n    return x", "b.m(i)");
    const auto node = program->call("main.vk", "run");
    const ContextPtr scope = node->context();
    const Str owner = inferExpressionType(node->receiver(), scope);
    const auto call = [&] {
        return ensureGenericMethodSpecialization(scope, owner, "m", node->getArguments(), node->token(), false, {});
    };
    const GenericMethodSpec first = call();
    std::filesystem::remove(program->pathOf("main.vk"));
    gSourceTextCache.clear();
    gGenericMethodSpecCache.clear();
    gGenericMethodCandidateCache.clear();
    for (int i = 0; i < 3; i++) {
        const GenericMethodSpec again = call();
        EXPECT_EQ(again.symbol, first.symbol);
        EXPECT_EQ(again.paramTypes, first.paramTypes);
        EXPECT_EQ(again.returnType, first.returnType);
    }
    EXPECT_EQ(registered(), 1u);
    EXPECT_TRUE(gSourceTextCache.empty());
    EXPECT_TRUE(gGenericMethodSpecCache.empty());
    resetGenericSpecializerSession();
    EXPECT_TRUE(gGenericMethodSpecCache.empty());
}

}  // namespace
}  // namespace vesk::compiler
