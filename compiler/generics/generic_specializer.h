// The generic specializer as the rest of the compiler sees it: give it a call of something generic, get back the symbol
// of a concrete function that the unit under way will hold.
//
//     ScopedSpecializationUnit unit(path);                      // while compiling one unit
//     symbol = ensureGenericFunctionSpecialization(scope, "pick", arguments, callToken, {});
//
// Everything works on the calling thread's own state; errors in the program are CompilerExceptions at the call's token.
#pragma once

#include "host/diagnostics.h"
#include "host/model_records.h"

namespace vesk::compiler {

// The declared type of a variable whose type is left to inference.
inline const Str AUTO_TYPED_VAR{AUTO_TYPE_MARKER};

// Makes a concrete function of a generic one for this call, or finds it, and returns its symbol.
Str ensureGenericFunctionSpecialization(const ContextPtr& context, const Str& name, const NodeVec& arguments,
                                        const TokenPtr& token, const StrVec& explicitTypeArguments);
// The same for a generic method of `owner`; answers the specialized signature.
GenericMethodSpec ensureGenericMethodSpecialization(const ContextPtr& context, const Str& owner, const Str& method,
                                                    const NodeVec& arguments, const TokenPtr& token, bool staticCall,
                                                    const StrVec& explicitTypeArguments);

// Forgets everything specialized on this thread. Between compilations; open units stay open.
void resetGenericSpecializerSession();

// Makes a file the unit that receives this thread's specializations, for its own lifetime; scopes nest.
class ScopedSpecializationUnit {
public:
    explicit ScopedSpecializationUnit(const Str& unitPath);
    ~ScopedSpecializationUnit();
    ScopedSpecializationUnit(const ScopedSpecializationUnit&) = delete;
    ScopedSpecializationUnit& operator=(const ScopedSpecializationUnit&) = delete;

private:
    Str previous_;
};

// True while somebody records how calls are resolved (resolution_report.h): then no call is answered from a memory of the
// caller's own.
bool recordsResolutions();

// The note that an error inside a specialization carries for each request, innermost first.
DiagnosticNote specializationRequestNote(const Str& displayName, const TokenPtr& requestToken);
// The error where a chain of requests has grown too long; the requests follow as notes.
CompilerException nestedTooDeeplyError(const TokenPtr& token);
// Type texts that together are longer end a request: a chain whose types double at each step (`Pair<T, T>`) comes to this
// long before its depth.
inline constexpr std::size_t MAX_TYPE_ARGUMENTS_TEXT = 1 << 16;
CompilerException typeArgumentsTooLongError(const Str& name, const TokenPtr& token);
// Throws that error. `owner` is the class as instantiated, "" for functions.
void checkTypeArgumentsLength(const Str& name, const Str& owner, const StrVec& typeArgs, const ContextPtr& context,
                              const TokenPtr& token);
// A generic callable with its arguments as people read it: "pick<vesk.collections.List<Int>>"; very long ones are cut.
Str specializationDisplayName(const Str& name, const StrVec& typeArgs);

// --- generic method bundles: generated sources that record which specializations of one owner's methods exist ---------

// By name alone: the stem holds "__GM_" or "__gm_".
bool isGenericMethodBundlePath(const Str& path);
// Whether the compiler keeps this file as a bundle: below the folders of generated sources, or in memory under a bundle's
// name. Only there are manifest lines more than comments.
bool isKeptGenericMethodBundle(const Str& path);
// By content: the file begins with a valid manifest.
bool isGenericMethodBundleSource(const Str& path);
// True when the object of a bundle is missing, or older than the owner's source or the caller's. False for other files.
bool genericMethodBundleObjectNeedsRebuild(const Str& bundlePath, const Str& objectPath);
// The symbols that a bundle defines, sorted; empty for other files.
StrVec genericMethodBundleDeclaredSymbols(const Str& path);

// Keeps one bundle, or what is made from it, to the thread that holds it, across threads and processes. Nests within a
// thread. Throws runtime_error when the lock file cannot be made.
class GenericMethodBundleArtifactLock {
public:
    explicit GenericMethodBundleArtifactLock(const Str& path);
    ~GenericMethodBundleArtifactLock();
    GenericMethodBundleArtifactLock(const GenericMethodBundleArtifactLock&) = delete;
    GenericMethodBundleArtifactLock& operator=(const GenericMethodBundleArtifactLock&) = delete;

    struct State;

private:
    std::unique_ptr<State> state_;
};

// Registers those specializations of a bundle that are wanted, and returns the unit name they are registered under. What
// their bodies ask for is registered for the bundle's path. Others may stand in the bundle whose bodies are wrong for
// their types: nobody asks for them. Doing it again adds what is new. Methods that cannot be parsed or have mistakes in
// their headers are left out, with the mistakes in `mistakes`. Throws as below.
Str registerGenericMethodBundle(const Str& path, const ContextPtr& context, const StrVec& wantedSymbols,
                                std::vector<CompilerException>& mistakes);
// The IL of everything that a bundle lists, as one unit. `context` is the parent of the unit's scope and may be null.
// Throws runtime_error when the bundle, its caller or one of its specializations is not what the manifest says.
Str buildGenericMethodBundleIL(const Str& path, const ContextPtr& context);
// Makes a bundle that cannot be built right again: only what still fits its declarations, and what this thread has asked
// of it, stays listed. False when nothing is left.
bool regenerateGenericMethodBundle(const Str& path, const ContextPtr& context);

// The word for an operator as part of a symbol, and a method's name as part of a symbol.
Str mangleOperatorSymbol(const Str& op);
Str mangleMethodName(const Str& name);

}  // namespace vesk::compiler
