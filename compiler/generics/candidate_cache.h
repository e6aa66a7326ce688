// The index of finished method specializations by owner and method.
// Key: OWNER|METHOD|1 or 0 (static or not), then |caller:UNIT for specializations that depend on their caller. Entries are
// appended, never twice, and live until resetGenericSpecializerSession.
#pragma once

#include "generics/session_state.h"
#include "host/model_records.h"

namespace vesk::compiler {

Str genericMethodCandidateCacheKey(const Str& owner, const Str& methodName, bool isStatic, const Str& callerSourceUnit);
// Adds an entry, unless one with the same symbol, parameter types and type arguments is there.
void registerGenericMethodCandidate(const Str& owner, const Str& methodName, bool isStatic,
                                    const CachedGenericMethodSpec& cached);
// The places, in the vector under `key`, of the entries that were made with these type arguments.
std::vector<std::size_t> genericMethodCandidatesWithTypeArgs(const Str& key, const StrVec& typeArgs);

// For a specialization with one parameter of a native collection type: puts it under the keys of calls that pass any
// concrete collection of the same family.
void registerCommonConcreteCollectionAliases(const ContextPtr& context, const TokenPtr& token, const Str& owner,
                                             const Str& methodName, bool isStatic,
                                             const CachedGenericMethodSpec& cached);

// The name under which an owner is cached: qualified, flattened where the owner is an instantiation.
Str canonicalOwnerClassName(const ContextPtr& context, const TokenPtr& token, const Str& owner);

}  // namespace vesk::compiler
