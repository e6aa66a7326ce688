// Matching arguments against parameters before and after a signature is specialized.
#include "generics/candidate_matching.h"

#include <algorithm>

#include "generics/inference/binding_inference.h"
#include "generics/typetext/native_binding_registry.h"
#include "generics/typetext/type_text.h"
#include "host/class_loader.h"
#include "host/context.h"
#include "host/diagnostics.h"
#include "host/inference_services.h"

namespace vesk::compiler {

namespace {

// The most super types that are followed: the class model is acyclic, a host that is not must not hang.
constexpr std::size_t MAX_SUPER_TYPES = 1000;

// One argument against one parameter of a declaration. A host exception in one test leads to the next.
class MayMatch {
public:
    MayMatch(const GenericPlaceholderSet& placeholders, const ContextPtr& context, const TokenPtr& token)
        : placeholders_(placeholders), context_(context), token_(token) {}

    bool operator()(const Str& parameter, const Str& argument) const {
        if (parameter == "Object" || parameter == "vesk.Object") return true;
        return areBothFunctions(parameter, argument) || areBothArrays(parameter, argument) ||
               hasPlaceholderBase(parameter) || isNominalMatch(parameter, argument) ||
               isSameFamily(parameter, argument) || hasMatchingSuperType(parameter, argument) ||
               tryTest([&] { return context_->isAssignable(parameter, argument); });
    }

private:
    template <typename Test>
    static bool tryTest(Test test) {
        try {
            return test();
        } catch (const std::exception&) {
            return false;
        }
    }

    static Str withoutNullMark(Str type) {
        type = trimCopy(std::move(type));
        if (!type.empty() && type.back() == '?') type.pop_back();
        return type;
    }

    static bool areBothFunctions(const Str& parameter, const Str& argument) {
        if (parameter.find("->") == Str::npos || argument.find("->") == Str::npos) return false;
        const auto isFunction = [](const Str& type) {
            FunctionTypeSignature signature;
            return tryTest([&] { return parseFunctionTypeName(type, signature); }) ||
                   (type.ends_with("?") && type.starts_with("("));
        };
        return isFunction(parameter) && isFunction(argument);
    }

    static bool areBothArrays(const Str& parameter, const Str& argument) {
        return withoutNullMark(parameter).ends_with("[]") && withoutNullMark(argument).ends_with("[]");
    }

    bool hasPlaceholderBase(const Str& parameter) const {
        return placeholders_.contains(parseGenericTypeText(withoutNullMark(parameter)).base);
    }

    // `base` is compared in the form that the nominal test wants: qualified, without arguments.
    bool matchesBase(const Str& type, const Str& parameter) const {
        if (type.empty()) return false;
        return tryTest([&] {
            const Str base = ClassLoader::canonicalBaseTypeName(parameter, context_, token_);
            return nominalTypeMatchesBase(type, base.empty() ? parameter : base, context_, token_);
        });
    }

    bool isNominalMatch(const Str& parameter, const Str& argument) const {
        return matchesBase(withoutNullMark(argument), withoutNullMark(parameter));
    }

    static bool isSameFamily(const Str& parameter, const Str& argument) {
        const Str family = NativeBindingRegistry::familyNameOf(withoutNullMark(parameter));
        return !family.empty() && family == NativeBindingRegistry::familyNameOf(withoutNullMark(argument));
    }

    // Looks at every super class and interface of the argument's type, the nearest first.
    bool hasMatchingSuperType(const Str& parameter, const Str& argument) const {
        const Str wanted = withoutNullMark(parameter);
        StrVec types{withoutNullMark(argument)};
        for (std::size_t i = 0; i < types.size() && i < MAX_SUPER_TYPES; i++) {
            const Str current = types[i];
            if (i > 0 && matchesBase(current, wanted)) return true;
            if (tryTest([&] { return context_->implementsInterface(current, wanted); })) return true;
            const auto add = [&](const Str& type) {
                if (!type.empty() && std::find(types.begin(), types.end(), type) == types.end()) types.push_back(type);
            };
            tryTest([&] {
                add(context_->getClassSuper(current));
                return true;
            });
            tryTest([&] {
                for (const Str& interface : context_->getImplementedInterfaces(current)) add(interface);
                return true;
            });
        }
        return false;
    }

    const GenericPlaceholderSet& placeholders_;
    const ContextPtr& context_;
    const TokenPtr& token_;
};

}  // namespace

GenericPlaceholderSet genericMethodTypeParamNames(const std::vector<GenericTypeParamInfo>& typeParams) {
    GenericPlaceholderSet names;
    for (const GenericTypeParamInfo& param : typeParams) names.insert(param.name);
    return names;
}

bool genericMethodCandidateMayMatch(const StrVec& paramTypes, const StrVec& argTypes,
                                    const std::vector<GenericTypeParamInfo>& typeParams, const ContextPtr& context,
                                    const TokenPtr& token) {
    if (argTypes.size() > paramTypes.size()) return false;
    if (!context) return true;
    const GenericPlaceholderSet placeholders = genericMethodTypeParamNames(typeParams);
    const MayMatch mayMatch(placeholders, context, token);
    for (std::size_t i = 0; i < argTypes.size(); i++) {
        if (argTypes[i].empty()) continue;
        if (paramTypes[i].empty()) return false;
        if (placeholders.contains(paramTypes[i])) continue;
        if (!mayMatch(paramTypes[i], argTypes[i])) return false;
    }
    return true;
}

void takeTypesOfEmptyVariadics(const GenericMethodInfo& info, const CallArgumentBinding& binding,
                               const StrVec& paramTypes, StrVec& argTypes) {
    const auto take = [&](bool isEmpty, int index) {
        const std::size_t position = static_cast<std::size_t>(index);
        if (isEmpty && index >= 0 && position < argTypes.size() && position < paramTypes.size())
            argTypes[position] = paramTypes[position];
    };
    take(info.isVariadic && binding.variadicArgs.empty(), info.variadicIndex);
    take(info.isNamedVariadic && binding.namedVariadicArgs.empty(), info.namedVariadicIndex);
}

bool genericMethodAcceptsActualArgs(const StrVec& paramTypes, const StrVec& argTypes, const ContextPtr& context) {
    if (argTypes.size() > paramTypes.size()) return false;
    for (std::size_t i = 0; i < argTypes.size(); i++) {
        if (argTypes[i].empty()) continue;
        if (!context) {
            if (paramTypes[i] != argTypes[i]) return false;
        } else if (paramTypes[i].empty() || !context->isAssignable(paramTypes[i], argTypes[i])) {
            return false;
        }
    }
    return true;
}

}  // namespace vesk::compiler
