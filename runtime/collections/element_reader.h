// Walking over collections from the library itself.
// Cursors number the elements of a native collection: positions of a list, entries of a hash table, of a sorted map the
// chunk in the upper and the entry in the lower 32 bits. They hold until the collection changes.
#pragma once

#include <cstdint>
#include <optional>

#include "runtime/collections/element_type.h"
#include "runtime/collections/native_objects.h"

namespace vesk::runtime {

// The first cursor at or after `cursor` that has an element, -1 when there is none.
std::int64_t cursorAt(const Object* collection, const NativeClass& nativeClass, std::int64_t cursor);
// The element, or of maps the key, under a cursor.
const void* elementUnder(const Object* collection, const NativeClass& nativeClass, std::int64_t cursor, unsigned width);
// Of maps only.
const void* valueUnder(const Object* map, const NativeClass& nativeClass, std::int64_t cursor, unsigned width);
std::int64_t changesOf(const Object* collection, const NativeClass& nativeClass);
std::int64_t sizeOf(const Object* collection, const NativeClass& nativeClass);
// Descriptors that the collection was made with; null before its constructor has run.
const ClassRecord* elementDescriptorOf(const Object* collection, const NativeClass& nativeClass);
const ClassRecord* valueDescriptorOf(const Object* map, const NativeClass& nativeClass);

// Elements in a row, perhaps those of a collection that nobody else may change meanwhile.
struct ElementRun {
    const char* data = nullptr;
    std::int64_t length = 0;
};

// The elements of any collection, native or written in the language, in the order of its iterator. Lists that need no
// lock are not copied: do not keep the run across calls that may change `collection`.
ElementRun elementsOf(const Object* collection, const ElementType& type);
// Generated code leaves the upper bits of a Bool result open.
template <class T, class... Arguments>
T callGenerated(void* code, Arguments... arguments) {
    if constexpr (std::is_same_v<T, bool>) {
        return (reinterpret_cast<std::uint8_t (*)(Arguments...)>(code)(arguments...) & 1) != 0;
    } else {
        return reinterpret_cast<T (*)(Arguments...)>(code)(arguments...);
    }
}

// Walks over any Iterable through its own methods.
class ForeignReader {
public:
    ForeignReader(const Object* iterable, const ElementType& type);
    // False at the end, else the element is at `result`.
    bool next(void* result);

private:
    const ElementType& type_;
    const Object* iterator_;
    void* const* methods_;
};

// Walks over any Iterable: native collections by cursor, holding their lock only for each step, others through their
// methods. A change of a native collection meanwhile is a panic.
class CollectionReader {
public:
    CollectionReader(const Object* iterable, const ElementType& type);
    bool next(void* result);

private:
    const ElementType& type_;
    const Object* collection_;
    const NativeClass* exact_;
    std::int64_t cursor_ = 0, changes_ = 0;
    std::optional<ForeignReader> foreign_;
};

}  // namespace vesk::runtime
