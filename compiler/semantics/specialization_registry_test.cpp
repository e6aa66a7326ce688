// Registrations per unit, requesters and their limit, dependencies; several threads at once.
#include <thread>

#include "host/ast_nodes.h"
#include "semantics/model_session_test.h"

namespace vesk::compiler {

namespace {

struct RegistryTest : testing::Test {
    ModelSession session;
    ContextPtr scope = session.load(
        "/app/f.vk",
        "class Box<T>:\n    def get<U>(x: U) -> U:\n        return x\ndef id(x: Int) -> Int:\n    return x\n");
    std::shared_ptr<FunctionNode> node() { return lookupFunctions("id", scope).at(0)->node; }

    void addSignature(const Str& symbol) {
        scope->addFunction(symbol, {"Int"}, "Long", {"x"}, {{}}, false, -1, {false}, false, -1,
                           {ParameterPassingMode::ByValue}, scope, "/app/f.vk");
    }
};

TEST_F(RegistryTest, FunctionsBelongToUnits) {
    EXPECT_FALSE(scope->hasSpecializedFunctionForUnit("/app/f.vk", "s"));
    scope->addSpecializedFunctionForUnit("/app/f.vk", "s", node());
    scope->addSpecializedFunctionForUnit("/app/f.vk", "s", node());
    EXPECT_TRUE(scope->hasSpecializedFunctionForUnit("/app/f.vk", "s"));
    EXPECT_FALSE(scope->hasSpecializedFunctionForUnit("/app/g.vk", "s"));
    EXPECT_FALSE(scope->hasSpecializedMethodForUnit("/app/f.vk", "s"));
    scope->addSpecializedFunctionForUnit("/app/f.vk", "t", node());
    auto all = session->registrationsOf("/app/f.vk");
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0].symbol, "s");
    EXPECT_EQ(all[0].instance->parameterTypes.at(0)->text, "Int");
    EXPECT_EQ(session->registrationsOf("/app/f.vk", 1).at(0).symbol, "t");
    EXPECT_TRUE(session->registrationsOf("/app/f.vk", 2).empty());
    EXPECT_TRUE(session->registrationsOf("/app/g.vk").empty());
    EXPECT_EQ(session->specializedInstance("s"), all[0].instance);
    EXPECT_EQ(session->specializedInstance("nowhere"), nullptr);
}

TEST_F(RegistryTest, SignaturesComeBeforeNodes) {
    addSignature("r");
    EXPECT_EQ(scope->getFunctionParams("r"), StrVec{"Int"});
    EXPECT_EQ(scope->getFunctionReturn("r"), "Long");
    EXPECT_EQ(scope->getFunctionReturn("nowhere"), "");
    EXPECT_EQ(ClassLoader::sourceFileForSymbol("r"), "/app/f.vk");
    FunctionInstance* early = session->specializedInstance("r");
    ASSERT_NE(early, nullptr);
    EXPECT_EQ(early->node, nullptr);
    EXPECT_EQ(early->returnType->text, "Long");
    EXPECT_EQ(session->specializedInstance("r"), early);
    scope->addSpecializedFunctionForUnit("/app/f.vk", "r", node());
    EXPECT_NE(session->specializedInstance("r")->node, nullptr);
    EXPECT_EQ(early->symbol, "r");
    ClassLoader::registerSyntheticSymbolSource("other", "/app/../app/g.vk");
    EXPECT_EQ(ClassLoader::sourceFileForSymbol("other"), "/app/g.vk");
    EXPECT_EQ(ClassLoader::sourceFileForSymbol("nowhere"), "");
}

TEST_F(RegistryTest, MethodsKeepTheirSourceOrTarget) {
    const auto& declaration = lookupClass("Box", scope)->methods.at(0);
    Str owner = session.resolve("Box<Int>", scope);
    scope->addSpecializedMethodForUnit("/app/f.vk", owner, "m", declaration->node, "/app/f.vk");
    EXPECT_TRUE(scope->hasSpecializedMethodForUnit("/app/f.vk", "m"));
    auto registration = session->registrationsOf("/app/f.vk").at(0);
    EXPECT_EQ(registration.sourceOrTarget, "/app/f.vk");
    EXPECT_EQ(registration.owner, owner);
    EXPECT_EQ(registration.instance->owner->structured, "Box<Int>");
    EXPECT_TRUE(registration.instance->hasSelf);
    EXPECT_EQ(registration.instance->linkage, InstanceLinkage::OnDemand);
    GenericMethodSpec spec;
    spec.symbol = "in_a_bundle";
    spec.paramTypes = {"Int"};
    spec.returnType = "Int";
    FunctionInstance* instance = session->specializedMethod(spec, registration.instance->owner, "get");
    EXPECT_EQ(instance->displayName, "Box<Int>.get");
    EXPECT_EQ(session->specializedMethod(spec, registration.instance->owner, "get"), instance);
    spec.symbol = "m";
    EXPECT_EQ(session->specializedMethod(spec, registration.instance->owner, "get"), registration.instance);
}

TEST_F(RegistryTest, ChainsOfRequestsEnd) {
    FunctionInstance* last = nullptr;
    auto place = [](int line) { return std::make_shared<Token>(nullptr, TokenType::Identifier, "f", line, 1); };
    for (int i = 0; i <= MAX_REQUEST_DEPTH; i++) {
        ScopedRequester requester(last, place(i + 1));
        Str symbol = "s" + std::to_string(i);
        scope->addSpecializedFunctionForUnit("/app/f.vk", symbol, node());
        last = session->specializedInstance(symbol);
        ASSERT_EQ(last->requestDepth, i);
    }
    EXPECT_EQ(ScopedRequester::current(), nullptr);
    EXPECT_EQ(ScopedRequester::currentToken(), nullptr);
    ScopedRequester requester(last, place(1000));
    try {
        scope->addSpecializedFunctionForUnit("/app/f.vk", "too_deep", node());
        FAIL();
    } catch (const CompilerException& error) {
        EXPECT_STREQ(error.what(), "Generic specialization is nested too deeply");
        EXPECT_EQ(error.getKind(), CompilerErrorKind::CompileError);
        EXPECT_EQ(error.getToken()->getLine(), 1000);
        ASSERT_EQ(error.getNotes().size(), static_cast<std::size_t>(MAX_REQUEST_DEPTH) + 2);
        EXPECT_EQ(error.getNotes().front().token->getLine(), 1000);
        EXPECT_EQ(error.getNotes()[1].token->getLine(), MAX_REQUEST_DEPTH + 1);
        EXPECT_EQ(error.getNotes().back().token->getLine(), 1);
        EXPECT_EQ(error.getNotes().back().message, "in specialization of id requested here");
    }
    EXPECT_FALSE(scope->hasSpecializedFunctionForUnit("/app/f.vk", "too_deep"));
}

TEST_F(RegistryTest, DependenciesOfUnits) {
    ScopedDependencyUnit unit("/app/f.vk");
    ClassLoader::trackSourceDependency("/app/b.vk");
    ClassLoader::trackSourceDependency("/app/x/../a.vk");
    ClassLoader::suspendDependencyCapture();
    ClassLoader::suspendDependencyCapture();
    ClassLoader::resumeDependencyCapture();
    ClassLoader::trackSourceDependency("/app/unseen.vk");
    ClassLoader::resumeDependencyCapture();
    {
        ScopedDependencyUnit inner("/app/g.vk");
        ClassLoader::trackSourceDependency("/app/c.vk");
    }
    EXPECT_EQ(session->dependenciesOf("/app/f.vk"), (std::vector<std::string>{"/app/a.vk", "/app/b.vk"}));
    EXPECT_EQ(session->dependenciesOf("/app/g.vk"), std::vector<std::string>{"/app/c.vk"});
}

TEST(GenerationTest, TheContextBelongsToItsThread) {
    EXPECT_THROW(ILGenContext::get(), std::logic_error);
    ScopedILGenContext outer("outer");
    {
        ScopedILGenContext inner("inner");
        EXPECT_EQ(ILGenContext::get().unitName, "inner");
        std::thread([] { EXPECT_THROW(ILGenContext::get(), std::logic_error); }).join();
    }
    EXPECT_EQ(ILGenContext::get().unitName, "outer");
}

TEST(SessionTest, ThreadsWithoutOneShareTheDefault) {
    CompileSession* main = &CompileSession::current();
    std::thread([main] { EXPECT_EQ(&CompileSession::current(), main); }).join();
    ModelSession own;
    EXPECT_NE(&CompileSession::current(), main);
}

TEST(SessionTest, DiagnosticsComeInOrderAndOnce) {
    ModelSession session;
    auto report = [&](const Str& file, int line, const Str& message) {
        auto token = std::make_shared<Token>(nullptr, TokenType::Identifier, "x", line, 1);
        token->setFilename(file);
        session->report(compileError(token, message));
    };
    EXPECT_FALSE(session->hasErrors());
    report("/app/b.vk", 1, "x");
    report("/app/a.vk", 12, "x");
    report("/app/a.vk", 2, "y");
    report("/app/a.vk", 2, "x");
    report("/app/b.vk", 1, "x");
    EXPECT_EQ(session.mistakes(), (StrVec{"a.vk:2: x", "a.vk:2: y", "a.vk:12: x", "b.vk:1: x"}));
    EXPECT_TRUE(session->hasErrors());
}

// Several threads load, resolve, lay out and register at once: each sees the same types.
TEST(SessionTest, ThreadsWorkOnOneSession) {
    constexpr int THREADS = 4, ROUNDS = 40;
    ModelSession session;
    CompileSession& compile = *session;
    for (int i = 0; i < ROUNDS; i++) {
        Str name = std::to_string(i);
        compile.addVirtualSource("/app/f" + name + ".vk",
                                 "package p" + name + "\nimport p" + std::to_string((i + 1) % ROUNDS) + "\nclass C" +
                                     name + "<T> implements Comparable<C" + name +
                                     "<T>>:\n    value: T\n    def get<U>(x: U) -> T:\n        return self.value\n"
                                     "    def compareTo(o: C" +
                                     name + "<T>) -> Int:\n        return 0\ndef g" + name +
                                     "<T>(x: T) -> T:\n    return x\n");
    }
    std::vector<std::vector<const Type*>> seen(THREADS);
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; t++) {
        threads.emplace_back([&, t] {
            ScopedCompileSession mine(compile);
            for (int i = 0; i < ROUNDS; i++) {
                Str name = std::to_string(i);
                FileDeclaration* file = compile.loadFile("/app/f" + name + ".vk");
                ContextPtr scope = std::make_shared<Context>(file->context);
                const Type* type = resolveType("C" + name + "<Comparable<Int>[]>", scope);
                seen[static_cast<std::size_t>(t)].push_back(type);
                compile.layoutOf(type);
                EXPECT_TRUE(scope->isAssignable("Object", type->text));
                EXPECT_TRUE(scope->isAssignable("Comparable<" + type->text + ">", type->text));
                EXPECT_TRUE(scope->isGenericMethod(type->text, "get"));
                EXPECT_TRUE(scope->isGenericFunction("g" + name));
                EXPECT_EQ(SourceManager::contents(file->path)->substr(0, 7), "package");
                scope->addSpecializedFunctionForUnit(file->path, "s" + std::to_string(i % 7),
                                                     file->functions.at(0)->node);
                EXPECT_TRUE(scope->hasSpecializedFunctionForUnit(file->path, "s" + std::to_string(i % 7)));
                ClassLoader::trackSourceDependency(file->path);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (int t = 1; t < THREADS; t++) EXPECT_EQ(seen[static_cast<std::size_t>(t)], seen[0]);
    for (int i = 0; i < ROUNDS; i++)
        EXPECT_EQ(compile.registrationsOf("/app/f" + std::to_string(i) + ".vk").size(), 1u);
    EXPECT_EQ(session.mistakes(), StrVec{});
}

}  // namespace

}  // namespace vesk::compiler
