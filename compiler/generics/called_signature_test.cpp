// What the host learns of a method that a bundle holds, whether this compilation has made the bundle or found it.
#include "generics/called_signature.h"

#include "generics/bundles/bundle_program_test.h"

namespace vesk::compiler {
namespace {

const Str METHODS = R"(package lib
class Box<T>:
    private value: T
    def init(value: T):
        self.value = value
    def get() -> T:
        return self.value
    def swap<U>(other: U) -> U:
        return other
    def boxed<U>(other: U, mine: T) -> Box<U>:
        return Box<U>(other)
    def all<U>(first: U, *others: U) -> Int:
        return 1
    def maybe<U>(x: U, times: Int = 3) -> U:
        return x
    static def make<U>(x: U) -> U:
        return x
)";

// "name(parameter: type, ...) -> type", with the parts that a call depends on.
Str described(const FunctionInstance& made) {
    Str text = made.displayName + "(";
    for (std::size_t i = 0; i < made.parameterNames.size(); i++) {
        const FunctionParam& param = made.node->getParams().at(i);
        if (i > 0) text += ", ";
        if (made.isVariadic && made.variadicIndex == static_cast<int>(i)) text += "*";
        text += made.parameterNames[i] + ": " + structuredTypeText(made.parameterTypes[i]->text);
        if (!param.defaultValueTokens.empty()) text += " = " + param.defaultValueTokens[0]->getText();
    }
    text += ") -> " + structuredTypeText(made.returnType->text);
    return text + (made.hasSelf ? "" : " static");
}

TEST_F(Bundles, AFoundMethodIsKnownAsOneThatWasMade) {
    const std::vector<std::pair<Str, Str>> calls{
        {"b.swap(\"x\")", "Box.swap<String>(other: String) -> String"},
        {"b.boxed(\"x\", 1)", "Box.boxed<String>(other: String, mine: Int) -> lib.Box<String>"},
        {"b.all(true, false)", "Box.all<Bool>(first: Bool, *others: vesk.collections.ArrayList<Bool>) -> Int"},
        {"b.maybe(2.5)", "Box.maybe<Double>(x: Double, times: Int = 3) -> Double"},
        {"Box.make(\"x\")", "Box.make<String>(x: String) -> String static"},
    };
    writeFile(folder.path() + "/lib/box.vk", METHODS);
    for (const auto& [call, expected] : calls) {
        for (const char* whose : {"made", "found"}) {
            Compilation compilation(folder.path(), call);
            const FunctionInstance* known = compilation.program.session().specializedInstance(compilation.spec.symbol);
            ASSERT_TRUE(known) << call;
            EXPECT_EQ(described(*known), expected) << call << ", " << whose;
        }
    }
}

}  // namespace
}  // namespace vesk::compiler
