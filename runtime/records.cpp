// Built-in records, their tables for Comparable, and the searches in records.
#include "runtime/records.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "runtime/collections/native_objects.h"
#include "runtime/exports.h"
#include "runtime/interface_entries.h"
#include "runtime/math/ndarray.h"
#include "runtime/numbers.h"
#include "runtime/panic.h"
#include "runtime/strings.h"
#include "runtime/text.h"

namespace vesk::runtime {
namespace {

constexpr ClassRecord record(const char* name, RecordKind kind, ValueKind valueKind, std::uint32_t size,
                             bool pointerFree, const InterfaceEntry* interfaces, std::uint32_t interfaceCount,
                             std::uint32_t methods, const ClassRecord* super, const ClassRecord* element = nullptr) {
    return {name, super,  {element}, interfaces, interfaceCount, size, kind, valueKind, std::uint8_t(pointerFree),
            0,    methods};
}

constexpr ClassRecord interfaceRecord(const char* name) {
    return record(name, RecordKind::Interface, ValueKind::Reference, 0, false, nullptr, 0, 0, nullptr);
}

// Boxes answer for their scalars: the value is read out and its own method called.
template <class T, std::int32_t (*compare)(T, T)>
std::int32_t compareBoxed(const Object* self, T other) {
    return compare(static_cast<const Box<T>*>(self)->value, other);
}

}  // namespace

// Written out as a cast so that the records are constants: nothing of them is left to do at start-up.
#define VESK_ADDRESS(FUNCTION) reinterpret_cast<void*>(&FUNCTION)

// One scalar: its interface Comparable of itself, the table for it, and the record of its boxes. The arguments behind the
// type are the entries of the abstract types above it.
#define VESK_SCALAR_RECORD(NAME, TYPE, ...)                                                                        \
    extern "C" const RecordWithMethods<1> vesk_class_Comparable_##NAME;                                            \
    const RecordWithMethods<1> vesk_class_Comparable_##NAME = {interfaceRecord("vesk.Comparable<" #NAME ">"),      \
                                                               {nullptr}};                                         \
    static void* const COMPARE_##NAME[] = {reinterpret_cast<void*>(&compareBoxed<TYPE, vesk_##NAME##_compareTo>)}; \
    static const InterfaceEntry INTERFACES_##NAME[] = {                                                            \
        {&vesk_class_Comparable_##NAME.record, COMPARE_##NAME} __VA_OPT__(, ) __VA_ARGS__};                        \
    const RecordWithMethods<OBJECT_SLOTS> vesk_class_##NAME = {                                                    \
        record(#NAME, RecordKind::Box, ValueKind::NAME, BOX_VALUE_OFFSET + sizeof(TYPE), true, INTERFACES_##NAME,  \
               std::uint32_t(std::size(INTERFACES_##NAME)), OBJECT_SLOTS, &vesk_class_Object.record),              \
        {VESK_ADDRESS(vesk_rt_box_text), VESK_ADDRESS(vesk_rt_box_equals), VESK_ADDRESS(vesk_rt_box_hash)}};

extern "C" {

const RecordWithMethods<OBJECT_SLOTS> vesk_class_Object = {
    record("Object", RecordKind::Class, ValueKind::Reference, OBJECT_HEADER_SIZE, true, nullptr, 0, OBJECT_SLOTS,
           nullptr),
    {VESK_ADDRESS(vesk_Object_toString), VESK_ADDRESS(vesk_Object_equals), VESK_ADDRESS(vesk_Object_hashCode)}};

// The abstract types have no methods of their own; a value of one is a box.
extern const RecordWithMethods<1> vesk_class_Number, vesk_class_AbstractInt, vesk_class_AbstractFloat;
const RecordWithMethods<1> vesk_class_Number = {interfaceRecord("Number"), {nullptr}};
const RecordWithMethods<1> vesk_class_AbstractInt = {interfaceRecord("AbstractInt"), {nullptr}};
const RecordWithMethods<1> vesk_class_AbstractFloat = {interfaceRecord("AbstractFloat"), {nullptr}};
#define VESK_INTEGER \
    {&vesk_class_Number.record, nullptr}, { &vesk_class_AbstractInt.record, nullptr }
#define VESK_FLOATING \
    {&vesk_class_Number.record, nullptr}, { &vesk_class_AbstractFloat.record, nullptr }

VESK_SCALAR_RECORD(Bool, bool)
VESK_SCALAR_RECORD(Byte, std::uint8_t, VESK_INTEGER)
VESK_SCALAR_RECORD(SByte, std::int8_t, VESK_INTEGER)
VESK_SCALAR_RECORD(Short, std::int16_t, VESK_INTEGER)
VESK_SCALAR_RECORD(UShort, std::uint16_t, VESK_INTEGER)
VESK_SCALAR_RECORD(Int, std::int32_t, VESK_INTEGER)
VESK_SCALAR_RECORD(UInt, std::uint32_t, VESK_INTEGER)
VESK_SCALAR_RECORD(Long, std::int64_t, VESK_INTEGER)
VESK_SCALAR_RECORD(ULong, std::uint64_t, VESK_INTEGER)
VESK_SCALAR_RECORD(Float, float, VESK_FLOATING)
VESK_SCALAR_RECORD(Double, double, VESK_FLOATING)

extern const RecordWithMethods<1> vesk_class_Comparable_String;
const RecordWithMethods<1> vesk_class_Comparable_String = {interfaceRecord("vesk.Comparable<String>"), {nullptr}};
static void* const COMPARE_STRING[] = {reinterpret_cast<void*>(&vesk_String_compareTo)};
static const InterfaceEntry STRING_INTERFACES[] = {{&vesk_class_Comparable_String.record, COMPARE_STRING}};
const RecordWithMethods<OBJECT_SLOTS> vesk_class_String = {
    record("String", RecordKind::String, ValueKind::Reference, STRING_BYTES_OFFSET + 1, true, STRING_INTERFACES, 1,
           OBJECT_SLOTS, &vesk_class_Object.record),
    {VESK_ADDRESS(vesk_String_toString), VESK_ADDRESS(vesk_String_equals), VESK_ADDRESS(vesk_String_hashCode)}};

const RecordWithMethods<OBJECT_SLOTS> vesk_class_StringArray = {
    record("String[]", RecordKind::Array, ValueKind::Reference, ARRAY_ELEMENTS_OFFSET, false, nullptr, 0, OBJECT_SLOTS,
           &vesk_class_Object.record, &vesk_class_String.record),
    {VESK_ADDRESS(vesk_rt_array_text), VESK_ADDRESS(vesk_Object_equals), VESK_ADDRESS(vesk_Object_hashCode)}};

bool vesk_rt_is_instance(const Object* object, const ClassRecord* target) {
    if (!object) return false;
    const ClassRecord* own = object->record;
    if (own == target) return true;
    if (target->kind == RecordKind::Interface) {
        return nearestInterface(own, [&](const ClassRecord& interface) { return &interface == target; });
    }
    if (target->kind == RecordKind::Nullable) return vesk_rt_is_instance(object, target->element);
    for (own = own->super; own; own = own->super) {
        if (own == target) return true;
    }
    return false;
}

void* const* vesk_rt_interface_methods(const Object* object, const ClassRecord* interface) {
    const auto isIt = [&](const ClassRecord& each) { return &each == interface; };
    if (const InterfaceEntry* found = nearestInterface(object->record, isIt)) return found->methods;
    vesk_rt_panic_cast(object, interface);
}

void* vesk_rt_far_method(const Object* object, std::int64_t slot) {
    for (const ClassRecord* own = object->record; own; own = own->super) {
        if (own->kind != RecordKind::Class || !own->farMethods) continue;
        const FarMethod *begin = own->farMethods->methods(), *end = begin + own->farMethods->count;
        const FarMethod* found =
            std::lower_bound(begin, end, std::uint64_t(slot),
                             [](const FarMethod& method, std::uint64_t wanted) { return method.slot < wanted; });
        if (found != end && found->slot == std::uint64_t(slot)) return found->code;
    }
    vesk_rt_panic_abstract();
}

void vesk_rt_check_cast(const Object* object, const ClassRecord* target) {
    if (!vesk_rt_is_instance(object, target)) vesk_rt_panic_cast(object, target);
}

void vesk_rt_check_cast_or_null(const Object* object, const ClassRecord* target) {
    if (object && !vesk_rt_is_instance(object, target)) vesk_rt_panic_cast(object, target);
}

}  // extern "C"

const char* recordSymbolOf(std::string_view type) {
    struct Known {
        std::string_view type;
        const char* symbol;
    };
#define VESK_KNOWN_SCALAR(NAME) \
    {#NAME, "vesk_class_" #NAME}, { "vesk.Comparable<" #NAME ">", "vesk_class_Comparable_" #NAME }
    static constexpr Known KNOWN[] = {
        {"Object", "vesk_class_Object"},
        {"vesk.Object", "vesk_class_Object"},
        {"String[]", "vesk_class_StringArray"},
        {"Number", "vesk_class_Number"},
        {"AbstractInt", "vesk_class_AbstractInt"},
        {"AbstractFloat", "vesk_class_AbstractFloat"},
        VESK_KNOWN_SCALAR(String),
        VESK_KNOWN_SCALAR(Bool),
        VESK_KNOWN_SCALAR(Byte),
        VESK_KNOWN_SCALAR(SByte),
        VESK_KNOWN_SCALAR(Short),
        VESK_KNOWN_SCALAR(UShort),
        VESK_KNOWN_SCALAR(Int),
        VESK_KNOWN_SCALAR(UInt),
        VESK_KNOWN_SCALAR(Long),
        VESK_KNOWN_SCALAR(ULong),
        VESK_KNOWN_SCALAR(Float),
        VESK_KNOWN_SCALAR(Double),
    };
    for (const Known& known : KNOWN) {
        if (known.type == type) return known.symbol;
    }
    return nullptr;
}

unsigned nativeInstanceSize(std::string_view qualifiedClassName) {
    const unsigned size = collectionInstanceSize(qualifiedClassName);
    return size ? size : ndarrayInstanceSize(qualifiedClassName);
}

}  // namespace vesk::runtime
