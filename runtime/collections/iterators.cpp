// CollectionIterator: walks over any native collection. A change of the collection meanwhile is a panic at the next step.
#include "runtime/collections/element_reader.h"
#include "runtime/collections/native_methods.h"
#include "runtime/panic.h"

namespace vesk::runtime {
namespace {

// The source with its lock held.
struct Walk {
    const IteratorObject& iterator;
    const NativeClass& nativeClass;
    SyncGuard guard;

    explicit Walk(const IteratorObject& walked)
        : iterator(walked),
          nativeClass(*nativeClassOf(walked.source->record)),
          guard(lockOf(walked.source, &nativeClass)) {}

    // The cursor of the next element, -1 at the end.
    std::int64_t nextCursor() const {
        if (changesOf(iterator.source, nativeClass) != iterator.changes) vesk_rt_panic_changed();
        return cursorAt(iterator.source, nativeClass, iterator.position);
    }
};

IteratorObject& iteratorOf(Object* self) {
    IteratorObject& iterator = received<IteratorObject>(self);
    if (!iterator.source) vesk_rt_panic_null();
    return iterator;
}

}  // namespace

extern "C" {

void vesk_collections_CollectionIterator_init(Descriptor, Object* self, Object* collection) {
    IteratorObject& iterator = received<IteratorObject>(self);
    if (!collection) vesk_rt_panic_null();
    const NativeClass* nativeClass = nativeClassOf(collection->record);
    if (!nativeClass || nativeClass->layout == NativeLayout::None || nativeClass->layout == NativeLayout::Tuple ||
        nativeClass->isLazy)
        panic("cannot iterate over " + std::string(collection->record->name));
    SyncGuard guard(lockOf(collection, nativeClass));
    iterator.source = collection;
    iterator.changes = changesOf(collection, *nativeClass);
}

bool vesk_collections_CollectionIterator_hasNext(Descriptor, Object* self) {
    return Walk(iteratorOf(self)).nextCursor() >= 0;
}

void vesk_collections_CollectionIterator_next(Descriptor t, void* result, Object* self) {
    IteratorObject& iterator = iteratorOf(self);
    const Walk walk(iterator);
    const std::int64_t cursor = walk.nextCursor();
    if (cursor < 0) panic("no more elements");
    const unsigned width = ElementType(t).width();
    copyElement(result, elementUnder(iterator.source, walk.nativeClass, cursor, width), width);
    iterator.position = cursor + 1;
}

}  // extern "C"
}  // namespace vesk::runtime
