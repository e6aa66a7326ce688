// Strings: immutable UTF-8 text that knows its number of code points.
#pragma once

#include <string>
#include <string_view>

#include "runtime/object_layout.h"

namespace vesk::runtime {

// Bytes that are not UTF-8 count as one code point each.
String* makeString(std::string_view text);
// The same when the number of code points is known.
String* makeString(std::string_view text, std::int64_t codePoints);
std::int64_t countCodePoints(std::string_view text);
// A string whose bytes, but for the NUL, are still to be written.
String* newString(std::int64_t byteLength, std::int64_t codePoints);

inline std::string_view viewOf(const String* string) { return {string->bytes, std::size_t(string->byteLength)}; }

extern "C" {
std::int32_t vesk_String_length(const String* self);
String* vesk_String_charAt(const String* self, std::int32_t index);
String* vesk_String_substring(const String* self, std::int32_t from, std::int32_t to);
std::int32_t vesk_String_indexOf(const String* self, const String* text);
bool vesk_String_contains(const String* self, const String* text);
bool vesk_String_startsWith(const String* self, const String* text);
bool vesk_String_endsWith(const String* self, const String* text);
String* vesk_String_trim(const String* self);
String* vesk_String_upper(const String* self);
String* vesk_String_lower(const String* self);
String* vesk_String_replace(const String* self, const String* what, const String* with);
Array* vesk_String_split(const String* self, const String* separator);
const String* vesk_String_toString(const String* self);
bool vesk_String_equals(const String* self, const Object* other);
std::int32_t vesk_String_hashCode(const String* self);
std::int32_t vesk_String_compareTo(const String* self, const String* other);
}

}  // namespace vesk::runtime
