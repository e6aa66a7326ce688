// The methods of Tuple.
#include <algorithm>

#include "runtime/collections/element_type.h"
#include "runtime/collections/native_methods.h"
#include "runtime/panic.h"
#include "runtime/strings.h"

namespace vesk::runtime {

extern "C" {

void vesk_collections_Tuple_init(Descriptor a, Descriptor b, Object* self, const void* first, const void* second) {
    TupleObject& tuple = received<TupleObject>(self);
    copyElement(tuple.first, first, ElementType(a).width());
    copyElement(tuple.second, second, ElementType(b).width());
    tuple.firstType = a;
    tuple.secondType = b;
}

void vesk_collections_Tuple_first(Descriptor a, Descriptor, void* result, Object* self) {
    copyElement(result, received<TupleObject>(self).first, ElementType(a).width());
}

void vesk_collections_Tuple_second(Descriptor, Descriptor b, void* result, Object* self) {
    copyElement(result, received<TupleObject>(self).second, ElementType(b).width());
}

String* vesk_collections_Tuple_toString(Descriptor a, Descriptor b, Object* self) {
    const TupleObject& tuple = received<TupleObject>(self);
    TextInProgress inProgress(self);
    std::string text = "(";
    ElementType(a).appendText(text, tuple.first);
    text += ", ";
    ElementType(b).appendText(text, tuple.second);
    return makeString(text + ")");
}

bool vesk_collections_Tuple_equals(Descriptor a, Descriptor b, Object* self, const Object* other) {
    const TupleObject& tuple = received<TupleObject>(self);
    const NativeClass* otherClass = other ? nativeClassOf(other->record) : nullptr;
    if (!otherClass || otherClass->layout != NativeLayout::Tuple) return false;
    const TupleObject& pair = *static_cast<const TupleObject*>(other);
    return pair.firstType == a && pair.secondType == b && ElementType(a).equal(tuple.first, pair.first) &&
           ElementType(b).equal(tuple.second, pair.second);
}

std::int32_t vesk_collections_Tuple_hashCode(Descriptor a, Descriptor b, Object* self) {
    const TupleObject& tuple = received<TupleObject>(self);
    return std::int32_t((31 + std::uint32_t(ElementType(a).hashCode(tuple.first))) * 31 +
                        std::uint32_t(ElementType(b).hashCode(tuple.second)));
}

// By the first values, then by the second ones.
std::int32_t vesk_collections_Tuple_compareTo(Descriptor a, Descriptor b, Object* self, Object* other) {
    const TupleObject &tuple = received<TupleObject>(self), &pair = received<TupleObject>(other);
    int order = ElementType(a).compare(tuple.first, pair.first);
    if (order == 0) order = ElementType(b).compare(tuple.second, pair.second);
    return std::clamp(order, -1, 1);
}

}  // extern "C"
}  // namespace vesk::runtime
