// The table behind hash maps and hash sets: open addressing with linear probing over positions of entries, which lie in
// the order of insertion. A removed entry leaves a mark in the table and a hole among the entries; both vanish when the
// entries are full and everything is laid out anew, with twice the room if most of them are alive. Since an entry uses
// at most one place and there are twice as many places as room for entries, every search meets a free place.
//
//     put a, put b, remove a, put c:   entries  -  b  c        index (without the hashes)  0 x 0 3 2 0 0 0
#pragma once

#include "runtime/collections/element_type.h"
#include "runtime/collections/native_objects.h"

namespace vesk::runtime {

struct HashTypes {
    ElementType key;
    const ElementType* value = nullptr;  // null in sets
};

// Position of the entry, -1 when there is none. Panics when an equals() or hashCode() changes the table.
std::int64_t findEntry(const HashObject& table, const HashTypes& types, const void* key);
struct HashEntry {
    std::int64_t position;
    bool isNew;  // then its value is zeros
};
HashEntry findOrAddEntry(HashObject& table, const HashTypes& types, const void* key);
bool removeEntry(HashObject& table, const HashTypes& types, const void* key);
void clearEntries(HashObject& table);

}  // namespace vesk::runtime
