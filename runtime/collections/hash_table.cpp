// Probing, adding, removing, and laying a table out anew.
#include "runtime/collections/hash_table.h"

#include <algorithm>
#include <limits>

#include "runtime/panic.h"

namespace vesk::runtime {
namespace {

constexpr std::int64_t FIRST_CAPACITY = 8;
constexpr std::int64_t MAX_CAPACITY = std::int64_t(1) << 30;
constexpr std::int64_t NOT_FOUND = -1;

// Never 0, which marks removed entries.
template <class K>
std::uint32_t storedHash(K key) {
    return std::uint32_t(Element<K>::mixedHash(key)) | 0x80000000u;
}

// A place holds a position + 1 in its low bits, as many as there are places, and above them what is left of the hash:
// most keys that are not wanted are told apart without a look at them. 0 is free. All low bits alone mark a removed entry:
// positions stay below that, and a hash has its highest bit.
std::uint32_t placeMask(const HashObject& table) { return std::uint32_t(table.places - 1); }
std::uint32_t removedMark(const HashObject& table) { return placeMask(table); }
std::int64_t entryAt(const HashObject& table, std::int64_t place) {
    return std::int64_t(table.index[place] & placeMask(table)) - 1;
}

template <class K>
bool holdsKey(const HashObject& table, std::int64_t position, K key) {
    if constexpr (std::is_same_v<K, Reference>) {
        const std::int64_t changes = table.changes;
        const bool same = Element<K>::sameKey(reinterpret_cast<const K*>(table.keys)[position], key);
        if (table.changes != changes) vesk_rt_panic_changed();
        return same;
    } else {
        return Element<K>::sameKey(reinterpret_cast<const K*>(table.keys)[position], key);
    }
}

// The place in the index that leads to the key, or NOT_FOUND.
template <class K>
std::int64_t placeOf(const HashObject& table, K key, std::uint32_t hash) {
    if (table.places == 0) return NOT_FOUND;
    const std::uint32_t mask = placeMask(table), wanted = hash & ~mask;
    for (std::uint32_t place = hash & mask;; place = (place + 1) & mask) {
        const std::uint32_t found = table.index[place];
        if ((found & ~mask) == wanted && holdsKey(table, entryAt(table, place), key)) return place;
        if (found == 0) return NOT_FOUND;
    }
}

// The first place without an entry; the key is known to be absent.
std::int64_t openPlace(const HashObject& table, std::uint32_t hash) {
    const std::uint32_t mask = placeMask(table);
    std::uint32_t place = hash & mask;
    while (table.index[place] > mask) place = (place + 1) & mask;
    return place;
}

void setEntry(HashObject& table, std::int64_t place, std::int64_t entry, std::uint32_t hash) {
    table.index[place] = (hash & ~placeMask(table)) | std::uint32_t(entry + 1);
}

template <class T>
T* allocateNumbers(std::int64_t count) {
    return static_cast<T*>(allocateBytes(std::size_t(count) * sizeof(T), true));
}

void layOutAnew(HashObject& table, const HashTypes& types) {
    const std::int64_t capacity =
        table.size > table.capacity / 2 ? table.capacity * 2 : std::max(FIRST_CAPACITY, table.capacity);
    if (capacity > MAX_CAPACITY)
        panic("a collection cannot hold more than " + std::to_string(MAX_CAPACITY) + " entries");
    const unsigned keyWidth = types.key.width(), valueWidth = types.value ? types.value->width() : 0;
    std::uint32_t* hashes = allocateNumbers<std::uint32_t>(capacity);
    char* keys = types.key.allocate(capacity);
    char* values = types.value ? types.value->allocate(capacity) : nullptr;
    std::int64_t used = 0;
    for (std::int64_t from = 0; from < table.used; from++) {
        if (table.hashes[from] == 0) continue;
        hashes[used] = table.hashes[from];
        copyElement(keys + used * keyWidth, table.keys + from * keyWidth, keyWidth);
        if (values) copyElement(values + used * valueWidth, table.values + from * valueWidth, valueWidth);
        used++;
    }
    table.places = 2 * capacity;
    table.index = allocateNumbers<std::uint32_t>(table.places);
    table.capacity = capacity;
    table.used = used;
    table.hashes = hashes;
    table.keys = keys;
    table.values = values;
    table.key = types.key.descriptor();
    table.value = types.value ? types.value->descriptor() : nullptr;
    for (std::int64_t entry = 0; entry < used; entry++)
        setEntry(table, openPlace(table, hashes[entry]), entry, hashes[entry]);
}

}  // namespace

std::int64_t findEntry(const HashObject& table, const HashTypes& types, const void* key) {
    if (table.size == 0) return NOT_FOUND;
    return withElement(types.key.kind(), [&]<class K>() {
        const K wanted = loadElement<K>(key);
        const std::int64_t place = placeOf(table, wanted, storedHash(wanted));
        return place == NOT_FOUND ? NOT_FOUND : entryAt(table, place);
    });
}

HashEntry findOrAddEntry(HashObject& table, const HashTypes& types, const void* key) {
    return withElement(types.key.kind(), [&]<class K>() -> HashEntry {
        const K added = loadElement<K>(key);
        const std::uint32_t hash = storedHash(added);
        const std::int64_t place = placeOf(table, added, hash);
        if (place != NOT_FOUND) return {entryAt(table, place), false};
        if (table.used == table.capacity) layOutAnew(table, types);
        const std::int64_t entry = table.used++;
        setEntry(table, openPlace(table, hash), entry, hash);
        table.hashes[entry] = hash;
        reinterpret_cast<K*>(table.keys)[entry] = added;
        table.size++;
        table.changes++;
        return {entry, true};
    });
}

bool removeEntry(HashObject& table, const HashTypes& types, const void* key) {
    return withElement(types.key.kind(), [&]<class K>() {
        const K removed = loadElement<K>(key);
        const std::int64_t place = table.size == 0 ? NOT_FOUND : placeOf(table, removed, storedHash(removed));
        if (place == NOT_FOUND) return false;
        const std::int64_t entry = entryAt(table, place);
        table.index[place] = removedMark(table);
        table.hashes[entry] = 0;
        reinterpret_cast<K*>(table.keys)[entry] = K();
        if (types.value) std::memset(table.values + entry * types.value->width(), 0, types.value->width());
        table.size--;
        table.changes++;
        return true;
    });
}

void clearEntries(HashObject& table) {
    table.size = table.used = table.capacity = table.places = 0;
    table.hashes = nullptr;
    table.keys = table.values = nullptr;
    table.index = nullptr;
    table.changes++;
}

}  // namespace vesk::runtime
