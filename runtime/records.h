// The records of the types that the library itself makes objects of, and the questions asked of records: is this an
// instance, which methods answer this interface.
#pragma once

#include "runtime/object_layout.h"

namespace vesk::runtime {

// A record with its virtual methods behind it.
template <unsigned Methods>
struct RecordWithMethods {
    ClassRecord record;
    void* methods[Methods];
};

extern "C" {
extern const RecordWithMethods<OBJECT_SLOTS> vesk_class_Object, vesk_class_String, vesk_class_StringArray,
    vesk_class_Bool, vesk_class_Byte, vesk_class_SByte, vesk_class_Short, vesk_class_UShort, vesk_class_Int,
    vesk_class_UInt, vesk_class_Long, vesk_class_ULong, vesk_class_Float, vesk_class_Double;

// False for null.
bool vesk_rt_is_instance(const Object* object, const ClassRecord* record);
// The object's methods for an interface that it implements; the receiver is not null.
void* const* vesk_rt_interface_methods(const Object* object, const ClassRecord* interface);
// The object's method in a slot behind NEAR_SLOTS; the receiver is not null.
void* vesk_rt_far_method(const Object* object, std::int64_t slot);
// Panics unless the object is an instance; null passes only through the second.
void vesk_rt_check_cast(const Object* object, const ClassRecord* record);
void vesk_rt_check_cast_or_null(const Object* object, const ClassRecord* record);

// The methods of Object, which every class has unless it overrides them.
const String* vesk_Object_toString(const Object* self);
bool vesk_Object_equals(const Object* self, const Object* other);
std::int32_t vesk_Object_hashCode(const Object* self);
}

}  // namespace vesk::runtime
