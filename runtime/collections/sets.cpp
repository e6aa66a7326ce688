// The methods of HashSet and HashSetSync.
#include "runtime/collections/element_reader.h"
#include "runtime/collections/hash_table.h"
#include "runtime/collections/list_storage.h"
#include "runtime/collections/native_methods.h"
#include "runtime/memory.h"
#include "runtime/panic.h"
#include "runtime/strings.h"

namespace vesk::runtime {
namespace {

constexpr NativeClass WALK{.name = {}, .layout = NativeLayout::Hash};

HashObject& setOf(Object* self) { return received<HashObject>(self); }

template <class Visit>
void visitElements(const Object* set, const ElementType& type, Visit visit) {
    const std::int64_t changes = changesOf(set, WALK);
    for (std::int64_t at = 0; (at = cursorAt(set, WALK, at)) >= 0; at++) {
        visit(elementUnder(set, WALK, at, type.width()));
        if (changesOf(set, WALK) != changes) vesk_rt_panic_changed();
    }
}

template <class Visit>
void visitRun(const ElementRun& run, const ElementType& type, Visit visit) {
    for (std::int64_t i = 0; i < run.length; i++) visit(run.data + i * type.width());
}

// A set of what a collection holds, outside of any object.
HashObject tableOf(const ElementRun& run, const ElementType& type) {
    HashObject table{};
    visitRun(run, type, [&](const void* item) { findOrAddEntry(table, {type}, item); });
    return table;
}

HashObject* makeSet(Descriptor element, const ClassRecord* record) {
    HashObject* set = static_cast<HashObject*>(vesk_rt_new(record));
    set->key = element;
    return set;
}

void init(Descriptor element, Object* self) { setOf(self).key = element; }

bool add(Descriptor element, Object* self, const void* item) {
    return findOrAddEntry(setOf(self), {ElementType(element)}, item).isNew;
}

bool remove(Descriptor element, Object* self, const void* item) {
    return removeEntry(setOf(self), {ElementType(element)}, item);
}

bool contains(Descriptor element, Object* self, const void* item) {
    return findEntry(setOf(self), {ElementType(element)}, item) >= 0;
}

std::int32_t size(Descriptor, Object* self) { return std::int32_t(setOf(self).size); }

bool isEmpty(Descriptor, Object* self) { return setOf(self).size == 0; }

void clear(Descriptor, Object* self) { clearEntries(setOf(self)); }

template <class Lock>
bool addAll(Descriptor element, Object* self, const Object* items) {
    HashObject& set = setOf(self);
    const ElementType type(element);
    const ElementRun run = elementsOf(items, type);
    [[maybe_unused]] auto held = Lock::template of<HashObject>(self);
    const std::int64_t before = set.size;
    visitRun(run, type, [&](const void* item) { findOrAddEntry(set, {type}, item); });
    return set.size > before;
}

template <class Lock>
void init__dup2(Descriptor element, Object* self, const Object* items) {
    init(element, self);
    addAll<Lock>(element, self, items);
}

template <class Lock>
bool removeAll(Descriptor element, Object* self, const Object* items) {
    HashObject& set = setOf(self);
    const ElementType type(element);
    const ElementRun run = elementsOf(items, type);
    [[maybe_unused]] auto held = Lock::template of<HashObject>(self);
    const std::int64_t before = set.size;
    visitRun(run, type, [&](const void* item) { removeEntry(set, {type}, item); });
    return set.size < before;
}

template <class Lock>
bool containsAll(Descriptor element, Object* self, const Object* items) {
    const HashObject& set = setOf(self);
    const ElementType type(element);
    const ElementRun run = elementsOf(items, type);
    [[maybe_unused]] auto held = Lock::template of<HashObject>(self);
    for (std::int64_t i = 0; i < run.length; i++) {
        if (findEntry(set, {type}, run.data + i * type.width()) < 0) return false;
    }
    return true;
}

// The set's elements, then those of the other collection that are new.
template <class Lock>
Object* unionWith(Descriptor element, const ClassRecord* record, Object* self, const Object* items) {
    setOf(self);
    const ElementType type(element);
    const ElementRun run = elementsOf(items, type);
    [[maybe_unused]] auto held = Lock::template of<HashObject>(self);
    HashObject* result = makeSet(element, record);
    visitElements(self, type, [&](const void* item) { findOrAddEntry(*result, {type}, item); });
    visitRun(run, type, [&](const void* item) { findOrAddEntry(*result, {type}, item); });
    return result;
}

// The set's elements that the other collection has, or has not.
template <class Lock>
Object* filtered(Descriptor element, const ClassRecord* record, Object* self, const Object* items, bool keepCommon) {
    setOf(self);
    const ElementType type(element);
    const HashObject others = tableOf(elementsOf(items, type), type);
    [[maybe_unused]] auto held = Lock::template of<HashObject>(self);
    HashObject* result = makeSet(element, record);
    visitElements(self, type, [&](const void* item) {
        if ((findEntry(others, {type}, item) >= 0) == keepCommon) findOrAddEntry(*result, {type}, item);
    });
    return result;
}

template <class Lock>
Object* intersection(Descriptor element, const ClassRecord* record, Object* self, const Object* items) {
    return filtered<Lock>(element, record, self, items, true);
}

template <class Lock>
Object* difference(Descriptor element, const ClassRecord* record, Object* self, const Object* items) {
    return filtered<Lock>(element, record, self, items, false);
}

Object* toArray(Descriptor element, const ClassRecord* record, Object* self) {
    const ElementType type(element);
    Array* array = vesk_rt_new_array(record, size(element, self));
    char* to = static_cast<char*>(array->elements());
    visitElements(self, type, [&](const void* item) {
        copyElement(to, item, type.width());
        to += type.width();
    });
    return array;
}

String* toString(Descriptor element, Object* self) {
    setOf(self);
    const ElementType type(element);
    TextInProgress inProgress(self);
    std::string text = "{";
    const char* separator = "";
    visitElements(self, type, [&](const void* item) {
        text += separator;
        type.appendText(text, item);
        separator = ", ";
    });
    return makeString(text + "}");
}

std::int32_t hashCode(Descriptor element, Object* self) {
    setOf(self);
    const ElementType type(element);
    std::uint32_t hash = 0;
    visitElements(self, type, [&](const void* item) { hash += std::uint32_t(type.hashCode(item)); });
    return std::int32_t(hash);
}

// Sets of one element type are equal when they have the same elements, in any order.
template <class Lock>
bool equals(Descriptor element, Object* self, const Object* other) {
    const HashObject& set = setOf(self);
    if (self == other) return true;
    const NativeClass* otherClass = other ? nativeClassOf(other->record) : nullptr;
    if (!otherClass || otherClass->layout != NativeLayout::Hash || otherClass->isMap) return false;
    const ClassRecord* otherElement = elementDescriptorOf(other, *otherClass);
    if (otherElement && otherElement != element) return false;
    const ElementType type(element);
    ListObject items{};
    {
        SyncGuard guard(lockOf(other, otherClass));
        visitElements(other, type, [&](const void* item) { appendElement(items, type, item); });
    }
    [[maybe_unused]] auto held = Lock::template of<HashObject>(self);
    if (items.length != set.size) return false;
    for (std::int64_t i = 0; i < items.length; i++) {
        if (findEntry(set, {type}, elementAt(items, i, type.width())) < 0) return false;
    }
    return true;
}

}  // namespace

extern "C" {

#define VESK_SET_METHODS(CLASS, LOCK)                                                                             \
    VESK_EXPORT_METHOD(CLASS, HashObject, LOCK, void, init, (Descriptor t, Object * self), (t, self))             \
    VESK_EXPORT_METHOD(CLASS, HashObject, LOCK, bool, add, (Descriptor t, Object * self, const void* item),       \
                       (t, self, item))                                                                           \
    VESK_EXPORT_METHOD(CLASS, HashObject, LOCK, bool, remove, (Descriptor t, Object * self, const void* item),    \
                       (t, self, item))                                                                           \
    VESK_EXPORT_METHOD(CLASS, HashObject, LOCK, bool, contains, (Descriptor t, Object * self, const void* item),  \
                       (t, self, item))                                                                           \
    VESK_EXPORT_METHOD(CLASS, HashObject, LOCK, std::int32_t, size, (Descriptor t, Object * self), (t, self))     \
    VESK_EXPORT_METHOD(CLASS, HashObject, LOCK, bool, isEmpty, (Descriptor t, Object * self), (t, self))          \
    VESK_EXPORT_METHOD(CLASS, HashObject, LOCK, void, clear, (Descriptor t, Object * self), (t, self))            \
    VESK_EXPORT_METHOD(CLASS, HashObject, LOCK, Object*, toArray,                                                 \
                       (Descriptor t, const ClassRecord* record, Object* self), (t, record, self))                \
    VESK_EXPORT_METHOD(CLASS, HashObject, LOCK, String*, toString, (Descriptor t, Object * self), (t, self))      \
    VESK_EXPORT_METHOD(CLASS, HashObject, LOCK, std::int32_t, hashCode, (Descriptor t, Object * self), (t, self)) \
    VESK_EXPORT_METHOD_OF_TWO(CLASS, HashObject, LOCK, void, init__dup2,                                          \
                              (Descriptor t, Object * self, const Object* items), (t, self, items))               \
    VESK_EXPORT_METHOD_OF_TWO(CLASS, HashObject, LOCK, bool, addAll,                                              \
                              (Descriptor t, Object * self, const Object* items), (t, self, items))               \
    VESK_EXPORT_METHOD_OF_TWO(CLASS, HashObject, LOCK, bool, removeAll,                                           \
                              (Descriptor t, Object * self, const Object* items), (t, self, items))               \
    VESK_EXPORT_METHOD_OF_TWO(CLASS, HashObject, LOCK, bool, containsAll,                                         \
                              (Descriptor t, Object * self, const Object* items), (t, self, items))               \
    VESK_EXPORT_METHOD_OF_TWO(CLASS, HashObject, LOCK, bool, equals,                                              \
                              (Descriptor t, Object * self, const Object* other), (t, self, other))               \
    VESK_EXPORT_METHOD_OF_TWO(CLASS, HashObject, LOCK, Object*, unionWith,                                        \
                              (Descriptor t, const ClassRecord* record, Object* self, const Object* items),       \
                              (t, record, self, items))                                                           \
    VESK_EXPORT_METHOD_OF_TWO(CLASS, HashObject, LOCK, Object*, intersection,                                     \
                              (Descriptor t, const ClassRecord* record, Object* self, const Object* items),       \
                              (t, record, self, items))                                                           \
    VESK_EXPORT_METHOD_OF_TWO(CLASS, HashObject, LOCK, Object*, difference,                                       \
                              (Descriptor t, const ClassRecord* record, Object* self, const Object* items),       \
                              (t, record, self, items))

VESK_SET_METHODS(HashSet, Unlocked)
VESK_SET_METHODS(HashSetSync, Locked)

}  // extern "C"
}  // namespace vesk::runtime
