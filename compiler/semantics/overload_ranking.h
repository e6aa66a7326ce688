// Which of several functions a call means, once all of them accept it.
// Points first: per argument 4 for the very type, 3 for the same class with other arguments, 1 for an assignable type; a
// variadic parameter costs 1, a named-variadic one 2, and a fixed parameter list of exactly the written length earns 2.
// Among the best the most specific wins: narrower at one position at least, and wider at none.
#pragma once

#include <optional>

#include "semantics/declarations.h"

namespace vesk::compiler {

// One accepting function: the type of the argument bound to each parameter, null where none is bound.
struct RankedOverload {
    const FunctionInstance* function = nullptr;
    std::vector<const Type*> argumentTypes;
};

int overloadScore(const RankedOverload& overload, std::size_t argumentCount);
// 1 when `a` is more specific, -1 when `b` is, 0 when neither.
int compareSpecificity(const FunctionInstance& a, const FunctionInstance& b);
// Position of the one best overload; nothing when no single one beats the others.
std::optional<std::size_t> bestOverload(const std::vector<RankedOverload>& overloads, std::size_t argumentCount);

}  // namespace vesk::compiler
