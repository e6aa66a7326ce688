// Completes the type arguments of the data library's `repository` and `find`: who writes only the entity type gets its
// identity type added.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

// The list to specialize with: the given one, or entity and identity type. Throws when the entity has no single
// identity.
StrVec completeEntityManagerIdentityTypeArguments(const ContextPtr& context, const TokenPtr& token, const Str& owner,
                                                  const Str& method, const StrVec& explicitTypeArgs);

}  // namespace vesk::compiler
