// Symbols of method specializations.
#include "generics/method_symbols.h"

#include "generics/method_program_test.h"
#include "generics/typetext/symbol_mangling.h"

namespace vesk::compiler {
namespace {

TEST(MethodSymbols, HashesOfTheirKeys) {
    const struct {
        Str key, digits;
    } cases[] = {
        {"vesk.collections.ArrayList.map|overload:0<gen:String>", "135d08baed700319"},
        {"Box.get|overload:1<gen:Int>", "3073447b5e565d6"},
        {"Box.get|overload:1<gen:Int>|caller:/src/app/main.vk", "91da32a2a7f6f3f5"},
        {"a.b.Box.operator[]=|overload:2<gen:Int,String>", "980094f4eea9ac86"},
        {"a.b.Box.make|overload:1<gen:vesk.collections.ArrayList<Int>>", "6844957add4b5a4"},
        {"/src/app/main.vk", "50d91a73ae6cf963"},
    };
    for (const auto& each : cases) EXPECT_EQ(fnv1a64Hex(each.key), each.digits) << each.key;
}

TEST(MethodSymbols, NameOwnerMethodAndHash) {
    TemporaryFolder folder;
    MethodProgram program(folder.path());
    const ContextPtr scope = program.load("main.vk", "class Box:\n    pass\n");
    program.load("a/b/box.vk", "package a.b\nclass Box:\n    pass\n");
    const auto symbol = [&](const Str& owner, const Str& method, std::size_t overload, const StrVec& args) {
        return genericMethodBundleSymbol(scope, owner, method, overload, args, nullptr);
    };
    // From the standard library alone: shared by all callers.
    EXPECT_EQ(symbol("vesk.collections.ArrayList", "map", 0, {"String"}),
              "__vesk_m_vesk_collections_ArrayList_map__T_135d08baed700319");
    // The application's own: kept apart by caller.
    const Str caller = "|caller:" + program.pathOf("main.vk");
    EXPECT_EQ(symbol("Box", "get", 1, {"Int"}),
              "__vesk_m_Box_get__T_" + fnv1a64Hex("Box.get|overload:1<gen:Int>" + caller));
    EXPECT_EQ(symbol("a.b.Box", "operator[]=", 2, {"Int", "String"}),
              "__vesk_m_a_b_Box_operator_index_eq__T_" +
                  fnv1a64Hex("a.b.Box.operator[]=|overload:2<gen:Int,String>" + caller));
    EXPECT_NE(symbol("Box", "get", 1, {"Int"}), symbol("Box", "get", 2, {"Int"}));
}

TEST(MethodSymbols, NativeOnesBelongToOneUnit) {
    TemporaryFolder folder;
    MethodProgram program(folder.path());
    const ContextPtr scope = program.load("main.vk", "class Box:\n    pass\n");
    const auto symbol = [&](const ContextPtr& context) {
        return genericNativeMethodLocalSymbol(context, "vesk.collections.Collection", "castTo", 1, {"Int"}, nullptr);
    };
    const Str base = genericMethodBundleSymbol(scope, "vesk.collections.Collection", "castTo", 1, {"Int"}, nullptr);
    EXPECT_EQ(symbol(scope), base + "__U_" + fnv1a64Hex(program.pathOf("main.vk")));
    EXPECT_EQ(symbol(program.root()), base);
    {
        const ScopedSpecializationUnit unit("/src/app/main.vk");
        EXPECT_EQ(symbol(scope), base + "__U_50d91a73ae6cf963");
        const ScopedILGenContext generation("module");
        EXPECT_EQ(symbol(scope), base + "__U_" + fnv1a64Hex("module"));
    }
}

}  // namespace
}  // namespace vesk::compiler
