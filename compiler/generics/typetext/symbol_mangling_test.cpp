// Link-level names and the hash.
#include "generics/typetext/symbol_mangling.h"

#include <gtest/gtest.h>

#include "generics/sample_program_test.h"

namespace vesk::compiler {
namespace {

TEST(Mangling, Operators) {
    const std::vector<std::pair<Str, Str>> cases = {
        {"[]", "index"},    {"[]=", "index_eq"}, {"+", "plus"},       {"+=", "plus_eq"}, {"-", "minus"},
        {"-=", "minus_eq"}, {"*", "mul"},        {"*=", "mul_eq"},    {"/", "div"},      {"/=", "div_eq"},
        {"//", "idiv"},     {"//=", "idiv_eq"},  {"%", "mod"},        {"%=", "mod_eq"},  {"**", "pow"},
        {"**=", "pow_eq"},  {"@", "matmul"},     {"@=", "matmul_eq"}, {"==", "eq"},      {"!=", "ne"},
        {"<", "lt"},        {"<=", "le"},        {">", "gt"},         {">=", "ge"},      {"&&", "and"},
        {"||", "or"},       {"!", "not"},        {"++", "inc"},       {"--", "dec"},     {"<=>", "___"},
        {"", "op"},         {"a_1", "a_1"},      {"\xc3\xa9", "__"},
    };
    for (const auto& [op, word] : cases) EXPECT_EQ(mangleOperatorSymbol(op), word) << op;
}

TEST(Mangling, MethodNames) {
    const std::vector<std::pair<Str, Str>> cases = {
        {"operator+", "operator_plus"},
        {"operator[]=", "operator_index_eq"},
        {"operator", "operator_op"},
        {"operator +", "operator___"},
        {"operatorFoo", "operator_Foo"},
        {"plus", "plus"},
        {"", ""},
    };
    for (const auto& [name, mangled] : cases) EXPECT_EQ(mangleMethodName(name), mangled) << name;
}

TEST(Hash, PublishedValues) {
    const std::vector<std::pair<Str, Str>> cases = {
        {"", "14650fb0739d0383"},    {"a", "44bd8ad473cd9906"},  {"abc", "e16801510db89efd"},
        {"Int", "10822250971d354c"}, {"daa", "cbacc5126437817"},
    };
    for (const auto& [text, hash] : cases) EXPECT_EQ(fnv1a64Hex(text), hash) << text;
    EXPECT_EQ(fnv1a64(""), 1469598103934665603ULL);
    EXPECT_NE(fnv1a64("\xff"), fnv1a64("\x7f"));
    // A byte above 127 counts as a number from 128 to 255.
    EXPECT_EQ(fnv1a64("\xff"), (1469598103934665603ULL ^ 0xffULL) * 0x100000001b3ULL);
}

TEST(Mangling, PackagePrefix) {
    EXPECT_EQ(packagePrefix(nullptr, "X"), "");
    SampleProgram program;
    program.load("some/names/box.vk", "package some.names\n\nclass Box<T>:\n    value: T\n");
    const ContextPtr scope = program.load("main.vk", "import some.names\n\nclass Free:\n    x: Int\n");
    EXPECT_EQ(packagePrefix(scope, "some.names.Box"), "some_names_");
    EXPECT_EQ(packagePrefix(scope, "Free"), "");
}

TEST(Mangling, NativeTargets) {
    SampleProgram program;
    program.load("some/names/box.vk", "package some.names\n\nclass Box<T>:\n    value: T\n");
    const ContextPtr scope = program.load("main.vk", "import some.names\n\nclass Free:\n    x: Int\n");
    struct Case {
        Str owner, method;
        std::size_t ordinal;
        Str symbol;
    };
    const std::vector<Case> cases = {
        {"some.names.Box", "add", 0, "some_names_Box_add"},
        {"some.names.Box", "add", 1, "some_names_Box_add"},
        {"some.names.Box", "add", 2, "some_names_Box_add__dup2"},
        {"some.names.Box", "operator[]", 3, "some_names_Box_operator_index__dup3"},
        {"Box<Int>", "add", 1, "some_names_Box_add"},
        {"Free", "run", 1, "Free_run"},
        {"Nobody", "run", 10, "Nobody_run__dup10"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(nativeMethodTargetSymbol(scope, c.owner, c.method, c.ordinal, nullptr), c.symbol) << c.owner;
    }
    EXPECT_EQ(nativeMethodTargetSymbol(nullptr, "vesk.collections.ArrayList", "add", 1, nullptr), "ArrayList_add");
}

}  // namespace
}  // namespace vesk::compiler
