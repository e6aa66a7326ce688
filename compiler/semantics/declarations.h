// What files declare, and the concrete functions and classes that are compiled from it.
// A declaration is one place in a source file. A FunctionInstance is a declaration together with the types it is
// compiled for; generated code consists of instances alone. Records are owned by the compile session and keep
// their address for its whole life; they are filled by loading and do not change afterwards, except where a field
// says so.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/ast_nodes.h"
#include "host/diagnostics.h"
#include "semantics/persistent_map.h"
#include "semantics/types.h"

namespace vesk::compiler {

struct Ancestry;
struct ClassDeclaration;
struct ClassLayout;
struct FileDeclaration;
struct FunctionInstance;
struct CheckedBody;

struct FunctionDeclaration {
    std::string name, qualifiedName;
    FileDeclaration* file = nullptr;
    std::shared_ptr<FunctionNode> node;
    std::size_t overloadIndex = 1;                       // per package and name, in order of path and line
    std::shared_ptr<const GenericFunctionInfo> generic;  // null for plain functions
    bool isNative() const { return node->isNative(); }
};

struct MethodDeclaration {
    std::string name;
    ClassDeclaration* owner = nullptr;
    std::shared_ptr<MethodNode> node;
    bool isStatic = false, isNative = false, isAbstract = false, isConstructor = false;
    bool isGeneric() const { return !node->getTypeParams().empty(); }
};

struct FieldDeclaration {
    std::string name;
    ClassDeclaration* owner = nullptr;
    std::shared_ptr<FieldNode> node;
    bool isStatic = false;
    std::size_t ordinal = 0;  // among the fields of its class that are not static
    // Static fields: the global's symbol.
    std::string symbol;
};

struct ClassDeclaration {
    std::string name;           // short: "Inner"
    std::string qualifiedName;  // "a.b.Outer.Inner"
    std::string package;
    FileDeclaration* file = nullptr;
    ClassDeclaration* outer = nullptr;
    std::shared_ptr<ClassNode> node;
    bool isInterface = false;
    std::vector<std::string> typeParameters;
    TypeParameterIndex typeParameterIndex;
    std::vector<std::unique_ptr<FieldDeclaration>> fields;
    std::vector<std::unique_ptr<MethodDeclaration>> methods;  // own ones, in order; constructors are named "init"
    std::vector<ClassDeclaration*> nested;
    // The same by name, each list in order of declaration; filled with them.
    std::unordered_map<std::string_view, std::vector<FieldDeclaration*>> fieldsByName;
    std::unordered_map<std::string_view, std::vector<MethodDeclaration*>> methodsByName;
    std::unordered_map<std::string_view, ClassDeclaration*> nestedByName;
    const std::vector<FieldDeclaration*>& fieldsNamed(std::string_view wanted) const;
    const std::vector<MethodDeclaration*>& methodsNamed(std::string_view wanted) const;
    std::size_t objectFields = 0;  // how many of the fields are not static
    // Resolved at first use (see superTypesOf); in terms of the class's own type parameters.
    const Type* superType = nullptr;
    std::vector<const Type*> interfaces;
    std::vector<double> lineageLengths;  // how long the arguments of super types may be (inheritance_growth.cpp)
    const Type* knownType = nullptr;     // without type arguments; set once, read without a lock (knownAt)
    enum class Linking : unsigned char { NotYet, UnderWay, Done, Failed } linking = Linking::NotYet;
    // Once linked: the longest way up to a class without super types, so that no super type is as high as the class; and
    // whether an interface with type arguments is among those.
    unsigned height = 0;
    bool hasGenericInterface = false;
    // What it has from above (lineage.h): set once, read without a lock (knownAt). Its number is that of no other class.
    const Ancestry* knownAncestry = nullptr;
    std::uint32_t lineageNumber = 0;
    bool isGeneric() const { return !typeParameters.empty(); }
};

struct FileDeclaration {
    std::string path;  // normalized
    std::string package;
    std::vector<std::string> imports;
    std::shared_ptr<FileNode> node;
    ContextPtr context;
    std::vector<ClassDeclaration*> classes;  // top-level ones
    std::vector<FunctionDeclaration*> functions;
    std::vector<CompilerException> refusals;  // what is mistaken in its syntax
    bool isStandardLibrary = false;
    bool isGenerated = false;  // a bundle
};

enum class InstanceKind : unsigned char {
    Function,          // a free function, plain or specialized
    Method,            // static or instance, plain or specialized
    Constructor,       // an `init`; parameter 0 is self, returns Void
    FieldInitializer,  // sets the declared initial values of an object's fields, super class first; (self) -> Void
    DefaultValue,      // one default: self (for methods that are not static) and the earlier parameters that it names
    UnitInitializer,   // runs the initializers of a file's static fields; () -> Void
    Chunk,             // the statements of an interactive chunk; () -> type of the last expression
};

enum class InstanceLinkage : unsigned char {
    Unit,      // defined in the module of its file, or of the unit it was registered for
    OnDemand,  // defined linkonce_odr in every module that uses it: members of generic instantiations, bundles' methods
    Native,    // defined by the run-time library
};

// A function with concrete types. `parameterTypes` does not count self.
struct FunctionInstance {
    InstanceKind kind = InstanceKind::Function;
    InstanceLinkage linkage = InstanceLinkage::Unit;
    std::string symbol;
    std::string displayName;  // "pick<Int>", "Box<Int>.get"; "" where owner and node say it
    std::string shownName() const;
    std::shared_ptr<CallableDeclarationNode> node;  // null for FieldInitializer, UnitInitializer
    const Type* owner = nullptr;                    // class of methods and constructors
    bool hasSelf = false;
    std::vector<std::string> parameterNames;
    std::vector<const Type*> parameterTypes;
    // Null while the return type waits to be inferred; ask returnTypeOf().
    const Type* returnType = nullptr;
    FileDeclaration* file = nullptr;  // where its source stands; decides how its names are looked up
    std::string sourcePath;
    int line = 0;
    int defaultIndex = -1;  // DefaultValue: which parameter of `defaultOf`
    FunctionInstance* defaultOf = nullptr;
    // Natives whose function in the run-time library is not called like `symbol`: specialized generic methods.
    std::string nativeTarget;
    std::vector<const Type*> typeArguments;  // of specialized native methods
    int slot = -1;  // position in the vtable of its class, or in the table of its interface; -1 = none
    // A specialization's chain of requests: who asked for it, from where.
    FunctionInstance* requester = nullptr;
    TokenPtr requestToken;
    int requestDepth = 0;
    // What it is an instance of, and with which arguments, as chains compare it; 0 = not part of what chains are made of.
    std::uint64_t requestedDeclaration = 0;
    std::vector<const Type*> requestedWith;
    bool isGrowing = false;  // it has grown from one in front of it in its chain (request_chain.h)
    // The generated unit that holds this specialization: other modules only refer to it.
    std::string generatedUnit;
    bool isVariadic = false, isNamedVariadic = false;
    int variadicIndex = -1, namedVariadicIndex = -1;
    // What checking has found out while it inferred the return type (body_checking.cpp); guarded by inferenceMutex.
    std::shared_ptr<CheckedBody> checked;
};

// One field of an object; inherited fields come first.
struct FieldSlot {
    std::string name;
    const Type* type = nullptr;
    const FieldDeclaration* declaration = nullptr;
    unsigned index = 0;           // among all fields of an object
    const Type* owner = nullptr;  // the class that declares it
};

// How one interface's methods are found in a class: `methods` runs parallel to what that interface has `declared`.
struct InterfaceTable {
    const Type* interface = nullptr;
    std::vector<FunctionInstance*> methods;  // null where the class leaves one abstract
};

// A concrete class or interface, ready for code generation. What it inherits it shares with its super class.
struct ClassLayout {
    const Type* type = nullptr;
    const ClassLayout* super = nullptr;  // null for Object and for interfaces
    std::vector<FieldSlot> fields;       // its own
    std::size_t inheritedFields = 0;     // how many stand before them in an object
    // The methods it declares itself that are called through tables. Those of an interface's super interfaces stand in
    // their own tables.
    std::vector<FunctionInstance*> declared;
    // Of a class: the methods of its vtable by their slots, inherited slots first; abstract ones among them.
    PersistentMaps<FunctionInstance*>::Map slots = nullptr;
    PersistentMaps<std::uint32_t>::Map slotsBySignature = nullptr;
    std::uint32_t slotCount = 0, openSlots = 0;                          // those of abstract methods are open
    std::shared_ptr<const std::vector<InterfaceTable>> interfaceTables;  // those its super class lacks or has otherwise
    // Names of methods for which it has defaults of several interfaces, none of which refines the others; null for none.
    std::shared_ptr<const std::set<std::string_view>> competedFor;
    std::string symbol;  // of the class record
    bool isInterface = false, isAbstract = false;
    bool hasOpenInterface = false;  // an interface's method without a body
    bool isOnDemand = false;        // an instantiation of a generic class
    // The place of an own field that is not static.
    const FieldSlot& slotOf(const FieldDeclaration& field) const { return fields[field.ordinal]; }
    // What a call through the slot reaches: null when that is abstract, or there is no such slot.
    FunctionInstance* methodAt(std::size_t slot) const;
    const std::vector<InterfaceTable>& interfaces() const;
};

}  // namespace vesk::compiler
