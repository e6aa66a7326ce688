// The table of native types and its look-ups.
#include "generics/typetext/native_binding_registry.h"

#include <gtest/gtest.h>

namespace vesk::compiler {
namespace {

const auto& rows() { return NativeBindingRegistry::nativeBindingTypes(); }

// Row number from 1, 0 for none.
int rowOf(std::string_view name) {
    const NativeBindingRegistry::TypeInfo* type = NativeBindingRegistry::findType(name);
    return type ? static_cast<int>(type - rows().data()) + 1 : 0;
}

TEST(NativeBindings, FindsEverySpelling) {
    const std::vector<std::pair<std::string_view, int>> cases = {
        {"HashMap", 14},
        {"HashMap__T_Int", 14},
        {"vesk_collections_HashMap", 14},
        {"vesk.collections.HashMap<String, Int>", 14},
        {"List", 5},
        {"ArrayList", 7},
        {"Array", 1},
        {"vesk.math.NDArray", 21},
        {"vesk_math_NDArray<Double>", 21},
        {"NDArray", 21},
        {"vesk.math.HashMap", 0},
        {"vesk.collections.NDArray", 0},
        {"other.pkg.List", 0},
        {"vesk.collections.", 0},
        {"vesk.math.", 0},
        {"<Int>", 0},
        {"", 0},
        {"list", 0},
        {"__T_Int", 0},
        {"vesk.collections.a.List", 0},
    };
    for (const auto& [name, row] : cases) EXPECT_EQ(rowOf(name), row) << name;
}

TEST(NativeBindings, NamesFamilies) {
    const std::vector<std::pair<std::string_view, std::string>> cases = {
        {"Array<Int>", "array"},
        {"Generator", "list"},
        {"SortedMapSync", "map"},
        {"Map<K, V>", "map"},
        {"HashSet", "set"},
        {"Tuple<A>", "tuple"},
        {"NDArray", "ndarray"},
        {"vesk_math_NDArray<Double>", "ndarray"},
        {"Foo", ""},
        {"", ""},
    };
    for (const auto& [name, family] : cases) EXPECT_EQ(NativeBindingRegistry::familyNameOf(name), family) << name;
}

TEST(NativeBindings, TableIsConsistent) {
    ASSERT_EQ(rows().size(), 21u);
    for (const auto& row : rows()) {
        EXPECT_TRUE(row.qualifiedName.ends_with("." + std::string(row.shortName)));
        EXPECT_EQ(NativeBindingRegistry::findType(row.qualifiedName), &row);
        EXPECT_EQ(NativeBindingRegistry::findType(row.shortName), &row);
        EXPECT_NE(row.nativeBase.empty(), row.defaultImplementation.empty()) << row.shortName;
        EXPECT_EQ(row.isSynchronized, row.shortName.ends_with("Sync"));
        EXPECT_EQ(row.isHashBased, row.shortName.starts_with("Hash"));
        EXPECT_EQ(row.inCollectionsPackage, row.qualifiedName.starts_with("vesk.collections."));
        EXPECT_EQ(row.isConcreteCollection, row.inCollectionsPackage && row.defaultImplementation.empty());
        if (!row.defaultImplementation.empty()) {
            const auto* standIn = NativeBindingRegistry::findType(row.defaultImplementation);
            ASSERT_NE(standIn, nullptr);
            EXPECT_TRUE(standIn->isConcreteCollection);
            EXPECT_EQ(standIn->family, row.family);
        }
    }
    EXPECT_EQ(rows()[3].defaultImplementation, "vesk.collections.ImmutableList");
    EXPECT_EQ(rows()[9].nativeBase, "ArrayList");
    EXPECT_EQ(rows()[12].nativeBase, "Map");
}

}  // namespace
}  // namespace vesk::compiler
