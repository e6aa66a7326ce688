#include "semantics/generic_method_calls.h"

#include "generics/generic_specializer.h"

namespace vesk::compiler {

GenericMethodSpec specializeGenericMethod(const ContextPtr& context, const Str& owner, const Str& method, const NodeVec& arguments,
                                          const TokenPtr& token, bool isStaticCall, const StrVec& explicitTypeArguments) {
    return ensureGenericMethodSpecialization(context, owner, method, arguments, token, isStaticCall, explicitTypeArguments);
}

}  // namespace vesk::compiler
