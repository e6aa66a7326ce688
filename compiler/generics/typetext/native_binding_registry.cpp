// The table of native types.
#include "generics/typetext/native_binding_registry.h"

namespace vesk::compiler {

namespace {

constexpr std::int32_t FAMILY_NDARRAY = 6;

// Removes the prefix of one package, written with dots or with underscores.
bool stripPackage(std::string_view& name, std::string_view dotted, std::string_view underscored) {
    if (!name.starts_with(dotted) && !name.starts_with(underscored)) return false;
    name.remove_prefix(dotted.size());
    return true;
}

}  // namespace

const std::vector<NativeBindingRegistry::TypeInfo>& NativeBindingRegistry::nativeBindingTypes() {
    constexpr bool yes = true, no = false;
    static const std::vector<TypeInfo> types = {
        // qualifiedName, shortName, family, nativeBase, defaultImplementation, concrete, collections, sync, hash
        {"vesk.collections.Array", "Array", 1, "Array", "", yes, yes, no, no},
        {"vesk.collections.ArraySync", "ArraySync", 1, "Array", "", yes, yes, yes, no},
        {"vesk.collections.Collection", "Collection", 2, "", "vesk.collections.ArrayList", no, yes, no, no},
        {"vesk.collections.IList", "IList", 2, "", "vesk.collections.ImmutableList", no, yes, no, no},
        {"vesk.collections.List", "List", 2, "", "vesk.collections.ArrayList", no, yes, no, no},
        {"vesk.collections.ImmutableList", "ImmutableList", 2, "ImmutableList", "", yes, yes, no, no},
        {"vesk.collections.ArrayList", "ArrayList", 2, "ArrayList", "", yes, yes, no, no},
        {"vesk.collections.Generator", "Generator", 2, "ArrayList", "", yes, yes, no, no},
        {"vesk.collections.ArrayListSync", "ArrayListSync", 2, "ArrayList", "", yes, yes, yes, no},
        {"vesk.collections.LinkedList", "LinkedList", 2, "ArrayList", "", yes, yes, no, no},
        {"vesk.collections.LinkedListSync", "LinkedListSync", 2, "ArrayList", "", yes, yes, yes, no},
        {"vesk.collections.Map", "Map", 3, "", "vesk.collections.HashMap", no, yes, no, no},
        {"vesk.collections.SortedMap", "SortedMap", 3, "Map", "", yes, yes, no, no},
        {"vesk.collections.HashMap", "HashMap", 3, "Map", "", yes, yes, no, yes},
        {"vesk.collections.SortedMapSync", "SortedMapSync", 3, "Map", "", yes, yes, yes, no},
        {"vesk.collections.HashMapSync", "HashMapSync", 3, "Map", "", yes, yes, yes, yes},
        {"vesk.collections.Set", "Set", 4, "", "vesk.collections.HashSet", no, yes, no, no},
        {"vesk.collections.HashSet", "HashSet", 4, "HashSet", "", yes, yes, no, yes},
        {"vesk.collections.HashSetSync", "HashSetSync", 4, "HashSet", "", yes, yes, yes, yes},
        {"vesk.collections.Tuple", "Tuple", 5, "Tuple", "", yes, yes, no, no},
        {"vesk.math.NDArray", "NDArray", FAMILY_NDARRAY, "NDArray", "", no, no, no, no},
    };
    return types;
}

const NativeBindingRegistry::TypeInfo* NativeBindingRegistry::findType(std::string_view name) {
    name = name.substr(0, name.find('<'));
    name = name.substr(0, name.find("__T_"));
    const bool inCollections = stripPackage(name, "vesk.collections.", "vesk_collections_");
    const bool inMath = !inCollections && stripPackage(name, "vesk.math.", "vesk_math_");
    if (name.empty()) return nullptr;
    for (const TypeInfo& type : nativeBindingTypes()) {
        if (type.shortName != name) continue;
        if (inCollections && !type.inCollectionsPackage) return nullptr;
        if (inMath && type.family != FAMILY_NDARRAY) return nullptr;
        return &type;
    }
    return nullptr;
}

std::string NativeBindingRegistry::familyNameOf(std::string_view name) {
    const TypeInfo* type = findType(name);
    switch (type ? type->family : 0) {
        case 1: return "array";
        case 2: return "list";
        case 3: return "map";
        case 4: return "set";
        case 5: return "tuple";
        case FAMILY_NDARRAY: return "ndarray";
        default: return "";
    }
}

}  // namespace vesk::compiler
