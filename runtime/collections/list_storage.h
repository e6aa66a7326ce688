// The contiguous store behind all lists: a block of elements of their own width with free places at both ends, so that
// adding and removing is cheap there. Places that hold no element are zero when elements are references, so that the
// collector sees no stale ones. Callers check indices.
#pragma once

#include "runtime/collections/element_type.h"
#include "runtime/collections/native_objects.h"

namespace vesk::runtime {

inline char* elementAt(const ListObject& list, std::int64_t index, unsigned width) { return list.data + index * width; }

// Makes room for `extra` more elements behind the last one; panics when a list would get longer than an Int can count.
void reserveAtEnd(ListObject& list, const ElementType& type, std::int64_t extra);
// Opens a gap of zeros before the element at `index`, on the side where fewer elements move.
void openGap(ListObject& list, const ElementType& type, std::int64_t index, std::int64_t count);
void eraseElements(ListObject& list, const ElementType& type, std::int64_t index, std::int64_t count);
void clearElements(ListObject& list, const ElementType& type);
// Copies `count` elements that lie at `from` to the end; they may be the list's own.
void appendElements(ListObject& list, const ElementType& type, const char* from, std::int64_t count);

inline void appendElement(ListObject& list, const ElementType& type, const void* value) {
    if (list.length == list.capacity) reserveAtEnd(list, type, 1);
    copyElement(elementAt(list, list.length, type.width()), value, type.width());
    list.length++;
    list.changes++;
}

// -1 when no element is equal. Panics when an equals() changes the list.
std::int64_t indexOfElement(const ListObject& list, const ElementType& type, const void* value);
std::int64_t lastIndexOfElement(const ListObject& list, const ElementType& type, const void* value);

// Stable, by the natural order. Panics when a compareTo() changes the list.
void sortElements(ListObject& list, const ElementType& type);
// Puts the element at the position of the smallest key first, and so on; stable. There are as many keys as elements.
void sortElementsByKeys(ListObject& list, const ElementType& type, const char* keys, const ElementType& keyType);
void reverseElements(ListObject& list, const ElementType& type);

}  // namespace vesk::runtime
