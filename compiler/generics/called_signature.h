// The signature of a method that lies in a bundle, as a node: the unit under way calls it and never compiles it.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

// Of the specialization `spec` of `info`, which `declaring` declares. Defaults come with it.
std::shared_ptr<MethodNode> calledMethodSignature(const GenericMethodInfo& info, const Str& declaring,
                                                  const StrVec& typeArgs, const GenericMethodSpec& spec,
                                                  const ContextPtr& context, const TokenPtr& token);

}  // namespace vesk::compiler
