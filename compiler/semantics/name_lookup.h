// What a name means at a place.
// Order: type parameters, locals, members, the file, its package, imported packages in order, package `vesk`, then fully
// qualified names. A scope of a re-parsed declaration, or one with an enclosing class, looks in the declaring file before
// its parents.
#pragma once

#include "semantics/compile_session.h"

namespace vesk::compiler {

// The type that a text means as seen from a scope. Unknown names, and `C<>` without defaults, become Unknown types that
// keep their spelling; never throws. The environment (may be null) gives type parameters their arguments.
const Type* resolveType(std::string_view text, const ContextPtr& scope, const TypeEnvironment* environment = nullptr);
// The same for source text: an unknown name, a wrong number of arguments, a raw generic class without defaults, and a
// name found in two imported packages are errors at `token`, with a near-match hint.
const Type* resolveDeclaredType(std::string_view text, const ContextPtr& scope, const TokenPtr& token,
                                const TypeEnvironment* environment = nullptr);

// A class by simple or qualified name as seen from a scope, null when there is none. `ambiguous` (may be null) receives the
// class of another imported package that has the name as well.
ClassDeclaration* lookupClass(std::string_view name, const ContextPtr& scope, ClassDeclaration** ambiguous = nullptr);
// Whether a name is a type parameter as seen from a scope.
bool isTypeParameterAt(std::string_view name, const ContextPtr& scope);
// All overloads of a free function as seen from a scope: the innermost package that has the name. Also qualified names.
std::vector<FunctionDeclaration*> lookupFunctions(std::string_view name, const ContextPtr& scope);
// When a simple name comes from two imported packages of one file: "'x' is ambiguous: ..." naming both, else "".
std::string ambiguityOf(std::string_view name, const ContextPtr& scope);
// A local variable: the scope that declares it and its declared text ("" when not found, the auto marker when open).
struct FoundVariable {
    const Context* scope = nullptr;
    std::size_t index = 0;  // in the scope's variables
    explicit operator bool() const { return scope != nullptr; }
};
FoundVariable lookupVariable(std::string_view name, const Context* scope);
// True when the text, so far, is a package or the beginning of one.
bool isPackagePrefix(std::string_view name);

// Whether a name that nothing declares stands on lines that were refused, in a package that the scope sees or in the one
// that the name begins with, or may come from a package that the scope's file imports in vain: the mistake has been told
// where those lines are.
bool mayBeRefused(std::string_view name, const ContextPtr& scope);
// The same for a member of a type; constructors are called "init".
bool mayHaveRefusedMember(const Type* type, std::string_view name);

// The closest of some names by edit distance, "" when none is near.
std::string nearestName(std::string_view wanted, const std::vector<std::string>& names);
// " (did you mean 'x'?)" or "".
std::string nearMatchHint(std::string_view wanted, const std::vector<std::string>& names);

// Whether a value of `source` may be assigned to `target`.
bool isAssignable(const Type* target, const Type* source);
// The instantiation of `base` among the type itself and its super types, null when there is none.
const Type* superTypeOf(const Type* type, const ClassDeclaration* base);
// The class's direct super class (null) and interfaces with the type's arguments in them.
// Throws where a type argument breaks its class's constraint, here or in a part of the type. Open types are left alone;
// what has been looked at is added to `validated`.
void validateTypeConstraints(const Type* type, const TokenPtr& token, std::unordered_set<const Type*>& validated);
const Type* directSuperClass(const Type* type);
std::vector<const Type*> directInterfaces(const Type* type);
TypeEnvironment environmentOf(const Type* type);
// Of a method's class, without the names that the method's own type parameters hide.
TypeEnvironment environmentOf(const MethodDeclaration& method, const Type* owner);
// The type itself and all its super types, each once, nearest first: classes before interfaces, the interfaces of a class
// before those of its super class, those it names in its order before those that they extend.
// A member hides the same members of the types behind its own, and an interface's those of the interfaces it extends
// wherever they stand.
const std::vector<const Type*>& lineageOf(const Type* type);
// Whether a member of `interface` hides the same member of `earlier`, which stands before it in a lineage.
bool refines(const Type* interface, const Type* earlier);
// The class whose code a scope belongs to, null outside classes.
ClassDeclaration* enclosingClassOf(const ContextPtr& scope);
// A parameter's type as its body sees it: variadic ones are lists and maps.
std::string declaredParameterType(const FunctionParam& param);

}  // namespace vesk::compiler
