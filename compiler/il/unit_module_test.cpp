// Modules as text and as machine code, and the Jit's answers to what cannot be linked.
#include "il/lowering_test.h"

namespace vesk::compiler {
namespace {

class Modules : public Lowering {
protected:
    std::unique_ptr<UnitModule> answer(const std::string& symbol, int value) {
        SampleModule own(session);
        own.define(symbol, type(TypeKind::Int), {}, {own.giveBack(own.number(value))});
        return own.finish();
    }
};

TEST_F(Modules, TextReadBackIsTheSameText) {
    std::string il = printIL(*answer("f", 42));
    EXPECT_EQ(printIL(*parseIL(il, "sample")), il);
    std::ostringstream out;
    printIL(*parseIL(il, "sample"), out);
    EXPECT_EQ(out.str(), il);
}

TEST_F(Modules, ReadBackModulesRun) {
    Jit jit(OptimizationLevel::O1);
    jit.add(parseIL(printIL(*answer("f", 42)), "again"));
    EXPECT_EQ(reinterpret_cast<int (*)()>(jit.lookup("f"))(), 42);
}

TEST_F(Modules, TextThatIsNoModuleIsAnErrorWithItsLine) {
    try {
        parseIL("define i32 @f() {\n  ret i64 0\n}\n", "bad");
        FAIL() << "read as a module";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()).substr(0, 6), "bad:2:") << error.what();
    }
}

TEST_F(Modules, ObjectsRun) {
    auto module = answer("f", 7);
    std::string object = emitObject(*module, OptimizationLevel::O0);
    EXPECT_EQ(object.substr(1, 3), "ELF");
    Jit jit(OptimizationLevel::O0);
    jit.addObject("sample", object);
    EXPECT_EQ(reinterpret_cast<int (*)()>(jit.lookup("f"))(), 7);
    EXPECT_NE(emitAssembly(*answer("g", 1), OptimizationLevel::O0).find("g:"), std::string::npos);
}

TEST_F(Modules, SymbolsAreListed) {
    SampleModule own(session);
    own.define("b", type(TypeKind::String), {}, {own.giveBack(own.text("x"))});
    own.define("a", type(TypeKind::Int), {}, {own.giveBack(own.number(1))});
    auto module = own.finish();
    EXPECT_EQ(definedSymbols(*module), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(declaredSymbols(*module), (std::vector<std::string>{"vesk_class_String"}));
    makeLinkOnce(*module);
    EXPECT_NE(printIL(*module).find("define linkonce_odr i32 @a"), std::string::npos);
    dropDebugLines(*module);
    EXPECT_EQ(printIL(*module).find("DISubprogram"), std::string::npos);
}

TEST_F(Modules, MissingAndDoubleSymbolsAreErrors) {
    Jit jit(OptimizationLevel::O0);
    jit.add(answer("f", 1));
    EXPECT_THROW(jit.add(answer("f", 2)), std::runtime_error);
    try {
        jit.lookup("nowhere");
        FAIL() << "found";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("nowhere"), std::string::npos) << error.what();
    }
}

TEST_F(Modules, WhatIsMissingBehindOtherModulesIsAnError) {
    Jit jit(OptimizationLevel::O0);
    jit.add(parseIL("declare void @g()\ndefine void @f() {\n  call void @g()\n  ret void\n}\n", "first"));
    jit.add(parseIL("declare void @h()\ndefine void @g() {\n  call void @h()\n  ret void\n}\n", "second"));
    jit.add(parseIL("declare void @nowhere()\ndefine void @h() {\n  call void @nowhere()\n  ret void\n}\n", "third"));
    try {
        jit.lookup("f");
        FAIL() << "found";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("nowhere"), std::string::npos) << error.what();
    }
    // What is whole can be used as before.
    jit.add(answer("other", 3));
    EXPECT_EQ(reinterpret_cast<int (*)()>(jit.lookup("other"))(), 3);
}

TEST_F(Modules, ModulesThatNeedEachOtherRun) {
    Jit jit(OptimizationLevel::O0);
    jit.add(parseIL("declare i32 @g(i32)\ndefine i32 @f(i32 %n) {\n  %r = call i32 @g(i32 %n)\n  ret i32 %r\n}\n",
                    "first"));
    jit.add(
        parseIL("declare i32 @f(i32)\ndefine i32 @g(i32 %n) {\n  %end = icmp eq i32 %n, 0\n"
                "  br i1 %end, label %out, label %on\nout:\n  ret i32 7\non:\n  %m = sub i32 %n, 1\n"
                "  %r = call i32 @f(i32 %m)\n  ret i32 %r\n}\n",
                "second"));
    EXPECT_EQ(reinterpret_cast<int (*)(int)>(jit.lookup("f"))(10), 7);
}

// Each looks for the next while it is linked itself: on a stack of their own size they would not end.
TEST_F(Modules, LongChainsOfModulesNeedNoStack) {
    constexpr int LENGTH = 3000;
    Jit jit(OptimizationLevel::O0);
    jit.add(answer("f" + std::to_string(LENGTH), 5));
    for (int i = 0; i < LENGTH; i++) {
        const std::string own = std::to_string(i), next = std::to_string(i + 1);
        jit.add(parseIL("declare i32 @f" + next + "()\ndefine i32 @f" + own + "() {\n  %r = call i32 @f" + next +
                            "()\n  ret i32 %r\n}\n",
                        own));
    }
    EXPECT_EQ(reinterpret_cast<int (*)()>(jit.lookup("f0"))(), 5);
}

TEST_F(Modules, ProgramsStartWithTheirInitializers) {
    SampleModule own(session);
    own.define("prepare", type(TypeKind::Void), {}, {});
    own.define("main", type(TypeKind::Int), {}, {own.giveBack(own.number(5))});
    Jit jit(OptimizationLevel::O0);
    jit.add(own.finish());
    jit.add(makeStartModule(
        {.initializers = {"prepare"}, .mainSymbol = "main", .returnsVoid = false, .passArguments = false}));
    EXPECT_EQ(jit.run({}), 5);
}

}  // namespace
}  // namespace vesk::compiler
