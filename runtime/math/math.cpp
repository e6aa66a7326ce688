// The static methods of vesk.math.Math.
#include <algorithm>
#include <cmath>
#include <cstdint>

namespace vesk::runtime {

extern "C" {

#define VESK_MATH_FUNCTION(NAME) \
    double vesk_math_Math_##NAME(double x) { return std::NAME(x); }
VESK_MATH_FUNCTION(sqrt)
VESK_MATH_FUNCTION(cbrt)
VESK_MATH_FUNCTION(exp)
VESK_MATH_FUNCTION(log)
VESK_MATH_FUNCTION(log2)
VESK_MATH_FUNCTION(log10)
VESK_MATH_FUNCTION(sin)
VESK_MATH_FUNCTION(cos)
VESK_MATH_FUNCTION(tan)
VESK_MATH_FUNCTION(asin)
VESK_MATH_FUNCTION(acos)
VESK_MATH_FUNCTION(atan)
VESK_MATH_FUNCTION(sinh)
VESK_MATH_FUNCTION(cosh)
VESK_MATH_FUNCTION(tanh)
VESK_MATH_FUNCTION(floor)
VESK_MATH_FUNCTION(ceil)
VESK_MATH_FUNCTION(trunc)
#undef VESK_MATH_FUNCTION

// Halves go away from zero.
double vesk_math_Math_round(double x) { return std::round(x); }

double vesk_math_Math_atan2(double y, double x) { return std::atan2(y, x); }

double vesk_math_Math_pow(double x, double y) { return std::pow(x, y); }

double vesk_math_Math_hypot(double x, double y) { return std::hypot(x, y); }

bool vesk_math_Math_isNaN(double x) { return std::isnan(x); }

bool vesk_math_Math_isInfinite(double x) { return std::isinf(x); }

// The overloads for Int, Long and Double, in this order. The absolute value of the least integer is itself.
std::int32_t vesk_math_Math_abs(std::int32_t x) { return x < 0 ? std::int32_t(0u - std::uint32_t(x)) : x; }

std::int64_t vesk_math_Math_abs__dup2(std::int64_t x) {
    return x < 0 ? std::int64_t(std::uint64_t(0) - std::uint64_t(x)) : x;
}

double vesk_math_Math_abs__dup3(double x) { return std::fabs(x); }

std::int32_t vesk_math_Math_max(std::int32_t x, std::int32_t y) { return std::max(x, y); }

std::int64_t vesk_math_Math_max__dup2(std::int64_t x, std::int64_t y) { return std::max(x, y); }

// A value that is not a number wins.
double vesk_math_Math_max__dup3(double x, double y) { return std::isnan(x) || x > y ? x : y; }

std::int32_t vesk_math_Math_min(std::int32_t x, std::int32_t y) { return std::min(x, y); }

std::int64_t vesk_math_Math_min__dup2(std::int64_t x, std::int64_t y) { return std::min(x, y); }

double vesk_math_Math_min__dup3(double x, double y) { return std::isnan(x) || x < y ? x : y; }

}  // extern "C"
}  // namespace vesk::runtime
