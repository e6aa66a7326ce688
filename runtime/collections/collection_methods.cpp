// The methods that every Collection inherits and that the library provides itself: they work through the elements of
// any class, native or written in the language, and call the functions they are given with unboxed values.
#include "runtime/collections/element_reader.h"
#include "runtime/collections/list_storage.h"
#include "runtime/collections/native_methods.h"
#include "runtime/memory.h"
#include "runtime/panic.h"
#include "runtime/strings.h"

namespace vesk::runtime {
namespace {

// Calls visit(element) until it answers false.
template <class T, class Visit>
void visitWhile(Object* collection, const ElementType& type, Visit visit) {
    CollectionReader reader(collection, type);
    T element{};
    while (reader.next(&element)) {
        if (!visit(element)) return;
    }
}

template <class R, class T>
R call(const Closure* function, T element) {
    return callGenerated<R>(function->code, function, element);
}

void checkFunction(const Closure* function) {
    if (!function) vesk_rt_panic_null();
}

ListObject* makeList(Descriptor element, const ClassRecord* record) {
    ListObject* list = static_cast<ListObject*>(vesk_rt_new(record));
    list->element = element;
    return list;
}

// The first element for which the function answers `wanted`; false when there is none.
bool findElement(Descriptor t, Object* self, const Closure* function, bool wanted, void* result) {
    checkFunction(function);
    const ElementType type(t);
    return withElement(type.kind(), [&]<class T>() {
        bool isFound = false;
        visitWhile<T>(self, type, [&](T element) {
            isFound = call<bool>(function, element) == wanted;
            if (isFound) std::memcpy(result, &element, sizeof element);
            return !isFound;
        });
        return isFound;
    });
}

}  // namespace

extern "C" {

bool vesk_collections_Collection_contains(Descriptor t, Object* self, const void* item) {
    const ElementType type(t);
    return withElement(type.kind(), [&]<class T>() {
        const T wanted = loadElement<T>(item);
        bool isFound = false;
        visitWhile<T>(self, type, [&](T element) {
            isFound = Element<T>::equal(element, wanted);
            return !isFound;
        });
        return isFound;
    });
}

Object* vesk_collections_Collection_filter(Descriptor t, const ClassRecord* record, Object* self,
                                           const Closure* function) {
    checkFunction(function);
    const ElementType type(t);
    ListObject* kept = makeList(t, record);
    withElement(type.kind(), [&]<class T>() {
        visitWhile<T>(self, type, [&](T element) {
            if (call<bool>(function, element)) appendElement(*kept, type, &element);
            return true;
        });
    });
    return kept;
}

void vesk_collections_Collection_forEach(Descriptor t, Object* self, const Closure* function) {
    checkFunction(function);
    const ElementType type(t);
    withElement(type.kind(), [&]<class T>() {
        visitWhile<T>(self, type, [&](T element) {
            call<void>(function, element);
            return true;
        });
    });
}

bool vesk_collections_Collection_any(Descriptor t, Object* self, const Closure* function) {
    alignas(8) char element[8];
    return findElement(t, self, function, true, element);
}

bool vesk_collections_Collection_all(Descriptor t, Object* self, const Closure* function) {
    alignas(8) char element[8];
    return !findElement(t, self, function, false, element);
}

// The first element that the function accepts, null when there is none.
const Object* vesk_collections_Collection_find(Descriptor t, Object* self, const Closure* function) {
    alignas(8) char element[8];
    return findElement(t, self, function, true, element) ? ElementType(t).boxed(element) : nullptr;
}

String* vesk_collections_Collection_joinToString(Descriptor t, Object* self, const String* separator) {
    if (!separator) vesk_rt_panic_null();
    const ElementType type(t);
    CollectionReader reader(self, type);
    alignas(8) char element[8];
    std::string text;
    for (bool isFirst = true; reader.next(element); isFirst = false) {
        if (!isFirst) text += viewOf(separator);
        type.appendText(text, element);
    }
    return makeString(text);
}

Object* vesk_collections_Collection_castTo(Descriptor t, Descriptor r, const ClassRecord* record, Object* self) {
    const ElementType from(t), to(r);
    CollectionReader reader(self, from);
    ListObject* result = makeList(r, record);
    alignas(8) char element[8], converted[8];
    while (reader.next(element)) {
        castElement(from, element, to, converted);
        appendElement(*result, to, converted);
    }
    return result;
}

}  // extern "C"
}  // namespace vesk::runtime
