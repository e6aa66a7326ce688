// Arithmetic that generated code does not do inline, boxing, and the methods of numbers and Bool.
#pragma once

#include "runtime/object_layout.h"

namespace vesk::runtime {

// VISIT(Name, C++ type) for every scalar type.
#define VESK_FOR_EACH_SCALAR(VISIT) \
    VISIT(Bool, bool)               \
    VISIT(Byte, std::uint8_t)       \
    VISIT(SByte, std::int8_t)       \
    VISIT(Short, std::int16_t)      \
    VISIT(UShort, std::uint16_t)    \
    VISIT(Int, std::int32_t)        \
    VISIT(UInt, std::uint32_t)      \
    VISIT(Long, std::int64_t)       \
    VISIT(ULong, std::uint64_t)     \
    VISIT(Float, float)             \
    VISIT(Double, double)

extern "C" {
#define VESK_DECLARE_SCALAR(NAME, TYPE)                        \
    const Object* vesk_rt_box_##NAME(TYPE value);              \
    const String* vesk_##NAME##_toString(TYPE self);           \
    bool vesk_##NAME##_equals(TYPE self, const Object* other); \
    std::int32_t vesk_##NAME##_hashCode(TYPE self);            \
    std::int32_t vesk_##NAME##_compareTo(TYPE self, TYPE other);
VESK_FOR_EACH_SCALAR(VESK_DECLARE_SCALAR)
#undef VESK_DECLARE_SCALAR

// Wrapping; a negative exponent panics. Narrower integers take the low bits of the result.
std::int64_t vesk_rt_power_signed(std::int64_t base, std::int64_t exponent);
std::uint64_t vesk_rt_power_unsigned(std::uint64_t base, std::uint64_t exponent);
float vesk_rt_power_float(float base, float exponent);
double vesk_rt_power_double(double base, double exponent);
// Quotient rounded down, and the remainder that belongs to it: it has the divisor's sign.
float vesk_rt_floor_divide_float(float dividend, float divisor);
double vesk_rt_floor_divide_double(double dividend, double divisor);
float vesk_rt_remainder_float(float dividend, float divisor);
double vesk_rt_remainder_double(double dividend, double divisor);
}

}  // namespace vesk::runtime
