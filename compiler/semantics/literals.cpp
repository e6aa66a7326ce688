#include "semantics/literals.h"

#include <charconv>
#include <limits>

namespace vesk::compiler {

namespace {

int digitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return 99;
}

struct IntegerRange {
    std::uint64_t lowest, highest;  // magnitudes below and above zero
};

std::optional<IntegerRange> rangeOf(TypeKind kind) {
    constexpr std::uint64_t ONE = 1;
    switch (kind) {
        case TypeKind::Byte: return IntegerRange{0, 0xFF};
        case TypeKind::SByte: return IntegerRange{ONE << 7, (ONE << 7) - 1};
        case TypeKind::Short: return IntegerRange{ONE << 15, (ONE << 15) - 1};
        case TypeKind::UShort: return IntegerRange{0, 0xFFFF};
        case TypeKind::Int: return IntegerRange{ONE << 31, (ONE << 31) - 1};
        case TypeKind::UInt: return IntegerRange{0, 0xFFFFFFFF};
        case TypeKind::Long: return IntegerRange{ONE << 63, (ONE << 63) - 1};
        case TypeKind::ULong: return IntegerRange{0, std::numeric_limits<std::uint64_t>::max()};
        default: return std::nullopt;
    }
}

// The literal below a unary sign, null when the node is something else.
const LiteralNode* signedLiteral(const AbstractNode* node, LiteralKind kind, bool& isNegative) {
    isNegative = false;
    if (!node) return nullptr;
    if (node->getKind() == NodeKind::Operator) {
        auto& sign = static_cast<const OperatorExpressionNode&>(*node);
        if (!sign.isUnary() || (sign.op() != "-" && sign.op() != "+")) return nullptr;
        isNegative = sign.op() == "-";
        node = sign.getChildren()[0].get();
    }
    if (!node || node->getKind() != NodeKind::Literal) return nullptr;
    auto* literal = static_cast<const LiteralNode*>(node);
    return literal->literalKind() == kind ? literal : nullptr;
}

}  // namespace

std::optional<IntegerLiteral> parseIntegerLiteral(std::string_view text) {
    IntegerLiteral literal;
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X' || text[1] == 'b' || text[1] == 'B')) {
        base = text[1] == 'x' || text[1] == 'X' ? 16 : 2;
        text.remove_prefix(2);
    }
    std::size_t at = 0, digits = 0;
    for (; at < text.size(); at++) {
        if (text[at] == '_') continue;
        int digit = digitValue(text[at]);
        if (digit >= base) break;
        digits++;
        std::uint64_t next;
        if (__builtin_mul_overflow(literal.magnitude, static_cast<std::uint64_t>(base), &next) ||
            __builtin_add_overflow(next, static_cast<std::uint64_t>(digit), &next))
            literal.isTooLarge = true;
        literal.magnitude = next;
    }
    std::string_view suffix = text.substr(at);
    if (digits == 0) return std::nullopt;
    if (suffix == "L" || suffix == "l")
        literal.suffix = TypeKind::Long;
    else if (suffix == "u" || suffix == "U")
        literal.suffix = TypeKind::UInt;
    else if (suffix == "uL" || suffix == "ul" || suffix == "UL" || suffix == "Ul")
        literal.suffix = TypeKind::ULong;
    else if (!suffix.empty())
        return std::nullopt;
    return literal;
}

std::optional<FloatingLiteral> parseFloatingLiteral(std::string_view text) {
    FloatingLiteral literal;
    std::string digits;
    digits.reserve(text.size());
    for (char c : text)
        if (c != '_') digits.push_back(c);
    if (!digits.empty() && (digits.back() == 'f' || digits.back() == 'F')) {
        literal.isFloat = true;
        digits.pop_back();
    }
    const char* end = digits.data() + digits.size();
    if (literal.isFloat) {
        float value = 0;
        auto [stop, code] = std::from_chars(digits.data(), end, value);
        if (stop != end || code == std::errc::invalid_argument) return std::nullopt;
        if (code == std::errc::result_out_of_range) value = static_cast<float>(std::strtod(digits.c_str(), nullptr));
        literal.value = value;
    } else {
        auto [stop, code] = std::from_chars(digits.data(), end, literal.value);
        if (stop != end || code == std::errc::invalid_argument) return std::nullopt;
        if (code == std::errc::result_out_of_range) literal.value = std::strtod(digits.c_str(), nullptr);
    }
    return literal;
}

std::optional<IntegerLiteral> integerLiteralOf(const AbstractNode* node) {
    bool isNegative;
    const LiteralNode* node_ = signedLiteral(node, LiteralKind::Integer, isNegative);
    if (!node_) return std::nullopt;
    std::optional<IntegerLiteral> literal = parseIntegerLiteral(node_->text());
    if (literal) literal->isNegative = isNegative && literal->magnitude != 0;
    return literal;
}

bool isPlainFloatingLiteral(const AbstractNode* node) {
    bool isNegative;
    const LiteralNode* literal = signedLiteral(node, LiteralKind::Floating, isNegative);
    return literal && !literal->text().empty() && literal->text().back() != 'f' && literal->text().back() != 'F';
}

bool literalFits(const IntegerLiteral& literal, TypeKind target) {
    if (literal.isTooLarge) return false;
    if (target == TypeKind::Float || target == TypeKind::Double) return true;
    std::optional<IntegerRange> range = rangeOf(target);
    return range && literal.magnitude <= (literal.isNegative ? range->lowest : range->highest);
}

bool literalTakes(const IntegerLiteral& literal, TypeKind target) {
    return (literal.suffix == TypeKind::Unknown || literal.suffix == target) && literalFits(literal, target);
}

std::string literalText(const IntegerLiteral& literal) {
    return literal.isTooLarge ? "integer literal" : (literal.isNegative ? "-" : "") + std::to_string(literal.magnitude);
}

}  // namespace vesk::compiler
