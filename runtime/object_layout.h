// How values lie in memory: the contract between generated code and the run-time library.
// A scalar is held by value (Bool as one byte in memory); everything else is the address of an object, or null. An
// object begins with the address of its class record. Generated code computes the offsets below itself; the
// assertions at the end pin them down.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vesk::runtime {

// What an object of a record holds behind its first word.
enum class RecordKind : std::uint8_t {
    Class,      // its fields
    Interface,  // no objects of its own
    String,     // see String
    Box,        // one scalar
    Array,      // see Array
    Function,   // see Closure
    Nullable,   // no objects: the descriptor of `T?`, whose `element` is T
};

enum class ValueKind : std::uint8_t {
    Reference,
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
};

struct ClassRecord;

// The methods with which a class answers the calls of one interface, in the order of that interface's own methods.
struct InterfaceEntry {
    const ClassRecord* interface;
    void* const* methods;
};

// The virtual methods of a class whose slots lie behind those that follow its record: the ones that it declares itself, by
// ascending slots. All others are found with its super classes, so that long chains of classes do not repeat them.
struct FarMethod {
    std::uint64_t slot;
    void* code;
};
struct FarMethods {
    std::uint64_t count;
    const FarMethod* methods() const { return reinterpret_cast<const FarMethod*>(this + 1); }
};

// One per concrete class, interface, array, function and scalar type. Two types are the same exactly when their
// records have one address. Addresses of the virtual methods in the first NEAR_SLOTS slots follow the record: slots 0 to 2
// are toString, equals and hashCode in every record but those of interfaces.
struct ClassRecord {
    const char* name;  // the type as people write it: "vesk.collections.List<Int>"
    const ClassRecord* super;
    union {
        const ClassRecord* element;    // of arrays and `T?`
        const FarMethods* farMethods;  // of classes; null for none
    };
    const InterfaceEntry* interfaces;
    std::uint32_t interfaceCount;
    std::uint32_t instanceSize;  // bytes of an object, of an array without its elements
    RecordKind kind;
    ValueKind valueKind;       // of a box's or an array's values; Reference otherwise
    std::uint8_t pointerFree;  // objects hold no address but that of the record
    std::uint8_t reserved;
    std::uint32_t methodCount;

    void* const* methods() const { return reinterpret_cast<void* const*>(this + 1); }
};

struct Object {
    const ClassRecord* record;
};

// Text in UTF-8, with a NUL behind it that does not count.
struct String : Object {
    std::int64_t byteLength;
    std::int64_t codePoints;
    char bytes[1];
};

struct Array : Object {
    std::int64_t length;
    // the elements, each of its own width
    void* elements() { return this + 1; }
    const void* elements() const { return this + 1; }
};

template <class T>
struct Box : Object {
    T value;
};

// A function value. `code` takes the closure itself before the arguments. Captured values and cells follow.
struct Closure : Object {
    void* code;
};

inline constexpr std::size_t STRING_BYTES_OFFSET = 24;
inline constexpr std::size_t ARRAY_LENGTH_OFFSET = 8;
inline constexpr std::size_t ARRAY_ELEMENTS_OFFSET = 16;
inline constexpr std::size_t BOX_VALUE_OFFSET = 8;
inline constexpr std::size_t CLOSURE_CODE_OFFSET = 8;
inline constexpr std::size_t CLOSURE_CAPTURES_OFFSET = 16;
inline constexpr std::size_t RECORD_METHODS_OFFSET = 48;
inline constexpr std::size_t OBJECT_HEADER_SIZE = 8;

inline constexpr unsigned SLOT_TO_STRING = 0, SLOT_EQUALS = 1, SLOT_HASH_CODE = 2, OBJECT_SLOTS = 3;
inline constexpr unsigned NEAR_SLOTS = 128;

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"  // the layout is the ordinary one of single inheritance
static_assert(sizeof(ClassRecord) == RECORD_METHODS_OFFSET);
static_assert(offsetof(String, bytes) == STRING_BYTES_OFFSET);
static_assert(offsetof(Array, length) == ARRAY_LENGTH_OFFSET && sizeof(Array) == ARRAY_ELEMENTS_OFFSET);
static_assert(offsetof(Box<std::int64_t>, value) == BOX_VALUE_OFFSET && offsetof(Box<bool>, value) == BOX_VALUE_OFFSET);
static_assert(offsetof(Closure, code) == CLOSURE_CODE_OFFSET && sizeof(Closure) == CLOSURE_CAPTURES_OFFSET);
#pragma GCC diagnostic pop

}  // namespace vesk::runtime
