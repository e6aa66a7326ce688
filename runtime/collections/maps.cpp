// The methods of HashMap, SortedMap and their synchronized variants: one set of functions over two stores.
#include "runtime/collections/element_reader.h"
#include "runtime/collections/hash_table.h"
#include "runtime/collections/list_storage.h"
#include "runtime/collections/native_methods.h"
#include "runtime/collections/sorted_table.h"
#include "runtime/memory.h"
#include "runtime/panic.h"
#include "runtime/strings.h"

namespace vesk::runtime {
namespace {

// What the functions below need of a store: where a key's value is (null: nowhere), adding, removing, clearing.
struct HashStore {
    using State = HashObject;
    static constexpr NativeClass WALK{.name = {}, .layout = NativeLayout::Hash, .isMap = true};

    static char* find(const State& map, Descriptor k, Descriptor v, const void* key) {
        const ElementType value(v);
        const std::int64_t entry = findEntry(map, {ElementType(k), &value}, key);
        return entry < 0 ? nullptr : map.values + entry * value.width();
    }
    static char* findOrAdd(State& map, Descriptor k, Descriptor v, const void* key) {
        const ElementType value(v);
        const HashEntry entry = findOrAddEntry(map, {ElementType(k), &value}, key);
        return map.values + entry.position * value.width();
    }
    static bool erase(State& map, Descriptor k, Descriptor v, const void* key) {
        const ElementType value(v);
        return removeEntry(map, {ElementType(k), &value}, key);
    }
    static void eraseAll(State& map) { clearEntries(map); }
};

struct SortedStore {
    using State = SortedObject;
    static constexpr NativeClass WALK{.name = {}, .layout = NativeLayout::Sorted, .isMap = true};

    static char* find(const State& map, Descriptor k, Descriptor v, const void* key) {
        return findSorted(map, {ElementType(k), ElementType(v)}, key);
    }
    static char* findOrAdd(State& map, Descriptor k, Descriptor v, const void* key) {
        return findOrAddSorted(map, {ElementType(k), ElementType(v)}, key).value;
    }
    static bool erase(State& map, Descriptor k, Descriptor v, const void* key) {
        return removeSorted(map, {ElementType(k), ElementType(v)}, key);
    }
    static void eraseAll(State& map) { clearSorted(map); }
};

[[noreturn]] void panicMissingKey(Descriptor k, const void* key) {
    std::string text = "key not found: ";
    ElementType(k).appendText(text, key);
    panic(text);
}

// Calls visit(key, value) for all entries in order; panics when the map changes meanwhile.
template <class Visit>
void visitEntries(const Object* map, const NativeClass& walk, Descriptor k, Descriptor v, Visit visit) {
    const unsigned keyWidth = ElementType(k).width(), valueWidth = ElementType(v).width();
    const std::int64_t changes = changesOf(map, walk);
    for (std::int64_t at = 0; (at = cursorAt(map, walk, at)) >= 0; at++) {
        visit(elementUnder(map, walk, at, keyWidth), valueUnder(map, walk, at, valueWidth));
        if (changesOf(map, walk) != changes) vesk_rt_panic_changed();
    }
}

template <class Store>
struct MapMethods {
    using State = typename Store::State;

    static State& mapOf(Object* self) { return received<State>(self); }

    static void init(Descriptor k, Descriptor v, Object* self) {
        State& map = mapOf(self);
        map.key = k;
        map.value = v;
    }

    static void put(Descriptor k, Descriptor v, Object* self, const void* key, const void* value) {
        copyElement(Store::findOrAdd(mapOf(self), k, v, key), value, ElementType(v).width());
    }

    static void get(Descriptor k, Descriptor v, void* result, Object* self, const void* key) {
        const char* value = Store::find(mapOf(self), k, v, key);
        if (!value) panicMissingKey(k, key);
        copyElement(result, value, ElementType(v).width());
    }

    static void getOrDefault(Descriptor k, Descriptor v, void* result, Object* self, const void* key,
                             const void* other) {
        const char* value = Store::find(mapOf(self), k, v, key);
        copyElement(result, value ? value : other, ElementType(v).width());
    }

    static const Object* getOrNull(Descriptor k, Descriptor v, Object* self, const void* key) {
        const char* value = Store::find(mapOf(self), k, v, key);
        return value ? ElementType(v).boxed(value) : nullptr;
    }

    static bool containsKey(Descriptor k, Descriptor v, Object* self, const void* key) {
        return Store::find(mapOf(self), k, v, key) != nullptr;
    }

    static bool remove(Descriptor k, Descriptor v, Object* self, const void* key) {
        return Store::erase(mapOf(self), k, v, key);
    }

    static void clear(Descriptor, Descriptor, Object* self) { Store::eraseAll(mapOf(self)); }

    static std::int32_t size(Descriptor, Descriptor, Object* self) { return std::int32_t(mapOf(self).size); }

    static bool isEmpty(Descriptor, Descriptor, Object* self) { return mapOf(self).size == 0; }

    static Object* keys(Descriptor k, Descriptor v, const ClassRecord* record, Object* self) {
        ListObject* list = vesk_rt_new_list(k, record, size(k, v, self));
        const unsigned width = ElementType(k).width();
        std::int64_t filled = 0;
        visitEntries(self, Store::WALK, k, v,
                     [&](const void* key, const void*) { copyElement(elementAt(*list, filled++, width), key, width); });
        return list;
    }

    static Object* values(Descriptor k, Descriptor v, const ClassRecord* record, Object* self) {
        ListObject* list = vesk_rt_new_list(v, record, size(k, v, self));
        const unsigned width = ElementType(v).width();
        std::int64_t filled = 0;
        visitEntries(self, Store::WALK, k, v, [&](const void*, const void* value) {
            copyElement(elementAt(*list, filled++, width), value, width);
        });
        return list;
    }

    static String* toString(Descriptor k, Descriptor v, Object* self) {
        mapOf(self);
        TextInProgress inProgress(self);
        const ElementType keyType(k), valueType(v);
        std::string text = "{";
        visitEntries(self, Store::WALK, k, v, [&](const void* key, const void* value) {
            if (text.size() > 1) text += ", ";
            keyType.appendText(text, key);
            text += ": ";
            valueType.appendText(text, value);
        });
        return makeString(text + "}");
    }

    static std::int32_t hashCode(Descriptor k, Descriptor v, Object* self) {
        mapOf(self);
        const ElementType keyType(k), valueType(v);
        std::uint32_t hash = 0;
        visitEntries(self, Store::WALK, k, v, [&](const void* key, const void* value) {
            hash += std::uint32_t(keyType.hashCode(key)) * 31 ^ std::uint32_t(valueType.hashCode(value));
        });
        return std::int32_t(hash);
    }

    // Maps of one key and value type are equal when their entries are, in any order and whatever their classes.
    template <class Lock>
    static bool equals(Descriptor k, Descriptor v, Object* self, const Object* other) {
        State& map = mapOf(self);
        if (self == other) return true;
        const NativeClass* otherClass = other ? nativeClassOf(other->record) : nullptr;
        if (!otherClass || !otherClass->isMap) return false;
        const ElementType keyType(k), valueType(v);
        ListObject otherKeys{}, otherValues{};
        {
            SyncGuard guard(lockOf(other, otherClass));
            const ClassRecord* otherKey = elementDescriptorOf(other, *otherClass);
            if (otherKey && (otherKey != k || valueDescriptorOf(other, *otherClass) != v)) return false;
            visitEntries(other, *otherClass, k, v, [&](const void* key, const void* value) {
                appendElement(otherKeys, keyType, key);
                appendElement(otherValues, valueType, value);
            });
        }
        [[maybe_unused]] auto held = Lock::template of<State>(self);
        if (map.size != otherKeys.length) return false;
        for (std::int64_t i = 0; i < otherKeys.length; i++) {
            const char* value = Store::find(map, k, v, elementAt(otherKeys, i, keyType.width()));
            if (!value || !valueType.equal(value, elementAt(otherValues, i, valueType.width()))) return false;
        }
        return true;
    }

    // Of sorted maps; panics when there is none.
    static void endKey(Descriptor k, void* result, Object* self, bool first) {
        const SortedObject& map = received<SortedObject>(self);
        if (map.size == 0) panic("the map is empty");
        const SortedChunk& chunk = *map.chunks[first ? 0 : map.chunkCount - 1];
        const unsigned width = ElementType(k).width();
        copyElement(result, chunk.keys + (first ? 0 : chunk.count - 1) * width, width);
    }
};

using HashMethods = MapMethods<HashStore>;
using SortedMethods = MapMethods<SortedStore>;

}  // namespace

extern "C" {

// METHODS answers, STATE is what it works on. The two index operators are get and put.
#define VESK_MAP_METHOD(CLASS, METHODS, LOCK, RESULT, SYMBOL, NAME, PARAMETERS, ARGUMENTS) \
    RESULT vesk_collections_##CLASS##_##SYMBOL PARAMETERS {                                \
        [[maybe_unused]] auto held = LOCK::of<METHODS::State>(self);                       \
        return METHODS::NAME ARGUMENTS;                                                    \
    }

#define VESK_MAP_METHODS(CLASS, METHODS, LOCK)                                                                         \
    VESK_MAP_METHOD(CLASS, METHODS, LOCK, void, init, init, (Descriptor k, Descriptor v, Object * self), (k, v, self)) \
    VESK_MAP_METHOD(CLASS, METHODS, LOCK, void, put, put,                                                              \
                    (Descriptor k, Descriptor v, Object * self, const void* key, const void* value),                   \
                    (k, v, self, key, value))                                                                          \
    VESK_MAP_METHOD(CLASS, METHODS, LOCK, void, operator_index_eq, put,                                                \
                    (Descriptor k, Descriptor v, Object * self, const void* key, const void* value),                   \
                    (k, v, self, key, value))                                                                          \
    VESK_MAP_METHOD(CLASS, METHODS, LOCK, void, get, get,                                                              \
                    (Descriptor k, Descriptor v, void* result, Object* self, const void* key),                         \
                    (k, v, result, self, key))                                                                         \
    VESK_MAP_METHOD(CLASS, METHODS, LOCK, void, operator_index, get,                                                   \
                    (Descriptor k, Descriptor v, void* result, Object* self, const void* key),                         \
                    (k, v, result, self, key))                                                                         \
    VESK_MAP_METHOD(CLASS, METHODS, LOCK, void, getOrDefault, getOrDefault,                                            \
                    (Descriptor k, Descriptor v, void* result, Object* self, const void* key, const void* other),      \
                    (k, v, result, self, key, other))                                                                  \
    VESK_MAP_METHOD(CLASS, METHODS, LOCK, const Object*, getOrNull, getOrNull,                                         \
                    (Descriptor k, Descriptor v, Object * self, const void* key), (k, v, self, key))                   \
    VESK_MAP_METHOD(CLASS, METHODS, LOCK, bool, containsKey, containsKey,                                              \
                    (Descriptor k, Descriptor v, Object * self, const void* key), (k, v, self, key))                   \
    VESK_MAP_METHOD(CLASS, METHODS, LOCK, bool, remove, remove,                                                        \
                    (Descriptor k, Descriptor v, Object * self, const void* key), (k, v, self, key))                   \
    VESK_MAP_METHOD(CLASS, METHODS, LOCK, void, clear, clear, (Descriptor k, Descriptor v, Object * self),             \
                    (k, v, self))                                                                                      \
    VESK_MAP_METHOD(CLASS, METHODS, LOCK, std::int32_t, size, size, (Descriptor k, Descriptor v, Object * self),       \
                    (k, v, self))                                                                                      \
    VESK_MAP_METHOD(CLASS, METHODS, LOCK, bool, isEmpty, isEmpty, (Descriptor k, Descriptor v, Object * self),         \
                    (k, v, self))                                                                                      \
    VESK_MAP_METHOD(CLASS, METHODS, LOCK, Object*, keys, keys,                                                         \
                    (Descriptor k, Descriptor v, const ClassRecord* record, Object* self), (k, v, record, self))       \
    VESK_MAP_METHOD(CLASS, METHODS, LOCK, Object*, values, values,                                                     \
                    (Descriptor k, Descriptor v, const ClassRecord* record, Object* self), (k, v, record, self))       \
    VESK_MAP_METHOD(CLASS, METHODS, LOCK, String*, toString, toString, (Descriptor k, Descriptor v, Object * self),    \
                    (k, v, self))                                                                                      \
    VESK_MAP_METHOD(CLASS, METHODS, LOCK, std::int32_t, hashCode, hashCode,                                            \
                    (Descriptor k, Descriptor v, Object * self), (k, v, self))                                         \
    bool vesk_collections_##CLASS##_equals(Descriptor k, Descriptor v, Object* self, const Object* other) {            \
        return METHODS::equals<LOCK>(k, v, self, other);                                                               \
    }

#define VESK_SORTED_METHODS(CLASS, LOCK)                                                             \
    void vesk_collections_##CLASS##_firstKey(Descriptor k, Descriptor, void* result, Object* self) { \
        [[maybe_unused]] auto held = LOCK::of<SortedObject>(self);                                   \
        SortedMethods::endKey(k, result, self, true);                                                \
    }                                                                                                \
    void vesk_collections_##CLASS##_lastKey(Descriptor k, Descriptor, void* result, Object* self) {  \
        [[maybe_unused]] auto held = LOCK::of<SortedObject>(self);                                   \
        SortedMethods::endKey(k, result, self, false);                                               \
    }

VESK_MAP_METHODS(HashMap, HashMethods, Unlocked)
VESK_MAP_METHODS(HashMapSync, HashMethods, Locked)
VESK_MAP_METHODS(SortedMap, SortedMethods, Unlocked)
VESK_MAP_METHODS(SortedMapSync, SortedMethods, Locked)
VESK_SORTED_METHODS(SortedMap, Unlocked)
VESK_SORTED_METHODS(SortedMapSync, Locked)

}  // extern "C"
}  // namespace vesk::runtime
