// What a collection has to know about the type of its elements, all of it read off a descriptor: width, equality, hash,
// order, text. Scalars are handled directly, strings by content, other objects through their virtual methods.
// Two ways to use it: withElement() turns a descriptor into a C++ type once, for loops that must be fast; ElementType
// answers for one value at a time, by address.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>

#include "runtime/memory.h"
#include "runtime/object_layout.h"

namespace vesk::runtime {

using Reference = const Object*;

// The kind of the values that a descriptor describes. A record's own `valueKind` is not enough: that of an array is the
// kind of its elements.
inline ValueKind valueKindOf(const ClassRecord* descriptor) {
    return descriptor->kind == RecordKind::Box ? descriptor->valueKind : ValueKind::Reference;
}

// For references. Equality and hash of strings do not go through virtual calls.
bool equalReferences(Reference first, Reference second);
std::uint64_t mixedHashOf(Reference value);
// Negative, zero or positive; null comes first. Panics for objects that are not Comparable with each other.
int compareReferences(Reference first, Reference second);

inline std::uint64_t mixBits(std::uint64_t bits) {
    bits ^= bits >> 32;
    bits *= 0x9E3779B97F4A7C15u;
    bits ^= bits >> 29;
    bits *= 0xBF58476D1CE4E5B9u;
    return bits ^ (bits >> 32);
}

// The same for every kind of value, by C++ type. As keys, values that are not numbers equal themselves, so that they
// can be found again.
template <class T>
struct Element {
    static bool equal(T first, T second) {
        if constexpr (std::is_same_v<T, Reference>)
            return equalReferences(first, second);
        else
            return first == second;
    }
    static bool sameKey(T first, T second) {
        if constexpr (std::is_floating_point_v<T>)
            return first == second || (std::isnan(first) && std::isnan(second));
        else
            return equal(first, second);
    }
    // For hash tables only: spreads well, and is not what hashCode() answers.
    static std::uint64_t mixedHash(T value) {
        if constexpr (std::is_same_v<T, Reference>) {
            return mixedHashOf(value);
        } else if constexpr (std::is_floating_point_v<T>) {
            double wide = value == 0 ? 0.0 : std::isnan(value) ? std::nan("") : double(value);
            std::uint64_t bits;
            std::memcpy(&bits, &wide, sizeof bits);
            return mixBits(bits);
        } else {
            return mixBits(std::uint64_t(value));
        }
    }
    static int compare(T first, T second) {
        if constexpr (std::is_same_v<T, Reference>) {
            return compareReferences(first, second);
        } else {
            if constexpr (std::is_floating_point_v<T>) {
                if (std::isnan(first) || std::isnan(second)) return int(std::isnan(first)) - int(std::isnan(second));
            }
            return first < second ? -1 : first > second ? 1 : 0;
        }
    }
};

// Calls `action.template operator()<T>()` with the C++ type of the kind's values.
template <class Action>
decltype(auto) withElement(ValueKind kind, Action&& action) {
    switch (kind) {
        case ValueKind::Bool: return action.template operator()<bool>();
        case ValueKind::Byte: return action.template operator()<std::uint8_t>();
        case ValueKind::SByte: return action.template operator()<std::int8_t>();
        case ValueKind::Short: return action.template operator()<std::int16_t>();
        case ValueKind::UShort: return action.template operator()<std::uint16_t>();
        case ValueKind::Int: return action.template operator()<std::int32_t>();
        case ValueKind::UInt: return action.template operator()<std::uint32_t>();
        case ValueKind::Long: return action.template operator()<std::int64_t>();
        case ValueKind::ULong: return action.template operator()<std::uint64_t>();
        case ValueKind::Float: return action.template operator()<float>();
        case ValueKind::Double: return action.template operator()<double>();
        case ValueKind::Reference: break;
    }
    return action.template operator()<Reference>();
}

template <class T>
T loadElement(const void* address) {
    T value;
    std::memcpy(&value, address, sizeof value);
    return value;
}

// Values that lie in memory are copied by kind: a call of memcpy for 4 bytes costs more than the copy.
inline void copyElement(void* to, const void* from, unsigned width) {
    switch (width) {
        case 1: *static_cast<char*>(to) = *static_cast<const char*>(from); break;
        case 2: std::memcpy(to, from, 2); break;
        case 4: std::memcpy(to, from, 4); break;
        default: std::memcpy(to, from, 8);
    }
}

class ElementType {
public:
    explicit ElementType(const ClassRecord* descriptor)
        : descriptor_(descriptor), kind_(valueKindOf(descriptor)), width_(widthOf(kind_)) {}

    const ClassRecord* descriptor() const { return descriptor_; }
    ValueKind kind() const { return kind_; }
    unsigned width() const { return width_; }
    bool isReference() const { return kind_ == ValueKind::Reference; }
    bool isNullable() const { return descriptor_->kind == RecordKind::Nullable; }

    bool equal(const void* first, const void* second) const;
    int compare(const void* first, const void* second) const;
    // What hashCode() of the value answers.
    std::int32_t hashCode(const void* value) const;
    void appendText(std::string& text, const void* value) const;
    // The value as an object: scalars are boxed.
    Reference boxed(const void* value) const;
    // Room for values of this type, zeroed.
    char* allocate(std::int64_t count) const {
        return static_cast<char*>(allocateBytes(std::size_t(count) * width_, !isReference()));
    }

private:
    const ClassRecord* descriptor_;
    ValueKind kind_;
    unsigned width_;
};

// Converts a value of one type to another as `as` does: numbers among each other, boxing, unboxing, checked casts.
void castElement(const ElementType& from, const void* value, const ElementType& to, void* result);

// "null" or the object's own text, appended. A collection that contains itself shows as "..." inside.
void appendReferenceText(std::string& text, Reference value);
// Marks a collection whose text is being made, for as long as the guard lives.
class TextInProgress {
public:
    explicit TextInProgress(const Object* collection);
    ~TextInProgress();
    TextInProgress(const TextInProgress&) = delete;
    TextInProgress& operator=(const TextInProgress&) = delete;
};

}  // namespace vesk::runtime
