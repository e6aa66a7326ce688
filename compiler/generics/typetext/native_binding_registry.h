// The collection types and the n-dimensional array, which the run-time library implements: a fixed table, and how to
// find a row from any spelling of a name.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vesk::compiler {

struct NativeBindingRegistry {
    struct TypeInfo {
        std::string_view qualifiedName, shortName;
        std::int32_t family;  // 1 array, 2 list, 3 map, 4 set, 5 tuple, 6 ndarray
        // The implementation that serves a concrete type; for an interface, the class used for it.
        std::string_view nativeBase, defaultImplementation;
        bool isConcreteCollection, inCollectionsPackage, isSynchronized, isHashBased;
    };

    // All rows; their order decides which one a short name finds.
    static const std::vector<TypeInfo>& nativeBindingTypes();
    // Takes "vesk.collections.HashMap<K, V>", "vesk_collections_HashMap", "HashMap" and flattened names; null for
    // everything else.
    static const TypeInfo* findType(std::string_view name);
    // "array", "list", "map", "set", "tuple", "ndarray", or "".
    static std::string familyNameOf(std::string_view name);
};

}  // namespace vesk::compiler
