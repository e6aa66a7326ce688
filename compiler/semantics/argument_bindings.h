// The type parameters that the host binds from arguments itself: those of a class from its constructor's, and those of a
// generic declaration where functions are passed. An error says which arguments disagree and where the parameter stands.
#pragma once

#include <functional>

#include "host/diagnostics.h"
#include "semantics/checker.h"

namespace vesk::compiler {

// Whether a type has a function type in it.
bool hasFunctionType(const Type* type);

class ArgumentBindings {
public:
    // `describe` answers how the declaration reads, for the notes of errors.
    using Description = std::function<std::string()>;
    ArgumentBindings(const std::vector<GenericTypeParam>& parameters, ContextPtr scope, TokenPtr call,
                     Description describe);

    // An argument for a parameter. Those that hold functions bind behind all others: what stands outside of function types
    // is surer.
    void add(const std::string& parameter, const Type* wanted, const Argument& argument);
    void bindFunctions();
    bool hasBound(const std::string& typeParameter) const { return bindings_.contains(typeParameter); }
    // In the order of declaration, with what defaults add.
    StrVec typeArguments();

private:
    struct Pair {
        std::string parameter;
        const Type *wanted, *actual;
        TokenPtr token;
    };
    void bind(const Pair& pair);
    // The type parameters in a type that are bound now are bound by this pair, unless an earlier one has.
    void noteBound(const Type* type, const Pair& pair);
    // Adds to an error of inference what it was about.
    void explain(CompilerException& error, const Pair* pair) const;

    const std::vector<GenericTypeParam>& parameters_;
    const ContextPtr scope_;
    const TokenPtr call_;
    const Description describe_;
    GenericPlaceholderSet placeholders_;
    GenericBindingMap bindings_;
    std::vector<Pair> functions_;
    std::map<std::string, Pair> boundBy_;  // which argument bound a type parameter first
};

// Below an error about a constraint: where that stands.
void noteFailedConstraint(CompilerException& error, const std::vector<GenericTypeParam>& parameters);

// "<T: Named, U = List<T>>", "" without type parameters.
std::string typeParametersText(const std::vector<GenericTypeParam>& parameters);

}  // namespace vesk::compiler
