#include "semantics/numeric_promotion.h"

namespace vesk::compiler {

namespace {

bool isIntegerKind(TypeKind kind) { return kind >= TypeKind::Byte && kind <= TypeKind::ULong; }
bool isNumericKind(TypeKind kind) { return kind >= TypeKind::Byte && kind <= TypeKind::Double; }

}  // namespace

bool widensTo(TypeKind target, TypeKind source) {
    using enum TypeKind;
    if (!isNumericKind(source) || !isNumericKind(target)) return false;
    if (source == target || target == Double) return true;
    switch (source) {
        case Byte: return target != SByte;
        case SByte: return target == Short || target == Int || target == Long || target == Float;
        case Short: return target == Int || target == Long || target == Float;
        case UShort: return target == Int || target == UInt || target == Long || target == ULong || target == Float;
        case Int: return target == Long;
        case UInt: return target == Long || target == ULong;
        default: return false;
    }
}

TypeKind promotedType(TypeKind left, TypeKind right) {
    using enum TypeKind;
    if (!isNumericKind(left) || !isNumericKind(right)) return Unknown;
    if (isIntegerKind(left) && isIntegerKind(right)) {
        for (TypeKind candidate : {Int, UInt, Long, ULong})
            if (widensTo(candidate, left) && widensTo(candidate, right)) return candidate;
        return Unknown;
    }
    return widensTo(Float, left) && widensTo(Float, right) ? Float : Double;
}

}  // namespace vesk::compiler
