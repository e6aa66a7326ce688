// Number literals: their value, the type their suffix fixes, and the types they may take instead.
#pragma once

#include <optional>
#include <string_view>

#include "host/ast_nodes.h"
#include "semantics/types.h"

namespace vesk::compiler {

// An integer literal with the sign in front of it. `suffix` is Unknown when none is written: such a literal takes the
// type that its place expects, else Int.
struct IntegerLiteral {
    std::uint64_t magnitude = 0;
    bool isNegative = false;
    bool isTooLarge = false;  // beyond 64 bits
    TypeKind suffix = TypeKind::Unknown;
    bool operator==(const IntegerLiteral&) const = default;
};

// Nothing for texts that are no integer literal. Takes decimal, `0x` and `0b` digits, `_` between them, and a suffix.
std::optional<IntegerLiteral> parseIntegerLiteral(std::string_view text);

struct FloatingLiteral {
    double value = 0;
    bool isFloat = false;  // suffix f
};
std::optional<FloatingLiteral> parseFloatingLiteral(std::string_view text);

// The integer literal that an expression is, a sign in front of it included.
std::optional<IntegerLiteral> integerLiteralOf(const AbstractNode* node);
// True for a floating literal without the suffix f, a sign in front of it included.
bool isPlainFloatingLiteral(const AbstractNode* node);

// Whether the value is in the range of a numeric type. Floating types take every integer literal.
bool literalFits(const IntegerLiteral& literal, TypeKind target);
// Whether the literal may stand where the type is wanted: its own type by suffix, or any type that it fits without one.
bool literalTakes(const IntegerLiteral& literal, TypeKind target);
// The digits as people wrote them, with the sign: for messages.
std::string literalText(const IntegerLiteral& literal);

}  // namespace vesk::compiler
