// The way back from hashed type names, kept beside the bundles that use them.
//
// A flattened type name that would grow too long carries a hash in the place of its arguments; what it stands for is known
// only to the compilation that made it. A bundle that mentions such names therefore has a second file beside it, with the
// ending ".names": one line for each hashed name, the name, a tab, and the type it stands for, one level deep:
//
//     app.Table__T__h0123456789abcdef0123456789abcdef<TAB>app.Table<app.Row__T_Int_cString, app.Cell__T_Int>
//
// Lines are sorted, so the same names make the same bytes. A line is believed only when the type it gives has that very name;
// a name without a line is unknown, and what mentions it is a miss.
#pragma once

#include "generics/bundles/bundle_manifest.h"
#include "host/model_records.h"

namespace vesk::compiler {

Str genericMethodBundleNamesPath(const Str& bundlePath);
// Adds the hashed names of a block, its owner and its arguments to the file beside the bundle; does nothing when there are
// none or the bundle stays in memory. The caller holds the bundle's lock. False, with the reason, when writing fails.
bool storeHashedTypeNames(const Str& bundlePath, const Str& owner, const StrVec& args,
                          const BundleMethodSpecialization& block, Str& error);
// Makes the hashed names that a manifest mentions known to this compilation.
void recallHashedTypeNames(const GenericMethodBundleManifest& manifest, const ContextPtr& context,
                           const TokenPtr& token);

}  // namespace vesk::compiler
