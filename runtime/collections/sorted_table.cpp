// Searching, splitting and joining chunks.
#include "runtime/collections/sorted_table.h"

#include <algorithm>

#include "runtime/panic.h"

namespace vesk::runtime {
namespace {

constexpr std::int64_t FIRST_CHUNK = 8, LARGEST_CHUNK = 512;
constexpr std::int64_t FIRST_CHUNK_COUNT = 4;

struct Place {
    std::int64_t chunk, offset;
    bool isFound;
};

template <class K>
int compareKeys(const SortedObject& map, K first, K second) {
    const std::int64_t changes = map.changes;
    const int order = Element<K>::compare(first, second);
    if constexpr (std::is_same_v<K, Reference>) {
        if (map.changes != changes) vesk_rt_panic_changed();
    }
    return order;
}

// Where the key is or belongs: in the last chunk whose first key is not greater, else in the first one.
template <class K>
Place placeOf(const SortedObject& map, K key) {
    if (map.chunkCount == 0) {
        // A key alone must have an order too, so that a bad type shows with the first entry.
        if constexpr (std::is_same_v<K, Reference>) static_cast<void>(compareKeys(map, key, key));
        return {0, 0, false};
    }
    std::int64_t low = 0, high = map.chunkCount;
    while (high - low > 1) {
        const std::int64_t middle = low + (high - low) / 2;
        if (compareKeys(map, reinterpret_cast<const K*>(map.chunks[middle]->keys)[0], key) <= 0)
            low = middle;
        else
            high = middle;
    }
    const SortedChunk& chunk = *map.chunks[low];
    const K* keys = reinterpret_cast<const K*>(chunk.keys);
    std::int64_t from = 0, to = chunk.count;
    while (from < to) {
        const std::int64_t middle = from + (to - from) / 2;
        const int order = compareKeys(map, keys[middle], key);
        if (order == 0) return {low, middle, true};
        if (order < 0)
            from = middle + 1;
        else
            to = middle;
    }
    return {low, from, false};
}

Place placeOf(const SortedObject& map, const SortedTypes& types, const void* key) {
    return withElement(types.key.kind(), [&]<class K>() { return placeOf(map, loadElement<K>(key)); });
}

char* valueAt(const SortedChunk& chunk, const SortedTypes& types, std::int64_t offset) {
    return chunk.values + offset * types.value.width();
}

// Removed and moved references leave no copy behind for the collector.
void zeroEntries(SortedChunk& chunk, const SortedTypes& types, std::int64_t from, std::int64_t count) {
    std::memset(chunk.keys + from * types.key.width(), 0, std::size_t(count) * types.key.width());
    std::memset(valueAt(chunk, types, from), 0, std::size_t(count) * types.value.width());
}

void copyEntries(SortedChunk& to, std::int64_t toOffset, const SortedChunk& from, std::int64_t offset,
                 std::int64_t count, const SortedTypes& types) {
    if (count == 0) return;
    const unsigned keyWidth = types.key.width(), valueWidth = types.value.width();
    std::memmove(to.keys + toOffset * keyWidth, from.keys + offset * keyWidth, std::size_t(count) * keyWidth);
    std::memmove(to.values + toOffset * valueWidth, from.values + offset * valueWidth, std::size_t(count) * valueWidth);
}

SortedChunk* newChunk(const SortedTypes& types, std::int64_t capacity) {
    SortedChunk* chunk = static_cast<SortedChunk*>(allocateBytes(sizeof(SortedChunk), false));
    chunk->capacity = capacity;
    chunk->keys = types.key.allocate(capacity);
    chunk->values = types.value.allocate(capacity);
    return chunk;
}

void insertChunk(SortedObject& map, std::int64_t index, SortedChunk* chunk) {
    if (map.chunkCount == map.chunkCapacity) {
        const std::int64_t capacity = std::max(FIRST_CHUNK_COUNT, 2 * map.chunkCapacity);
        SortedChunk** chunks =
            static_cast<SortedChunk**>(allocateBytes(std::size_t(capacity) * sizeof(SortedChunk*), false));
        std::copy(map.chunks, map.chunks + map.chunkCount, chunks);
        map.chunks = chunks;
        map.chunkCapacity = capacity;
    }
    std::copy_backward(map.chunks + index, map.chunks + map.chunkCount, map.chunks + map.chunkCount + 1);
    map.chunks[index] = chunk;
    map.chunkCount++;
}

void eraseChunk(SortedObject& map, std::int64_t index) {
    std::copy(map.chunks + index + 1, map.chunks + map.chunkCount, map.chunks + index);
    map.chunks[--map.chunkCount] = nullptr;
}

// Makes room for one more entry in the place's chunk, which may move the place.
void makeRoom(SortedObject& map, const SortedTypes& types, Place& place) {
    if (map.chunkCount == 0) return insertChunk(map, 0, newChunk(types, FIRST_CHUNK));
    SortedChunk& chunk = *map.chunks[place.chunk];
    if (chunk.count < chunk.capacity) return;
    if (chunk.capacity < LARGEST_CHUNK) {
        SortedChunk* larger = newChunk(types, std::min(LARGEST_CHUNK, 2 * chunk.capacity));
        copyEntries(*larger, 0, chunk, 0, chunk.count, types);
        larger->count = chunk.count;
        map.chunks[place.chunk] = larger;
        return;
    }
    // Keys that come in ascending order fill chunks to the brim; others leave two halves.
    const bool isAscending = place.chunk + 1 == map.chunkCount && place.offset == chunk.count;
    const std::int64_t kept = isAscending ? chunk.count : chunk.count / 2;
    SortedChunk* behind = newChunk(types, LARGEST_CHUNK);
    copyEntries(*behind, 0, chunk, kept, chunk.count - kept, types);
    behind->count = chunk.count - kept;
    zeroEntries(chunk, types, kept, chunk.count - kept);
    chunk.count = kept;
    insertChunk(map, place.chunk + 1, behind);
    if (place.offset >= kept) {
        place.chunk++;
        place.offset -= kept;
    }
}

// Small neighbours become one chunk.
void joinWithNext(SortedObject& map, const SortedTypes& types, std::int64_t index) {
    if (index < 0 || index + 1 >= map.chunkCount) return;
    SortedChunk &chunk = *map.chunks[index], &next = *map.chunks[index + 1];
    if (chunk.count + next.count > std::min(chunk.capacity, LARGEST_CHUNK / 2)) return;
    copyEntries(chunk, chunk.count, next, 0, next.count, types);
    chunk.count += next.count;
    eraseChunk(map, index + 1);
}

}  // namespace

char* findSorted(const SortedObject& map, const SortedTypes& types, const void* key) {
    if (map.size == 0) return nullptr;
    const Place place = placeOf(map, types, key);
    return place.isFound ? valueAt(*map.chunks[place.chunk], types, place.offset) : nullptr;
}

SortedEntry findOrAddSorted(SortedObject& map, const SortedTypes& types, const void* key) {
    Place place = placeOf(map, types, key);
    if (place.isFound) return {valueAt(*map.chunks[place.chunk], types, place.offset), false};
    makeRoom(map, types, place);
    map.key = types.key.descriptor();
    map.value = types.value.descriptor();
    SortedChunk& chunk = *map.chunks[place.chunk];
    copyEntries(chunk, place.offset + 1, chunk, place.offset, chunk.count - place.offset, types);
    zeroEntries(chunk, types, place.offset, 1);
    copyElement(chunk.keys + place.offset * types.key.width(), key, types.key.width());
    chunk.count++;
    map.size++;
    map.changes++;
    return {valueAt(chunk, types, place.offset), true};
}

bool removeSorted(SortedObject& map, const SortedTypes& types, const void* key) {
    if (map.size == 0) return false;
    const Place place = placeOf(map, types, key);
    if (!place.isFound) return false;
    SortedChunk& chunk = *map.chunks[place.chunk];
    copyEntries(chunk, place.offset, chunk, place.offset + 1, chunk.count - place.offset - 1, types);
    zeroEntries(chunk, types, chunk.count - 1, 1);
    chunk.count--;
    map.size--;
    map.changes++;
    if (chunk.count == 0) {
        eraseChunk(map, place.chunk);
    } else {
        joinWithNext(map, types, place.chunk);
        joinWithNext(map, types, place.chunk - 1);
    }
    return true;
}

void clearSorted(SortedObject& map) {
    map.size = map.chunkCount = map.chunkCapacity = 0;
    map.chunks = nullptr;
    map.changes++;
}

}  // namespace vesk::runtime
