// From bindings to the ordered list of type arguments, and the check of constraints.
#include <algorithm>
#include <exception>
#include <string_view>

#include "generics/errors.h"
#include "generics/inference/binding_inference.h"
#include "generics/typetext/type_text.h"
#include "host/class_loader.h"
#include "host/context.h"
#include "host/diagnostics.h"

namespace vesk::compiler {

namespace {

constexpr std::string_view INTEGER_TYPES[] = {"Int", "UInt", "Long", "ULong", "Short", "UShort", "Byte", "SByte"};

// Works out one list of type arguments; what is fixed so far may be mentioned by later constraints and defaults.
class ArgumentOrdering {
public:
    ArgumentOrdering(const std::vector<GenericTypeParam>& params, GenericBindingMap& bindings,
                     const ContextPtr& context, const TokenPtr& token)
        : params_(params), bindings_(bindings), context_(context), token_(token), names_(params) {}

    StrVec order() {
        for (const GenericTypeParam& param : params_) fixed_.push_back(argumentFor(param));
        return std::move(fixed_);
    }

private:
    Str argumentFor(const GenericTypeParam& param) {
        const auto binding = bindings_.find(param.name);
        if (binding == bindings_.end()) {
            if (param.defaultType.empty()) {
                throw InferenceError(token_, "Cannot infer generic type parameter " + param.name,
                                     {InferenceFailureReason::NothingBinds, param.name, fixed_.size()});
            }
            return bindings_[param.name] = resolvedDefault(param);
        }
        Str value = binding->second;
        bool satisfied = satisfiesConstraint(param, value);
        if (!satisfied && widensToDouble(param, value)) {
            value = binding->second = "Double";
            satisfied = true;
        }
        if (satisfied || param.defaultType.empty()) return value;
        const Str other = resolvedDefault(param);
        if (!other.empty() && context_ && context_->isAssignable(other, value) && satisfiesConstraint(param, other)) {
            value = binding->second = other;
        }
        return value;
    }

    bool widensToDouble(const GenericTypeParam& param, const Str& value) {
        if (numericShortName(resolvedConstraint(param)) != "AbstractFloat") return false;
        if (std::ranges::find(INTEGER_TYPES, numericShortName(value)) == std::end(INTEGER_TYPES)) return false;
        return context_ && context_->isAssignable("Double", value) && satisfiesConstraint(param, "Double");
    }

    bool satisfiesConstraint(const GenericTypeParam& param, const Str& type) {
        if (type.empty()) return false;
        if (param.constraint.empty()) return true;
        return context_ && context_->isAssignable(resolvedConstraint(param), resolved(type));
    }

    Str resolvedConstraint(const GenericTypeParam& param) {
        return resolved(substituteIndexedType(param.constraint, names_, fixed_));
    }

    Str resolvedDefault(const GenericTypeParam& param) {
        return resolved(substituteIndexedType(param.defaultType, names_, fixed_));
    }

    Str numericShortName(const Str& type) {
        if (type.empty()) return {};
        const Str name = resolved(type);
        Str base;
        try {
            base = ClassLoader::canonicalBaseTypeName(name, context_, token_);
        } catch (const std::exception&) {
            base.clear();
        }
        return shortTypeNameLocal(base.empty() ? name : base);
    }

    Str resolved(const Str& type) { return resolveTypeNameOrKeep(type, context_, token_); }

    const std::vector<GenericTypeParam>& params_;
    GenericBindingMap& bindings_;
    const ContextPtr& context_;
    const TokenPtr& token_;
    const TypeParameterIndex names_;
    StrVec fixed_;
};

}  // namespace

StrVec orderedGenericArgs(const std::vector<GenericTypeParam>& params, GenericBindingMap& bindings,
                          const ContextPtr& context, const TokenPtr& token) {
    return ArgumentOrdering(params, bindings, context, token).order();
}

void validateGenericConstraints(const std::vector<GenericTypeParam>& params, const StrVec& args,
                                const ContextPtr& context, const TokenPtr& token) {
    const TypeParameterIndex names(params);
    for (std::size_t i = 0; i < std::min(params.size(), args.size()); i++) {
        if (params[i].constraint.empty()) continue;
        const Str constraint =
            ClassLoader::resolveTypeName(substituteIndexedType(params[i].constraint, names, args), context, token);
        const Str type = ClassLoader::resolveTypeName(args[i], context, token);
        ClassLoader::ensureClassLoaded(constraint, context, token);
        ClassLoader::ensureClassLoaded(type, context, token);
        if (!context || !context->isAssignable(constraint, type)) {
            throw InferenceError(token, "Type " + type + " does not satisfy generic constraint " + constraint,
                                 {InferenceFailureReason::ConstraintNotSatisfied, params[i].name, i});
        }
    }
}

}  // namespace vesk::compiler
