// The native classes by name.
#include "runtime/collections/native_objects.h"

#include <array>
#include <atomic>

#include "runtime/collections/list_storage.h"
#include "runtime/memory.h"
#include "runtime/panic.h"
#include "runtime/program.h"
#include "runtime/records.h"
#include "runtime/strings.h"

namespace vesk::runtime {
namespace {

constexpr std::string_view PACKAGE = "vesk.collections.";

constexpr bool yes = true, no = false;
constexpr NativeClass CLASSES[] = {
    // name, layout, synchronized, map, lazy, size
    {"Array", NativeLayout::List, no, no, no, sizeof(ListObject)},
    {"ArraySync", NativeLayout::List, yes, no, no, sizeof(Synchronized<ListObject>)},
    {"ImmutableList", NativeLayout::List, no, no, no, sizeof(ListObject)},
    {"ArrayList", NativeLayout::List, no, no, no, sizeof(ListObject)},
    {"Generator", NativeLayout::List, no, no, yes, 0},
    {"ArrayListSync", NativeLayout::List, yes, no, no, sizeof(Synchronized<ListObject>)},
    {"LinkedList", NativeLayout::List, no, no, no, sizeof(ListObject)},
    {"LinkedListSync", NativeLayout::List, yes, no, no, sizeof(Synchronized<ListObject>)},
    {"SortedMap", NativeLayout::Sorted, no, yes, no, sizeof(SortedObject)},
    {"HashMap", NativeLayout::Hash, no, yes, no, sizeof(HashObject)},
    {"SortedMapSync", NativeLayout::Sorted, yes, yes, no, sizeof(Synchronized<SortedObject>)},
    {"HashMapSync", NativeLayout::Hash, yes, yes, no, sizeof(Synchronized<HashObject>)},
    {"HashSet", NativeLayout::Hash, no, no, no, sizeof(HashObject)},
    {"HashSetSync", NativeLayout::Hash, yes, no, no, sizeof(Synchronized<HashObject>)},
    {"Tuple", NativeLayout::Tuple, no, no, no, sizeof(TupleObject)},
};

const NativeClass* findClass(std::string_view typeName) {
    if (!typeName.starts_with(PACKAGE)) return nullptr;
    std::string_view name = typeName.substr(PACKAGE.size());
    name = name.substr(0, name.find('<'));
    for (const NativeClass& known : CLASSES) {
        if (known.name == name) return &known;
    }
    return nullptr;
}

// Records stay as long as the process, so answers are remembered by address.
struct Remembered {
    const ClassRecord* record = nullptr;
    const NativeClass* nativeClass = nullptr;
};
constexpr std::size_t REMEMBERED = 64;

}  // namespace

const NativeClass* nativeClassOf(const ClassRecord* record) {
    static thread_local std::array<Remembered, REMEMBERED> gRemembered;
    Remembered& entry = gRemembered[(reinterpret_cast<std::uintptr_t>(record) >> 4) % REMEMBERED];
    if (entry.record == record) return entry.nativeClass;
    const NativeClass* found = nullptr;
    for (const ClassRecord* own = record; own && !found; own = own->super) found = findClass(own->name);
    entry = {record, found};
    return found;
}

const NativeClass* exactNativeClassOf(const ClassRecord* record) {
    const NativeClass* found = nativeClassOf(record);
    return found && !found->isLazy && findClass(record->name) == found ? found : nullptr;
}

SyncLock* lockOf(const Object* collection, const NativeClass* nativeClass) {
    if (!nativeClass || !nativeClass->isSynchronized) return nullptr;
    // Reading takes the lock too.
    Object* object = const_cast<Object*>(collection);
    switch (nativeClass->layout) {
        case NativeLayout::List: return &static_cast<Synchronized<ListObject>*>(object)->lock;
        case NativeLayout::Hash: return &static_cast<Synchronized<HashObject>*>(object)->lock;
        case NativeLayout::Sorted: return &static_cast<Synchronized<SortedObject>*>(object)->lock;
        default: return nullptr;
    }
}

unsigned collectionInstanceSize(std::string_view qualifiedName) {
    if (qualifiedName == "vesk.collections.CollectionIterator") return sizeof(IteratorObject);
    const NativeClass* found = findClass(qualifiedName);
    return found ? found->instanceSize : 0;
}

extern "C" {

void vesk_rt_panic_changed() { panic("collection changed during iteration"); }

ListObject* vesk_rt_new_list(const ClassRecord* element, const ClassRecord* record, std::int32_t length) {
    ListObject* list = static_cast<ListObject*>(vesk_rt_new(record));
    list->element = element;
    reserveAtEnd(*list, ElementType(element), length);
    list->length = length;
    return list;
}

ListObject* vesk_rt_program_arguments(const ClassRecord* record) {
    const std::vector<std::string>& arguments = programArguments();
    ListObject* list = vesk_rt_new_list(&vesk_class_String.record, record, std::int32_t(arguments.size()));
    for (std::size_t i = 0; i < arguments.size(); i++)
        reinterpret_cast<const String**>(list->data)[i] = makeString(arguments[i]);
    return list;
}

}  // extern "C"
}  // namespace vesk::runtime
