#include "semantics/generic_method_calls.h"

#include "generics/generic_specializer.h"

namespace vesk::compiler {

GenericMethodSpec specializeGenericMethod(const ContextPtr&, const Str&, const Str& method, const NodeVec&, const TokenPtr& token, bool,
                                          const StrVec&) {
    throw compileError(token, "'" + method + "' is a generic method: generic methods are not supported yet");
}

}  // namespace vesk::compiler
