// The numeric types among themselves: which widen to which, and the type two operands meet in.
#pragma once

#include "semantics/types.h"

namespace vesk::compiler {

// Whether a value of the second numeric type may stand where the first is wanted.
bool widensTo(TypeKind target, TypeKind source);
// The type in which two numeric operands are calculated: the first of Int, UInt, Long, ULong to which both integers
// widen; with a floating operand Float when both widen to it, else Double. Unknown when there is none.
TypeKind promotedType(TypeKind left, TypeKind right);

}  // namespace vesk::compiler
