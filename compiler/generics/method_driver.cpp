// The driver for generic methods: from a call to the signature and symbol of a concrete method.
//
//     the memo          a call of a known shape
//     the overloads     those that the place may use
//     the caches        this thread's specializations, then the bundles of earlier compilations, then candidates
//     the choice        the overload that the call means, and its signature
//     the place         the unit under way, a bundle, or a forwarder to the run-time library
//     the record        for the calls to come
//
// A cached answer is used only where the choice could not have been another: when a single overload pairs with the
// arguments, and it has the same type arguments and parameter types. So no result depends on the order of calls.
#include <algorithm>

#include "generics/bundles/bundle_generation.h"
#include "generics/bundles/bundle_paths.h"
#include "generics/called_signature.h"
#include "generics/candidate_cache.h"
#include "generics/generic_specializer.h"
#include "generics/inference/entity_identity.h"
#include "generics/inference/literal_arguments.h"
#include "generics/method_lineage.h"
#include "generics/method_materialization.h"
#include "generics/method_memo.h"
#include "generics/method_symbols.h"
#include "generics/overload_resolution.h"
#include "generics/request_stack.h"
#include "generics/resolution_report.h"
#include "generics/source/declaration_blocks.h"
#include "generics/specialization_record.h"
#include "generics/typetext/symbol_mangling.h"
#include "generics/typetext/type_text.h"
#include "host/host_services.h"

namespace vesk::compiler {

namespace {

class MethodDriver {
public:
    MethodDriver(const ContextPtr& context, const Str& owner, const Str& method, const NodeVec& arguments,
                 const TokenPtr& token, bool isStatic, const StrVec& explicitTypeArgs)
        : argumentNodes_(arguments),
          writtenTypeArgs_(explicitTypeArgs),
          memo_(context, owner, method, token, isStatic) {
        call_.context = context;
        call_.token = token;
        call_.ownerAsPassed = call_.owner = owner;
        call_.method = method;
        call_.isStatic = isStatic;
    }

    GenericMethodSpec run() {
        if (!call_.context) throw unknownMethod();
        const ScopedCallerUnits callers;
        if (const GenericMethodSpec* remembered = fromMemo()) {
            countMethod(ResolutionOrigin::SessionCache);
            return *remembered;
        }
        if (!call_.context->isGenericMethod(call_.owner, call_.method)) {
            if (const auto candidate = fromUndeclaredOwner()) return reuse(*candidate);
        }
        findOverloads();
        completeTypeArguments();
        collectArguments();

        OverloadResolution resolution(call_, overloads_);
        if (auto cached = fromCaches(resolution)) {
            dependsOnValues_ = resolution.hasAdaptedLiterals();
            if (recordsResolutions()) resolution.choose();
            return reuse(*std::move(cached));
        }
        OverloadAttempt winner = resolution.choose();
        dependsOnValues_ = resolution.hasAdaptedLiterals();
        tellLiteralsTheirTypes(winner);
        // The choice is made: what it leads to may be there already.
        if (const auto cached = candidateLike(winner)) return reuse(*cached);
        return make(winner);
    }

private:
    CompilerException unknownMethod() const {
        return unknownGenericMethod(call_.context, call_.token, call_.ownerAsPassed, call_.method, {});
    }

    // --- the call

    const GenericMethodSpec* fromMemo() {
        if (!memo_.isKnownMethod() || recordsResolutions()) return nullptr;
        collectArguments();
        normalizeTypeArguments(writtenTypeArgs_);
        writtenShape_ = call_.explicitTypeArgs;
        return memo_.find(call_.arguments.argKeys, writtenShape_);
    }

    void collectArguments() {
        if (hasArguments_) return;
        call_.arguments = collectGenericCallArguments(argumentNodes_, call_.token);
        hasArguments_ = true;
    }

    void normalizeTypeArguments(const StrVec& typeArgs) {
        call_.explicitTypeArgs.clear();
        for (const Str& arg : typeArgs) {
            call_.explicitTypeArgs.push_back(
                normalizeExplicitGenericSpecializationArg(arg, call_.context, call_.token));
        }
    }

    // --- the overloads

    // The owner as written has no such method: its canonical class may, or a candidate is known under that name.
    std::optional<CachedGenericMethodSpec> fromUndeclaredOwner() {
        const Str canonical = ClassLoader::canonicalBaseTypeName(call_.owner, call_.context, call_.token);
        if (!canonical.empty()) call_.owner = canonical;
        collectArguments();
        normalizeTypeArguments(writtenTypeArgs_);
        call_.callerUnit = genericMethodCallerSourceUnit(call_.context, call_.token);
        if (auto candidate = candidateWithoutOverloads()) return candidate;
        if (!call_.context->isGenericMethod(call_.owner, call_.method)) throw unknownMethod();
        return std::nullopt;
    }

    void findOverloads() {
        std::vector<GenericMethodInfo> all = genericMethodOverloads(call_.context, call_.owner, call_.method);
        if (all.empty()) throw unknownMethod();
        overloads_.reserve(all.size());
        for (GenericMethodInfo& info : all) {
            if (info.visibility != MemberVisibility::Public) allPublic_ = false;
            if (isAccessible(info)) overloads_.push_back(std::move(info));
        }
        if (overloads_.empty()) throw inaccessibleGenericMethod(call_.token, call_.owner, call_.method, all);
    }

    bool isAccessible(const GenericMethodInfo& info) const {
        return call_.context->canAccessVisibility(declaringClass(info, call_.owner), info.visibility);
    }

    void completeTypeArguments() {
        normalizeTypeArguments(completeEntityManagerIdentityTypeArguments(call_.context, call_.token, call_.owner,
                                                                          call_.method, writtenTypeArgs_));
        if (writtenShape_.empty()) {
            for (const Str& arg : writtenTypeArgs_) {
                writtenShape_.push_back(normalizeExplicitGenericSpecializationArg(arg, call_.context, call_.token));
            }
        }
        if (Str canonical = canonicalOwnerClassName(call_.context, call_.token, call_.owner); !canonical.empty()) {
            call_.owner = std::move(canonical);
        }
        call_.callerUnit = genericMethodCallerSourceUnit(call_.context, call_.token);
    }

    // --- the caches

    std::optional<CachedGenericMethodSpec> fromCaches(OverloadResolution& resolution) {
        if (const auto hit = specializationHit(resolution)) return hit;
        preload();
        if (const auto hit = specializationHit(resolution)) return hit;
        if (auto candidate = candidateHit(resolution)) {
            gGenericMethodSpecCache[specializationKey(call_.owner, candidate->callerSourceUnit)] = *candidate;
            return candidate;
        }
        return std::nullopt;
    }

    void preload() {
        preloadGenericMethodManifestsForOwner(call_.context, call_.owner, call_.token);
        Str previous = call_.owner;
        for (const GenericMethodInfo& info : overloads_) {
            const Str declaring = declaringClass(info, call_.owner);
            if (declaring != previous) preloadGenericMethodManifestsForOwner(call_.context, declaring, call_.token);
            previous = declaring;
        }
    }

    Str specializationKey(const Str& owner, const Str& caller) const {
        const bool isNamed = std::any_of(call_.arguments.argNames.begin(), call_.arguments.argNames.end(),
                                         [](const Str& name) { return !name.empty(); });
        return genericMethodBundleCacheKey(owner, call_.method, call_.isStatic,
                                           isNamed ? call_.arguments.argKeys : call_.arguments.argTypes,
                                           call_.explicitTypeArgs, caller);
    }

    std::optional<CachedGenericMethodSpec> specializationHit(OverloadResolution& resolution) const {
        Str previous;
        for (const Str& caller : {std::cref(call_.callerUnit), std::cref(NO_CALLER)}) {
            const Str key = specializationKey(call_.owner, caller);
            if (key == previous) break;
            const auto found = gGenericMethodSpecCache.find(key);
            if (found != gGenericMethodSpecCache.end()) {
                const CachedGenericMethodSpec& cached = found->second;  // stays where it is when others come in
                const OverloadAttempt* attempt = resolution.onlyCandidate();
                if (attempt && isThisSpecialization(cached, *attempt)) return cached;
            }
            previous = key;
        }
        return std::nullopt;
    }

    bool isThisSpecialization(const CachedGenericMethodSpec& cached, const OverloadAttempt& attempt) const {
        const bool isSameReturn =
            attempt.signature.returnType.empty() || cached.spec.returnType == attempt.signature.returnType;
        return isSameReturn && isSameDeclaration(cached.info, attempt.info, call_.owner) &&
               cached.typeArgs == attempt.signature.typeArgs && cached.spec.paramTypes == attempt.signature.paramTypes;
    }

    // A candidate that is registered under this owner or under the class that declares the overload.
    std::optional<CachedGenericMethodSpec> candidateHit(OverloadResolution& resolution) const {
        const OverloadAttempt* attempt = resolution.onlyCandidate();
        return attempt ? candidateLike(*attempt) : std::nullopt;
    }

    std::optional<CachedGenericMethodSpec> candidateLike(const OverloadAttempt& attempt) const {
        const Str declaring = declaringClass(attempt.info, call_.owner);
        const CachedGenericMethodSpec* found = candidateUnder(call_.owner, attempt);
        if (!found && declaring != call_.owner) found = candidateUnder(declaring, attempt);
        return found ? std::optional(*found) : std::nullopt;
    }

    const CachedGenericMethodSpec* candidateUnder(const Str& owner, const OverloadAttempt& attempt) const {
        const Str* previous = nullptr;
        for (const Str& caller : {std::cref(call_.callerUnit), std::cref(NO_CALLER)}) {
            if (previous && caller == *previous) break;
            const Str key = genericMethodCandidateCacheKey(owner, call_.method, call_.isStatic, caller);
            for (const std::size_t place : genericMethodCandidatesWithTypeArgs(key, attempt.signature.typeArgs)) {
                const CachedGenericMethodSpec& cached = gGenericMethodCandidateCache[key][place];
                if (isThisSpecialization(cached, attempt)) return &cached;
            }
            previous = &caller;
        }
        return nullptr;
    }

    // The owner's declarations are not known; those of its candidates stand for them.
    std::optional<CachedGenericMethodSpec> candidateWithoutOverloads() const {
        std::vector<GenericMethodInfo> declarations;
        for (const Str& caller : {std::cref(call_.callerUnit), std::cref(NO_CALLER)}) {
            const auto found = gGenericMethodCandidateCache.find(
                genericMethodCandidateCacheKey(call_.owner, call_.method, call_.isStatic, caller));
            if (found == gGenericMethodCandidateCache.end()) continue;
            for (const CachedGenericMethodSpec& cached : found->second) {
                const bool isKnown = std::any_of(
                    declarations.begin(), declarations.end(),
                    [&](const GenericMethodInfo& info) { return isSameDeclaration(info, cached.info, call_.owner); });
                if (!isKnown) declarations.push_back(cached.info);
            }
        }
        std::erase_if(declarations, [&](const GenericMethodInfo& info) { return !isAccessible(info); });
        if (declarations.empty()) return std::nullopt;
        OverloadResolution resolution(call_, std::move(declarations));
        const OverloadAttempt* best = resolution.best();
        if (!best) return std::nullopt;
        auto candidate = candidateLike(*best);
        if (candidate)
            gGenericMethodSpecCache[specializationKey(call_.owner, candidate->callerSourceUnit)] = *candidate;
        return candidate;
    }

    // A cached specialization, registered again where this unit does not have it.
    GenericMethodSpec reuse(CachedGenericMethodSpec cached) {
        const Str declaring = declaringClass(cached.info, call_.owner);
        const Str unit = receivingUnit(call_.context, call_.token);
        GenericMethodSpec& spec = cached.spec;
        if (spec.isNative) {
            spec.symbol = genericNativeMethodLocalSymbol(call_.context, declaring, call_.method,
                                                         cached.info.overloadIndex, cached.typeArgs, call_.token);
        }
        ResolutionOrigin origin = ResolutionOrigin::SessionCache;
        Str sourcePath;
        if (!unit.empty() && !call_.context->hasSpecializedMethodForUnit(unit, spec.symbol)) {
            checkTypeArgumentsLength(cached.info.name, declaring, cached.typeArgs, call_.context, call_.token);
            const Str key = requestKey(spec);
            if (SpecializationRequest::isUnderWay(key)) return promise(cached.info, declaring, cached.typeArgs, spec);
            const SpecializationRequest request(
                key, requestedGenericMethod(cached.info, declaring, cached.typeArgs, call_.token), call_.context);
            if (spec.isNative) {
                registerNative(unit, declaring, cached.info,
                               rebuildCachedNativeGenericMethod(cached, call_.context, call_.token), spec,
                               cached.typeArgs);
            } else if (!emitGenericMethodSpecializationInCurrentUnit(call_.context, call_.token, declaring,
                                                                     call_.method, cached.info, nullptr, spec,
                                                                     cached.typeArgs)) {
                sourcePath = useBundleOf(cached, declaring);
                origin = ResolutionOrigin::StoredBundle;
            }
        }
        remember(spec, sourcePath);
        reportResult(spec, origin, sourcePath.empty() ? unit : sourcePath);
        return spec;
    }

    // The bundle that lists a cached specialization becomes a dependency of this unit. One that only another unit holds is
    // put into a bundle, so that what a unit depends on follows from its text; so is one whose bundle is gone.
    Str useBundleOf(const CachedGenericMethodSpec& cached, const Str& declaring) {
        const StrVec listed = isKeptGenericMethodBundle(cached.sourcePath)
                                  ? genericMethodBundleDeclaredSymbols(cached.sourcePath)
                                  : StrVec();
        if (!std::binary_search(listed.begin(), listed.end(), cached.spec.symbol)) {
            OverloadAttempt attempt;
            attempt.info = cached.info;
            attempt.signature = {cached.typeArgs, cached.spec.paramTypes, cached.spec.returnType};
            return putIntoBundle(attempt, declaring, cached.spec);
        }
        makeKnown(cached.info, declaring, cached.typeArgs, cached.spec);
        ClassLoader::registerSyntheticSymbolSource(cached.spec.symbol, cached.sourcePath);
        ClassLoader::trackSourceDependency(cached.sourcePath);
        return cached.sourcePath;
    }

    // The host calls what a bundle holds by its signature.
    void makeKnown(const GenericMethodInfo& info, const Str& declaring, const StrVec& typeArgs,
                   const GenericMethodSpec& spec) const {
        call_.context->addExternalSpecializedMethod(
            declaring, spec.symbol, calledMethodSignature(info, declaring, typeArgs, spec, call_.context, call_.token));
    }

    // --- the place

    // A literal bound to a parameter takes that parameter's type.
    void tellLiteralsTheirTypes(const OverloadAttempt& winner) const {
        const std::vector<int>& paramToArg = winner.binding.paramToArg;
        for (std::size_t i = 0; i < paramToArg.size() && i < winner.signature.paramTypes.size(); i++) {
            if (paramToArg[i] < 0) continue;
            const std::size_t arg = static_cast<std::size_t>(paramToArg[i]);
            const NodePtr& node = call_.arguments.argInfos[arg].node;
            if (isLiteralArgument(node))
                inferExpectedLiteralType(node, winner.signature.paramTypes[i], call_.arguments.argTypes[arg]);
        }
    }

    GenericMethodSpec specOf(const OverloadAttempt& winner) const {
        GenericMethodSpec spec;
        spec.paramTypes = winner.signature.paramTypes;
        spec.returnType = winner.signature.returnType;
        takeOverDeclaration(spec, winner.info);
        return spec;
    }

    // While a specialization is made, its own body may ask for it. By what that asks, it is the same for one unit.
    Str requestKey(const GenericMethodSpec& spec) const {
        return "made\n" + receivingUnit(call_.context, call_.token) + "\n" + spec.symbol;
    }

    // What is being made further out: it will be there, and is called by its signature.
    GenericMethodSpec promise(const GenericMethodInfo& info, const Str& declaring, const StrVec& typeArgs,
                              const GenericMethodSpec& spec) {
        makeKnown(info, declaring, typeArgs, spec);
        reportResult(spec, ResolutionOrigin::SessionCache, receivingUnit(call_.context, call_.token));
        return spec;
    }

    GenericMethodSpec make(OverloadAttempt& winner) {
        const Str declaring = declaringClass(winner.info, call_.owner);
        checkTypeArgumentsLength(winner.info.name, declaring, winner.signature.typeArgs, call_.context, call_.token);
        CachedGenericMethodSpec placed = unplaced(winner, declaring);
        const Str key = requestKey(placed.spec);
        if (SpecializationRequest::isUnderWay(key))
            return promise(placed.info, declaring, placed.typeArgs, placed.spec);
        const SpecializationRequest request(
            key, requestedGenericMethod(winner.info, declaring, winner.signature.typeArgs, call_.token), call_.context);
        place(winner, placed);
        return record(placed);
    }

    // All that the caches keep of the winner, but for its place.
    CachedGenericMethodSpec unplaced(const OverloadAttempt& winner, const Str& declaring) const {
        CachedGenericMethodSpec placed;
        placed.spec = specOf(winner);
        placed.info = winner.info;
        placed.ownerClass = declaring;
        placed.typeArgs = winner.signature.typeArgs;
        placed.callerSourceUnit =
            genericMethodBundleCaller(canonicalOwnerClassName(call_.context, call_.token, declaring), placed.typeArgs,
                                      call_.context, call_.token, nullptr);
        placed.spec.symbol =
            winner.info.isNative
                ? genericNativeMethodLocalSymbol(call_.context, declaring, call_.method, winner.info.overloadIndex,
                                                 placed.typeArgs, call_.token)
                : genericMethodBundleSymbol(call_.context, declaring, call_.method, winner.info.overloadIndex,
                                            placed.typeArgs, call_.token);
        return placed;
    }

    void place(OverloadAttempt& winner, CachedGenericMethodSpec& placed) {
        const Str& declaring = placed.ownerClass;
        if (winner.info.isNative) {
            placeNative(winner, declaring, placed.spec);
            return;
        }
        const Str unit = receivingUnit(call_.context, call_.token);
        const bool isThere = !unit.empty() && call_.context->hasSpecializedMethodForUnit(unit, placed.spec.symbol);
        if (emitGenericMethodSpecializationInCurrentUnit(call_.context, call_.token, declaring, call_.method,
                                                         winner.info, winner.node, placed.spec, placed.typeArgs)) {
            placed.sourcePath = unit;
            origin_ = isThere ? ResolutionOrigin::Unit : ResolutionOrigin::CurrentUnit;
            return;
        }
        if (declaresInUnit(winner.info)) throw unloadableGenericMethod(call_.token, call_.owner, call_.method);
        placed.sourcePath = putIntoBundle(winner, declaring, placed.spec);
        origin_ = ResolutionOrigin::NewBundle;
    }

    // True where emission can only have failed because the declaration could not be read again.
    bool declaresInUnit(const GenericMethodInfo& info) const {
        return !info.sourceFile.empty() && receivingUnit(call_.context, call_.token) == info.sourceFile;
    }

    void placeNative(const OverloadAttempt& winner, const Str& declaring, const GenericMethodSpec& spec) {
        origin_ = ResolutionOrigin::Native;
        const Str unit = receivingUnit(call_.context, call_.token);
        if (call_.context->hasSpecializedMethodForUnit(unit, spec.symbol)) return;
        std::shared_ptr<MethodNode> node = winner.node;
        if (!node) node = syntheticGenericMethod(winner.info, call_.context, call_.token);
        node->setParamTypes(spec.paramTypes);
        node->setReturnType(spec.returnType);
        registerNative(unit, declaring, winner.info, std::move(node), spec, winner.signature.typeArgs);
    }

    void registerNative(const Str& unit, const Str& declaring, const GenericMethodInfo& info,
                        std::shared_ptr<MethodNode> node, const GenericMethodSpec& spec, const StrVec& typeArgs) const {
        applyCompileUnitToNode(unit, node);
        node->setTypeArguments(typeArgs);
        const Str target =
            nativeMethodTargetSymbol(call_.context, declaring, call_.method, info.overloadIndex, call_.token);
        call_.context->addSpecializedMethodForUnit(unit, declaring, spec.symbol, std::move(node), target);
    }

    Str putIntoBundle(const OverloadAttempt& winner, const Str& declaring, const GenericMethodSpec& spec) {
        BundleMethodSpecialization requested;
        requested.info = winner.info;
        requested.declaration = winner.node;
        requested.symbol = spec.symbol;
        requested.paramTypes = spec.paramTypes;
        requested.returnType = spec.returnType;
        takeOverDeclaration(requested, winner.info);
        requested.typeArgs = winner.signature.typeArgs;
        requested.sourcePath = winner.info.sourceFile;
        const Str path =
            ensureGenericMethodBundle(call_.context, declaring, requested.typeArgs, {}, call_.method, call_.isStatic,
                                      keysAsTaken(winner.info, spec), call_.explicitTypeArgs, call_.token, &requested);
        makeKnown(winner.info, declaring, requested.typeArgs, spec);
        return path;
    }

    // The arguments' keys, with the types that literals have taken in their places.
    StrVec keysAsTaken(const GenericMethodInfo& info, const GenericMethodSpec& spec) const {
        const std::vector<CallArgInfo>& arguments = call_.arguments.argInfos;
        StrVec types = call_.arguments.argTypes;
        CallArgumentBinding binding;
        if (!bindGenericCall(call_.arguments.argNames, info.paramNames, info.paramCount, info.defaultValueTokens,
                             info.isVariadic, info.variadicIndex, info.isNamedVariadic, info.namedVariadicIndex,
                             binding)) {
            return call_.arguments.argKeys;
        }
        for (std::size_t p = 0; p < std::min(binding.paramToArg.size(), spec.paramTypes.size()); p++) {
            if (binding.paramToArg[p] < 0) continue;
            const std::size_t argument = static_cast<std::size_t>(binding.paramToArg[p]);
            if (isLiteralArgument(arguments[argument].node))
                types[argument] =
                    inferExpectedLiteralType(arguments[argument].node, spec.paramTypes[p], types[argument]);
        }
        const auto adapt = [&](bool isThere, int index, const std::vector<int>& collected) {
            if (!isThere || index < 0) return;
            adaptCollectedLiterals(arguments, collected, spec.paramTypes[static_cast<std::size_t>(index)], types,
                                   call_.context, call_.token);
        };
        adapt(info.isVariadic, info.variadicIndex, binding.variadicArgs);
        adapt(info.isNamedVariadic, info.namedVariadicIndex, binding.namedVariadicArgs);
        StrVec keys;
        for (std::size_t i = 0; i < types.size(); i++)
            keys.push_back(callArgumentKey(call_.arguments.argNames[i], types[i]));
        return keys;
    }

    // --- the record

    GenericMethodSpec record(const CachedGenericMethodSpec& placed) {
        const Str& declaring = placed.ownerClass;
        gGenericMethodSpecCache[specializationKey(call_.owner, placed.callerSourceUnit)] = placed;
        registerGenericMethodCandidate(call_.owner, call_.method, call_.isStatic, placed);
        registerCommonConcreteCollectionAliases(call_.context, call_.token, call_.owner, call_.method, call_.isStatic,
                                                placed);
        if (declaring != call_.owner) {
            gGenericMethodSpecCache[specializationKey(declaring, placed.callerSourceUnit)] = placed;
            registerGenericMethodCandidate(declaring, call_.method, call_.isStatic, placed);
        }
        if (!placed.sourcePath.empty()) {
            ClassLoader::registerSyntheticSymbolSource(placed.spec.symbol, placed.sourcePath);
            ClassLoader::trackSourceDependency(placed.sourcePath);
        }
        if (!placed.info.sourceFile.empty()) ClassLoader::trackSourceDependency(placed.info.sourceFile);
        remember(placed.spec, isKeptGenericMethodBundle(placed.sourcePath) ? placed.sourcePath : Str());
        reportResult(placed.spec, origin_, placed.sourcePath);
        return placed.spec;
    }

    void remember(const GenericMethodSpec& spec, const Str& bundlePath) {
        if (allPublic_ && !dependsOnValues_ && !overloads_.empty())
            memo_.remember(call_.arguments.argKeys, writtenShape_, spec, bundlePath);
    }

    void reportResult(const GenericMethodSpec& spec, ResolutionOrigin origin, const Str& sourcePath) const {
        countMethod(origin);
        ResolutionReport* const current = ReportedResolution::current();
        if (!current) return;
        ResolutionReport& report = *current;
        report.owner = call_.owner;
        report.argumentTypes = call_.arguments.argTypes;
        report.symbol = spec.symbol;
        report.returnType = spec.returnType;
        report.origin = origin;
        report.sourcePath = sourcePath;
        report.failed = false;
    }

    inline static const Str NO_CALLER;

    const NodeVec& argumentNodes_;
    const StrVec& writtenTypeArgs_;
    StrVec writtenShape_;  // the written type arguments, normalized: part of the memo's key
    MethodCallMemo memo_;
    GenericMethodCall call_;
    std::vector<GenericMethodInfo> overloads_;  // that this place may use
    bool hasArguments_ = false, allPublic_ = true;
    bool dependsOnValues_ = false;  // of literals: another call of this shape may mean another overload
    ResolutionOrigin origin_ = ResolutionOrigin::CurrentUnit;
};

}  // namespace

GenericMethodSpec ensureGenericMethodSpecialization(const ContextPtr& context, const Str& owner, const Str& method,
                                                    const NodeVec& arguments, const TokenPtr& token, bool staticCall,
                                                    const StrVec& explicitTypeArguments) {
    const auto resolve = [&] {
        return MethodDriver(context, owner, method, arguments, token, staticCall, explicitTypeArguments).run();
    };
    if (!recordsResolutions()) return resolve();
    ReportedResolution report(owner, method, staticCall, token);
    try {
        return resolve();
    } catch (const CompilerException& error) {
        report.fail(error.what());
        throw;
    }
}

}  // namespace vesk::compiler
