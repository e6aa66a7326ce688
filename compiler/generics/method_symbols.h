// The link-level names of method specializations. The same specialization has the same name in every process.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

// "__vesk_m_" PACKAGE SHORTOWNER "_" METHOD "__T_" HASH, where the hash covers owner, method, overload number, type
// arguments and, for specializations kept apart by caller, the caller. `callers` is the parameter-type list that the
// bundle's path is computed with.
Str genericMethodBundleSymbol(const ContextPtr& context, const Str& owner, const Str& method, std::size_t overloadIndex,
                              const StrVec& typeArgs, const TokenPtr& token, const StrVec& callers = {});
// The same for a canonical owner and a caller that is known ("" for none).
Str genericMethodSymbolOfCaller(const ContextPtr& context, const Str& canonicalOwner, const Str& method,
                                std::size_t overloadIndex, const StrVec& typeArgs, const Str& caller);
// The bundle's symbol, made unique for the unit under way: for specializations of native methods.
Str genericNativeMethodLocalSymbol(const ContextPtr& context, const Str& owner, const Str& method,
                                   std::size_t overloadIndex, const StrVec& typeArgs, const TokenPtr& token);

}  // namespace vesk::compiler
