// Choosing the overload of a generic method that a call means.
//
// Every overload goes through the same gate, in order of declaration: the arguments pair with its parameters, the types may
// match, inference succeeds, the specialized signature accepts the arguments. The first two drop an overload quietly, what
// comes after is an error of the call. Survivors are scored position by position, and among those with the best score the
// most specific one wins.
//
// Example: `put<T>(key: Int, value: T)` and `put<T>(key: Object, value: T)` called with (Int, String): both survive; the
// first scores 4 + 4 + 2, the second 1 + 4 + 2.
#pragma once

#include <optional>

#include "generics/inference/call_binding.h"
#include "generics/method_diagnostics.h"
#include "generics/method_signature.h"
#include "host/model_records.h"

namespace vesk::compiler {

// One call on its way through the driver.
struct GenericMethodCall {
    ContextPtr context;
    TokenPtr token;
    Str ownerAsPassed;
    Str owner;  // the working copy: canonical from the moment that is known
    Str method;
    bool isStatic = false;
    GenericCallArguments arguments;
    StrVec explicitTypeArgs;  // normalized
    Str callerUnit;           // the user's file on whose behalf the unit specializes
};

// What one overload makes of the call.
struct OverloadAttempt {
    GenericMethodInfo info;
    CallArgumentBinding binding;
    StrVec argTypes;  // by parameter position
    SpecializedMethodSignature signature;
    InferenceTrace trace;
    std::shared_ptr<MethodNode> node;  // where the return type had to be inferred
    int score = 0;
};

// The class that declares an overload, as instantiated.
Str declaringClass(const GenericMethodInfo& info, const Str& owner);
bool isSameDeclaration(const GenericMethodInfo& a, const GenericMethodInfo& b, const Str& owner);

// Resolves one call. Each overload's pairing and signature is worked out once, whoever asks.
class OverloadResolution {
public:
    OverloadResolution(const GenericMethodCall& call, std::vector<GenericMethodInfo> overloads);
    OverloadResolution(const OverloadResolution&) = delete;
    OverloadResolution& operator=(const OverloadResolution&) = delete;

    // The winner. Throws "Unknown ...", "Ambiguous ...", "Arguments do not match ..." and the errors of inference.
    OverloadAttempt choose();
    // The one overload that the arguments pair with, specialized and accepting the call; none where several pair, or where
    // that one fails. Never throws.
    const OverloadAttempt* onlyCandidate();
    // The most specific of the best, over all that specialize and accept; none where choose() would throw.
    const OverloadAttempt* best();
    // True when literals took types that their places expect: then the answer depends on their values, not on types alone.
    bool hasAdaptedLiterals() const { return hasAdaptedLiterals_; }

private:
    struct Slot {
        OverloadAttempt attempt;
        std::optional<bool> binds, mayMatch;
        bool isSpecialized = false;  // but for a return type that must be inferred
        Str droppedBecause;
        bool survives = false, isTied = false, isChosen = false;
        std::vector<std::size_t> betterAt;  // argument positions
    };
    enum class Literals { AsInferred, AsExpected };

    bool binds(Slot& slot);
    bool mayMatch(Slot& slot);
    void specialize(Slot& slot);
    void inferReturnType(Slot& slot);
    bool accepts(Slot& slot);
    bool admit(Slot& slot);
    StrVec literalTypes(const OverloadAttempt& attempt, const StrVec& expected);
    void takeTypesOfCollectedLiterals(const OverloadAttempt& attempt, StrVec& types);
    std::vector<Slot*> survivors(Literals literals);
    std::vector<Slot*> acceptingOrReported();
    int score(const OverloadAttempt& attempt);
    std::vector<Slot*> highest(const std::vector<Slot*>& slots);
    Slot* mostSpecific(const std::vector<Slot*>& slots, std::vector<TiedOverload>* tied);
    void report();
    const Str& resolvedForScore(const Str& type, const GenericPlaceholderSet& names);
    const Str& baseForScore(const Str& type, const GenericPlaceholderSet& names);

    const GenericMethodCall& call_;
    std::vector<Slot> slots_;
    std::unordered_map<Str, Str> resolved_, bases_;  // resolutions of this call
    bool hasAdaptedLiterals_ = false;
};

}  // namespace vesk::compiler
