// Method nodes made from records: signatures, bodies, and the lines and columns of what is read again.
#include "generics/method_materialization.h"

#include "generics/generic_specializer.h"
#include "generics/method_program_test.h"

namespace vesk::compiler {
namespace {

class Materialization : public testing::Test {
protected:
    GenericMethodInfo load(const Str& text, const Str& method = "m") {
        program.emplace(folder.path());
        scope = program->load("main.vk", text);
        const auto overloads = scope->getGenericMethods("Box", method);
        EXPECT_GE(overloads.size(), 1u) << text;
        return overloads.at(0);
    }
    std::shared_ptr<MethodNode> materialize(const GenericMethodInfo& info, const StrVec& names = {"T"},
                                            const StrVec& args = {"Int"}) {
        return materializeGenericMethodFromInfo(info, scope, nullptr, names, args);
    }

    TemporaryFolder folder;
    std::optional<MethodProgram> program;
    ContextPtr scope;
};

TEST_F(Materialization, SignaturesFollowTheRecord) {
    load("class Box:\n    def m<T>(a: T) -> T:\n        return a\n");
    GenericMethodInfo info;
    info.name = "m";
    info.sourceFile = program->pathOf("main.vk");
    info.typeParams = {{"T", "Object", "Int"}};
    info.paramNames = {"a", ""};
    info.paramTypes = {"T", "String", "vesk.collections.ArrayList<T>"};
    info.paramHasDefault = {false, true};
    info.passingModes = {ParameterPassingMode::ByReference};
    info.isVariadic = true;
    info.variadicIndex = 2;
    info.isStatic = info.isNative = true;
    info.overloadIndex = 3;
    info.returnType = "T";
    const auto node = syntheticGenericMethod(info, scope, nullptr);
    EXPECT_EQ(node->getName(), "m");
    EXPECT_EQ(node->getReturnType(), "T");
    ASSERT_EQ(node->getParams().size(), 3u);
    EXPECT_EQ(node->getParams()[0].name, "a");
    EXPECT_EQ(node->getParams()[1].name, "arg1");
    EXPECT_EQ(node->getParams()[2].name, "arg2");
    EXPECT_EQ(node->getParams()[0].passingMode, ParameterPassingMode::ByReference);
    EXPECT_EQ(node->getParams()[1].passingMode, ParameterPassingMode::ByValue);
    EXPECT_TRUE(node->getParams()[1].hasDefault);
    EXPECT_FALSE(node->getParams()[2].hasDefault);
    EXPECT_TRUE(node->getParams()[2].isVariadic);
    EXPECT_FALSE(node->getParams()[2].isNamedVariadic);
    EXPECT_EQ(node->getModifiers(), (StrVec{"static", "native"}));
    EXPECT_TRUE(node->isStatic());
    EXPECT_TRUE(node->isNative());
    ASSERT_EQ(node->getTypeParams().size(), 1u);
    EXPECT_EQ(node->getTypeParams()[0].constraint, "Object");
    EXPECT_EQ(node->overloadIndex(), 3u);
    EXPECT_TRUE(node->getBody().empty());

    CachedGenericMethodSpec cached;
    cached.info = info;
    cached.spec.paramTypes = {"Int", "String", "vesk.collections.ArrayList<Int>"};
    cached.spec.returnType = "Int";
    const auto rebuilt = rebuildCachedNativeGenericMethod(cached, scope, nullptr);
    EXPECT_EQ(rebuilt->getParams()[0].type, "Int");
    EXPECT_EQ(rebuilt->getReturnType(), "Int");
}

TEST_F(Materialization, WithoutAContextThereIsNothing) {
    EXPECT_EQ(materializeGenericMethodFromInfo({}, nullptr, nullptr, {}, {}), nullptr);
    EXPECT_NE(syntheticGenericMethod({}, nullptr, nullptr), nullptr);
}

TEST_F(Materialization, BodiesKeepTheirPlaces) {
    const struct {
        Str text;
        int line, column;
        std::size_t statements;
    } cases[] = {
        {"class Box:\n    def m<T>(a: T) -> T:\n        return a\n", 3, 9, 1},
        {"class Box:\n    def m<T>(a: T) -> T:\n        # remark\n\n        var b = a\n        return b\n", 5, 13, 2},
        {"class Box:\n  def m<T>(a: T) -> T:\n    return a\n", 3, 5, 1},
        {"class Box:\n\tdef m<T>(a: T) -> T:\n\t\treturn a\n", 3, 3, 1},
        // A tab is one character, however wide it counts.
        {"class Box:\n  def m<T>(a: T) -> T:\n  \treturn a\n", 3, 4, 1},
        {"class Box:\n            def m<T>(a: T) -> T:\n                return a\n", 3, 17, 1},
        {"class Box:\n    def m<T>(\n            a: T,\n            b: Int\n    ) -> T:\n        return a\n", 6, 9, 1},
        {"\n\n\n\n\n\n\n\n\nclass Box:\n    def m<T>(a: T) -> T:\n        return a\n", 12, 9, 1},
        {"class Box:\n    def m<T>(a: T) -> T:\n        if a is T:\n            return a\n        return a\n    def "
         "other() -> Void:\n        pass\n",
         3, 9, 2},
        {"class Box:\n    def m<T>(a: T) -> T:\n        return a", 3, 9, 1},
        {"class Box:\r\n    def m<T>(a: T) -> T:\r\n        return a\r\n", 3, 9, 1},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.text);
        const auto node = materialize(load(each.text));
        ASSERT_EQ(node->getBody().size(), each.statements);
        EXPECT_EQ(node->getBody()[0]->getToken()->getLine(), each.line);
        EXPECT_EQ(node->getBody()[0]->getToken()->getColumn(), each.column);
        EXPECT_EQ(node->getBody()[0]->getToken()->getFilename(), program->pathOf("main.vk"));
        EXPECT_EQ(node->getToken()->getFilename(), program->pathOf("main.vk"));
        EXPECT_EQ(node->getParams()[0].type, "Int");
        EXPECT_EQ(node->getReturnType(), "Int");
    }
}

TEST_F(Materialization, WhatTheScannersMisreadYieldsNoBodyButIsLoaded) {
    // An arrow in a header over several lines closes a bracket too early for the scanners.
    const auto info = load(
        "class Box:\n    def m<T>(f: (T) -> Bool,\n            a: T,\n            b: T) -> T:\n        return a\n    "
        "def n<T>(a: T) -> T:\n        return a\n");
    EXPECT_GT(info.nextCodeLine, 0);
    EXPECT_TRUE(materialize(info)->getBody().empty());
    const auto node = loadGenericMethod(info, "Box", scope, nullptr, {"T"}, {"Int"});
    ASSERT_TRUE(node);
    EXPECT_EQ(node->getBody().size(), 1u);
    EXPECT_EQ(node->getBody()[0]->getToken()->getLine(), 5);
}

TEST_F(Materialization, StaleRecordsYieldNoBody) {
    auto info = load("class Box:\n    def m<T>(a: T) -> T:\n        return a\n");
    for (const int line : {0, -3, 4, 1000}) {
        GenericMethodInfo stale = info;
        stale.declarationLine = line;
        EXPECT_TRUE(materialize(stale)->getBody().empty()) << line;
    }
    info.sourceFile = program->pathOf("missing.vk");
    EXPECT_TRUE(materialize(info)->getBody().empty());
    info.sourceFile = "";
    EXPECT_EQ(materialize(info)->getToken()->getFilename(), "<unknown>");
    EXPECT_EQ(loadGenericMethod(info, "Box", scope, nullptr, {"T"}, {"Int"}), nullptr);
}

TEST_F(Materialization, ClausesAreReplacedWhileReading) {
    const auto node =
        materialize(load("import vesk.collections\nclass Box:\n    def m<T>(a: T) -> T:\n        x: List<T> = "
                         "ArrayList<T>()\n        print(\"List<T>\")\n        return a\n"));
    const auto declaration = std::dynamic_pointer_cast<DeclarationNode>(node->getBody().at(0));
    ASSERT_TRUE(declaration);
    EXPECT_EQ(declaration->getDeclaredType(), "List<Int>");
    const auto call = std::dynamic_pointer_cast<CallableExpressionNode>(node->getBody().at(1));
    ASSERT_TRUE(call);
    EXPECT_EQ(std::dynamic_pointer_cast<StringLiteralNode>(call->getArguments().at(0))->value(), "List<T>");
}

TEST_F(Materialization, ClausesKeepTheirQuestionMarks) {
    const auto declaredAs = [&](const Str& type, const StrVec& args) {
        const auto node =
            materialize(load("import vesk.collections\nclass Box:\n    def m<T>(a: T) -> T:\n        x: " + type +
                             " = null\n        return a\n"),
                        {"T"}, args);
        const auto declaration = std::dynamic_pointer_cast<DeclarationNode>(node->getBody().at(0));
        return declaration ? declaration->getDeclaredType() : Str();
    };
    EXPECT_EQ(declaredAs("List<Tuple<T, T>?>?", {"Int"}), "List<Tuple<Int, Int>?>?");
    EXPECT_EQ(declaredAs("List<T?[]>[]", {"Int"}), "List<Int?[]>[]");
    EXPECT_EQ(declaredAs("List<Tuple<Int, Int>?>?", {"Long"}), "List<Tuple<Int, Int>?>?");
    EXPECT_EQ(declaredAs("List<((T?) -> T)?>?", {"Int?"}), "List<((Int?) -> Int?)?>?");
    EXPECT_EQ(declaredAs("List<Box.T>", {"Int"}), "List<Box.T>");
}

TEST_F(Materialization, ATypeArgumentSpelledLikeAParameterIsReplacedOnce) {
    const auto info = load(
        "import vesk.collections\nclass Box:\n    def m<Int, T>(a: Int, b: T) -> T:\n        x: List<T?> = "
        "ArrayList<T?>()\n        y: Tuple<T, Int>? = null\n        return b\n");
    const auto node = materialize(info, {"Int", "T"}, {"String", "Int"});
    concretizeGenericMethod(node, info, "Box", {"String", "Int"}, {"String", "Int"}, "Int", "", scope, nullptr);
    StrVec types;
    for (const NodePtr& statement : node->getBody()) {
        if (const auto local = std::dynamic_pointer_cast<DeclarationNode>(statement))
            types.push_back(local->getDeclaredType());
    }
    EXPECT_EQ(types, (StrVec{"List<Int?>", "Tuple<Int, String>?"}));
    EXPECT_EQ(node->getParams()[1].type, "Int");
    EXPECT_EQ(node->getReturnType(), "Int");
    EXPECT_EQ(ClassLoader::resolveTypeName("Int", node->getContext(), nullptr), "Int");
}

TEST_F(Materialization, SelfIsThereUnlessStatic) {
    const auto instance =
        materialize(load("class Box:\n    def m<T>(a: T) -> T:\n        var s = self\n        return a\n"));
    EXPECT_EQ(inferExpressionType(std::dynamic_pointer_cast<DeclarationNode>(instance->getBody()[0])->getInitializer()),
              "Box");
    const auto isStatic = materialize(load("class Box:\n    static def m<T>(a: T) -> T:\n        return a\n"));
    EXPECT_TRUE(isStatic->isStatic());
}

TEST_F(Materialization, EmissionIsForTheDeclaringUnit) {
    const auto info = load("class Box:\n    def m<T>(a: T) -> T:\n        return a\n");
    GenericMethodSpec spec;
    spec.symbol = "sym";
    spec.paramTypes = {"Int"};
    spec.returnType = "Int";
    const Str unit = program->pathOf("main.vk");
    const auto emit = [&](const ContextPtr& context, const GenericMethodInfo& method, const GenericMethodSpec& wanted) {
        return emitGenericMethodSpecializationInCurrentUnit(context, nullptr, "Box", "m", method, nullptr, wanted,
                                                            {"Int"});
    };
    EXPECT_FALSE(emit(nullptr, info, spec));
    GenericMethodInfo native = info;
    native.isNative = true;
    EXPECT_FALSE(emit(scope, native, spec));
    EXPECT_FALSE(emit(scope, info, {}));
    GenericMethodInfo elsewhere = info;
    elsewhere.sourceFile = folder.path() + "/other.vk";
    EXPECT_FALSE(emit(scope, elsewhere, spec));
    elsewhere.sourceFile = "";
    EXPECT_FALSE(emit(scope, elsewhere, spec));
    EXPECT_FALSE(emit(program->root(), info, spec));  // no unit
    EXPECT_FALSE(scope->hasSpecializedMethodForUnit(unit, "sym"));

    EXPECT_TRUE(emit(scope, info, spec));
    EXPECT_TRUE(scope->hasSpecializedMethodForUnit(unit, "sym"));
    EXPECT_EQ(ClassLoader::sourceFileForSymbol("sym"), unit);
    EXPECT_TRUE(emit(scope, info, spec));  // there already
    const auto registrations = program->session().registrationsOf(unit);
    ASSERT_EQ(registrations.size(), 1u);
    EXPECT_EQ(registrations[0].owner, "Box");
    EXPECT_EQ(registrations[0].sourceOrTarget, unit);
    EXPECT_EQ(registrations[0].node->getReturnType(), "Int");
    EXPECT_EQ(registrations[0].node->getContext()->getCompileUnitFile(), unit);
    EXPECT_TRUE(registrations[0].node->getTypeParams().empty());

    // Another unit is under way: not there, unless the scope's own unit declares the method.
    spec.symbol = "sym2";
    const ScopedSpecializationUnit other(folder.path() + "/other.vk");
    EXPECT_TRUE(emit(scope, info, spec));
    EXPECT_TRUE(scope->hasSpecializedMethodForUnit(folder.path() + "/other.vk", "sym2"));
    auto foreign = std::make_shared<Context>(program->root());
    foreign->setCompileUnitFile(folder.path() + "/other.vk");
    spec.symbol = "sym3";
    EXPECT_FALSE(emit(foreign, info, spec));
}

}  // namespace
}  // namespace vesk::compiler
