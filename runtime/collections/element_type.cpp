// Equality, hash, order, text and conversion of elements.
#include "runtime/collections/element_type.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <vector>

#include "runtime/interface_entries.h"
#include "runtime/numbers.h"
#include "runtime/panic.h"
#include "runtime/records.h"
#include "runtime/strings.h"
#include "runtime/text.h"

namespace vesk::runtime {
namespace {

bool isString(Reference value) { return value->record == &vesk_class_String.record; }

std::string_view textOfString(Reference value) { return viewOf(static_cast<const String*>(value)); }

// Eight bytes at a time; the length goes in first, so that zeros at the end count.
std::uint64_t hashOfBytes(std::string_view text) {
    std::uint64_t hash = mixBits(text.size() + 0x51ED2701);
    const char* at = text.data();
    std::size_t left = text.size();
    for (; left >= 8; at += 8, left -= 8) {
        std::uint64_t word;
        std::memcpy(&word, at, 8);
        hash = (hash ^ word) * 0x9E3779B97F4A7C15u;
        hash ^= hash >> 32;
    }
    std::uint64_t tail = 0;
    if (left > 0) std::memcpy(&tail, at, left);
    return mixBits(hash ^ tail);
}

constexpr std::string_view COMPARABLE_PREFIX = "vesk.Comparable<";

// Whether an object of `record` is a value of the type called `name`.
bool isNamedType(const ClassRecord* record, std::string_view name) {
    for (const ClassRecord* own = record; own; own = own->super) {
        if (own->name == name) return true;
    }
    return nearestInterface(record, [&](const ClassRecord& each) { return each.name == name; }) || name == "Object";
}

using CompareMethod = std::int32_t (*)(const Object*, const Object*);

// The compareTo of `first` that takes an object of `second`, null when there is none.
CompareMethod findCompareMethod(const ClassRecord* first, const ClassRecord* second) {
    const auto comparesWithSecond = [&](const ClassRecord& interface) {
        std::string_view name = interface.name;
        if (!name.starts_with(COMPARABLE_PREFIX)) return false;
        name.remove_prefix(COMPARABLE_PREFIX.size());
        name.remove_suffix(1);
        if (name.ends_with('?')) name.remove_suffix(1);
        return isNamedType(second, name);
    };
    const InterfaceEntry* found = nearestInterface(first, comparesWithSecond);
    return found ? reinterpret_cast<CompareMethod>(found->methods[0]) : nullptr;
}

// Sorting asks for the same pair of classes again and again.
CompareMethod compareMethodOf(const ClassRecord* first, const ClassRecord* second) {
    static thread_local const ClassRecord *gFirst = nullptr, *gSecond = nullptr;
    static thread_local CompareMethod gMethod = nullptr;
    if (first == gFirst && second == gSecond) return gMethod;
    CompareMethod method = findCompareMethod(first, second);
    if (!method) panic("cannot compare " + std::string(first->name) + " with " + second->name);
    gFirst = first;
    gSecond = second;
    return gMethod = method;
}

const std::int32_t MIN_INT = std::numeric_limits<std::int32_t>::min();

// Conversions of numbers: to narrower integers by wrapping, from floats by truncation that saturates, NaN gives 0.
template <class To, class From>
To convertNumber(From value) {
    if constexpr (std::is_same_v<To, bool>) {
        return value != 0;
    } else if constexpr (std::is_floating_point_v<From> && std::is_integral_v<To>) {
        if (std::isnan(value)) return 0;
        // The limits of 64 bits are not floats; one past the largest value is.
        const From upper = std::ldexp(From(1), std::numeric_limits<To>::digits);
        if (value >= upper) return std::numeric_limits<To>::max();
        if (value <= From(std::numeric_limits<To>::min())) return std::numeric_limits<To>::min();
        return To(value);
    } else {
        return static_cast<To>(value);
    }
}

std::vector<const Object*>& collectionsInText() {
    static thread_local std::vector<const Object*> gCollections;
    return gCollections;
}

}  // namespace

bool equalReferences(Reference first, Reference second) {
    if (first && second && isString(first)) {
        return first == second || (isString(second) && textOfString(first) == textOfString(second));
    }
    return vesk_rt_equals(first, second);
}

std::uint64_t mixedHashOf(Reference value) {
    if (!value) return 0;
    if (isString(value)) return hashOfBytes(textOfString(value));
    return mixBits(std::uint64_t(std::uint32_t(vesk_rt_hash(value))));
}

int compareReferences(Reference first, Reference second) {
    if (!first || !second) return int(first != nullptr) - int(second != nullptr);
    if (isString(first) && isString(second)) return textOfString(first).compare(textOfString(second));
    if (first->record == second->record && first->record->kind == RecordKind::Box) {
        return withElement(first->record->valueKind, [&]<class T>() {
            return Element<T>::compare(loadElement<T>(first + 1), loadElement<T>(second + 1));
        });
    }
    // The parameter of a box's compareTo is a scalar, so boxes of two kinds have no order.
    if (first->record->kind == RecordKind::Box)
        panic("cannot compare " + std::string(first->record->name) + " with " + second->record->name);
    int order = compareMethodOf(first->record, second->record)(first, second);
    return order == MIN_INT ? -1 : order;
}

bool ElementType::equal(const void* first, const void* second) const {
    return withElement(kind_,
                       [&]<class T>() { return Element<T>::equal(loadElement<T>(first), loadElement<T>(second)); });
}

int ElementType::compare(const void* first, const void* second) const {
    return withElement(kind_,
                       [&]<class T>() { return Element<T>::compare(loadElement<T>(first), loadElement<T>(second)); });
}

std::int32_t ElementType::hashCode(const void* value) const {
    switch (kind_) {
#define VESK_HASH_CASE(NAME, TYPE) \
    case ValueKind::NAME: return vesk_##NAME##_hashCode(loadElement<TYPE>(value));
        VESK_FOR_EACH_SCALAR(VESK_HASH_CASE)
#undef VESK_HASH_CASE
        case ValueKind::Reference: break;
    }
    return vesk_rt_hash(loadElement<Reference>(value));
}

void ElementType::appendText(std::string& text, const void* value) const {
    withElement(kind_, [&]<class T>() {
        T loaded = loadElement<T>(value);
        if constexpr (std::is_same_v<T, Reference>)
            appendReferenceText(text, loaded);
        else if constexpr (std::is_same_v<T, bool>)
            text += loaded ? "true" : "false";
        else if constexpr (std::is_floating_point_v<T>)
            text += floatText(loaded);
        else
            text += std::to_string(loaded);
    });
}

Reference ElementType::boxed(const void* value) const {
    switch (kind_) {
#define VESK_BOX_CASE(NAME, TYPE) \
    case ValueKind::NAME: return vesk_rt_box_##NAME(loadElement<TYPE>(value));
        VESK_FOR_EACH_SCALAR(VESK_BOX_CASE)
#undef VESK_BOX_CASE
        case ValueKind::Reference: break;
    }
    return loadElement<Reference>(value);
}

void castElement(const ElementType& from, const void* value, const ElementType& to, void* result) {
    if (to.isReference()) {
        Reference object = from.boxed(value);
        if (to.isNullable())
            vesk_rt_check_cast_or_null(object, to.descriptor());
        else
            vesk_rt_check_cast(object, to.descriptor());
        std::memcpy(result, &object, sizeof object);
        return;
    }
    if (from.isReference()) {
        Reference object = loadElement<Reference>(value);
        vesk_rt_check_cast(object, to.descriptor());
        copyElement(result, object + 1, to.width());
        return;
    }
    withElement(from.kind(), [&]<class From>() {
        withElement(to.kind(), [&]<class To>() {
            if constexpr (!std::is_same_v<From, Reference> && !std::is_same_v<To, Reference>) {
                To converted = convertNumber<To>(loadElement<From>(value));
                std::memcpy(result, &converted, sizeof converted);
            }
        });
    });
}

void appendReferenceText(std::string& text, Reference value) {
    const std::vector<const Object*>& open = collectionsInText();
    if (value && std::find(open.begin(), open.end(), value) != open.end()) {
        text += "...";
        return;
    }
    text += viewOf(vesk_rt_text(value));
}

TextInProgress::TextInProgress(const Object* collection) { collectionsInText().push_back(collection); }

TextInProgress::~TextInProgress() { collectionsInText().pop_back(); }

}  // namespace vesk::runtime
