// Where a bundle lies, under which key a specialization is cached, for whose sake a unit specializes, and when a bundle's
// object is out of date.
//
// A bundle belongs to one owner and one list of type arguments. Its identity text is
//     OWNER<gm:ARGS|params:PARAMS|caller:UNIT>        (the caller part only where there is an effective caller)
// and its file ROOT/PACKAGE/SHORTOWNER__GM_HASH.vk. Bundles in the application's own folder are kept apart by caller; those
// elsewhere are shared and have no effective caller.
#pragma once

#include "generics/generic_specializer.h"
#include "host/model_records.h"

namespace vesk::compiler {

// The bundle's path; `callerOut` (may be null) receives the effective caller. "" for an owner that is no class name, and
// where the path would leave its root.
Str genericMethodBundleSourcePath(const Str& owner, const StrVec& args, const StrVec& paramTypes,
                                  const ContextPtr& context, const TokenPtr& token, Str* callerOut);
// The same for an owner in canonical form.
Str genericMethodBundlePathOfCanonicalOwner(const Str& canonicalOwner, const StrVec& args, const StrVec& paramTypes,
                                            const ContextPtr& context, const TokenPtr& token, Str* callerOut);
// The file that is part of a bundle's identity: the caller's where the bundle lies under the application's root, else "".
// `rootOut` (may be null) receives the root. `typeList` holds the type arguments and what else decides about the root.
Str genericMethodBundleCaller(const Str& canonicalOwner, const StrVec& typeList, const ContextPtr& context,
                              const TokenPtr& token, Str* rootOut);
Str genericMethodBundleIdentity(const Str& canonicalOwner, const StrVec& args, const StrVec& paramTypes,
                                const Str& caller);
// True for names and dotted names.
bool isClassName(const Str& name);

// The key of the specialization cache.
Str genericMethodBundleCacheKey(const Str& owner, const Str& methodName, bool isStatic, const StrVec& paramTypes,
                                const StrVec& explicitTypeArgs, const Str& callerSourceUnit);

// The user's file on whose behalf the context's unit specializes: the unit's own file, or, for a bundle, the file that its
// header names.
Str genericMethodCallerSourceUnit(const ContextPtr& context, const TokenPtr& token);
// While one lives, the header of a unit is followed once for each scope of a loaded file. The driver has one per call, which
// may ask for others in turn.
class ScopedCallerUnits {
public:
    ScopedCallerUnits();
    ~ScopedCallerUnits();
    ScopedCallerUnits(const ScopedCallerUnits&) = delete;
    ScopedCallerUnits& operator=(const ScopedCallerUnits&) = delete;
};
// True when both name the same file; empty texts name none.
bool isSameSourceUnit(const Str& a, const Str& b);

}  // namespace vesk::compiler
