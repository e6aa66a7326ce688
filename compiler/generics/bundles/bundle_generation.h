// Bundles on their way to and from disk: making sure that one exists and lists a specialization, taking over what it lists
// into this thread's caches, and looking through an owner's bundles once per session.
//
// A bundle is locked from the first look at it until what it lists is in the caches. No body is inferred, parsed or
// generated meanwhile: a request is complete before the lock is taken, and nodes are built when the bundle's IL is.
#pragma once

#include "generics/bundles/bundle_manifest.h"
#include "host/diagnostics.h"
#include "host/model_records.h"

namespace vesk::compiler {

// Makes sure that the bundle of an owner and its type arguments exists, and that it lists `requested` (may be null); returns
// its path. Throws "Failed to generate generic method bundle for ...".
Str ensureGenericMethodBundle(const ContextPtr& context, const Str& owner, const StrVec& args, const StrVec& paramTypes,
                              const Str& methodName, bool isStatic, const StrVec& argKeys,
                              const StrVec& explicitTypeArgs, const TokenPtr& token,
                              const BundleMethodSpecialization* requested);
// Takes over what a bundle lists, after adding `requested` where it is missing. Throws "Generic method bundle has no
// requested specialization for ...".
void populateGenericMethodBundleCache(const ContextPtr& context, const Str& owner, const StrVec& args,
                                      const StrVec& paramTypes, const Str& methodName, bool isStatic,
                                      const StrVec& argKeys, const StrVec& explicitTypeArgs, const Str& bundlePath,
                                      const TokenPtr& token, const BundleMethodSpecialization* requested);
// Takes over the current bundles of an owner and the caller under way; once per session and thread.
void preloadGenericMethodManifestsForOwner(const ContextPtr& context, const Str& owner, const TokenPtr& token);

// Appends the record, with its node, of every block whose symbol is not in `specs` and that can be built again. The
// mistakes of the program that keep others from it are added to `mistakes` (may be null).
void appendManifestDeclaredSpecializations(const ContextPtr& context, const Str& owner, const StrVec& args,
                                           const GenericMethodBundleManifest& manifest, const TokenPtr& token,
                                           const Str& bundlePath, std::vector<BundleMethodSpecialization>& specs,
                                           std::vector<CompilerException>* mistakes = nullptr);
// Fills `out`, whose type arguments (and symbol) are set already, from a declaration and its specialized signature. An
// empty return type is inferred from the body.
void buildBundleMethodSpecialization(const ContextPtr& context, const Str& owner, const GenericMethodInfo& info,
                                     const StrVec& specializedParamTypes, const TokenPtr& token, const Str& returnType,
                                     BundleMethodSpecialization& out);

}  // namespace vesk::compiler
