// The methods of ArrayList, ImmutableList, Array and their synchronized variants.
#include "runtime/collections/element_reader.h"
#include "runtime/collections/list_storage.h"
#include "runtime/collections/native_methods.h"
#include "runtime/memory.h"
#include "runtime/panic.h"
#include "runtime/strings.h"

namespace vesk::runtime {
namespace {

// Addresses of elements are computed for indices that are known to be good.
void checkIndex(const ListObject& list, std::int32_t index) {
    if (std::uint64_t(index) >= std::uint64_t(list.length)) vesk_rt_panic_index(index, list.length);
}

ListObject& listOf(Object* self) { return received<ListObject>(self); }

// --- making

void init(Descriptor element, Object* self) { listOf(self).element = element; }

template <class Lock>
bool addAll(Descriptor element, Object* self, const Object* items) {
    ListObject& list = listOf(self);
    const ElementType type(element);
    const ElementRun run = elementsOf(items, type);
    [[maybe_unused]] auto held = Lock::template of<ListObject>(self);
    appendElements(list, type, run.data, run.length);
    return run.length > 0;
}

template <class Lock>
void init__dup2(Descriptor element, Object* self, const Object* items) {
    init(element, self);
    addAll<Lock>(element, self, items);
}

// Of arrays: a number of zeroed elements.
void initLength(Descriptor element, Object* self, std::int32_t length) {
    ListObject& list = listOf(self);
    if (length < 0) panic("negative array length " + std::to_string(length));
    reserveAtEnd(list, ElementType(element), length);
    list.element = element;
    list.length = length;
}

ListObject* makeList(Descriptor element, const ClassRecord* record, const char* from, std::int64_t length) {
    ListObject* list = static_cast<ListObject*>(vesk_rt_new(record));
    list->element = element;
    appendElements(*list, ElementType(element), from, length);
    return list;
}

// --- reading

std::int32_t size(Descriptor, Object* self) { return std::int32_t(listOf(self).length); }

bool isEmpty(Descriptor, Object* self) { return listOf(self).length == 0; }

void get(Descriptor element, void* result, Object* self, std::int32_t index) {
    const ListObject& list = listOf(self);
    checkIndex(list, index);
    const unsigned width = widthOf(valueKindOf(element));
    copyElement(result, elementAt(list, index, width), width);
}

// Arrays begin with nulls; a type without `?` does not show them.
void getPresent(Descriptor element, void* result, Object* self, std::int32_t index) {
    get(element, result, self, index);
    if (valueKindOf(element) == ValueKind::Reference && element->kind != RecordKind::Nullable &&
        !loadElement<Reference>(result))
        vesk_rt_panic_null_element();
}

void first(Descriptor element, void* result, Object* self) { get(element, result, self, 0); }

void last(Descriptor element, void* result, Object* self) {
    const std::int64_t length = listOf(self).length;
    get(element, result, self, length == 0 ? 0 : std::int32_t(length - 1));
}

std::int32_t indexOf(Descriptor element, Object* self, const void* item) {
    return std::int32_t(indexOfElement(listOf(self), ElementType(element), item));
}

std::int32_t lastIndexOf(Descriptor element, Object* self, const void* item) {
    return std::int32_t(lastIndexOfElement(listOf(self), ElementType(element), item));
}

bool contains(Descriptor element, Object* self, const void* item) { return indexOf(element, self, item) >= 0; }

Object* slice(Descriptor element, const ClassRecord* record, Object* self, std::int32_t from, std::int32_t to) {
    const ListObject& list = listOf(self);
    if (from < 0 || from > list.length) vesk_rt_panic_index(from, list.length);
    if (to < from || to > list.length) vesk_rt_panic_index(to, list.length);
    return makeList(element, record, elementAt(list, from, ElementType(element).width()), to - from);
}

Object* toArray(Descriptor element, const ClassRecord* record, Object* self) {
    const ListObject& list = listOf(self);
    Array* array = vesk_rt_new_array(record, std::int32_t(list.length));
    if (list.length > 0)
        std::memcpy(array->elements(), list.data, std::size_t(list.length) * ElementType(element).width());
    return array;
}

template <class Lock>
Object* operator_plus(Descriptor element, const ClassRecord* record, Object* self, const Object* items) {
    const ElementType type(element);
    const ElementRun behind = elementsOf(items, type);
    [[maybe_unused]] auto held = Lock::template of<ListObject>(self);
    const ListObject& list = listOf(self);
    ListObject* sum = static_cast<ListObject*>(vesk_rt_new(record));
    sum->element = element;
    reserveAtEnd(*sum, type, list.length + behind.length);
    appendElements(*sum, type, list.data, list.length);
    appendElements(*sum, type, behind.data, behind.length);
    return sum;
}

String* toString(Descriptor element, Object* self) {
    const ListObject& list = listOf(self);
    const ElementType type(element);
    TextInProgress inProgress(self);
    const std::int64_t changes = list.changes;
    std::string text = "[";
    for (std::int64_t i = 0; i < list.length; i++) {
        if (i > 0) text += ", ";
        type.appendText(text, elementAt(list, i, type.width()));
        if (list.changes != changes) vesk_rt_panic_changed();
    }
    return makeString(text + "]");
}

// Whether an object is a list of that element type.
bool isListOf(const Object* other, Descriptor element) {
    const NativeClass* otherClass = other ? nativeClassOf(other->record) : nullptr;
    if (!otherClass || otherClass->layout != NativeLayout::List) return false;
    if (!otherClass->isLazy) {
        const ClassRecord* otherElement = elementDescriptorOf(other, *otherClass);
        return !otherElement || otherElement == element;
    }
    const std::string ending = std::string(otherClass->name) + "<" + element->name + ">";
    for (const ClassRecord* own = other->record; own; own = own->super) {
        if (std::string_view(own->name).ends_with(ending)) return true;
    }
    return false;
}

// Lists of one element type are equal when their elements are, whatever their classes.
template <class Lock>
bool equals(Descriptor element, Object* self, const Object* other) {
    const ListObject& list = listOf(self);
    if (self == other) return true;
    if (!isListOf(other, element)) return false;
    const ElementType type(element);
    const ElementRun run = elementsOf(other, type);
    [[maybe_unused]] auto held = Lock::template of<ListObject>(self);
    if (run.length != list.length) return false;
    const std::int64_t changes = list.changes;
    for (std::int64_t i = 0; i < run.length; i++) {
        if (!type.equal(elementAt(list, i, type.width()), run.data + i * type.width())) return false;
        if (list.changes != changes) vesk_rt_panic_changed();
    }
    return true;
}

std::int32_t hashCode(Descriptor element, Object* self) {
    const ListObject& list = listOf(self);
    const ElementType type(element);
    const std::int64_t changes = list.changes;
    std::uint32_t hash = 1;
    for (std::int64_t i = 0; i < list.length; i++) {
        hash = hash * 31 + std::uint32_t(type.hashCode(elementAt(list, i, type.width())));
        if (list.changes != changes) vesk_rt_panic_changed();
    }
    return std::int32_t(hash);
}

// --- changing elements in place

void set(Descriptor element, Object* self, std::int32_t index, const void* item) {
    ListObject& list = listOf(self);
    checkIndex(list, index);
    const unsigned width = widthOf(valueKindOf(element));
    copyElement(elementAt(list, index, width), item, width);
}

void sort(Descriptor element, Object* self) { sortElements(listOf(self), ElementType(element)); }

void reverse(Descriptor element, Object* self) { reverseElements(listOf(self), ElementType(element)); }

void fill(Descriptor element, Object* self, const void* item) {
    ListObject& list = listOf(self);
    const ElementType type(element);
    for (std::int64_t i = 0; i < list.length; i++) copyElement(elementAt(list, i, type.width()), item, type.width());
}

// --- changing the length

bool add(Descriptor element, Object* self, const void* item) {
    appendElement(listOf(self), ElementType(element), item);
    return true;
}

void insert(Descriptor element, Object* self, std::int32_t index, const void* item) {
    ListObject& list = listOf(self);
    if (index < 0 || index > list.length) vesk_rt_panic_index(index, list.length);
    const ElementType type(element);
    openGap(list, type, index, 1);
    copyElement(elementAt(list, index, type.width()), item, type.width());
}

void removeAt(Descriptor element, void* result, Object* self, std::int32_t index) {
    get(element, result, self, index);
    eraseElements(listOf(self), ElementType(element), index, 1);
}

void removeFirst(Descriptor element, void* result, Object* self) { removeAt(element, result, self, 0); }

void removeLast(Descriptor element, void* result, Object* self) {
    const std::int64_t length = listOf(self).length;
    removeAt(element, result, self, length == 0 ? 0 : std::int32_t(length - 1));
}

bool remove(Descriptor element, Object* self, const void* item) {
    ListObject& list = listOf(self);
    const ElementType type(element);
    const std::int64_t index = indexOfElement(list, type, item);
    if (index >= 0) eraseElements(list, type, index, 1);
    return index >= 0;
}

void clear(Descriptor element, Object* self) { clearElements(listOf(self), ElementType(element)); }

// Sorts by keys that were computed beforehand, one per element.
void sortByKeys(Descriptor element, Descriptor key, Object* self, const Object* keys) {
    ListObject& list = listOf(self);
    const ElementType keyType(key);
    const ElementRun run = elementsOf(keys, keyType);
    if (run.length != list.length)
        panic("sortByKeys: " + std::to_string(run.length) + " keys for " + std::to_string(list.length) + " elements");
    sortElementsByKeys(list, ElementType(element), run.data, keyType);
}

}  // namespace

extern "C" {

// What every list can do. Rows: result, name, parameters, arguments.
#define VESK_LIST_READERS(CLASS, LOCK)                                                                              \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, std::int32_t, size, (Descriptor t, Object * self), (t, self))       \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, bool, isEmpty, (Descriptor t, Object * self), (t, self))            \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, std::int32_t, indexOf,                                              \
                       (Descriptor t, Object * self, const void* item), (t, self, item))                            \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, std::int32_t, lastIndexOf,                                          \
                       (Descriptor t, Object * self, const void* item), (t, self, item))                            \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, bool, contains, (Descriptor t, Object * self, const void* item),    \
                       (t, self, item))                                                                             \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, Object*, slice,                                                     \
                       (Descriptor t, const ClassRecord* record, Object* self, std::int32_t from, std::int32_t to), \
                       (t, record, self, from, to))                                                                 \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, Object*, toArray,                                                   \
                       (Descriptor t, const ClassRecord* record, Object* self), (t, record, self))                  \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, String*, toString, (Descriptor t, Object * self), (t, self))        \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, std::int32_t, hashCode, (Descriptor t, Object * self), (t, self))   \
    VESK_EXPORT_METHOD_OF_TWO(CLASS, ListObject, LOCK, bool, equals,                                                \
                              (Descriptor t, Object * self, const Object* other), (t, self, other))                 \
    VESK_EXPORT_METHOD_OF_TWO(CLASS, ListObject, LOCK, void, init__dup2,                                            \
                              (Descriptor t, Object * self, const Object* items), (t, self, items))

// Reading by position, in lists whose places all hold elements.
#define VESK_LIST_GETTERS(CLASS, LOCK)                                                                             \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, void, init, (Descriptor t, Object * self), (t, self))              \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, void, get,                                                         \
                       (Descriptor t, void* result, Object* self, std::int32_t index), (t, result, self, index))   \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, void, first, (Descriptor t, void* result, Object* self),           \
                       (t, result, self))                                                                          \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, void, last, (Descriptor t, void* result, Object* self),            \
                       (t, result, self))                                                                          \
    void vesk_collections_##CLASS##_operator_index(Descriptor t, void* result, Object* self, std::int32_t index) { \
        [[maybe_unused]] auto held = LOCK::of<ListObject>(self);                                                   \
        get(t, result, self, index);                                                                               \
    }                                                                                                              \
    VESK_EXPORT_METHOD_OF_TWO(CLASS, ListObject, LOCK, Object*, operator_plus,                                     \
                              (Descriptor t, const ClassRecord* record, Object* self, const Object* items),        \
                              (t, record, self, items))

// Changing elements without changing their number.
#define VESK_LIST_SETTERS(CLASS, LOCK)                                                                              \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, void, set,                                                          \
                       (Descriptor t, Object * self, std::int32_t index, const void* item), (t, self, index, item)) \
    void vesk_collections_##CLASS##_operator_index_eq(Descriptor t, Object* self, std::int32_t index,               \
                                                      const void* item) {                                           \
        [[maybe_unused]] auto held = LOCK::of<ListObject>(self);                                                    \
        set(t, self, index, item);                                                                                  \
    }                                                                                                               \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, void, sort, (Descriptor t, Object * self), (t, self))               \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, void, reverse, (Descriptor t, Object * self), (t, self))            \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, void, fill, (Descriptor t, Object * self, const void* item),        \
                       (t, self, item))

#define VESK_LIST_CHANGERS(CLASS, LOCK)                                                                             \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, bool, add, (Descriptor t, Object * self, const void* item),         \
                       (t, self, item))                                                                             \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, void, insert,                                                       \
                       (Descriptor t, Object * self, std::int32_t index, const void* item), (t, self, index, item)) \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, void, removeAt,                                                     \
                       (Descriptor t, void* result, Object* self, std::int32_t index), (t, result, self, index))    \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, void, removeFirst, (Descriptor t, void* result, Object* self),      \
                       (t, result, self))                                                                           \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, void, removeLast, (Descriptor t, void* result, Object* self),       \
                       (t, result, self))                                                                           \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, bool, remove, (Descriptor t, Object * self, const void* item),      \
                       (t, self, item))                                                                             \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, void, clear, (Descriptor t, Object * self), (t, self))              \
    VESK_EXPORT_METHOD(CLASS, ListObject, LOCK, void, sortByKeys,                                                   \
                       (Descriptor t, Descriptor k, Object * self, const Object* keys), (t, k, self, keys))         \
    VESK_EXPORT_METHOD_OF_TWO(CLASS, ListObject, LOCK, bool, addAll,                                                \
                              (Descriptor t, Object * self, const Object* items), (t, self, items))

#define VESK_ARRAY_GETTERS(CLASS, LOCK)                                                                            \
    void vesk_collections_##CLASS##_init(Descriptor t, Object* self, std::int32_t length) {                        \
        initLength(t, self, length);                                                                               \
    }                                                                                                              \
    void vesk_collections_##CLASS##_get(Descriptor t, void* result, Object* self, std::int32_t index) {            \
        [[maybe_unused]] auto held = LOCK::of<ListObject>(self);                                                   \
        getPresent(t, result, self, index);                                                                        \
    }                                                                                                              \
    void vesk_collections_##CLASS##_operator_index(Descriptor t, void* result, Object* self, std::int32_t index) { \
        [[maybe_unused]] auto held = LOCK::of<ListObject>(self);                                                   \
        getPresent(t, result, self, index);                                                                        \
    }

VESK_LIST_READERS(ArrayList, Unlocked)
VESK_LIST_GETTERS(ArrayList, Unlocked)
VESK_LIST_SETTERS(ArrayList, Unlocked)
VESK_LIST_CHANGERS(ArrayList, Unlocked)

VESK_LIST_READERS(ArrayListSync, Locked)
VESK_LIST_GETTERS(ArrayListSync, Locked)
VESK_LIST_SETTERS(ArrayListSync, Locked)
VESK_LIST_CHANGERS(ArrayListSync, Locked)

VESK_LIST_READERS(ImmutableList, Unlocked)
VESK_LIST_GETTERS(ImmutableList, Unlocked)

VESK_LIST_READERS(Array, Unlocked)
VESK_ARRAY_GETTERS(Array, Unlocked)
VESK_LIST_SETTERS(Array, Unlocked)

VESK_LIST_READERS(ArraySync, Locked)
VESK_ARRAY_GETTERS(ArraySync, Locked)
VESK_LIST_SETTERS(ArraySync, Locked)

}  // extern "C"
}  // namespace vesk::runtime
