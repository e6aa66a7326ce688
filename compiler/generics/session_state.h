// What the specializer remembers between calls: one set of caches per compiling thread, never shared and never locked.
// An entry lives until resetGenericSpecializerSession or the end of the thread. The unit tag says into which compile unit
// specialized code goes.
#pragma once

#include <cstdint>

#include "generics/source/source_text_cache.h"
#include "host/model_records.h"

namespace vesk::compiler {

// A finished specialization of a generic method. `sourcePath` is the bundle or the unit that holds it, "" for native
// methods; `callerSourceUnit` the unit that it depends on, "" for none.
struct CachedGenericMethodSpec {
    GenericMethodSpec spec;
    GenericMethodInfo info;
    Str ownerClass;
    StrVec typeArgs;
    Str sourcePath, callerSourceUnit;
};

// Function specializations made in interactive chunks, by replGenericFunctionCacheKey; later chunks register them again.
extern thread_local std::unordered_map<Str, GenericFunctionSpec> gReplGenericFunctionSpecCache;
// How often this thread holds each bundle's lock file, by the lock's path.
extern thread_local std::unordered_map<Str, std::uint64_t> gGenericMethodBundleLockDepth;
// Normalized path of the unit being compiled, "" when none is set.
extern thread_local Str gActiveSpecializationUnit;
// Method specializations by cache key, bundles already written or found current, and candidates by owner and method.
extern thread_local std::unordered_map<Str, CachedGenericMethodSpec> gGenericMethodSpecCache;
extern thread_local std::unordered_set<Str> gPreparedGenericMethodBundles;
extern thread_local std::unordered_map<Str, std::vector<CachedGenericMethodSpec>> gGenericMethodCandidateCache;
// Owners whose bundles have been looked through.
extern thread_local std::unordered_set<Str> gPreloadedGenericMethodManifestOwners;
// Lines of source files by normalized path. No reset clears it.
extern thread_local std::unordered_map<Str, SourceTextCacheEntry> gSourceTextCache;

// The unit that receives a specialization: the active unit, else the scope's, else the token's file, else "".
Str specializationUnitTag(const ContextPtr& context, const TokenPtr& token);
// True for "repl_chunk_" and digits, behind any folder.
bool isReplChunkUnit(const Str& tag);
Str replGenericFunctionCacheKey(const Str& sourceFile, const Str& name, const StrVec& paramTypes,
                                const StrVec& explicitTypeArgs);
// Forgets whatever this thread remembers of these specializations: a chunk that asked for them was taken back.
void forgetSpecializations(const std::unordered_set<Str>& symbols);
std::vector<GenericTypeParam> toGenericTypeParams(const std::vector<GenericTypeParamInfo>& params,
                                                  const TokenPtr& token);

}  // namespace vesk::compiler
