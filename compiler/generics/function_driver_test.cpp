// Specializing generic free functions, in programs on disk.
#include <gtest/gtest.h>

#include <thread>

#include "generics/function_symbol.h"
#include "generics/sample_program_test.h"
#include "generics/session_state.h"

namespace vesk::compiler {
namespace {

const Str LIBRARY =
    "package lib\n"
    "\n"
    "class Box<T>:\n"
    "    value: T\n"
    "    def init(value: T):\n"
    "        self.value = value\n"
    "\n"
    "class Two<A, B>:\n"
    "    a: A\n"
    "    b: B\n"
    "    def init(a: A, b: B):\n"
    "        self.a = a\n"
    "        self.b = b\n"
    "\n"
    "def id<T>(x: T) -> T:\n"
    "    return x\n"
    "\n"
    "def same<T>(x: T):\n"
    "    return x\n"
    "\n"
    "def quiet<T>(x: T):\n"
    "    y: T = x\n"
    "\n"
    "def wrap<T>(x: T) -> Box<T>:\n"
    "    return Box<T>(x)\n"
    "\n"
    "def open<T>(x: T):\n"
    "    return Box<T>(x)\n"
    "\n"
    "def wider<T: AbstractFloat>(x: T) -> T:\n"
    "    return x\n"
    "\n"
    "def two<T, U = T>(x: T, y: Int = 2) -> U:\n"
    "    return two<T, U>(x, y)\n"
    "\n"
    "def firstOf<T>(items: T[]) -> T:\n"
    "    return items[0]\n"
    "\n"
    "def loop<T>(x: T):\n"
    "    return loop(x)\n"
    "\n"
    "def ping<T>(x: T):\n"
    "    return pong(x)\n"
    "\n"
    "def pong<T>(x: T):\n"
    "    return ping(x)\n"
    "\n"
    "def grow<T>(x: T):\n"
    "    return grow(Box<T>(x))\n"
    "\n"
    "def double<T>(x: T):\n"
    "    return double(Two<T, T>(x, x))\n"
    "\n"
    "def torn<T>(x: T):\n"
    "    if true:\n"
    "        return x\n"
    "    return \"text\"\n"
    "\n"
    "def outer<T>(x: T):\n"
    "    return torn(x)\n"
    "\n"
    "def again<T>(x: T) -> T:\n"
    "    var y = again(x)\n"
    "    return y\n";

class Functions : public testing::Test {
protected:
    Functions() { program.load("lib/lib.vk", LIBRARY); }

    void main(const StrVec& calls) {
        Str text = "import lib\n\nclass Own:\n    x: Int\n\ndef main() -> Void:\n";
        for (const Str& call : calls) text += "    " + call + "\n";
        program.load("main.vk", text);
    }
    Str specialize(std::size_t call) { return program.specialize("main.vk", "main", call); }
    Str errorAt(std::size_t call) {
        return messageOf([&] { specialize(call); });
    }
    ContextPtr scope() { return program.session().loadedFile(program.pathOf("main.vk"))->context; }
    Str returnOf(const Str& symbol) { return structuredTypeText(scope()->getFunctionReturn(symbol)); }
    std::size_t registrations() { return program.session().registrationsOf(program.pathOf("main.vk")).size(); }

    SampleProgram program;
};

TEST(FunctionSymbol, IsMadeOfUnitAndTypes) {
    struct Case {
        Str unit, name;
        StrVec typeArgs, paramTypes;
        Str returnType, symbol;
    };
    const std::vector<Case> cases = {
        {"/src/app/main.vk", "id", {"Int"}, {"Int"}, "Int", "__vesk_f_id__T_7b71a14cd8afb565"},
        {"/src/lib/util.vk", "id", {"Int"}, {"Int"}, "Int", "__vesk_f_id__T_5044052fec35a51c"},
        {"", "id", {"Int"}, {"Int"}, "Int", "__vesk_f_id__T_eda53d66e5b25345"},
        {"/src/app/main.vk",
         "pair",
         {"Int", "String"},
         {"Int", "String"},
         "Pair<Int, String>",
         "__vesk_f_pair__T_cf98cd30c397f6d9"},
        {"/src/app/main.vk", "log", {"Int"}, {"Int"}, "Void", "__vesk_f_log__T_9f6a418bcce01a43"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(genericFunctionSymbol(c.unit, c.name,
                                        genericFunctionCacheKey(c.name, c.typeArgs, c.paramTypes, c.returnType)),
                  c.symbol);
    }
    EXPECT_EQ(genericFunctionCacheKey("f", {}, {"A", "B"}, "C"), "f<gen:|args:A,B|ret:C>");
    EXPECT_NE(genericFunctionSymbol("u", "f", "k", "/a.vk"), genericFunctionSymbol("u", "f", "k"));
}

TEST_F(Functions, GetTheSymbolOfTheirTypes) {
    main({"id(1)", "id(x = 2)", "id<Int>(3)", "id<Long>(4)", "id(\"a\")", "id(Own())"});
    const Str expected =
        genericFunctionSymbol(program.pathOf("main.vk"), "id", genericFunctionCacheKey("id", {"Int"}, {"Int"}, "Int"));
    EXPECT_EQ(specialize(0), expected);
    EXPECT_EQ(registrations(), 1u);
    for (int round = 0; round < 3; round++) {
        EXPECT_EQ(specialize(0), expected);
        EXPECT_EQ(specialize(1), expected);
        EXPECT_EQ(specialize(2), expected);
    }
    EXPECT_EQ(registrations(), 1u);
    EXPECT_NE(specialize(3), expected);
    EXPECT_EQ(returnOf(specialize(3)), "Long");
    EXPECT_EQ(returnOf(specialize(4)), "String");
    EXPECT_EQ(specialize(5), genericFunctionSymbol(program.pathOf("main.vk"), "id",
                                                   genericFunctionCacheKey("id", {"Own"}, {"Own"}, "Own")));
    EXPECT_EQ(registrations(), 4u);
    EXPECT_EQ(scope()->getFunctionParams(expected), StrVec{"Int"});
    EXPECT_EQ(program.messages(), StrVec{});
}

TEST_F(Functions, RegisterTheirNode) {
    main({"wrap(1)"});
    const Str symbol = specialize(0);
    const auto made = program.session().registrationsOf(program.pathOf("main.vk")).at(0);
    EXPECT_EQ(made.symbol, symbol);
    const auto node = std::dynamic_pointer_cast<FunctionNode>(made.node);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->name(), symbol);
    EXPECT_EQ(node->symbolBaseName(), symbol);
    EXPECT_EQ(node->displayName(), "wrap<Int>");
    EXPECT_EQ(node->token()->getFilename(), program.pathOf("lib/lib.vk"));
    EXPECT_EQ(node->getParams().at(0).type, "Int");
    EXPECT_EQ(structuredTypeText(node->returnType()), "lib.Box<Int>");
    EXPECT_EQ(returnOf(symbol), "lib.Box<Int>");
}

TEST_F(Functions, HaveASymbolPerUnit) {
    main({"id(1)"});
    const Str first = specialize(0);
    const ScopedSpecializationUnit unit("/elsewhere/other.vk");
    const Str second = specialize(0);
    EXPECT_NE(first, second);
    EXPECT_EQ(second, genericFunctionSymbol("/elsewhere/other.vk", "id",
                                            genericFunctionCacheKey("id", {"Int"}, {"Int"}, "Int")));
    EXPECT_EQ(specialize(0), second);
    EXPECT_EQ(registrations(), 1u);
    EXPECT_EQ(program.session().registrationsOf("/elsewhere/other.vk").size(), 1u);
}

TEST_F(Functions, InferWhatIsOpen) {
    main({"same(1)", "quiet(1)", "open(1)", "wider(1)", "two(1.5)", "two<Int, Long>(1)", "firstOf(Int[](3))",
          "same(wrap(1))", "wider(1.5f)"});
    const StrVec returns = {"Int", "Void", "lib.Box<Int>", "Double", "Double", "Long", "Int", "lib.Box<Int>", "Float"};
    for (std::size_t call = 0; call < returns.size(); call++) {
        for (int round = 0; round < 2; round++) EXPECT_EQ(returnOf(specialize(call)), returns[call]) << call;
    }
}

TEST_F(Functions, FailWithTheCallsPlace) {
    main({"unheard(1)", "id()", "id(1, 2)", "id<Int, Long>(1)", "wider(\"a\")", "id(nothing)", "two(y = 1)"});
    EXPECT_EQ(errorAt(0), "Unknown generic function 'unheard'");
    EXPECT_EQ(errorAt(1), "function id expects 1 arguments (got 0)");
    EXPECT_EQ(errorAt(2), "function id expects 1 arguments (got 2)");
    EXPECT_EQ(errorAt(3), "generic specialization expects 1 type arguments (got 2)");
    EXPECT_EQ(errorAt(4), "Type String does not satisfy generic constraint AbstractFloat");
    EXPECT_EQ(errorAt(5), "argument has unknown type");
    EXPECT_EQ(errorAt(6), "function two expects 2 arguments (got 1)");
    const CompilerException error = errorOf([&] { specialize(2); });
    EXPECT_EQ(error.getKind(), CompilerErrorKind::CompileError);
    EXPECT_EQ(error.getToken()->getLine(), 9);
    EXPECT_TRUE(error.getNotes().empty());
    EXPECT_EQ(registrations(), 0u);
    EXPECT_EQ(messageOf([&] { ensureGenericFunctionSpecialization(nullptr, "id", {}, nullptr, {}); }),
              "Unknown generic function 'id'");
}

TEST_F(Functions, FailWhenTheirSourceIsGone) {
    program.load("gone/gone.vk",
                 "package gone\n\ndef lost<T>(x: T) -> T:\n    return x\n\n"
                 "def limited<T: AbstractFloat, U>(x: T) -> T:\n    return x\n");
    program.load("main.vk",
                 "import gone\n\ndef main() -> Void:\n    lost(1)\n    lost<Int, Long>(1)\n    limited(1)\n"
                 "    limited<String, Int>(\"a\")\n    lost()\n");
    std::filesystem::remove(program.pathOf("gone/gone.vk"));
    // Before type arguments are counted, inferred and checked; behind the number of arguments.
    for (const auto& [call, name] :
         {std::pair<std::size_t, Str>{0, "lost"}, {1, "lost"}, {2, "limited"}, {3, "limited"}}) {
        const CompilerException error = errorOf([&] { specialize(call); });
        EXPECT_EQ(Str(error.what()), "Cannot load generic function '" + name + "'") << call;
        EXPECT_EQ(error.getKind(), CompilerErrorKind::DeclarationLoad);
    }
    EXPECT_EQ(errorAt(4), "function lost expects 1 arguments (got 0)");
    EXPECT_EQ(registrations(), 0u);
}

TEST_F(Functions, MayNotInferFromThemselves) {
    main({"loop(1)", "ping(1)", "again(1)"});
    const CompilerException direct = errorOf([&] { specialize(0); });
    EXPECT_STREQ(direct.what(), "Cannot infer return type for generic function");
    ASSERT_EQ(direct.getNotes().size(), 1u);
    EXPECT_EQ(direct.getNotes()[0].message, "in specialization of loop<Int> requested here");
    EXPECT_EQ(direct.getNotes()[0].token->getLine(), 7);
    const CompilerException circle = errorOf([&] { specialize(1); });
    EXPECT_STREQ(circle.what(), "Cannot infer return type for generic function");
    ASSERT_EQ(circle.getNotes().size(), 2u);
    EXPECT_EQ(circle.getNotes()[0].message, "in specialization of pong<Int> requested here");
    EXPECT_EQ(circle.getNotes()[1].message, "in specialization of ping<Int> requested here");
    EXPECT_EQ(registrations(), 0u);
    // With a declared return type the body gets the symbol of the specialization it belongs to.
    EXPECT_EQ(returnOf(specialize(2)), "Int");
    EXPECT_EQ(registrations(), 1u);
}

TEST_F(Functions, MayNotGrowForever) {
    main({"grow(1)"});
    const CompilerException error = errorOf([&] { specialize(0); });
    EXPECT_STREQ(error.what(), "Generic specialization is nested too deeply");
    ASSERT_EQ(error.getNotes().size(), 200u);
    EXPECT_EQ(error.getNotes().back().message, "in specialization of grow<Int> requested here");
    EXPECT_EQ(error.getNotes()[198].message, "in specialization of grow<lib.Box<Int>> requested here");
    EXPECT_EQ(registrations(), 0u);
}

TEST_F(Functions, MayNotDoubleForever) {
    main({"double(1)"});
    const CompilerException error = errorOf([&] { specialize(0); });
    EXPECT_STREQ(error.what(), "Type arguments of double are too long");
    ASSERT_GT(error.getNotes().size(), 5u);
    EXPECT_LT(error.getNotes().size(), 30u);
    EXPECT_EQ(error.getNotes().back().message, "in specialization of double<Int> requested here");
    EXPECT_EQ(registrations(), 0u);
}

TEST_F(Functions, ShowWhoAskedForABrokenBody) {
    main({"outer(1)"});
    for (int round = 0; round < 2; round++) {  // errors are not remembered
        const CompilerException error = errorOf([&] { specialize(0); });
        EXPECT_STREQ(error.what(), "Inconsistent return types in generic function");
        EXPECT_EQ(error.getToken()->getFilename(), program.pathOf("lib/lib.vk"));
        ASSERT_EQ(error.getNotes().size(), 2u);
        EXPECT_EQ(error.getNotes()[0].message, "in specialization of torn<Int> requested here");
        EXPECT_EQ(error.getNotes()[1].message, "in specialization of outer<Int> requested here");
        EXPECT_EQ(error.getNotes()[1].token->getFilename(), program.pathOf("main.vk"));
    }
}

TEST_F(Functions, OfTwoFilesKeepApart) {
    program.load("one/one.vk", "package one\n\ndef helper<T>(x: T) -> T:\n    return x\n");
    program.load("two/two.vk", "package two\n\ndef helper<T>(x: T) -> T:\n    return x\n");
    program.load("a.vk", "import one\n\ndef a() -> Void:\n    helper(1)\n");
    program.load("b.vk", "import two\n\ndef b() -> Void:\n    helper(1)\n");
    const ScopedSpecializationUnit unit(program.pathOf("main.vk"));
    const Str first = program.specialize("a.vk", "a", 0), second = program.specialize("b.vk", "b", 0);
    EXPECT_NE(first, second);
    EXPECT_EQ(program.specialize("a.vk", "a", 0), first);
    EXPECT_EQ(program.specialize("b.vk", "b", 0), second);
    EXPECT_EQ(second, genericFunctionSymbol(program.pathOf("main.vk"), "helper",
                                            genericFunctionCacheKey("helper", {"Int"}, {"Int"}, "Int"),
                                            program.pathOf("two/two.vk")));
}

TEST_F(Functions, ResolveTheirTypesWhereTheyAreDeclared) {
    program.load("far/far.vk", "package far\n\nclass Hidden<T>:\n    value: T\n");
    program.load("near/near.vk",
                 "package near\nimport far\n\ndef make<T>(x: T) -> Hidden<T>:\n    return Hidden<T>()\n");
    program.load("main.vk", "import near\n\ndef main() -> Void:\n    make(1)\n");
    EXPECT_EQ(returnOf(specialize(0)), "far.Hidden<Int>");
}

TEST_F(Functions, TakeAClassThatIsCalledLikeTheirParameter) {
    program.load("main.vk",
                 "class T:\n    x: Int\n\ndef keep<T>(x: T):\n    var y = x\n    z: T = y\n    return z\n\ndef main() "
                 "-> Void:\n    keep(T())\n");
    const Str symbol = specialize(0);
    EXPECT_EQ(returnOf(symbol), "T");
    EXPECT_EQ(scope()->getFunctionParams(symbol), StrVec{"T"});
    EXPECT_TRUE(program.session().specializedInstance(symbol)->parameterTypes.at(0)->isConcrete);
}

TEST_F(Functions, AreFoundAgainFromLaterChunks) {
    const Str library = program.pathOf("tools/tools.vk");
    program.load("tools/tools.vk", "package tools\n\ndef keep<T>(x: T) -> T:\n    return x\n");
    program.load("main.vk", "import tools\n\ndef main() -> Void:\n    keep(1)\n    keep<Int>(1)\n");
    Str first;
    {
        const ScopedSpecializationUnit unit("/repl/repl_chunk_1");
        first = specialize(0);
        EXPECT_EQ(gReplGenericFunctionSpecCache.at(library + "|keep|Int").symbol, first);
    }
    {
        const ScopedSpecializationUnit unit("/repl/repl_chunk_2");
        EXPECT_EQ(specialize(0), first);
        EXPECT_FALSE(scope()->hasSpecializedFunctionForUnit("/repl/repl_chunk_2", first));
        EXPECT_EQ(returnOf(first), "Int");
        const Str withClause = specialize(1);
        EXPECT_NE(withClause, first);
        EXPECT_EQ(gReplGenericFunctionSpecCache.at(library + "|keep|Int|<Int>").symbol, withClause);
    }
    resetGenericSpecializerSession();
    const ScopedSpecializationUnit unit("/repl/repl_chunk_3");
    EXPECT_NE(specialize(0), first);
}

TEST_F(Functions, WorkOnSeveralThreadsAtOnce) {
    StrVec calls;
    for (int i = 0; i < 8; i++)
        calls.insert(calls.end(), {"id(" + std::to_string(i) + ")", "same(\"a\")", "wrap(1.5)", "open(Own())",
                                   "firstOf(Long[](1))"});
    main(calls);
    constexpr int THREADS = 4;
    std::vector<StrVec> symbols(THREADS);
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; t++) {
        threads.emplace_back([&, t] {
            const ScopedCompileSession session(program.session());
            const ScopedSpecializationUnit unit(t % 2 == 0 ? program.pathOf("main.vk")
                                                           : "/own/unit" + std::to_string(t) + ".vk");
            StrVec& own = symbols[static_cast<std::size_t>(t)];
            for (int round = 0; round < 5; round++) {
                for (std::size_t call = 0; call < calls.size(); call++) own.push_back(specialize(call));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(symbols[0], symbols[2]);
    EXPECT_NE(symbols[0], symbols[1]);
    EXPECT_EQ(registrations(), 5u);
    EXPECT_EQ(program.messages(), StrVec{});
}

TEST(DefaultSession, ServesAThreadWithoutSetUp) {
    const auto folder = std::filesystem::temp_directory_path() / ("vesk-default-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder);
    const Str path = SourceManager::normalizePath(folder / "plain.vk");
    std::ofstream(path)
        << "package plain.one\n\ndef id<T>(x: T) -> T:\n    return x\n\ndef main() -> Void:\n    id(1)\n";
    std::thread([&] {
        const auto scope = std::make_shared<Context>();
        ClassLoader::loadFileIntoContext(path, scope);
        EXPECT_TRUE(scope->isGenericFunction("id"));
        const auto literal = std::make_shared<LiteralNode>(LiteralKind::Integer, "1", scope, nullptr);
        const ScopedSpecializationUnit unit(path);
        const Str symbol = ensureGenericFunctionSpecialization(scope, "id", {literal}, nullptr, {});
        EXPECT_EQ(symbol, genericFunctionSymbol(path, "id", genericFunctionCacheKey("id", {"Int"}, {"Int"}, "Int")));
    }).join();
    std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace vesk::compiler
