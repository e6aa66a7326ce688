// Function types match position by position; everything else is matched as the specializer does it.
#include "semantics/argument_bindings.h"

#include <algorithm>

#include "generics/errors.h"
#include "generics/inference/binding_inference.h"

namespace vesk::compiler {

bool hasFunctionType(const Type* type) {
    return type->kind == TypeKind::Function ||
           std::any_of(type->arguments.begin(), type->arguments.end(), hasFunctionType);
}

namespace {

class FunctionTypeBinder {
public:
    FunctionTypeBinder(const GenericPlaceholderSet& placeholders, GenericBindingMap& bindings, const ContextPtr& scope,
                       const TokenPtr& token)
        : placeholders_(placeholders), bindings_(bindings), scope_(scope), token_(token) {}

    // One part of a function type, or of a type with a function type inside.
    void bindPart(const Type* wanted, const Type* actual) {
        const Type* plain = withoutNull(wanted);
        const Type* given = withoutNull(actual);
        if (plain->kind == TypeKind::Function) {
            bindFunction(plain, given);
        } else if (!hasFunctionType(plain)) {
            bindText(wanted, actual);
        } else if (plain->kind == TypeKind::Class && given->kind == TypeKind::Class) {
            // The given class as the wanted one, which it may extend or implement.
            const Type* same = superTypeOf(given, plain->declaration);
            if (same) bindParts(plain, same);
        } else if (plain->kind == given->kind && plain->arguments.size() == given->arguments.size()) {
            bindParts(plain, given);
        } else {
            bindText(wanted, actual);
        }
    }

private:
    void bindText(const Type* wanted, const Type* actual) {
        if (wanted->isConcrete) return;  // whatever type parameters are called
        collectGenericBindingsFromType(wanted->structured, actual->text, placeholders_, bindings_, scope_, token_);
    }

    void bindParts(const Type* wanted, const Type* actual) {
        if (wanted->arguments.size() != actual->arguments.size()) return;
        for (std::size_t i = 0; i < wanted->arguments.size(); i++) bindPart(wanted->arguments[i], actual->arguments[i]);
    }

    void bindFunction(const Type* wanted, const Type* actual) {
        if (actual->kind != TypeKind::Function || actual->arguments.size() != wanted->arguments.size()) return;
        bindParts(wanted, actual);
        if (!actual->result->isVoid() && actual->result->kind != TypeKind::Null)
            bindPart(wanted->result, actual->result);
        else if (actual->result->isVoid() && wanted->result->kind == TypeKind::Parameter)
            bindings_.try_emplace(wanted->result->structured, "Void");
    }

    const GenericPlaceholderSet& placeholders_;
    GenericBindingMap& bindings_;
    const ContextPtr& scope_;
    const TokenPtr& token_;
};

const GenericTypeParam* parameterNamed(const std::vector<GenericTypeParam>& parameters, const std::string& name) {
    const auto found = std::ranges::find(parameters, name, &GenericTypeParam::name);
    return found == parameters.end() ? nullptr : &*found;
}

}  // namespace

ArgumentBindings::ArgumentBindings(const std::vector<GenericTypeParam>& parameters, ContextPtr scope, TokenPtr call,
                                   Description describe)
    : parameters_(parameters), scope_(std::move(scope)), call_(std::move(call)), describe_(std::move(describe)) {
    for (const GenericTypeParam& parameter : parameters_) placeholders_.insert(parameter.name);
}

void ArgumentBindings::add(const std::string& parameter, const Type* wanted, const Argument& argument) {
    const Type* actual = argument.value->type;
    if (actual->kind == TypeKind::Null) return;
    const Pair pair{parameter, wanted, actual, argument.node ? argument.node->getToken() : argument.token};
    if (hasFunctionType(wanted))
        functions_.push_back(pair);
    else
        bind(pair);
}

void ArgumentBindings::bindFunctions() {
    for (const Pair& pair : functions_) bind(pair);
    functions_.clear();
}

void ArgumentBindings::bind(const Pair& pair) {
    try {
        FunctionTypeBinder(placeholders_, bindings_, scope_, call_).bindPart(pair.wanted, pair.actual);
    } catch (CompilerException& error) {
        explain(error, &pair);
        // A reason is meant for this call: further out it would be taken for one of the calls around it.
        throw CheckMistake(error);
    }
    if (bindings_.size() > boundBy_.size()) noteBound(pair.wanted, pair);
}

void ArgumentBindings::noteBound(const Type* type, const Pair& pair) {
    if (type->isConcrete) return;
    if (type->kind == TypeKind::Parameter && bindings_.contains(type->structured))
        boundBy_.try_emplace(type->structured, pair);
    for (const Type* part : type->arguments) noteBound(part, pair);
    if (type->result) noteBound(type->result, pair);
}

StrVec ArgumentBindings::typeArguments() {
    try {
        return orderedGenericArgs(parameters_, bindings_, scope_, call_);
    } catch (CompilerException& error) {
        explain(error, nullptr);
        throw CheckMistake(error);
    }
}

void ArgumentBindings::explain(CompilerException& error, const Pair* pair) const {
    const InferenceFailure* failure = inferenceFailureOf(error);
    if (!failure) return;
    const std::string& name = failure->parameter;
    if (failure->reason == InferenceFailureReason::NothingBinds) {
        if (const GenericTypeParam* parameter = parameterNamed(parameters_, name))
            error.addNote({name + " of " + describe_() + " is declared here", parameter->token});
    } else if (failure->reason == InferenceFailureReason::InconsistentArguments && pair) {
        const auto first = boundBy_.find(name);
        if (first != boundBy_.end())
            error.addNote({"parameter '" + first->second.parameter + "' makes " + name + " " + bindings_.at(name),
                           first->second.token});
        error.addNote({"parameter '" + pair->parameter + "' gets " + pair->actual->structured + ", which disagrees",
                       pair->token});
    }
}

void noteFailedConstraint(CompilerException& error, const std::vector<GenericTypeParam>& parameters) {
    const InferenceFailure* failure = inferenceFailureOf(error);
    if (!failure || failure->reason != InferenceFailureReason::ConstraintNotSatisfied) return;
    const GenericTypeParam* parameter = parameterNamed(parameters, failure->parameter);
    if (parameter)
        error.addNote({"the constraint " + parameter->name + ": " + parameter->constraint + " is declared here",
                       parameter->token});
}

std::string typeParametersText(const std::vector<GenericTypeParam>& parameters) {
    std::string text;
    for (const GenericTypeParam& parameter : parameters) {
        text += (text.empty() ? "<" : ", ") + parameter.name;
        if (!parameter.constraint.empty()) text += ": " + parameter.constraint;
        if (!parameter.defaultType.empty()) text += " = " + parameter.defaultType;
    }
    return text.empty() ? text : text + ">";
}

}  // namespace vesk::compiler
