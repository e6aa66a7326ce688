// Type arguments and signatures of methods, given and inferred.
#include "generics/method_signature.h"

#include "generics/errors.h"

#include "generics/method_program_test.h"

namespace vesk::compiler {
namespace {

class MethodSignatures : public testing::Test {
protected:
    MethodSignatures()
        : program(folder.path()),
          scope((program.load("lib/box.vk", R"(package lib
import vesk.collections
class Point:
    pass
class Box<T>:
    def id<U>(x: U) -> U:
        return x
    def two<A, B = List<A>>(a: A) -> B:
        return null as B
    def bound<N: AbstractFloat>(x: N) -> N:
        return x
    def near<K: Comparable<K>>(k: K) -> K:
        return k
    def list<U>(x: List<U>) -> U?:
        return null
    def array<U>(x: U[]) -> U[]:
        return x
    def point<U>(p: Point, x: U) -> ArrayList<Point>:
        return ArrayList<Point>()
    def own<U>(t: T, x: U) -> Box<U>:
        return Box<U>()
    def rest<U>(*items: U, **named: U) -> U:
        return items[0]
    def same<U>(a: U, b: U) -> U:
        return a
    def open<U>(a: U):
        return a
)"),
                 program.load("main.vk", "import lib\nimport vesk.collections\nclass Point:\n    pass\n"))) {}

    GenericMethodInfo info(const Str& name) const {
        const auto overloads = scope->getGenericMethods("lib.Box<Int>", name);
        EXPECT_EQ(overloads.size(), 1u) << name;
        return overloads.at(0);
    }
    struct Result {
        StrVec typeArgs, paramTypes;
        Str returnType;
    };
    Result specialize(const Str& name, const StrVec& argTypes, const StrVec& explicitArgs = {}) const {
        Result result;
        result.paramTypes = specializeGenericMethodInfoSignature(info(name), argTypes, explicitArgs, scope, nullptr,
                                                                 &result.typeArgs, &result.returnType);
        for (StrVec* types : {&result.typeArgs, &result.paramTypes}) {
            for (Str& type : *types) type = structuredTypeText(type);
        }
        result.returnType = structuredTypeText(result.returnType);
        return result;
    }
    Str failure(const Str& name, const StrVec& argTypes, const StrVec& explicitArgs = {}) const {
        return structuredTypeText(errorOf([&] { specialize(name, argTypes, explicitArgs); }).what());
    }

    TemporaryFolder folder;
    MethodProgram program;
    ContextPtr scope;
};

TEST_F(MethodSignatures, AreSpecialized) {
    const struct {
        Str method;
        StrVec argTypes, explicitArgs, typeArgs, paramTypes;
        Str returnType;
    } cases[] = {
        {"id", {"Int"}, {}, {"Int"}, {"Int"}, "Int"},
        {"id", {}, {"String"}, {"String"}, {"String"}, "String"},
        {"id",
         {"vesk.collections.List<Int>"},
         {},
         {"vesk.collections.List<Int>"},
         {"vesk.collections.List<Int>"},
         "vesk.collections.List<Int>"},
        {"id",
         {},
         {"List<Point>"},
         {"vesk.collections.List<Point>"},
         {"vesk.collections.List<Point>"},
         "vesk.collections.List<Point>"},
        {"two", {"Int"}, {}, {"Int", "vesk.collections.List<Int>"}, {"Int"}, "vesk.collections.List<Int>"},
        {"bound", {"Int"}, {}, {"Double"}, {"Double"}, "Double"},
        {"bound", {"Float"}, {}, {"Float"}, {"Float"}, "Float"},
        {"near", {"String"}, {}, {"String"}, {"String"}, "String"},
        {"list", {"vesk.collections.ArrayList<Int>"}, {}, {"Int"}, {"vesk.collections.List<Int>"}, "Int?"},
        {"array", {"Int[]"}, {}, {"Int"}, {"Int[]"}, "Int[]"},
        // The declaration's Point is its own file's; the caller's is the caller's.
        {"point",
         {"lib.Point", "Point"},
         {},
         {"Point"},
         {"lib.Point", "Point"},
         "vesk.collections.ArrayList<lib.Point>"},
        {"own", {"Int", "String"}, {}, {"String"}, {"Int", "String"}, "lib.Box<String>"},
        {"rest",
         {"vesk.collections.ArrayList<Int>", "vesk.collections.Map<String,Int>"},
         {},
         {"Int"},
         {"vesk.collections.ArrayList<Int>", "vesk.collections.Map<String, Int>"},
         "Int"},
        {"open", {"Int"}, {}, {"Int"}, {"Int"}, ""},
        {"same", {"Int"}, {}, {"Int"}, {"Int", "Int"}, "Int"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.method + "(" + joinTypes(each.argTypes) + ")<" + joinTypes(each.explicitArgs) + ">");
        const Result result = specialize(each.method, each.argTypes, each.explicitArgs);
        EXPECT_EQ(result.typeArgs, each.typeArgs);
        EXPECT_EQ(result.paramTypes, each.paramTypes);
        EXPECT_EQ(result.returnType, each.returnType);
    }
}

TEST_F(MethodSignatures, FailWithTheMessagesOfInference) {
    EXPECT_EQ(failure("id", {"Int"}, {"Int", "Int"}), "generic specialization expects 1 type arguments (got 2)");
    EXPECT_EQ(failure("two", {"Int"}, {"Int"}), "generic specialization expects 2 type arguments (got 1)");
    EXPECT_EQ(failure("same", {"Int", "String"}), "Inconsistent generic argument for U");
    EXPECT_EQ(failure("id", {}), "Cannot infer generic type parameter U");
    EXPECT_EQ(failure("bound", {"String"}), "Type String does not satisfy generic constraint AbstractFloat");
    EXPECT_EQ(failure("near", {"Point"}), "Type Point does not satisfy generic constraint vesk.Comparable<Point>");
}

TEST_F(MethodSignatures, WithoutTypeParametersComeBackAsDeclared) {
    GenericMethodInfo plain;
    plain.paramTypes = {"Int", "String"};
    plain.returnType = "Bool";
    StrVec typeArgs{"left"};
    Str returnType;
    EXPECT_EQ(specializeGenericMethodInfoSignature(plain, {"Int"}, {}, scope, nullptr, &typeArgs, &returnType),
              plain.paramTypes);
    EXPECT_TRUE(typeArgs.empty());
    EXPECT_EQ(returnType, "Bool");
    EXPECT_EQ(specializeGenericMethodInfoSignature(plain, {}, {}, nullptr, nullptr, nullptr, nullptr),
              plain.paramTypes);
}

TEST_F(MethodSignatures, NodesBecomeConcrete) {
    const Str path = program.pathOf("lib/box.vk");
    auto parse = [&](const Str& name) {
        FileDeclaration* file = program.session().loadedFile(path);
        for (const auto& method : file->classes.at(1)->methods) {
            if (method->name == name) return method->node;
        }
        return std::shared_ptr<MethodNode>();
    };
    const auto node = parse("rest");
    ASSERT_TRUE(node);
    StrVec typeArgs;
    const StrVec paramTypes =
        specializeExplicitGenericSignature(node, {"vesk.collections.ArrayList<Int>"}, {}, scope, nullptr, &typeArgs);
    EXPECT_EQ(typeArgs, StrVec{"Int"});
    EXPECT_EQ(structuredTypeText(paramTypes.at(0)), "vesk.collections.ArrayList<Int>");
    EXPECT_EQ(structuredTypeText(paramTypes.at(1)), "vesk.collections.Map<String, Int>");
    EXPECT_EQ(node->getReturnType(), "Int");
    EXPECT_EQ(node->getParams().at(0).type, paramTypes.at(0));
}

TEST_F(MethodSignatures, TracesTellWhatBoundWhat) {
    InferenceTrace trace;
    try {
        specializeGenericMethodSignature(info("same"), {"Int", "String"}, {}, scope, nullptr, &trace);
        FAIL();
    } catch (const CompilerException& error) {
        const InferenceFailure* failure = inferenceFailureOf(error);
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->reason, InferenceFailureReason::InconsistentArguments);
        EXPECT_EQ(failure->parameter, "U");
        EXPECT_EQ(failure->position, 1u);
    }
    EXPECT_EQ(trace.boundBy.at("U"), 0u);
    EXPECT_EQ(trace.bindings.at("U"), "Int");
}

}  // namespace
}  // namespace vesk::compiler
