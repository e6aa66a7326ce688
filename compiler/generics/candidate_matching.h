// Which overloads can take a call, and which of two is more specific. Nothing here throws: where the host does, that
// position or name gives no information.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

// The early test on the declared parameter types. Permissive: what passes here and fails later is an error of the call.
bool genericMethodCandidateMayMatch(const StrVec& paramTypes, const StrVec& argTypes,
                                    const std::vector<GenericTypeParamInfo>& typeParams, const ContextPtr& context,
                                    const TokenPtr& token);
// The final test on the specialized parameter types; missing arguments are accepted.
bool genericMethodAcceptsActualArgs(const StrVec& paramTypes, const StrVec& argTypes, const ContextPtr& context);
// A variadic parameter that collected nothing holds an empty list or map, which fits whatever its elements are.
void takeTypesOfEmptyVariadics(const GenericMethodInfo& info, const CallArgumentBinding& binding,
                               const StrVec& paramTypes, StrVec& argTypes);

// 1 when a is more specific, -1 when b is, 0 when neither is: more specific means narrower at one position at least and
// wider at none. Positions beyond the shorter parameter list do not count.
int compareGenericMethodSpecificity(const GenericMethodInfo& a, const GenericMethodInfo& b, const ContextPtr& context,
                                    const TokenPtr& token);
// The type under which a declared parameter type is compared: a type parameter stands for its constraint, else Object.
Str genericMethodSpecificityType(const GenericMethodInfo& info, const Str& paramType, const ContextPtr& context,
                                 const TokenPtr& token);

// The forms that scoring compares. Type parameters come back as they are.
Str resolveTypeNameForGenericScore(const Str& type, const GenericPlaceholderSet& typeParamNames,
                                   const ContextPtr& context, const TokenPtr& token);
Str canonicalBaseForGenericScore(const Str& type, const GenericPlaceholderSet& typeParamNames,
                                 const ContextPtr& context, const TokenPtr& token);

GenericPlaceholderSet genericMethodTypeParamNames(const std::vector<GenericTypeParamInfo>& typeParams);

// One overload with its specificity types worked out once, for comparing it with several others.
struct GenericMethodSpecificity {
    StrVec types, bases;
};
GenericMethodSpecificity genericMethodSpecificity(const GenericMethodInfo& info, const ContextPtr& context,
                                                  const TokenPtr& token);
// Positions at which a is narrower than b, and b than a.
struct SpecificityDifference {
    std::vector<std::size_t> aNarrower, bNarrower;
    int verdict() const;
};
SpecificityDifference compareGenericMethodSpecificity(const GenericMethodSpecificity& a,
                                                      const GenericMethodSpecificity& b, const ContextPtr& context,
                                                      const TokenPtr& token);

}  // namespace vesk::compiler
