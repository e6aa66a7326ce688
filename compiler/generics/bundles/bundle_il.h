// Compiling a bundle: everything its manifest lists becomes one unit's IL. The entry point is exported by
// generic_specializer.h.
#pragma once

#include "generics/bundles/bundle_manifest.h"
#include "generics/generic_specializer.h"
#include "host/model_records.h"

namespace vesk::compiler {

// The name under which a bundle's specializations are registered.
Str genericMethodBundleUnitName(const Str& path);
// A scope that sees what the bundle's caller and the owner's file see. Throws "Stale generic method bundle caller
// source: ..." when the caller is gone.
ContextPtr genericMethodBundleContext(const GenericMethodBundleManifest& manifest, const ContextPtr& parent);
// Symbols that the manifest lists and `specs` lack, in the manifest's order.
StrVec missingBundleSymbols(const GenericMethodBundleManifest& manifest,
                            const std::vector<BundleMethodSpecialization>& specs);
Str missingBundleSymbolsMessage(const StrVec& symbols);

}  // namespace vesk::compiler
