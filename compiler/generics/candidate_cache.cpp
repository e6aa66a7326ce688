// The candidate vectors, and an index beside them that keeps registering and finding cheap however many there are.
#include "generics/candidate_cache.h"

#include "generics/bundles/bundle_paths.h"
#include "generics/typetext/native_binding_registry.h"
#include "generics/typetext/type_text.h"
#include "host/class_loader.h"
#include "host/context.h"

namespace vesk::compiler {

namespace {

// What one key's vector holds. `size` is the length of the vector that was indexed: where it differs, the vector was
// cleared or filled by somebody else, and the index is made anew.
struct CandidateIndex {
    std::size_t size = 0;
    std::unordered_map<Str, std::vector<std::size_t>> placesByTypeArgs;
};
thread_local std::unordered_map<Str, CandidateIndex> gCandidateIndexes;

void addToIndex(CandidateIndex& index, const CachedGenericMethodSpec& cached) {
    index.placesByTypeArgs[joinTypes(cached.typeArgs)].push_back(index.size++);
}

CandidateIndex& indexOf(const Str& key, const std::vector<CachedGenericMethodSpec>& candidates) {
    CandidateIndex& index = gCandidateIndexes[key];
    if (index.size != candidates.size()) {
        index = {};
        for (const CachedGenericMethodSpec& cached : candidates) addToIndex(index, cached);
    }
    return index;
}

bool isSameSpecialization(const CachedGenericMethodSpec& a, const CachedGenericMethodSpec& b) {
    return a.spec.symbol == b.spec.symbol && a.spec.paramTypes == b.spec.paramTypes && a.typeArgs == b.typeArgs;
}

Str qualified(const Str& name, const ContextPtr& context) {
    if (!context || name.empty() || name.find('.') != Str::npos) return name;
    const Str package = context->getClassPackage(name);
    return package.empty() ? name : package + "." + name;
}

}  // namespace

Str genericMethodCandidateCacheKey(const Str& owner, const Str& methodName, bool isStatic,
                                   const Str& callerSourceUnit) {
    Str key = owner + "|" + methodName + (isStatic ? "|1" : "|0");
    if (!callerSourceUnit.empty()) key += "|caller:" + callerSourceUnit;
    return key;
}

void registerGenericMethodCandidate(const Str& owner, const Str& methodName, bool isStatic,
                                    const CachedGenericMethodSpec& cached) {
    const Str key = genericMethodCandidateCacheKey(owner, methodName, isStatic, cached.callerSourceUnit);
    std::vector<CachedGenericMethodSpec>& candidates = gGenericMethodCandidateCache[key];
    CandidateIndex& index = indexOf(key, candidates);
    if (const auto places = index.placesByTypeArgs.find(joinTypes(cached.typeArgs));
        places != index.placesByTypeArgs.end()) {
        for (const std::size_t place : places->second) {
            if (isSameSpecialization(candidates[place], cached)) return;
        }
    }
    candidates.push_back(cached);
    addToIndex(index, cached);
}

std::vector<std::size_t> genericMethodCandidatesWithTypeArgs(const Str& key, const StrVec& typeArgs) {
    const auto candidates = gGenericMethodCandidateCache.find(key);
    if (candidates == gGenericMethodCandidateCache.end()) return {};
    const CandidateIndex& index = indexOf(key, candidates->second);
    std::vector<std::size_t> places;
    if (const auto found = index.placesByTypeArgs.find(joinTypes(typeArgs)); found != index.placesByTypeArgs.end()) {
        for (const std::size_t place : found->second) {
            if (candidates->second[place].typeArgs == typeArgs) places.push_back(place);
        }
    }
    return places;
}

void registerCommonConcreteCollectionAliases(const ContextPtr& context, const TokenPtr& token, const Str& owner,
                                             const Str& methodName, bool isStatic,
                                             const CachedGenericMethodSpec& cached) {
    if (!context || cached.spec.paramTypes.size() != 1) return;
    // Most parameters are no instantiations.
    const Str& written = cached.spec.paramTypes.front();
    if (written.find(FLATTENED_TYPE_MARKER) == Str::npos && written.find('<') == Str::npos) return;
    // The argument may lie in a cache that the host makes us change.
    const CachedGenericMethodSpec entry = cached;  // NOLINT(performance-unnecessary-copy-initialization)
    const Str& parameterType = entry.spec.paramTypes.front();
    StrVec names, args;
    if (!ClassLoader::resolveGenericTypeBindings(parameterType, context, token, names, args) || args.empty()) return;
    const Str base = ClassLoader::canonicalBaseTypeName(parameterType, context, token);
    const auto* family = base.empty() ? nullptr : NativeBindingRegistry::findType(base);
    if (!family || family->family == 0) return;

    const Str clause = "<" + joinTypes(args) + ">";
    for (const NativeBindingRegistry::TypeInfo& row : NativeBindingRegistry::nativeBindingTypes()) {
        if (row.family != family->family || !row.isConcreteCollection || !row.inCollectionsPackage) continue;
        const Str resolved = ClassLoader::resolveTypeName(Str(row.qualifiedName) + clause, context, token);
        if (resolved.empty()) continue;
        gGenericMethodSpecCache[genericMethodBundleCacheKey(owner, methodName, isStatic, {resolved}, {},
                                                            entry.callerSourceUnit)] = entry;
    }
}

Str canonicalOwnerClassName(const ContextPtr& context, const TokenPtr& token, const Str& owner) {
    const Str resolved = context ? resolveTypeNameOrKeep(owner, context, token) : owner;
    if (resolved.find(FLATTENED_TYPE_MARKER) != Str::npos) return qualified(resolved, context);
    return qualified(ClassLoader::canonicalBaseTypeName(resolved, context, token), context);
}

}  // namespace vesk::compiler
