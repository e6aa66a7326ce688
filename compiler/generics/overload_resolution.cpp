// The gate, the score and the choice.
#include "generics/overload_resolution.h"

#include <algorithm>
#include <climits>

#include "generics/candidate_matching.h"
#include "generics/errors.h"
#include "generics/generic_specializer.h"
#include "generics/inference/body_rewriting.h"
#include "generics/inference/literal_arguments.h"
#include "generics/method_materialization.h"
#include "generics/method_memo.h"
#include "generics/request_stack.h"
#include "generics/resolution_report.h"
#include "generics/typetext/type_text.h"
#include "host/host_services.h"

namespace vesk::compiler {

namespace {

constexpr int SAME_TYPE = 4, SAME_BASE = 3, ASSIGNABLE = 1;
constexpr int VARIADIC_LOSS = 1, NAMED_VARIADIC_LOSS = 2, SAME_COUNT_GAIN = 2;

bool isCollectedBy(const GenericMethodInfo& info, std::size_t position) {
    const int index = static_cast<int>(position);
    return (info.isVariadic && info.variadicIndex == index) ||
           (info.isNamedVariadic && info.namedVariadicIndex == index);
}

}  // namespace

Str declaringClass(const GenericMethodInfo& info, const Str& owner) {
    return info.ownerClass.empty() ? owner : info.ownerClass;
}

bool isSameDeclaration(const GenericMethodInfo& a, const GenericMethodInfo& b, const Str& owner) {
    return a.overloadIndex == b.overloadIndex && a.name == b.name &&
           declaringClass(a, owner) == declaringClass(b, owner);
}

OverloadResolution::OverloadResolution(const GenericMethodCall& call, std::vector<GenericMethodInfo> overloads)
    : call_(call) {
    slots_.resize(overloads.size());
    for (std::size_t i = 0; i < overloads.size(); i++) slots_[i].attempt.info = std::move(overloads[i]);
}

OverloadAttempt OverloadResolution::choose() {
    const std::vector<Slot*> accepting = acceptingOrReported();
    // From here on every candidate accepts the call; only ranking remains.
    std::vector<TiedOverload> tied;
    Slot* winner = mostSpecific(highest(accepting), &tied);
    if (winner) winner->isChosen = true;
    report();
    if (winner) return std::move(winner->attempt);
    if (!accepting.empty()) throw ambiguousGenericMethod(call_.token, call_.owner, call_.method, tied);
    std::vector<DroppedOverload> dropped;
    for (const Slot& slot : slots_) dropped.push_back({slot.attempt.info, slot.droppedBecause});
    throw unknownGenericMethod(call_.context, call_.token, call_.ownerAsPassed, call_.method, dropped);
}

std::vector<OverloadResolution::Slot*> OverloadResolution::acceptingOrReported() {
    try {
        std::vector<Slot*> found = survivors(Literals::AsInferred);
        return found.empty() ? survivors(Literals::AsExpected) : found;
    } catch (const CompilerException&) {
        report();
        throw;
    }
}

const OverloadAttempt* OverloadResolution::onlyCandidate() {
    Slot* only = nullptr;
    for (Slot& slot : slots_) {
        if (!binds(slot)) continue;
        if (only) return nullptr;
        only = &slot;
    }
    if (!only) return nullptr;
    try {
        return admit(*only) ? &only->attempt : nullptr;
    } catch (const CompilerException&) {
        return nullptr;  // the overloads decide, and report
    }
}

const OverloadAttempt* OverloadResolution::best() {
    std::vector<Slot*> accepting;
    for (Slot& slot : slots_) {
        try {
            if (admit(slot)) accepting.push_back(&slot);
        } catch (const CompilerException&) {
            // Takes no part.
        }
    }
    for (Slot* slot : accepting) slot->attempt.score = score(slot->attempt);
    Slot* winner = mostSpecific(highest(accepting), nullptr);
    return winner ? &winner->attempt : nullptr;
}

// ------------------------------------------------------------------------------------------------ the gate

bool OverloadResolution::binds(Slot& slot) {
    if (!slot.binds) {
        const GenericMethodInfo& info = slot.attempt.info;
        slot.binds = bindGenericCall(call_.arguments.argNames, info.paramNames, info.paramCount,
                                     info.defaultValueTokens, info.isVariadic, info.variadicIndex, info.isNamedVariadic,
                                     info.namedVariadicIndex, slot.attempt.binding);
        if (!*slot.binds) slot.droppedBecause = describeBindingFailure(info, call_.arguments.argNames);
    }
    return *slot.binds;
}

bool OverloadResolution::mayMatch(Slot& slot) {
    if (slot.mayMatch) return *slot.mayMatch;
    const GenericMethodInfo& info = slot.attempt.info;
    StrVec types = call_.arguments.argTypes;
    hasAdaptedLiterals_ |= adaptCollectedLiterals(
        call_.arguments.argInfos, slot.attempt.binding,
        {info.isVariadic, info.isNamedVariadic, info.variadicIndex, info.namedVariadicIndex}, info.paramTypes,
        genericMethodTypeParamNameList(info), call_.explicitTypeArgs, types, call_.context, call_.token);
    slot.attempt.argTypes = buildGenericCallParamTypesFromRawTypes(
        types, call_.arguments.argNames, info.paramNames, info.paramCount, info.defaultValueTokens, info.isVariadic,
        info.variadicIndex, info.isNamedVariadic, info.namedVariadicIndex, call_.token);
    slot.mayMatch = genericMethodCandidateMayMatch(info.paramTypes, slot.attempt.argTypes, info.typeParams,
                                                   call_.context, call_.token);
    if (!*slot.mayMatch) {
        slot.droppedBecause = "the argument types (";
        for (std::size_t i = 0; i < slot.attempt.argTypes.size(); i++) {
            slot.droppedBecause += (i == 0 ? "" : ", ") + structuredTypeText(slot.attempt.argTypes[i]);
        }
        slot.droppedBecause += ") do not fit its parameters";
    }
    return *slot.mayMatch;
}

void OverloadResolution::specialize(Slot& slot) {
    if (slot.isSpecialized) return;
    OverloadAttempt& attempt = slot.attempt;
    try {
        attempt.signature = specializeGenericMethodSignature(attempt.info, attempt.argTypes, call_.explicitTypeArgs,
                                                             call_.context, call_.token, &attempt.trace);
    } catch (CompilerException& error) {
        explainInferenceError(error, attempt.info, attempt.trace, attempt.argTypes,
                              boundArgumentTokens(attempt.binding, call_.arguments));
        if (!attempt.info.returnType.empty()) throw;
        // A declaration that cannot be loaded comes first.
        const Str owner = declaringClass(attempt.info, call_.owner);
        if (loadGenericMethod(attempt.info, owner, call_.context, call_.token, {}, {})) throw;
        throw unloadableGenericMethod(call_.token, call_.owner, call_.method);
    }
    slot.isSpecialized = true;
}

// The return type of a method that declares none, from its body made concrete.
void OverloadResolution::inferReturnType(Slot& slot) {
    OverloadAttempt& attempt = slot.attempt;
    const Str owner = declaringClass(attempt.info, call_.owner);
    // The body sees names of the unit that asks.
    const Str key = inferredReturnTypeKey(attempt.info, owner, attempt.signature.typeArgs) + "|" + call_.callerUnit;
    if (const Str* known = rememberedReturnType(key)) {
        attempt.signature.returnType = *known;
        return;
    }
    if (SpecializationRequest::isUnderWay(key)) {
        throw returnTypeNotInferrable(call_.token);
    }
    checkTypeArgumentsLength(attempt.info.name, owner, attempt.signature.typeArgs, call_.context, call_.token);
    const SpecializationRequest request(
        key, requestedGenericMethod(attempt.info, owner, attempt.signature.typeArgs, call_.token), call_.context);
    const StrVec names = genericMethodTypeParamNameList(attempt.info);
    auto node = loadGenericMethod(attempt.info, owner, call_.context, call_.token, names, {});
    if (!node) throw unloadableGenericMethod(call_.token, call_.owner, call_.method);
    try {
        node->setDisplayName(genericMethodDisplayName(attempt.info, owner, attempt.signature.typeArgs));
        specializeExplicitGenericSignature(node, {}, attempt.signature.typeArgs, call_.context, call_.token, nullptr);
        Str type = inferReturnTypeFromNodes(node->getBody(), node->getContext());
        if (type.empty()) type = "Void";
        node->setReturnType(type);
        attempt.signature.returnType = type;
    } catch (CompilerException& error) {
        error.addNote(specializationRequestNote(node->displayName(), call_.token));
        throw;
    }
    attempt.node = std::move(node);
    rememberReturnType(key, attempt.signature.returnType);
}

bool OverloadResolution::accepts(Slot& slot) {
    OverloadAttempt& attempt = slot.attempt;
    if (genericMethodAcceptsActualArgs(attempt.signature.paramTypes, attempt.argTypes, call_.context)) return true;
    // A literal takes the type that its place expects.
    StrVec adapted = literalTypes(attempt, attempt.signature.paramTypes);
    takeTypesOfCollectedLiterals(attempt, adapted);
    takeTypesOfEmptyVariadics(attempt.info, attempt.binding, attempt.signature.paramTypes, adapted);
    if (!genericMethodAcceptsActualArgs(attempt.signature.paramTypes, adapted, call_.context)) return false;
    attempt.argTypes = std::move(adapted);
    return true;
}

// All steps but the return type, without a hard error where the signature does not accept.
bool OverloadResolution::admit(Slot& slot) {
    if (!binds(slot) || !mayMatch(slot)) return false;
    specialize(slot);
    return accepts(slot);
}

// The argument types with those of literals replaced by what their places expect.
StrVec OverloadResolution::literalTypes(const OverloadAttempt& attempt, const StrVec& expected) {
    StrVec types = attempt.argTypes;
    const std::vector<int>& paramToArg = attempt.binding.paramToArg;
    for (std::size_t i = 0; i < types.size() && i < paramToArg.size() && i < expected.size(); i++) {
        if (paramToArg[i] < 0 || isCollectedBy(attempt.info, i)) continue;
        const NodePtr& node = call_.arguments.argInfos[static_cast<std::size_t>(paramToArg[i])].node;
        if (!isLiteralArgument(node)) continue;
        const Str type = inferExpectedLiteralType(node, expected[i], types[i]);
        if (type.empty()) continue;
        hasAdaptedLiterals_ |= type != types[i] || type != expected[i];
        types[i] = type;
    }
    return types;
}

// A list or map of literals alone holds what its parameter wants, where all of them fit.
void OverloadResolution::takeTypesOfCollectedLiterals(const OverloadAttempt& attempt, StrVec& types) {
    const GenericMethodInfo& info = attempt.info;
    const auto take = [&](bool isThere, int index, const std::vector<int>& collected) {
        const std::size_t position = static_cast<std::size_t>(index);
        if (!isThere || index < 0 || position >= types.size() || collected.empty()) return;
        const Str& wanted = attempt.signature.paramTypes[position];
        StrVec argTypes = call_.arguments.argTypes;
        if (!adaptCollectedLiterals(call_.arguments.argInfos, collected, wanted, argTypes, call_.context, call_.token))
            return;
        const bool isUniform = std::all_of(collected.begin(), collected.end(), [&](int argument) {
            return argTypes[static_cast<std::size_t>(argument)] == argTypes[static_cast<std::size_t>(collected[0])];
        });
        if (!isUniform) return;
        hasAdaptedLiterals_ = true;
        types[position] = wanted;
    };
    take(info.isVariadic, info.variadicIndex, attempt.binding.variadicArgs);
    take(info.isNamedVariadic, info.namedVariadicIndex, attempt.binding.namedVariadicArgs);
}

std::vector<OverloadResolution::Slot*> OverloadResolution::survivors(Literals literals) {
    std::vector<Slot*> found;
    for (Slot& slot : slots_) {
        if (!binds(slot)) continue;
        if (!mayMatch(slot)) {
            if (literals == Literals::AsInferred) continue;
            const GenericMethodInfo& info = slot.attempt.info;
            StrVec adapted = literalTypes(slot.attempt, info.paramTypes);
            if (adapted == slot.attempt.argTypes ||
                !genericMethodCandidateMayMatch(info.paramTypes, adapted, info.typeParams, call_.context,
                                                call_.token)) {
                continue;
            }
            slot.attempt.argTypes = std::move(adapted);
            slot.droppedBecause.clear();
        }
        specialize(slot);
        if (slot.attempt.signature.returnType.empty()) inferReturnType(slot);
        if (!accepts(slot)) {
            throw mismatchedArguments(call_.token, slot.attempt.info, slot.attempt.signature.paramTypes,
                                      slot.attempt.argTypes);
        }
        slot.survives = true;
        slot.attempt.score = score(slot.attempt);
        found.push_back(&slot);
    }
    return found;
}

// ---------------------------------------------------------------------------------------------- the ranking

const Str& OverloadResolution::resolvedForScore(const Str& type, const GenericPlaceholderSet& names) {
    if (names.contains(type)) return *names.find(type);
    const auto known = resolved_.find(type);
    if (known != resolved_.end()) return known->second;
    return resolved_.emplace(type, resolveTypeNameForGenericScore(type, {}, call_.context, call_.token)).first->second;
}

const Str& OverloadResolution::baseForScore(const Str& type, const GenericPlaceholderSet& names) {
    if (const auto name = names.find(parseGenericTypeText(type).base); name != names.end()) return *name;
    const auto known = bases_.find(type);
    if (known != bases_.end()) return known->second;
    return bases_.emplace(type, canonicalBaseForGenericScore(type, {}, call_.context, call_.token)).first->second;
}

int OverloadResolution::score(const OverloadAttempt& attempt) {
    const GenericMethodInfo& info = attempt.info;
    const GenericPlaceholderSet names = genericMethodTypeParamNames(info.typeParams);
    const StrVec& params = attempt.signature.paramTypes;
    int score = 0;
    for (std::size_t i = 0; i < std::min(params.size(), attempt.argTypes.size()); i++) {
        const Str& arg = attempt.argTypes[i];
        if (arg.empty() || isCollectedBy(info, i)) continue;
        if (resolvedForScore(params[i], names) == resolvedForScore(arg, names))
            score += SAME_TYPE;
        else if (baseForScore(params[i], names) == baseForScore(arg, names))
            score += SAME_BASE;
        else if (call_.context->isAssignable(params[i], arg))
            score += ASSIGNABLE;
    }
    if (info.isVariadic) score -= VARIADIC_LOSS;
    if (info.isNamedVariadic) score -= NAMED_VARIADIC_LOSS;
    const bool isFixed = !info.isVariadic && !info.isNamedVariadic;
    if (isFixed && call_.arguments.argTypes.size() == info.paramCount) score += SAME_COUNT_GAIN;
    return score;
}

std::vector<OverloadResolution::Slot*> OverloadResolution::highest(const std::vector<Slot*>& slots) {
    int top = INT_MIN;
    for (const Slot* slot : slots) top = std::max(top, slot->attempt.score);
    std::vector<Slot*> kept;
    for (Slot* slot : slots) {
        if (slot->attempt.score == top) kept.push_back(slot);
    }
    return kept;
}

// The one that is more specific than every other declaration; of one declaration reached twice the later. `tied` receives
// all of them when there is none.
OverloadResolution::Slot* OverloadResolution::mostSpecific(const std::vector<Slot*>& slots,
                                                           std::vector<TiedOverload>* tied) {
    if (slots.size() < 2) return slots.empty() ? nullptr : slots.front();
    std::vector<GenericMethodSpecificity> specificities;
    for (Slot* slot : slots) {
        slot->isTied = true;
        specificities.push_back(genericMethodSpecificity(slot->attempt.info, call_.context, call_.token));
    }
    std::vector<bool> isBeaten(slots.size());
    std::vector<TiedOverload> candidates;
    for (Slot* slot : slots) candidates.push_back({slot->attempt.info, {}});
    for (std::size_t a = 0; a < slots.size(); a++) {
        for (std::size_t b = a + 1; b < slots.size(); b++) {
            if (isSameDeclaration(slots[a]->attempt.info, slots[b]->attempt.info, call_.owner)) continue;
            const SpecificityDifference difference =
                compareGenericMethodSpecificity(specificities[a], specificities[b], call_.context, call_.token);
            if (difference.verdict() <= 0) isBeaten[a] = true;
            if (difference.verdict() >= 0) isBeaten[b] = true;
            const auto addPositions = [](std::vector<std::size_t>& to, const std::vector<std::size_t>& from) {
                for (const std::size_t position : from) {
                    if (std::find(to.begin(), to.end(), position) == to.end()) to.push_back(position);
                }
            };
            addPositions(candidates[a].betterAt, difference.aNarrower);
            addPositions(candidates[b].betterAt, difference.bNarrower);
        }
    }
    for (std::size_t i = 0; i < slots.size(); i++) slots[i]->betterAt = candidates[i].betterAt;
    for (std::size_t i = slots.size(); i-- > 0;) {
        if (!isBeaten[i]) return slots[i];
    }
    if (tied) *tied = std::move(candidates);
    return nullptr;
}

// Leaves what happened where somebody records it.
void OverloadResolution::report() {
    ResolutionReport* const current = ReportedResolution::current();
    if (!current) return;
    ResolutionReport& out = *current;
    out.argumentTypes = call_.arguments.argTypes;
    out.candidates.clear();
    out.typeArguments.clear();
    for (const Slot& slot : slots_) {
        const OverloadAttempt& attempt = slot.attempt;
        out.candidates.push_back({attempt.info, slot.survives ? "" : slot.droppedBecause, attempt.score,
                                  attempt.signature.typeArgs, attempt.signature.paramTypes, slot.isTied, slot.isChosen,
                                  slot.survives, slot.betterAt});
        if (!slot.isChosen) continue;
        out.typeArguments = describeTypeArguments(attempt.info, attempt.signature.typeArgs, call_.explicitTypeArgs,
                                                  call_.token, attempt.trace);
    }
}

}  // namespace vesk::compiler
