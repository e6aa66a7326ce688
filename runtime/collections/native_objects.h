// What the objects of the native collection classes begin with, and how to recognise one.
// Classes written in the language may extend these classes: their fields follow what is listed here. An object of
// zeros behind its record is a valid empty collection.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "runtime/collections/sync_lock.h"
#include "runtime/object_layout.h"

namespace vesk::runtime {

// ArrayList, LinkedList, ImmutableList, Array and, with a lock behind it, their synchronized variants.
// Generated code may read and write the first five words itself when the object's record is exactly that of ArrayList:
//     get(i)     i < length (as unsigned) -> element at data + i * width, else vesk_rt_panic_index(i, length)
//     set(i, x)  the same place
//     add(x)     length < capacity -> element at data + length * width, length += 1, changes += 1; else call the native
//     for        remember `changes`; before each element: if it differs, vesk_rt_panic_changed(); stop at `length`
struct ListObject : Object {
    std::int64_t length;
    std::int64_t capacity;  // elements from `data` on
    char* data;             // elements of their own width; null while there are none
    std::int64_t changes;   // rises with every change of the length or the order
    const ClassRecord* element;
    std::int64_t front;  // free places before `data`
};

// HashMap, HashSet and their synchronized variants: entries in order of insertion, and a table of their positions.
struct HashObject : Object {
    std::int64_t size;
    std::int64_t changes;
    const ClassRecord* key;
    const ClassRecord* value;  // null in sets
    std::int64_t used;         // entries, removed ones included
    std::int64_t capacity;     // room for entries
    std::uint32_t* hashes;     // per entry; 0 = removed
    char* keys;
    char* values;
    std::uint32_t* index;  // positions of entries, found by hash: see hash_table.cpp
    std::int64_t places;   // a power of two, at least twice `capacity`; 0 while there is no table
};

// One run of neighbouring entries of a sorted map.
struct SortedChunk {
    std::int64_t count;
    std::int64_t capacity;
    char* keys;
    char* values;
};

// SortedMap and SortedMapSync: sorted chunks in sorted order, none of them empty.
struct SortedObject : Object {
    std::int64_t size;
    std::int64_t changes;
    const ClassRecord* key;
    const ClassRecord* value;
    std::int64_t chunkCount;
    std::int64_t chunkCapacity;
    SortedChunk** chunks;
};

struct TupleObject : Object {
    alignas(8) char first[8];
    alignas(8) char second[8];
    const ClassRecord* firstType;
    const ClassRecord* secondType;
};

// Walks over any native collection; of maps over the keys.
struct IteratorObject : Object {
    const Object* source;
    std::int64_t position;  // see cursors in element_reader.h
    std::int64_t changes;
};

template <class Base>
struct Synchronized : Base {
    SyncLock lock;
};

inline constexpr std::size_t LIST_LENGTH_OFFSET = 8, LIST_CAPACITY_OFFSET = 16, LIST_DATA_OFFSET = 24,
                             LIST_CHANGES_OFFSET = 32, LIST_ELEMENT_OFFSET = 40;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"  // the layout is the ordinary one of single inheritance
static_assert(offsetof(ListObject, length) == LIST_LENGTH_OFFSET);
static_assert(offsetof(ListObject, capacity) == LIST_CAPACITY_OFFSET);
static_assert(offsetof(ListObject, data) == LIST_DATA_OFFSET);
static_assert(offsetof(ListObject, changes) == LIST_CHANGES_OFFSET);
static_assert(offsetof(ListObject, element) == LIST_ELEMENT_OFFSET);
#pragma GCC diagnostic pop

// How the objects of a native class are laid out.
enum class NativeLayout : std::uint8_t { None, List, Hash, Sorted, Tuple };

struct NativeClass {
    std::string_view name;  // without package
    NativeLayout layout = NativeLayout::None;
    bool isSynchronized = false;
    bool isMap = false;
    bool isLazy = false;  // written in the language: only its own methods know the elements
    std::uint32_t instanceSize = 0;
};

// The native class that a record instantiates or extends, null when there is none.
const NativeClass* nativeClassOf(const ClassRecord* record);
// The same only when it is an instantiation of that class itself, whose methods nobody has overridden, and not lazy.
const NativeClass* exactNativeClassOf(const ClassRecord* record);

// The lock of a collection, null when its class has none.
SyncLock* lockOf(const Object* collection, const NativeClass* nativeClass);

// Bytes that objects of a native class of vesk.collections begin with, 0 for all others.
unsigned collectionInstanceSize(std::string_view qualifiedName);

extern "C" {
// "collection changed during iteration"
[[noreturn]] void vesk_rt_panic_changed();
// A list of `length` zeroed elements, which the caller fills through `data`.
ListObject* vesk_rt_new_list(const ClassRecord* element, const ClassRecord* record, std::int32_t length);
// What the program was called with, as a list of strings.
ListObject* vesk_rt_program_arguments(const ClassRecord* record);
}

}  // namespace vesk::runtime
