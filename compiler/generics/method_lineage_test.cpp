// Which overloads a class offers, and in which order.
#include "generics/method_lineage.h"

#include "generics/method_program_test.h"

namespace vesk::compiler {
namespace {

class MethodLineage : public testing::Test {
protected:
    MethodLineage()
        : program(folder.path()), scope(program.load("main.vk", R"(import vesk.collections

interface I:
    def f<T>(x: T) -> Int:
        return 1
    def only<T>(x: T) -> Int:
        return 1

interface K extends I:
    def f<A, B = A>(x: A) -> Int:
        return 2

interface X:
    def f<T>(x: T) -> Int:
        return 3
    def g<T>(x: T, y: T) -> Int:
        return 3

class E implements I, K:
    pass

class IXK implements I, X, K:
    pass

class XK implements X, K:
    pass

class Base implements X:
    def g<T, U>(x: T, y: U) -> Int:
        return 4
    private def h<T>(x: T) -> Int:
        return 4

class Sub extends Base implements I:
    def g<T, U>(x: U, y: T) -> Int:
        return 5
    def g<P>(x: P) -> Int:
        return 5
    def h<T>(x: T, y: Int = 1) -> Int:
        return 5

class Twin:
    def f<T>(x: T) -> Int:
        return 6
    def f<U>(x: U) -> Int:
        return 6

interface Generic<E>:
    def m<T>(x: T, e: E) -> Int:
        return 7

class Ints implements Generic<Int>:
    def m<T>(x: T, e: String) -> Int:
        return 8

class Strings implements Generic<String>:
    def m<T>(x: T, e: String) -> Int:
        return 9

interface First:
    def f<T>(x: T) -> Int:
        return 10

interface Deep extends First:
    def d() -> Int:
        return 10

class FirstListed implements Deep, X:
    pass

class OwnFirst extends Base implements Deep:
    pass
)")) {}

    // "K.f(x)" of each, farthest first.
    StrVec offered(const Str& owner, const Str& method) const {
        StrVec names;
        for (const GenericMethodInfo& info : genericMethodOverloads(scope, owner, method)) {
            Str text = structuredTypeText(info.ownerClass) + "." + info.name + "(";
            for (std::size_t i = 0; i < info.paramTypes.size(); i++) text += (i ? ", " : "") + info.paramTypes[i];
            names.push_back(text + ")");
        }
        return names;
    }

    TemporaryFolder folder;
    MethodProgram program;
    ContextPtr scope;
};

TEST_F(MethodLineage, NearerOverloadsHideFarther) {
    const struct {
        Str owner, method;
        StrVec overloads;
    } cases[] = {
        {"E", "f", {"K.f(A)"}},
        {"K", "f", {"K.f(A)"}},
        {"I", "f", {"I.f(T)"}},
        {"IXK", "f", {"K.f(A)"}},
        {"XK", "f", {"X.f(T)"}},
        {"E", "only", {"I.only(T)"}},
        {"FirstListed", "f", {"X.f(T)"}},   // Deep only extends what declares it
        {"OwnFirst", "f", {"First.f(T)"}},  // a class's own interfaces before those of its super class
        {"Sub", "f", {"I.f(T)"}},
        {"Sub", "g", {"X.g(T, T)", "Sub.g(U, T)", "Sub.g(P)"}},
        {"Base", "g", {"X.g(T, T)", "Base.g(T, U)"}},
        {"Sub", "h", {"Base.h(T)", "Sub.h(T, Int)"}},
        {"Twin", "f", {"Twin.f(T)", "Twin.f(U)"}},  // those of one class do not hide one another
        {"Ints", "m", {"Generic<Int>.m(T, Int)", "Ints.m(T, String)"}},
        {"Strings", "m", {"Strings.m(T, String)"}},
        {"Sub", "nothing", {}},
        {"Nowhere", "f", {}},
    };
    for (const auto& each : cases)
        EXPECT_EQ(offered(each.owner, each.method), each.overloads) << each.owner << each.method;
}

TEST_F(MethodLineage, Names) {
    EXPECT_EQ(genericMethodNames(scope, "Sub"), (StrVec{"g", "h", "f", "only"}));
    EXPECT_EQ(genericMethodNames(scope, "Nowhere"), StrVec());
}

TEST_F(MethodLineage, AClassAnswersForItself) {
    EXPECT_TRUE(scope->getGenericMethods("E", "f").empty());
    EXPECT_TRUE(scope->getAllGenericMethods("E").empty());
    EXPECT_EQ(scope->getGenericMethods("K", "f").size(), 1u);
    EXPECT_EQ(scope->getAllGenericMethods("Sub").size(), 3u);
    EXPECT_TRUE(scope->isGenericMethod("E", "f"));  // inherited
}

}  // namespace
}  // namespace vesk::compiler
