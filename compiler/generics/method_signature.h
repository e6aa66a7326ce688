// The signature of one generic method for one call: its type arguments, given or inferred, checked against their
// constraints and put into the declared types.
//
// Example: `def zip<U>(other: Collection<U>) -> ArrayList<U>` called with an ArrayList<Int> has the type argument Int, the
// parameter type Collection<Int> and the return type ArrayList<Int>. Errors are those of inference, at the call's token.
// Nothing is remembered here.
#pragma once

#include "generics/inference/binding_inference.h"
#include "host/model_records.h"

namespace vesk::compiler {

// `argTypes` runs by parameter position; `explicitTypeArgs` may be empty. The outputs may be null.
StrVec specializeGenericMethodInfoSignature(const GenericMethodInfo& info, const StrVec& argTypes,
                                            const StrVec& explicitTypeArgs, const ContextPtr& context,
                                            const TokenPtr& token, StrVec* outTypeArgs, Str* outReturnType);
// The same on a parsed method, which becomes concrete: its body, its parameter types and its declared return type.
StrVec specializeExplicitGenericSignature(const std::shared_ptr<MethodNode>& method, const StrVec& argTypes,
                                          const StrVec& explicitTypeArgs, const ContextPtr& context,
                                          const TokenPtr& token, StrVec* outTypeArgs);

struct SpecializedMethodSignature {
    StrVec typeArgs, paramTypes;
    Str returnType;  // "" while it waits to be inferred
    bool operator==(const SpecializedMethodSignature&) const = default;
};
SpecializedMethodSignature specializeGenericMethodSignature(const GenericMethodInfo& info, const StrVec& argTypes,
                                                            const StrVec& explicitTypeArgs, const ContextPtr& context,
                                                            const TokenPtr& token, InferenceTrace* trace);

// The names and arguments that make a method's text concrete: its own type parameters first, then those parameters of its
// class that they do not hide. `owner` is the declaring class as instantiated.
struct GenericMethodBindings {
    StrVec names, args;
};
GenericMethodBindings genericMethodBindings(const StrVec& typeParamNames, const StrVec& typeArgs, const Str& owner,
                                            const ContextPtr& context, const TokenPtr& token);
// Applies them to the body, which is then that of a plain method. A method without type parameters stays as it is.
void makeBodyConcrete(const std::shared_ptr<MethodNode>& node, const GenericMethodBindings& bindings);
StrVec genericMethodTypeParamNameList(const GenericMethodInfo& info);

}  // namespace vesk::compiler
