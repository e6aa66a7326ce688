// What a class has from its super types, found without a walk over them.
// Each linked class knows its super types, and of each name the nearest classes that declare it, in maps that it shares
// with what it inherits from: a class adds to them what it declares itself. So a chain of n classes costs n log n, not
// n * n, and a question about one member looks only at those that declare it.
#pragma once

#include <deque>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "semantics/declarations.h"
#include "semantics/persistent_map.h"

namespace vesk::compiler {

enum class MemberKind : std::uint8_t {
    Method,           // of any kind, constructors included
    InterfaceMethod,  // any method that an interface declares
    Constructor,
    GenericMethod,  // without a name: any
    Field,          // of an object
    StaticField,
    FieldInitializer,  // a field of an object that has an initial value; without a name
};

// A method that a name may mean for a type, with the super type that it belongs to: of static ones the class alone.
struct MethodCandidate {
    MethodDeclaration* method = nullptr;
    const Type* owner = nullptr;
    FunctionInstance* instance = nullptr;  // plain methods
};
struct VisibleMethod {
    MethodCandidate candidate;
    const Type* declaredBy = nullptr;  // as instantiated in the type
};
using VisibleMethods = std::shared_ptr<const std::vector<VisibleMethod>>;

using Declarations = std::vector<ClassDeclaration*>;

struct Ancestry {
    // Super types in terms of the class's own type parameters, by the number of their declaration. The class itself is
    // not among them.
    PersistentMaps<const Type*>::Map superTypes = nullptr;
    // By name and kind: the declaring classes, the class itself included, that are reached without passing another one.
    PersistentMaps<const Declarations*>::Map members = nullptr;
    // The same without the class's own members.
    PersistentMaps<const Declarations*>::Map inheritedMembers = nullptr;
    bool hasInterfaces = false;
    // One interface is inherited with several lists of type arguments, which is a mistake: `superTypes` has null for it.
    bool isContradictory = false;
};

// The tables of a session; guarded by its modelMutex.
struct LineageTables {
    std::deque<Ancestry> ancestries;
    PersistentMaps<const Type*> superTypes;
    PersistentMaps<const Declarations*> members;
    std::deque<Declarations> declarations;
    std::unordered_map<std::string_view, std::uint32_t> names;  // of members; views of the declarations' names
    std::uint32_t numberedClasses = 0;
    // The places of super types in a lineage, where several unrelated ones declare a name.
    std::unordered_map<const Type*, std::unordered_map<const Type*, std::size_t>> positions;
    // What names of methods mean for types that declare them, or inherit them on several ways.
    std::unordered_map<const Type*, std::unordered_map<std::string_view, VisibleMethods>> visibleMethods;
};

// Null for what is no class, and for classes that are not linked or have a contradictory ancestry: there lineageOf
// answers, by a walk.
const Ancestry* ancestryOf(const Type* type);

// The nearest types that declare a member: the type itself, or those above it that are reached without passing another one
// of them. One at most is a class. The type has an ancestry.
std::vector<const Type*> nearestDeclaring(const Type* type, MemberKind kind, std::string_view name);
// The same without the type itself.
std::vector<const Type*> nearestDeclaringAbove(const Type* type, MemberKind kind, std::string_view name);
// The class among them, null when only interfaces declare the member, or nothing does. For any type.
const Type* classDeclaring(const Type* type, MemberKind kind, std::string_view name);
// All types of a lineage that declare a member, in the lineage's order. For any type.
std::vector<const Type*> allDeclaring(const Type* type, MemberKind kind, std::string_view name);
// What a name has been found to mean, null when nobody has asked yet. The type has an ancestry.
VisibleMethods knownVisibleMethods(const Type* type, std::string_view name);
void keepVisibleMethods(const Type* type, std::string_view name, VisibleMethods methods);
// Whether something above a type declares a member. For any type.
bool inherits(const Type* type, MemberKind kind, std::string_view name);
// Whether a class itself declares a member.
bool declares(const ClassDeclaration& declaration, MemberKind kind, std::string_view name);

}  // namespace vesk::compiler
