// A scope: a file, a class, a function or a block, with the names declared in it.
// Scopes form a tree; look-ups go outward. The session's root scope and file scopes may be used by several
// threads, every other scope belongs to one thread at a time.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

class Context : public std::enable_shared_from_this<Context> {
public:
    explicit Context(ContextPtr parent = nullptr);
    ~Context();
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    const ContextPtr& parent() const { return parent_; }
    ContextPtr getParent() const { return parent_; }

    // --- generic declarations -------------------------------------------------------------------------
    // Whether the class declares or inherits a generic method of that name.
    bool isGenericMethod(const Str& owner, const Str& method) const;
    // The class itself and those of its super types that declare one ("" = of any name), nearest first.
    std::vector<GenericMethodOwner> getGenericMethodOwners(const Str& owner, const Str& method) const;
    // What exactly this class declares, in order.
    std::vector<GenericMethodInfo> getGenericMethods(const Str& owner, const Str& method) const;
    std::vector<GenericMethodInfo> getAllGenericMethods(const Str& owner) const;
    bool isGenericFunction(const Str& name) const;
    // The declaration of a generic free function visible here, null when there is none.
    std::shared_ptr<const GenericFunctionInfo> getGenericFunction(const Str& name) const;

    // --- function symbols -----------------------------------------------------------------------------
    StrVec getFunctionParams(const Str& symbol) const;
    Str getFunctionReturn(const Str& symbol) const;
    // Registers a concrete function for the whole unit. Idempotent.
    void addFunction(const Str& symbol, const StrVec& paramTypes, const Str& returnType, const StrVec& paramNames,
                     const std::vector<TokenVec>& defaults, bool variadic, int variadicIndex,
                     const std::vector<bool>& hasDefault, bool namedVariadic, int namedVariadicIndex,
                     const std::vector<ParameterPassingMode>& passingModes, const ContextPtr& declaringScope,
                     const Str& sourceFile);
    bool hasSpecializedFunctionForUnit(const Str& unit, const Str& symbol) const;
    // The host keeps the node and compiles it with that unit.
    void addSpecializedFunctionForUnit(const Str& unit, const Str& symbol, std::shared_ptr<FunctionNode> node);
    bool hasSpecializedMethodForUnit(const Str& unit, const Str& symbol) const;
    // `sourceOrTarget`: the declaring source of a source method, the target symbol of a native one.
    void addSpecializedMethodForUnit(const Str& unit, const Str& owner, const Str& symbol,
                                     std::shared_ptr<MethodNode> node, const Str& sourceOrTarget);

    // Makes a specialization known that lies in a bundle: its signature under its symbol, to be called, not compiled.
    void addExternalSpecializedMethod(const Str& owner, const Str& symbol, std::shared_ptr<MethodNode> signature);

    // --- classes --------------------------------------------------------------------------------------
    bool canAccessVisibility(const Str& owner, MemberVisibility visibility) const;
    // Whether a value of `source` may be assigned to `target`. Takes every spelling, never throws.
    bool isAssignable(const Str& target, const Str& source) const;
    bool implementsInterface(const Str& cls, const Str& interfaceName) const;
    Str getClassSuper(const Str& cls) const;
    Str getClassPackage(const Str& cls) const;
    StrVec getImplementedInterfaces(const Str& cls) const;
    // 0 no identity, 1 found, 2 ambiguous.
    int resolveEntityIdentityType(const Str& entity, Str& identityOut) const;

    // --- the scope itself -----------------------------------------------------------------------------
    Str getCompileUnitFile() const;
    void setCompileUnitFile(const Str& path);
    void setPackageName(const Str& name);
    void addImportedPackageLocal(const Str& name);
    void addGenericTypeParam(const Str& name);
    // Forgets the scope's own type parameters: all of them have been replaced by types.
    void clearGenericTypeParams();
    void setEnclosingClassSelfType(const Str& type);
    void addVariable(const Str& name, const Str& type);
    void setVariableType(const Str& name, const Str& type);
    Str getReturnType() const;
    // Null where the scope has none of its own: then getReturnType answers that of a scope around it.
    const Str* ownReturnType() const;
    void setReturnType(const Str& type);

    // What the scope declares itself; defined by the semantics folder, made on first use.
    struct State;
    State& state();
    const State* stateIfAny() const { return state_.get(); }

private:
    ContextPtr parent_;
    std::unique_ptr<State> state_;
};

}  // namespace vesk::compiler
