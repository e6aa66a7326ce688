// Matching the blocks of a manifest with the declarations they were made from.
#pragma once

#include "generics/bundles/bundle_manifest.h"
#include "generics/session_state.h"
#include "host/model_records.h"

namespace vesk::compiler {

// An owner's generic methods, found by name, overload number and static flag.
class GenericMethodTable {
public:
    // Every generic method of the owner; empty where the host knows none.
    GenericMethodTable(const ContextPtr& context, const Str& owner);

    bool empty() const { return methods_.empty(); }
    // Null where there is no such method, it has another number of type parameters, or the block's symbol is that
    // of another of the owner's methods.
    const GenericMethodInfo* find(const GenericMethodBundleManifest::MethodSpec& block,
                                  const GenericMethodBundleManifest& manifest) const;

private:
    bool isAnothers(const Str& symbol, const GenericMethodInfo& info,
                    const GenericMethodBundleManifest& manifest) const;

    ContextPtr context_;
    std::vector<GenericMethodInfo> methods_;
    std::unordered_map<Str, std::size_t> places_;
};

// True when the declaration, with these type arguments, still has the signature that the block records. A block of an older
// or a damaged file does not.
bool blockFitsDeclaration(const GenericMethodBundleManifest::MethodSpec& block, const GenericMethodInfo& info,
                          const StrVec& args, const ContextPtr& context, const TokenPtr& token);

// The part of that for blocks whose signature is compared where it is used: an inferred return type still means something.
bool blockReturnTypeIsKnown(const GenericMethodBundleManifest::MethodSpec& block, const GenericMethodInfo& info,
                            const ContextPtr& context, const TokenPtr& token);

// A block as an entry of the caches.
CachedGenericMethodSpec cachedSpecialization(const GenericMethodBundleManifest::MethodSpec& block,
                                             const GenericMethodInfo& info, const GenericMethodBundleManifest& manifest,
                                             const Str& bundlePath);
// Enters a bundle's specialization under its explicit type arguments and, where calls without them can lead to it, without;
// and as a candidate. `withAliases`: for the other collections of its parameter's family, too.
void enterSpecializationCaches(CachedGenericMethodSpec cached, const Str& owner, bool isStatic,
                               const ContextPtr& context, const TokenPtr& token, bool withAliases);

}  // namespace vesk::compiler
