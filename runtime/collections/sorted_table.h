// The store behind sorted maps: entries in order of their keys, cut into chunks of neighbours. A search goes by halves
// over the chunks' first keys, then by halves inside one chunk; adding moves at most one chunk's entries.
#pragma once

#include "runtime/collections/element_type.h"
#include "runtime/collections/native_objects.h"

namespace vesk::runtime {

struct SortedTypes {
    ElementType key, value;
};

// Address of the key's value, null when there is none; holds until the map changes. Panics when a compareTo() changes
// the map.
char* findSorted(const SortedObject& map, const SortedTypes& types, const void* key);
struct SortedEntry {
    char* value;
    bool isNew;  // then the value is zeros
};
SortedEntry findOrAddSorted(SortedObject& map, const SortedTypes& types, const void* key);
bool removeSorted(SortedObject& map, const SortedTypes& types, const void* key);
void clearSorted(SortedObject& map);

}  // namespace vesk::runtime
