// Cursors of native collections and the protocol of Iterable.
#include "runtime/collections/element_reader.h"

#include <string>
#include <string_view>

#include "runtime/collections/list_storage.h"
#include "runtime/interface_entries.h"
#include "runtime/panic.h"

namespace vesk::runtime {
namespace {

constexpr unsigned CHUNK_SHIFT = 32;

const ListObject& asList(const Object* object) { return *static_cast<const ListObject*>(object); }

const HashObject& asHash(const Object* object) { return *static_cast<const HashObject*>(object); }

const SortedObject& asSorted(const Object* object) { return *static_cast<const SortedObject*>(object); }

const SortedChunk& chunkUnder(const SortedObject& map, std::int64_t cursor) {
    return *map.chunks[cursor >> CHUNK_SHIFT];
}

std::int64_t offsetUnder(std::int64_t cursor) { return cursor & ((std::int64_t(1) << CHUNK_SHIFT) - 1); }

// The table of the first interface of that generic name. Which instantiation it is follows from the call's own types.
void* const* methodsOf(const Object* object, std::string_view interfacePrefix) {
    const auto isIt = [&](const ClassRecord& each) { return std::string_view(each.name).starts_with(interfacePrefix); };
    if (const InterfaceEntry* found = nearestInterface(object->record, isIt)) return found->methods;
    panic("cannot cast " + std::string(object->record->name) + " to " +
          std::string(interfacePrefix.substr(0, interfacePrefix.size() - 1)));
}

// A list without an object of its own class, to collect elements in.
ListObject emptyList(const ElementType& type) {
    ListObject list{};
    list.element = type.descriptor();
    return list;
}

ElementRun runOf(const ListObject& list) { return {list.data, list.length}; }

ElementRun copyOfNative(const Object* collection, const NativeClass& nativeClass, const ElementType& type) {
    SyncGuard guard(lockOf(collection, &nativeClass));
    ListObject copy = emptyList(type);
    reserveAtEnd(copy, type, sizeOf(collection, nativeClass));
    for (std::int64_t at = 0; (at = cursorAt(collection, nativeClass, at)) >= 0; at++)
        appendElement(copy, type, elementUnder(collection, nativeClass, at, type.width()));
    return runOf(copy);
}

}  // namespace

std::int64_t cursorAt(const Object* collection, const NativeClass& nativeClass, std::int64_t cursor) {
    switch (nativeClass.layout) {
        case NativeLayout::List: return cursor < asList(collection).length ? cursor : -1;
        case NativeLayout::Hash: {
            const HashObject& table = asHash(collection);
            while (cursor < table.used && table.hashes[cursor] == 0) cursor++;
            return cursor < table.used ? cursor : -1;
        }
        case NativeLayout::Sorted: {
            const SortedObject& map = asSorted(collection);
            std::int64_t chunk = cursor >> CHUNK_SHIFT;
            if (chunk >= map.chunkCount) return -1;
            if (offsetUnder(cursor) < map.chunks[chunk]->count) return cursor;
            return chunk + 1 < map.chunkCount ? (chunk + 1) << CHUNK_SHIFT : -1;
        }
        default: return -1;
    }
}

const void* elementUnder(const Object* collection, const NativeClass& nativeClass, std::int64_t cursor,
                         unsigned width) {
    switch (nativeClass.layout) {
        case NativeLayout::List: return elementAt(asList(collection), cursor, width);
        case NativeLayout::Hash: return asHash(collection).keys + cursor * width;
        default: return chunkUnder(asSorted(collection), cursor).keys + offsetUnder(cursor) * width;
    }
}

const void* valueUnder(const Object* map, const NativeClass& nativeClass, std::int64_t cursor, unsigned width) {
    if (nativeClass.layout == NativeLayout::Hash) return asHash(map).values + cursor * width;
    return chunkUnder(asSorted(map), cursor).values + offsetUnder(cursor) * width;
}

std::int64_t changesOf(const Object* collection, const NativeClass& nativeClass) {
    switch (nativeClass.layout) {
        case NativeLayout::List: return asList(collection).changes;
        case NativeLayout::Hash: return asHash(collection).changes;
        default: return asSorted(collection).changes;
    }
}

std::int64_t sizeOf(const Object* collection, const NativeClass& nativeClass) {
    switch (nativeClass.layout) {
        case NativeLayout::List: return asList(collection).length;
        case NativeLayout::Hash: return asHash(collection).size;
        default: return asSorted(collection).size;
    }
}

const ClassRecord* elementDescriptorOf(const Object* collection, const NativeClass& nativeClass) {
    switch (nativeClass.layout) {
        case NativeLayout::List: return asList(collection).element;
        case NativeLayout::Hash: return asHash(collection).key;
        default: return asSorted(collection).key;
    }
}

const ClassRecord* valueDescriptorOf(const Object* map, const NativeClass& nativeClass) {
    return nativeClass.layout == NativeLayout::Hash ? asHash(map).value : asSorted(map).value;
}

ElementRun elementsOf(const Object* collection, const ElementType& type) {
    if (!collection) vesk_rt_panic_null();
    if (const NativeClass* exact = exactNativeClassOf(collection->record)) {
        if (exact->layout == NativeLayout::List && !exact->isSynchronized) return runOf(asList(collection));
        return copyOfNative(collection, *exact, type);
    }
    ListObject copy = emptyList(type);
    ForeignReader reader(collection, type);
    alignas(8) char element[8];
    while (reader.next(element)) appendElement(copy, type, element);
    return runOf(copy);
}

ForeignReader::ForeignReader(const Object* iterable, const ElementType& type) : type_(type) {
    void* const* iterableMethods = methodsOf(iterable, "vesk.Iterable<");
    iterator_ = callGenerated<const Object*>(iterableMethods[0], iterable);
    if (!iterator_) vesk_rt_panic_null();
    methods_ = methodsOf(iterator_, "vesk.Iterator<");
}

bool ForeignReader::next(void* result) {
    if (!callGenerated<bool>(methods_[0], iterator_)) return false;
    withElement(type_.kind(), [&]<class T>() {
        T value = callGenerated<T>(methods_[1], iterator_);
        std::memcpy(result, &value, sizeof value);
    });
    return true;
}

CollectionReader::CollectionReader(const Object* iterable, const ElementType& type)
    : type_(type), collection_(iterable), exact_(nullptr) {
    if (!iterable) vesk_rt_panic_null();
    exact_ = exactNativeClassOf(iterable->record);
    if (!exact_) {
        foreign_.emplace(iterable, type);
        return;
    }
    SyncGuard guard(lockOf(collection_, exact_));
    changes_ = changesOf(collection_, *exact_);
}

bool CollectionReader::next(void* result) {
    if (foreign_) return foreign_->next(result);
    SyncGuard guard(lockOf(collection_, exact_));
    if (changesOf(collection_, *exact_) != changes_) vesk_rt_panic_changed();
    cursor_ = cursorAt(collection_, *exact_, cursor_);
    if (cursor_ < 0) return false;
    copyElement(result, elementUnder(collection_, *exact_, cursor_++, type_.width()), type_.width());
    return true;
}

}  // namespace vesk::runtime
