// Numbers and Bool.
#include "runtime/numbers.h"

#include <cmath>
#include <cstring>
#include <string>
#include <type_traits>

#include "runtime/memory.h"
#include "runtime/panic.h"
#include "runtime/records.h"
#include "runtime/strings.h"
#include "runtime/text.h"

namespace vesk::runtime {
namespace {

template <class T>
std::string textOf(T value) {
    if constexpr (std::is_same_v<T, bool>)
        return value ? "true" : "false";
    else if constexpr (std::is_floating_point_v<T>)
        return floatText(value);
    else
        return std::to_string(value);
}

// Equal numbers of one type have one hash, 0.0 and -0.0 included.
template <class T>
std::int32_t hashOf(T value) {
    if constexpr (std::is_floating_point_v<T>) {
        double wide = value == 0 ? 0.0 : double(value);
        std::uint64_t bits;
        std::memcpy(&bits, &wide, sizeof bits);
        return std::int32_t(bits ^ (bits >> 32));
    } else {
        std::uint64_t bits = std::uint64_t(value);
        return sizeof(T) == 8 ? std::int32_t(bits ^ (bits >> 32)) : std::int32_t(bits);
    }
}

// Not a number comes after all numbers, so that sorting has an order to follow.
template <class T>
std::int32_t compare(T first, T second) {
    if constexpr (std::is_floating_point_v<T>) {
        if (std::isnan(first) || std::isnan(second)) return int(std::isnan(first)) - int(std::isnan(second));
    }
    return first < second ? -1 : first > second ? 1 : 0;
}

template <class T>
const Object* box(const ClassRecord* record, T value) {
    Box<T>* object = static_cast<Box<T>*>(vesk_rt_new(record));
    object->value = value;
    return object;
}

template <class T>
T floorDivide(T dividend, T divisor) {
    T remainder = std::fmod(dividend, divisor);
    T quotient = (dividend - remainder) / divisor;
    if (remainder != 0 && (remainder < 0) != (divisor < 0)) quotient -= 1;
    if (divisor == 0 || std::isnan(quotient) || std::isinf(quotient)) return std::floor(dividend / divisor);
    T rounded = std::floor(quotient);
    return quotient - rounded > T(0.5) ? rounded + 1 : rounded;
}

template <class T>
T floorRemainder(T dividend, T divisor) {
    T remainder = std::fmod(dividend, divisor);
    if (remainder != 0 && (remainder < 0) != (divisor < 0)) remainder += divisor;
    return remainder;
}

}  // namespace

extern "C" {

#define VESK_DEFINE_SCALAR(NAME, TYPE)                                                                   \
    const Object* vesk_rt_box_##NAME(TYPE value) { return box<TYPE>(&vesk_class_##NAME.record, value); } \
    const String* vesk_##NAME##_toString(TYPE self) { return makeString(textOf<TYPE>(self)); }           \
    bool vesk_##NAME##_equals(TYPE self, const Object* other) {                                          \
        return other && other->record == &vesk_class_##NAME.record &&                                    \
               static_cast<const Box<TYPE>*>(other)->value == self;                                      \
    }                                                                                                    \
    std::int32_t vesk_##NAME##_hashCode(TYPE self) { return hashOf<TYPE>(self); }                        \
    std::int32_t vesk_##NAME##_compareTo(TYPE self, TYPE other) { return compare<TYPE>(self, other); }
VESK_FOR_EACH_SCALAR(VESK_DEFINE_SCALAR)
#undef VESK_DEFINE_SCALAR

std::uint64_t vesk_rt_power_unsigned(std::uint64_t base, std::uint64_t exponent) {
    std::uint64_t result = 1;
    for (; exponent; exponent >>= 1, base *= base) {
        if (exponent & 1) result *= base;
    }
    return result;
}

std::int64_t vesk_rt_power_signed(std::int64_t base, std::int64_t exponent) {
    if (exponent < 0) vesk_rt_panic_exponent();
    return std::int64_t(vesk_rt_power_unsigned(std::uint64_t(base), std::uint64_t(exponent)));
}

float vesk_rt_power_float(float base, float exponent) { return std::pow(base, exponent); }

double vesk_rt_power_double(double base, double exponent) { return std::pow(base, exponent); }

float vesk_rt_floor_divide_float(float dividend, float divisor) { return floorDivide(dividend, divisor); }

double vesk_rt_floor_divide_double(double dividend, double divisor) { return floorDivide(dividend, divisor); }

float vesk_rt_remainder_float(float dividend, float divisor) { return floorRemainder(dividend, divisor); }

double vesk_rt_remainder_double(double dividend, double divisor) { return floorRemainder(dividend, divisor); }

}  // extern "C"
}  // namespace vesk::runtime
