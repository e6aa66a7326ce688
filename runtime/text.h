// The text of values: what print writes and "+" joins.
#pragma once

#include <string>

#include "runtime/object_layout.h"

namespace vesk::runtime {

// Shortest text that reads back as the same number, with ".0" where neither "." nor "e" is in it.
std::string floatText(double value);
std::string floatText(float value);
// A type's name without packages and outer classes: "Box<Int>" of "app.Box<Int>".
std::string shortTypeName(std::string_view structured);

extern "C" {
// Text of any value, "null" of null: its own toString().
const String* vesk_rt_text(const Object* value);
String* vesk_rt_concat2(const String* first, const String* second);
String* vesk_rt_concat3(const String* first, const String* second, const String* third);
String* vesk_rt_concat(const String* const* parts, std::int32_t count);

// toString, equals and hashCode of boxes, arrays and function values.
const String* vesk_rt_box_text(const Object* self);
bool vesk_rt_box_equals(const Object* self, const Object* other);
std::int32_t vesk_rt_box_hash(const Object* self);
const String* vesk_rt_array_text(const Array* self);
const String* vesk_rt_function_text(const Object* self);
// Whether two values are equal by the first one's equals(); null equals only null.
bool vesk_rt_equals(const Object* first, const Object* second);
std::int32_t vesk_rt_hash(const Object* value);
}

}  // namespace vesk::runtime
