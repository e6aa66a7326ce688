// Texts of values, and joining them.
#include "runtime/text.h"

#include <charconv>
#include <cmath>
#include <cstring>

#include "runtime/memory.h"
#include "runtime/numbers.h"
#include "runtime/panic.h"
#include "runtime/records.h"
#include "runtime/strings.h"

namespace vesk::runtime {
namespace {

template <class T>
std::string shortest(T value) {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
    char buffer[64];
    auto end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
    std::string text(buffer, end);
    if (text.find_first_of(".e") == text.npos) text += ".0";
    return text;
}

template <class T>
T loaded(const void* address) {
    T value;
    std::memcpy(&value, address, sizeof value);
    return value;
}

std::string scalarText(ValueKind kind, const void* value) {
    switch (kind) {
        case ValueKind::Bool: return loaded<bool>(value) ? "true" : "false";
        case ValueKind::Byte: return std::to_string(loaded<std::uint8_t>(value));
        case ValueKind::SByte: return std::to_string(loaded<std::int8_t>(value));
        case ValueKind::Short: return std::to_string(loaded<std::int16_t>(value));
        case ValueKind::UShort: return std::to_string(loaded<std::uint16_t>(value));
        case ValueKind::Int: return std::to_string(loaded<std::int32_t>(value));
        case ValueKind::UInt: return std::to_string(loaded<std::uint32_t>(value));
        case ValueKind::Long: return std::to_string(loaded<std::int64_t>(value));
        case ValueKind::ULong: return std::to_string(loaded<std::uint64_t>(value));
        case ValueKind::Float: return floatText(loaded<float>(value));
        case ValueKind::Double: return floatText(loaded<double>(value));
        case ValueKind::Reference: break;
    }
    return std::string(viewOf(vesk_rt_text(loaded<const Object*>(value))));
}

// The virtual method of an object.
template <class Function>
Function method(const Object* object, unsigned slot) {
    return reinterpret_cast<Function>(object->record->methods()[slot]);
}

String* join(const String* const* parts, std::size_t count) {
    static const String* const nullText = makeString("null");
    std::size_t bytes = 0;
    std::int64_t codePoints = 0;
    for (std::size_t i = 0; i < count; i++) {
        const String* part = parts[i] ? parts[i] : nullText;
        bytes += std::size_t(part->byteLength);
        codePoints += part->codePoints;
    }
    String* joined = newString(std::int64_t(bytes), codePoints);
    char* to = joined->bytes;
    for (std::size_t i = 0; i < count; i++) {
        std::string_view part = viewOf(parts[i] ? parts[i] : nullText);
        std::memcpy(to, part.data(), part.size());
        to += part.size();
    }
    return joined;
}

}  // namespace

std::string floatText(double value) { return shortest(value); }

std::string floatText(float value) { return shortest(value); }

std::string shortTypeName(std::string_view structured) {
    std::string_view base = structured.substr(0, structured.find('<'));
    std::size_t dot = base.rfind('.');
    return std::string(dot == base.npos ? structured : structured.substr(dot + 1));
}

extern "C" {

const String* vesk_rt_text(const Object* value) {
    if (!value) return makeString("null", 4);
    if (value->record == &vesk_class_String.record) return static_cast<const String*>(value);
    const String* text = method<const String* (*)(const Object*)>(value, SLOT_TO_STRING)(value);
    return text ? text : makeString("null", 4);
}

String* vesk_rt_concat2(const String* first, const String* second) {
    const String* parts[] = {first, second};
    return join(parts, 2);
}

String* vesk_rt_concat3(const String* first, const String* second, const String* third) {
    const String* parts[] = {first, second, third};
    return join(parts, 3);
}

String* vesk_rt_concat(const String* const* parts, std::int32_t count) { return join(parts, std::size_t(count)); }

const String* vesk_Object_toString(const Object* self) {
    if (!self) vesk_rt_panic_null();
    std::int32_t hash = method<std::int32_t (*)(const Object*)>(self, SLOT_HASH_CODE)(self);
    return makeString(shortTypeName(self->record->name) + "@" + std::to_string(hash));
}

bool vesk_Object_equals(const Object* self, const Object* other) {
    if (!self) vesk_rt_panic_null();
    return self == other;
}

// Objects never move, so the address tells them apart.
std::int32_t vesk_Object_hashCode(const Object* self) {
    if (!self) vesk_rt_panic_null();
    std::uint64_t bits = reinterpret_cast<std::uintptr_t>(self) >> 4;
    return std::int32_t((bits * 0x9E3779B97F4A7C15u) >> 33);
}

const String* vesk_rt_box_text(const Object* self) { return makeString(scalarText(self->record->valueKind, self + 1)); }

bool vesk_rt_box_equals(const Object* self, const Object* other) {
    if (!other || self->record != other->record) return false;
    const void *first = self + 1, *second = other + 1;
    if (self->record->valueKind == ValueKind::Float) return loaded<float>(first) == loaded<float>(second);
    if (self->record->valueKind == ValueKind::Double) return loaded<double>(first) == loaded<double>(second);
    return std::memcmp(first, second, widthOf(self->record->valueKind)) == 0;
}

std::int32_t vesk_rt_box_hash(const Object* self) {
    const void* value = self + 1;
    switch (self->record->valueKind) {
        case ValueKind::Bool: return vesk_Bool_hashCode(loaded<bool>(value));
        case ValueKind::Byte: return vesk_Byte_hashCode(loaded<std::uint8_t>(value));
        case ValueKind::SByte: return vesk_SByte_hashCode(loaded<std::int8_t>(value));
        case ValueKind::Short: return vesk_Short_hashCode(loaded<std::int16_t>(value));
        case ValueKind::UShort: return vesk_UShort_hashCode(loaded<std::uint16_t>(value));
        case ValueKind::Int: return vesk_Int_hashCode(loaded<std::int32_t>(value));
        case ValueKind::UInt: return vesk_UInt_hashCode(loaded<std::uint32_t>(value));
        case ValueKind::Long: return vesk_Long_hashCode(loaded<std::int64_t>(value));
        case ValueKind::ULong: return vesk_ULong_hashCode(loaded<std::uint64_t>(value));
        case ValueKind::Float: return vesk_Float_hashCode(loaded<float>(value));
        case ValueKind::Double: return vesk_Double_hashCode(loaded<double>(value));
        case ValueKind::Reference: break;
    }
    return 0;
}

const String* vesk_rt_array_text(const Array* self) {
    ValueKind kind = self->record->valueKind;
    const char* element = static_cast<const char*>(self->elements());
    std::string text = "[";
    for (std::int64_t i = 0; i < self->length; i++, element += widthOf(kind)) {
        if (i > 0) text += ", ";
        text += scalarText(kind, element);
    }
    return makeString(text + "]");
}

const String* vesk_rt_function_text(const Object* self) { return makeString(self->record->name); }

bool vesk_rt_equals(const Object* first, const Object* second) {
    if (first == second && (!first || first->record->kind != RecordKind::Box)) return true;
    if (!first || !second) return false;
    return method<bool (*)(const Object*, const Object*)>(first, SLOT_EQUALS)(first, second);
}

std::int32_t vesk_rt_hash(const Object* value) {
    if (!value) return 0;
    return method<std::int32_t (*)(const Object*)>(value, SLOT_HASH_CODE)(value);
}

}  // extern "C"
}  // namespace vesk::runtime
