// Types as interned records: two types are equal exactly when their addresses are equal.
// Texts exist only at the specializer's surface: every type knows its two spellings.
//   structured  "vesk.collections.Map<String, Int>[]"   what people read
//   text        the same with every concrete instantiation flattened: what resolveTypeName answers
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "generics/typetext/type_parameter_index.h"

namespace vesk::compiler {

struct ClassDeclaration;
struct ClassLayout;
struct FunctionInstance;

enum class TypeKind : unsigned char {
    Unknown,  // a name that nothing declares; keeps its spelling
    Void,
    Bool,
    Byte,
    SByte,
    Short,
    UShort,
    Int,
    UInt,
    Long,
    ULong,
    Float,
    Double,
    String,
    Object,
    Null,
    Number,
    AbstractInt,
    AbstractFloat,  // for constraints only
    Class,          // class or interface; arguments = type arguments (none for a plain class or a raw generic one)
    Array,          // arguments[0] = element
    Function,       // arguments = parameters, result
    Nullable,       // arguments[0] = the type without "?"
    Parameter,      // a type parameter, by name
};

struct Type {
    TypeKind kind = TypeKind::Unknown;
    // The declaring class of Class types; of built-in types the class of package `vesk` that holds their methods
    // (null until that package is loaded).
    ClassDeclaration* declaration = nullptr;
    std::vector<const Type*> arguments;
    const Type* result = nullptr;
    std::string structured, text;
    bool isConcrete = true;  // names no type parameter and nothing unknown
    // The text means this type in every scope whose type parameters are not called like built-in types.
    bool isAbsolute = false;
    // Length of `structured` if it were written out whole; grows to MAX_WHOLE_LENGTH and no further.
    std::uint32_t wholeLength = 0;
    // What the session has worked out for a class: set once, read without a lock (knownAt).
    mutable const ClassLayout* knownLayout = nullptr;
    mutable FunctionInstance* const* knownFieldInitializer = nullptr;

    static constexpr std::uint32_t MAX_WHOLE_LENGTH = 1U << 30;

    const Type* element() const { return arguments[0]; }
    bool isNumeric() const { return kind >= TypeKind::Byte && kind <= TypeKind::Double; }
    bool isInteger() const { return kind >= TypeKind::Byte && kind <= TypeKind::ULong; }
    bool isSignedInteger() const;
    bool isFloating() const { return kind == TypeKind::Float || kind == TypeKind::Double; }
    bool isVoid() const { return kind == TypeKind::Void; }
    // Held by value: numbers and Bool. Everything else but Void is a pointer.
    bool isScalar() const { return kind >= TypeKind::Bool && kind <= TypeKind::Double; }
    bool isReference() const { return kind != TypeKind::Unknown && kind != TypeKind::Void && !isScalar(); }
    bool isInterface() const;
    // Bits of an integer or floating type (Bool 8); 64 for references.
    unsigned bitWidth() const;
};

// What the type parameters of one declaration stand for. The index and the arguments stay with those who made them.
struct TypeEnvironment {
    const TypeParameterIndex* names = nullptr;
    const std::vector<const Type*>* arguments = nullptr;
    TypeParameterIndex hidden = {};  // names that mean something else at the place in question

    // Null for names that stand for nothing here.
    const Type* argumentFor(std::string_view name) const;
};

// Reads and writes what is set once, for several threads.
template <class Value>
Value* knownAt(Value*& place) {
    return std::atomic_ref<Value*>(place).load(std::memory_order_acquire);
}
template <class Value>
void makeKnownAt(Value*& place, Value* value) {
    std::atomic_ref<Value*>(place).store(value, std::memory_order_release);
}

// All types of one session. Safe for several threads; types live as long as the table.
class TypeTable {
public:
    TypeTable();
    ~TypeTable();
    TypeTable(const TypeTable&) = delete;
    TypeTable& operator=(const TypeTable&) = delete;

    // Void ... AbstractFloat and Unknown.
    const Type* builtin(TypeKind kind) const;
    // The built-in type of that bare name, null for other names.
    const Type* builtinNamed(std::string_view name) const;
    std::vector<std::string_view> builtinNames() const;
    const Type* classType(ClassDeclaration* declaration, const std::vector<const Type*>& arguments);
    const Type* array(const Type* element);
    // `T?` of a `T?`, of Null and of Void is the type itself.
    const Type* nullable(const Type* type);
    const Type* function(const std::vector<const Type*>& parameters, const Type* result);
    const Type* parameter(std::string_view name);
    const Type* unknown(std::string_view spelling);
    // `Foo<A, B>` of a name that nothing declares.
    const Type* unknownGeneric(std::string_view base, const std::vector<const Type*>& arguments);
    // The class that holds a built-in type's methods; set once, while package `vesk` is loaded.
    void setBuiltinDeclaration(std::string_view name, ClassDeclaration* declaration);

    // The type with parameters replaced.
    const Type* substitute(const Type* type, const TypeEnvironment& environment);
    // The type a flattened short or qualified name was made for, null for texts this table did not make.
    const Type* unflatten(std::string_view text) const;
    // The absolute function type, or optional or array of one, with that long text (MIN_KEPT_TEXT); null for others.
    const Type* withLongText(std::string_view text) const;
    static constexpr std::size_t MIN_KEPT_TEXT = 128;

private:
    struct State;
    std::unique_ptr<State> state_;
};

// Without its final "?".
const Type* withoutNull(const Type* type);

}  // namespace vesk::compiler
