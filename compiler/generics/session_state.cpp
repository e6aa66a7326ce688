// The per-thread state and the rules of units. The order of the definitions is the order of construction.
#include "generics/session_state.h"

#include "generics/function_memo.h"
#include "generics/generic_specializer.h"
#include "generics/method_memo.h"
#include "generics/source/declaration_parser.h"
#include "generics/typetext/type_text.h"
#include "host/context.h"
#include "host/source_manager.h"
#include "host/tokens.h"

namespace vesk::compiler {

thread_local std::unordered_map<Str, GenericFunctionSpec> gReplGenericFunctionSpecCache;
thread_local std::unordered_map<Str, std::uint64_t> gGenericMethodBundleLockDepth;
thread_local Str gActiveSpecializationUnit;
thread_local std::unordered_map<Str, CachedGenericMethodSpec> gGenericMethodSpecCache;
thread_local std::unordered_set<Str> gPreparedGenericMethodBundles;
thread_local std::unordered_map<Str, std::vector<CachedGenericMethodSpec>> gGenericMethodCandidateCache;
thread_local std::unordered_set<Str> gPreloadedGenericMethodManifestOwners;
thread_local std::unordered_map<Str, SourceTextCacheEntry> gSourceTextCache;

namespace {

constexpr std::string_view REPL_CHUNK = "repl_chunk_";

Str normalizedPathOrEmpty(const Str& path) { return path.empty() ? path : SourceManager::normalizePath(path); }

}  // namespace

void resetGenericSpecializerSession() {
    gReplGenericFunctionSpecCache.clear();
    gGenericMethodSpecCache.clear();
    gPreparedGenericMethodBundles.clear();
    gGenericMethodCandidateCache.clear();
    gPreloadedGenericMethodManifestOwners.clear();
    // What follows only repeats answers of the host.
    resetFunctionMemo();
    resetMethodMemo();
    resetDeclarationScopes();
}

void forgetSpecializations(const std::unordered_set<Str>& symbols) {
    if (symbols.empty()) return;
    const auto isGone = [&](const auto& each) { return symbols.contains(each.spec.symbol); };
    std::erase_if(gReplGenericFunctionSpecCache,
                  [&](const auto& entry) { return symbols.contains(entry.second.symbol); });
    std::erase_if(gGenericMethodSpecCache, [&](const auto& entry) { return isGone(entry.second); });
    for (auto& [key, candidates] : gGenericMethodCandidateCache) std::erase_if(candidates, isGone);
    gPreparedGenericMethodBundles.clear();
    resetFunctionMemo();
    resetMethodMemo();
}

ScopedSpecializationUnit::ScopedSpecializationUnit(const Str& unitPath) : previous_(gActiveSpecializationUnit) {
    gActiveSpecializationUnit = normalizedPathOrEmpty(unitPath);
}

ScopedSpecializationUnit::~ScopedSpecializationUnit() { gActiveSpecializationUnit = std::move(previous_); }

Str specializationUnitTag(const ContextPtr& context, const TokenPtr& token) {
    if (!gActiveSpecializationUnit.empty()) return gActiveSpecializationUnit;
    if (context) {
        if (Str unit = normalizedPathOrEmpty(context->getCompileUnitFile()); !unit.empty()) return unit;
    }
    return token ? normalizedPathOrEmpty(token->getFilename()) : Str{};
}

bool isReplChunkUnit(const Str& tag) {
    const std::string_view name = std::string_view(tag).substr(tag.find_last_of("/\\") + 1);
    if (name.size() <= REPL_CHUNK.size() || !name.starts_with(REPL_CHUNK)) return false;
    return name.find_first_not_of("0123456789", REPL_CHUNK.size()) == std::string_view::npos;
}

Str replGenericFunctionCacheKey(const Str& sourceFile, const Str& name, const StrVec& paramTypes,
                                const StrVec& explicitTypeArgs) {
    Str key = sourceFile + "|" + name + "|" + joinTypes(paramTypes);
    if (!explicitTypeArgs.empty()) key += "|<" + joinTypes(explicitTypeArgs) + ">";
    return key;
}

std::vector<GenericTypeParam> toGenericTypeParams(const std::vector<GenericTypeParamInfo>& params,
                                                  const TokenPtr& token) {
    std::vector<GenericTypeParam> nodeParams;
    nodeParams.reserve(params.size());
    for (const GenericTypeParamInfo& param : params) {
        nodeParams.push_back({param.name, param.constraint, param.defaultType, false, token});
    }
    return nodeParams;
}

}  // namespace vesk::compiler
