// Finding and checking the declarations of blocks.
#include "generics/bundles/bundle_declarations.h"

#include <algorithm>

#include "generics/bundles/bundle_paths.h"
#include "generics/candidate_cache.h"
#include "generics/method_signature.h"
#include "generics/method_symbols.h"
#include "generics/specialization_record.h"
#include "generics/typetext/type_text.h"
#include "host/class_loader.h"
#include "host/context.h"
#include "host/diagnostics.h"

namespace vesk::compiler {

namespace {

Str tableKey(const Str& name, std::uint64_t overload, bool isStatic) {
    return name + "|" + std::to_string(overload) + (isStatic ? "|1" : "|0");
}

}  // namespace

GenericMethodTable::GenericMethodTable(const ContextPtr& context, const Str& owner) : context_(context) {
    if (!context) return;
    try {
        methods_ = context->getAllGenericMethods(owner);
    } catch (const CompilerException& error) {
        if (error.getKind() != CompilerErrorKind::CompileError) throw;
        return;  // the owner has none
    }
    for (std::size_t i = 0; i < methods_.size(); i++) {
        places_.insert_or_assign(tableKey(methods_[i].name, methods_[i].overloadIndex, methods_[i].isStatic), i);
    }
}

const GenericMethodInfo* GenericMethodTable::find(const GenericMethodBundleManifest::MethodSpec& block,
                                                  const GenericMethodBundleManifest& manifest) const {
    const auto found = places_.find(tableKey(block.name, block.overload, block.isStatic));
    if (found == places_.end()) return nullptr;
    const GenericMethodInfo& info = methods_[found->second];
    if (info.typeParams.size() != manifest.args.size()) return nullptr;
    return isAnothers(block.symbol, info, manifest) ? nullptr : &info;
}

// In a damaged file. A symbol of nobody's is found missing where it is asked for.
bool GenericMethodTable::isAnothers(const Str& symbol, const GenericMethodInfo& info,
                                    const GenericMethodBundleManifest& manifest) const {
    const auto isOf = [&](const GenericMethodInfo& method) {
        return symbol == genericMethodSymbolOfCaller(context_, manifest.owner, method.name, method.overloadIndex,
                                                     manifest.args, manifest.callerSourceUnit);
    };
    return !isOf(info) && std::any_of(methods_.begin(), methods_.end(), isOf);
}

bool blockFitsDeclaration(const GenericMethodBundleManifest::MethodSpec& block, const GenericMethodInfo& info,
                          const StrVec& args, const ContextPtr& context, const TokenPtr& token) {
    const auto isSameType = [&](const Str& recorded, const Str& declared) {
        return recorded == declared || resolveTypeNameOrKeep(recorded, context, token) == declared;
    };
    try {
        const SpecializedMethodSignature signature =
            specializeGenericMethodSignature(info, {}, args, context, token, nullptr);
        if (!std::equal(block.paramTypes.begin(), block.paramTypes.end(), signature.paramTypes.begin(),
                        signature.paramTypes.end(), isSameType)) {
            return false;
        }
        return info.returnType.empty() ? blockReturnTypeIsKnown(block, info, context, token)
                                       : isSameType(block.returnType, signature.returnType);
    } catch (const CompilerException&) {
        return false;
    }
}

bool blockReturnTypeIsKnown(const GenericMethodBundleManifest::MethodSpec& block, const GenericMethodInfo& info,
                            const ContextPtr& context, const TokenPtr& token) {
    if (!info.returnType.empty() || block.returnType.empty()) return true;
    try {
        ClassLoader::ensureClassLoaded(block.returnType, context, token);
        return true;
    } catch (const CompilerException&) {
        return false;
    }
}

CachedGenericMethodSpec cachedSpecialization(const GenericMethodBundleManifest::MethodSpec& block,
                                             const GenericMethodInfo& info, const GenericMethodBundleManifest& manifest,
                                             const Str& bundlePath) {
    CachedGenericMethodSpec cached;
    GenericMethodSpec& spec = cached.spec;
    spec.symbol = block.symbol;
    spec.paramTypes = block.paramTypes;
    spec.returnType = block.returnType.empty() ? "Void" : block.returnType;
    takeOverDeclaration(spec, info);
    cached.info = info;
    cached.ownerClass = info.ownerClass.empty() ? manifest.owner : info.ownerClass;
    cached.typeArgs = manifest.args;
    cached.sourcePath = bundlePath;
    cached.callerSourceUnit = manifest.callerSourceUnit;
    return cached;
}

namespace {

bool canInferEveryTypeParam(const GenericMethodInfo& info) {
    const std::vector<bool> mentioned = mentionedTypeNames(info.paramTypes, TypeParameterIndex(info.typeParams));
    return std::all_of(mentioned.begin(), mentioned.end(), [](bool isMentioned) { return isMentioned; });
}

}  // namespace

void enterSpecializationCaches(CachedGenericMethodSpec cached, const Str& owner, bool isStatic,
                               const ContextPtr& context, const TokenPtr& token, bool withAliases) {
    const Str& name = cached.info.name;
    const auto keyFor = [&](const StrVec& typeArgs) {
        return genericMethodBundleCacheKey(owner, name, isStatic, cached.spec.paramTypes, typeArgs,
                                           cached.callerSourceUnit);
    };
    ClassLoader::registerSyntheticSymbolSource(cached.spec.symbol, cached.sourcePath);
    registerGenericMethodCandidate(owner, name, isStatic, cached);
    if (withAliases) registerCommonConcreteCollectionAliases(context, token, owner, name, isStatic, cached);
    if (canInferEveryTypeParam(cached.info)) gGenericMethodSpecCache.insert_or_assign(keyFor({}), cached);
    Str key = keyFor(cached.typeArgs);
    gGenericMethodSpecCache.insert_or_assign(std::move(key), std::move(cached));
}

}  // namespace vesk::compiler
