// Names, classes and source dependencies, as the program being compiled sees them.
// All operations are static and may run on any thread; they forward to the compile session of the calling
// thread.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

struct ClassLoader {
    // The fully qualified form of a type text as seen from a scope: built-in types bare, ", " between
    // arguments, every fully concrete instantiation of a generic class flattened. Unknown names stay as
    // they are. Idempotent. Throws CompilerException for `C<>` when a parameter of C has no default.
    static Str resolveTypeName(const Str& type, const ContextPtr& context, const TokenPtr& token);
    // Qualified name of the base class of a type in any spelling, arguments and suffixes removed. Never throws.
    static Str canonicalBaseTypeName(const Str& type, const ContextPtr& context, const TokenPtr& token);
    // The file that declares a class, "" when unknown.
    static Str sourceFileForClass(const Str& name, const ContextPtr& context = nullptr,
                                  const TokenPtr& token = nullptr);
    // The file recorded for an emitted symbol, "" when unknown.
    static Str sourceFileForSymbol(const Str& symbol);

    // Loads a class's declarations. Throws CompilerException when it cannot. Does nothing for built-in types,
    // arrays, function types and type parameters.
    static void ensureClassLoaded(const Str& name, const ContextPtr& context, const TokenPtr& token);
    static void registerSyntheticSymbolSource(const Str& symbol, const Str& path);
    // Records that the unit being compiled on this thread depends on a file.
    static void trackSourceDependency(const Str& path);
    // Pausing counts: tracking goes on after as many resumes.
    static void suspendDependencyCapture();
    static void resumeDependencyCapture();
    // Loads a whole source file into a scope: its package, its imports and its declarations.
    static void loadFileIntoContext(const Str& path, const ContextPtr& context);
    // Registers a file's declarations without looking at bodies.
    static void preloadSourceDeclarations(const Str& path, const ContextPtr& context);

    // The folder under which generated sources for an owner with these arguments go.
    static Str genericOutputRootForType(const Str& owner, const StrVec& typeArgs, const Str& callerSourceUnit,
                                        const ContextPtr& context, const TokenPtr& token);
    // A generic class's parameter names and the arguments of the given instantiation (none for a raw class).
    // False for everything that is not generic.
    static bool resolveGenericTypeBindings(const Str& type, const ContextPtr& context, const TokenPtr& token,
                                           StrVec& names, StrVec& args);
    // The two halves of unflattening: true only for flattened texts that this compiler made.
    static bool resolveConcreteGenericArgs(const Str& type, StrVec& args);
    static bool resolveConcreteGenericBase(const Str& type, Str& base);
};

namespace classloader {
// The canonical spelling of a built-in type used as a generic argument; other texts come back unchanged.
Str normalizeBuiltinGenericArg(const Str& type);
// A flattened name with its clause, as the host writes it for people ("<...>" for a long one); empty for other texts.
Str shownGenericType(const Str& type);
// The class as instantiated that a scope lies in (setEnclosingClassSelfType), "" outside of classes.
Str enclosingClass(const ContextPtr& scope);
}  // namespace classloader

}  // namespace vesk::compiler
