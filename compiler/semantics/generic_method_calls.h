// The one door to the specializer of generic methods.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

GenericMethodSpec specializeGenericMethod(const ContextPtr& context, const Str& owner, const Str& method, const NodeVec& arguments,
                                          const TokenPtr& token, bool isStaticCall, const StrVec& explicitTypeArguments);

}  // namespace vesk::compiler
