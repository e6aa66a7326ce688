// Growing, moving, searching and sorting blocks of elements.
#include "runtime/collections/list_storage.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <vector>

#include "runtime/panic.h"
#include "runtime/records.h"
#include "runtime/strings.h"

namespace vesk::runtime {
namespace {

constexpr std::int64_t MAX_LENGTH = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t FIRST_CAPACITY = 8;

void checkLength(std::int64_t length) {
    if (length > MAX_LENGTH) panic("a collection cannot hold more than " + std::to_string(MAX_LENGTH) + " elements");
}

// Into a new block with that many free places before the first element and behind the last.
void moveToNewBlock(ListObject& list, const ElementType& type, std::int64_t before, std::int64_t behind) {
    char* block = type.allocate(before + list.length + behind);
    char* data = block + before * type.width();
    if (list.length > 0) std::memcpy(data, list.data, std::size_t(list.length) * type.width());
    list.data = data;
    list.capacity = list.length + behind;
    list.front = before;
    list.element = type.descriptor();
}

// An empty list begins at the start of its block again: `data` always points into the block, which keeps it alive.
void rewindWhenEmpty(ListObject& list, const ElementType& type) {
    if (list.length > 0) return;
    list.data -= list.front * type.width();
    list.capacity += list.front;
    list.front = 0;
}

// Old places of references are zeroed for the collector.
void zeroPlaces(char* from, std::int64_t count, const ElementType& type) {
    if (type.isReference() && count > 0) std::memset(from, 0, std::size_t(count) * type.width());
}

void reserveAtFront(ListObject& list, const ElementType& type, std::int64_t extra) {
    if (list.front >= extra) return;
    checkLength(list.length + extra);
    moveToNewBlock(list, type, extra + std::max(FIRST_CAPACITY, list.length), list.capacity - list.length);
}

void move(char* to, const char* from, std::int64_t count, unsigned width) {
    if (count > 0) std::memmove(to, from, std::size_t(count) * width);
}

// While elements of reference type are compared, code of the program runs, and the collector may too.
void checkUnchanged(const ListObject& list, std::int64_t changes) {
    if (list.changes != changes) vesk_rt_panic_changed();
}

// Text whose first eight bytes decide most comparisons without a look at the string.
struct PrefixedString {
    std::uint64_t prefix;
    const String* string;

    explicit PrefixedString(Reference value) : prefix(0), string(static_cast<const String*>(value)) {
        std::string_view text = viewOf(string);
        for (std::size_t i = 0; i < 8; i++)
            prefix = prefix << 8 | (i < text.size() ? static_cast<unsigned char>(text[i]) : 0);
    }
    bool operator<(const PrefixedString& other) const {
        return prefix != other.prefix ? prefix < other.prefix : viewOf(string) < viewOf(other.string);
    }
};

bool holdsStringsOnly(const Reference* elements, std::int64_t count) {
    return std::all_of(elements, elements + count,
                       [](Reference element) { return element && element->record == &vesk_class_String.record; });
}

// What is sorted lies outside the heap for a while. Strings are kept alive by the list's own block; other objects by a
// copy of it, since their compareTo() may even replace elements of the list.
void sortReferences(ListObject& list, const ElementType& type) {
    Reference* elements = reinterpret_cast<Reference*>(list.data);
    if (holdsStringsOnly(elements, list.length)) {
        std::vector<PrefixedString> strings(elements, elements + list.length);
        std::sort(strings.begin(), strings.end());
        std::transform(strings.begin(), strings.end(), elements,
                       [](const PrefixedString& entry) { return entry.string; });
        return;
    }
    std::vector<Reference> sorted(elements, elements + list.length);
    char* kept = type.allocate(list.length);
    std::memcpy(kept, elements, sorted.size() * sizeof(Reference));
    const std::int64_t changes = list.changes;
    std::stable_sort(sorted.begin(), sorted.end(), [&](Reference first, Reference second) {
        int order = compareReferences(first, second);
        checkUnchanged(list, changes);
        return order < 0;
    });
    std::copy(sorted.begin(), sorted.end(), elements);
    asm volatile("" : : "r"(kept) : "memory");
}

}  // namespace

void reserveAtEnd(ListObject& list, const ElementType& type, std::int64_t extra) {
    if (list.capacity - list.length >= extra) return;
    checkLength(list.length + extra);
    // A queue leaves free places at its front: more of them than elements, and moving back costs less than a new block.
    if (list.front > list.length && list.front + list.capacity - list.length >= 2 * extra) {
        char* block = list.data - list.front * type.width();
        move(block, list.data, list.length, type.width());
        zeroPlaces(block + list.front * type.width(), list.length, type);
        list.data = block;
        list.capacity += list.front;
        list.front = 0;
        return;
    }
    const std::int64_t grown = std::max({list.length + extra, 2 * list.length, FIRST_CAPACITY});
    moveToNewBlock(list, type, 0, std::min(grown, std::max(MAX_LENGTH, list.length + extra)) - list.length);
}

void openGap(ListObject& list, const ElementType& type, std::int64_t index, std::int64_t count) {
    const unsigned width = type.width();
    if (index < list.length / 2 || (index == 0 && list.length > 0)) {
        reserveAtFront(list, type, count);
        char* data = list.data - count * width;
        move(data, list.data, index, width);
        list.data = data;
        list.front -= count;
        list.capacity += count;
    } else {
        reserveAtEnd(list, type, count);
        move(elementAt(list, index + count, width), elementAt(list, index, width), list.length - index, width);
    }
    list.length += count;
    list.changes++;
    std::memset(elementAt(list, index, width), 0, std::size_t(count) * width);
}

void eraseElements(ListObject& list, const ElementType& type, std::int64_t index, std::int64_t count) {
    const unsigned width = type.width();
    const std::int64_t behind = list.length - index - count;
    if (index < behind) {
        move(elementAt(list, count, width), list.data, index, width);
        zeroPlaces(list.data, count, type);
        list.data += count * width;
        list.front += count;
        list.capacity -= count;
    } else {
        move(elementAt(list, index, width), elementAt(list, index + count, width), behind, width);
        zeroPlaces(elementAt(list, list.length - count, width), count, type);
    }
    list.length -= count;
    list.changes++;
    rewindWhenEmpty(list, type);
}

void clearElements(ListObject& list, const ElementType& type) {
    zeroPlaces(list.data, list.length, type);
    list.length = 0;
    list.changes++;
    rewindWhenEmpty(list, type);
}

void appendElements(ListObject& list, const ElementType& type, const char* from, std::int64_t count) {
    if (count == 0) return;
    // When `from` lies in the list's own block, the block stays alive and unchanged while a new one is filled.
    const bool isOwn = from == list.data;
    reserveAtEnd(list, type, count);
    std::memcpy(elementAt(list, list.length, type.width()), isOwn ? list.data : from,
                std::size_t(count) * type.width());
    list.length += count;
    list.changes++;
}

std::int64_t indexOfElement(const ListObject& list, const ElementType& type, const void* value) {
    return withElement(type.kind(), [&]<class T>() -> std::int64_t {
        const T wanted = loadElement<T>(value);
        const T* elements = reinterpret_cast<const T*>(list.data);
        const std::int64_t changes = list.changes;
        for (std::int64_t i = 0; i < list.length; i++) {
            const bool found = Element<T>::equal(elements[i], wanted);
            if constexpr (std::is_same_v<T, Reference>) checkUnchanged(list, changes);
            if (found) return i;
        }
        return -1;
    });
}

std::int64_t lastIndexOfElement(const ListObject& list, const ElementType& type, const void* value) {
    return withElement(type.kind(), [&]<class T>() -> std::int64_t {
        const T wanted = loadElement<T>(value);
        const T* elements = reinterpret_cast<const T*>(list.data);
        const std::int64_t changes = list.changes;
        for (std::int64_t i = list.length; i-- > 0;) {
            const bool found = Element<T>::equal(elements[i], wanted);
            if constexpr (std::is_same_v<T, Reference>) checkUnchanged(list, changes);
            if (found) return i;
        }
        return -1;
    });
}

void sortElements(ListObject& list, const ElementType& type) {
    if (list.length > 1) {
        withElement(type.kind(), [&]<class T>() {
            if constexpr (std::is_same_v<T, Reference>) {
                sortReferences(list, type);
            } else if constexpr (std::is_floating_point_v<T>) {
                // Numbers first, and among numbers the plain comparison; zeros of both signs keep their order.
                T* elements = reinterpret_cast<T*>(list.data);
                T* numbersEnd =
                    std::stable_partition(elements, elements + list.length, [](T x) { return !std::isnan(x); });
                std::stable_sort(elements, numbersEnd);
            } else {
                T* elements = reinterpret_cast<T*>(list.data);
                std::sort(elements, elements + list.length);
            }
        });
    }
    list.changes++;
}

void sortElementsByKeys(ListObject& list, const ElementType& type, const char* keys, const ElementType& keyType) {
    std::vector<std::int64_t> order(std::size_t(list.length));
    std::iota(order.begin(), order.end(), 0);
    const std::int64_t changes = list.changes;
    withElement(keyType.kind(), [&]<class K>() {
        const K* key = reinterpret_cast<const K*>(keys);
        std::stable_sort(order.begin(), order.end(), [&](std::int64_t first, std::int64_t second) {
            const int compared = Element<K>::compare(key[first], key[second]);
            if constexpr (std::is_same_v<K, Reference>) checkUnchanged(list, changes);
            return compared < 0;
        });
    });
    withElement(type.kind(), [&]<class T>() {
        T* sorted = reinterpret_cast<T*>(type.allocate(list.length));
        const T* elements = reinterpret_cast<const T*>(list.data);
        std::transform(order.begin(), order.end(), sorted, [&](std::int64_t from) { return elements[from]; });
        std::copy(sorted, sorted + list.length, reinterpret_cast<T*>(list.data));
    });
    list.changes++;
}

void reverseElements(ListObject& list, const ElementType& type) {
    withElement(type.kind(), [&]<class T>() {
        T* elements = reinterpret_cast<T*>(list.data);
        if (list.length > 1) std::reverse(elements, elements + list.length);
    });
    list.changes++;
}

}  // namespace vesk::runtime
