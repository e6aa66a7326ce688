"""Numbers as vesk has them: wrap-around, division, conversion, texts of floating values."""

import math
import struct

from model import ABSTRACT_FLOAT, DOUBLE, FLOAT, FLOATS, INT, INTS, LONG, UINT, ULONG, assignable

RANGES = {
    "Byte": (0, 2**8 - 1), "SByte": (-2**7, 2**7 - 1), "Short": (-2**15, 2**15 - 1), "UShort": (0, 2**16 - 1),
    "Int": (-2**31, 2**31 - 1), "UInt": (0, 2**32 - 1), "Long": (-2**63, 2**63 - 1), "ULong": (0, 2**64 - 1),
}


class Failure(Exception):
    """What stops a program at run time; the text is that of the panic."""


def wrap(value, ty):
    low, high = RANGES[ty.ref]
    return (value - low) % (high - low + 1) + low


def single(value):
    """The nearest Float."""
    try:
        return struct.unpack("f", struct.pack("f", value))[0]
    except OverflowError:
        return math.copysign(math.inf, value)


def common_type(a, b):
    """The type of arithmetic on two numbers, or None."""
    if a in FLOATS or b in FLOATS:
        return FLOAT if assignable(FLOAT, a) and assignable(FLOAT, b) else DOUBLE
    for t in (INT, UINT, LONG, ULONG):
        if assignable(t, a) and assignable(t, b):
            return t
    return None


def convert(value, source, target):
    """`as` between numbers."""
    if target in FLOATS:
        return single(value) if target == FLOAT else float(value)
    if source in FLOATS:
        low, high = RANGES[target.ref]
        if math.isnan(value):
            return 0
        if math.isinf(value):
            return high if value > 0 else low
        return max(low, min(high, math.trunc(value)))
    return wrap(value, target)


def float_divide(a, b):
    if b != 0:
        return a / b
    if a == 0 or math.isnan(a):
        return math.nan
    return math.copysign(math.inf, a) * math.copysign(1.0, b)


def arithmetic(op, a, b, ty):
    """`+ - * / // % **` on two values that already have the type `ty`."""
    if ty in INTS:
        if op in ("/", "//", "%") and b == 0:
            raise Failure("division by zero")
        if op == "**" and b < 0:
            raise Failure("negative exponent")
        if op == "/":
            quotient = abs(a) // abs(b)
            return wrap(quotient if (a < 0) == (b < 0) else -quotient, ty)
        result = {"+": lambda: a + b, "-": lambda: a - b, "*": lambda: a * b, "//": lambda: a // b, "%": lambda: a % b,
                  "**": lambda: pow(a, b, 2**64)}[op]()
        return wrap(result, ty)
    try:
        if op == "/":
            result = float_divide(a, b)
        elif op == "//":
            result = float_divide(a, b)
            result = float(math.floor(result)) if math.isfinite(result) else result
        elif op == "%":
            result = math.fmod(a, b)
            if result != 0 and (result < 0) != (b < 0):
                result += b
        else:
            result = {"+": lambda: a + b, "-": lambda: a - b, "*": lambda: a * b, "**": lambda: math.pow(a, b)}[op]()
    except OverflowError:
        result = math.inf
    return single(result) if ty == FLOAT else result


def compare(a, b):
    """compareTo of two values of one built-in type."""
    return (a > b) - (a < b)


def shortest_digits(value, is_single):
    """The fewest significant digits that give the value back, and the exponent of the first."""
    if not is_single:
        text = repr(abs(value))
    else:
        for precision in range(1, 10):
            text = f"{abs(value):.{precision - 1}e}"
            if single(float(text)) == abs(value):
                break
    mantissa, _, exponent = text.partition("e")
    whole, _, fraction = mantissa.partition(".")
    digits = (whole + fraction).lstrip("0")
    first = int(exponent or 0) + (len(whole) - 1 if whole.strip("0") else -1 - (len(fraction) - len(fraction.lstrip("0"))))
    digits = digits.rstrip("0") or "0"
    return digits, first


def float_text(value, is_single):
    """The shorter of the plain and the scientific form, the plain one when both are as long."""
    if math.isnan(value):
        return "nan"
    if math.isinf(value):
        return "inf" if value > 0 else "-inf"
    sign = "-" if math.copysign(1.0, value) < 0 else ""
    if value == 0:
        return sign + "0.0"
    digits, exponent = shortest_digits(value, is_single)
    scientific = digits[0] + ("." + digits[1:] if len(digits) > 1 else "") + f"e{'-' if exponent < 0 else '+'}{abs(exponent):02d}"
    if exponent < 0:
        plain = "0." + "0" * (-exponent - 1) + digits
    elif exponent + 1 >= len(digits):
        # All digits of a big whole number are its own, not zeros.
        plain = str(int(abs(value)))
    else:
        plain = digits[:exponent + 1] + "." + digits[exponent + 1:]
    text = plain if len(plain) <= len(scientific) else scientific
    if "." not in text and "e" not in text:
        text += ".0"
    return sign + text


assert ABSTRACT_FLOAT and float_text(1e5, False) == "1e+05" and float_text(123456789.0, False) == "123456789.0"
