#include "semantics/overload_ranking.h"

#include <algorithm>
#include <limits>

#include "semantics/name_lookup.h"

namespace vesk::compiler {

namespace {

bool haveSameBase(const Type* first, const Type* second) {
    first = withoutNull(first);
    second = withoutNull(second);
    if (first == second) return true;
    return first->kind == TypeKind::Class && second->kind == TypeKind::Class &&
           first->declaration == second->declaration;
}

}  // namespace

int overloadScore(const RankedOverload& overload, std::size_t argumentCount) {
    const FunctionInstance& function = *overload.function;
    int score = 0;
    std::size_t count = std::min(overload.argumentTypes.size(), function.parameterTypes.size());
    for (std::size_t i = 0; i < count; i++) {
        const Type* argument = overload.argumentTypes[i];
        const Type* parameter = function.parameterTypes[i];
        bool isCollected = (function.isVariadic && static_cast<int>(i) == function.variadicIndex) ||
                           (function.isNamedVariadic && static_cast<int>(i) == function.namedVariadicIndex);
        if (!argument || isCollected) continue;
        if (argument == parameter)
            score += 4;
        else if (haveSameBase(argument, parameter))
            score += 3;
        else if (isAssignable(parameter, argument))
            score += 1;
    }
    if (function.isVariadic) score -= 1;
    if (function.isNamedVariadic) score -= 2;
    if (!function.isVariadic && !function.isNamedVariadic && argumentCount == function.parameterTypes.size())
        score += 2;
    return score;
}

int compareSpecificity(const FunctionInstance& a, const FunctionInstance& b) {
    bool aIsNarrower = false, bIsNarrower = false;
    std::size_t count = std::min(a.parameterTypes.size(), b.parameterTypes.size());
    for (std::size_t i = 0; i < count; i++) {
        const Type* ta = a.parameterTypes[i];
        const Type* tb = b.parameterTypes[i];
        if (ta == tb || haveSameBase(ta, tb)) continue;
        bool aFitsB = isAssignable(tb, ta), bFitsA = isAssignable(ta, tb);
        if (aFitsB && !bFitsA)
            aIsNarrower = true;
        else if (bFitsA && !aFitsB)
            bIsNarrower = true;
    }
    if (aIsNarrower == bIsNarrower) return 0;
    return aIsNarrower ? 1 : -1;
}

std::optional<std::size_t> bestOverload(const std::vector<RankedOverload>& overloads, std::size_t argumentCount) {
    int best = std::numeric_limits<int>::min();
    std::vector<std::size_t> top;
    for (std::size_t i = 0; i < overloads.size(); i++) {
        int score = overloadScore(overloads[i], argumentCount);
        if (score > best) {
            best = score;
            top.clear();
        }
        if (score == best) top.push_back(i);
    }
    // From here on only specificity tells the best apart.
    auto beats = [&](std::size_t one, std::size_t other) {
        return compareSpecificity(*overloads[one].function, *overloads[other].function) > 0;
    };
    if (top.empty()) return std::nullopt;
    // Whoever beats all others comes out of this round as the last who was not beaten.
    std::size_t winner = top[0];
    for (std::size_t other : top)
        if (other != winner && !beats(winner, other)) winner = other;
    bool beatsAll =
        std::all_of(top.begin(), top.end(), [&](std::size_t other) { return other == winner || beats(winner, other); });
    return beatsAll ? std::optional(winner) : std::nullopt;
}

}  // namespace vesk::compiler
