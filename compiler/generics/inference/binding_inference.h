// From argument types to type arguments: binding type parameters by matching declared against actual types, completing the
// bindings with defaults and widening, and checking constraints.
//
// Example: `def pick<T: Comparable<T>, U = List<T>>(a: T, b: T)` called with Int and Int binds T to "Int" twice, which
// agrees; U has no binding and takes its default with T replaced: "List<Int>".
#pragma once

#include <map>

#include "host/model_records.h"

namespace vesk::compiler {

// Binds the placeholders in `declared` from `actual`, looking through flattened names, raw classes, equal array suffixes,
// "?" and the supertypes of the actual type. What does not match binds nothing. Throws "Inconsistent generic argument
// for ..." when a placeholder gets two types; bindings made until then stay.
void collectGenericBindingsFromType(const Str& declared, const Str& actual, const GenericPlaceholderSet& placeholders,
                                    GenericBindingMap& bindings, const ContextPtr& context, const TokenPtr& token);
// How inference went, for notes and reports. Also filled when it fails, with what the arguments before the failing one bind.
struct InferenceTrace {
    std::map<Str, std::size_t> boundBy;  // type parameter -> position of the parameter that bound it first
    std::map<Str, Str> bindings;
};
// All arguments of a call, position by position; parameters without an argument have the type "". An error names the
// position. The trace may be null.
GenericBindingMap collectGenericBindings(const std::vector<GenericTypeParam>& params, const StrVec& declaredTypes,
                                         const StrVec& argTypes, const ContextPtr& context, const TokenPtr& token,
                                         InferenceTrace* trace);
// The type arguments in the order of declaration. Completes the map with defaults; integers bound under AbstractFloat
// become Double. Throws "Cannot infer generic type parameter ...".
StrVec orderedGenericArgs(const std::vector<GenericTypeParam>& params, GenericBindingMap& bindings,
                          const ContextPtr& context, const TokenPtr& token);
// Throws "Type ... does not satisfy generic constraint ..." for the first argument that does not. Failures of resolving
// and loading pass through.
void validateGenericConstraints(const std::vector<GenericTypeParam>& params, const StrVec& args,
                                const ContextPtr& context, const TokenPtr& token);

bool typeContainsGenericPlaceholder(const Str& type, const GenericPlaceholderSet& placeholders);
// True when two names differ at most in package and generic arguments.
bool nominalTypeMatchesBase(const Str& actual, const Str& declaredBase, const ContextPtr& context,
                            const TokenPtr& token);

}  // namespace vesk::compiler
