// Matching declared against actual types.
// Two types match at a base: same canonical base, same number of arguments, then argument by argument. Where the bases
// differ, each supertype of the actual type is tried in its place, with the class's arguments substituted, so that
// `Iterable<T>` binds from a class that implements it at any distance. A pair (declared, supertype) is tried once.
#include "generics/inference/binding_inference.h"

#include <algorithm>
#include <exception>
#include <set>

#include "generics/errors.h"
#include "generics/typetext/type_text.h"
#include "host/class_loader.h"
#include "host/context.h"
#include "host/diagnostics.h"
#include "host/inference_services.h"

namespace vesk::compiler {

namespace {

Str canonicalBaseOrEmpty(const Str& type, const ContextPtr& context, const TokenPtr& token) {
    try {
        return ClassLoader::canonicalBaseTypeName(type, context, token);
    } catch (const std::exception&) {
        return {};
    }
}

Str trimmedWithoutNull(const Str& type) {
    Str text = trimCopy(type);
    if (!text.ends_with('?')) return text;
    text.pop_back();
    return trimCopy(std::move(text));
}

// Every part as it is when it is there.
Str withoutOptionals(Str type) {
    std::erase(type, '?');
    return type;
}

// `type` is trimmed and ends with that many `[]`.
Str withoutArrayPairs(const Str& type, std::size_t pairs) { return trimCopy(type.substr(0, type.size() - 2 * pairs)); }

bool isFunctionTypeText(const Str& text) {
    FunctionTypeSignature ignored;
    return text.find("->") != Str::npos && parseFunctionTypeName(text, ignored);
}

// "((A) -> B)" before "[]" or "?" is the function type "(A) -> B".
Str withoutParentheses(const Str& type) {
    if (!type.starts_with('(') || !type.ends_with(')')) return type;
    int depth = 0;
    for (std::size_t i = 0; i + 1 < type.size(); i++) {
        depth += type[i] == '(' ? 1 : type[i] == ')' ? -1 : 0;
        if (depth == 0) return type;
    }
    Str inner = trimCopy(type.substr(1, type.size() - 2));
    return isFunctionTypeText(inner) ? inner : type;
}

// A class's own type parameters and the arguments of one instantiation of it.
struct ClassBindings {
    StrVec names, args;
};

bool classBindings(const Str& type, const ContextPtr& context, const TokenPtr& token, ClassBindings& out) {
    try {
        return ClassLoader::resolveGenericTypeBindings(type, context, token, out.names, out.args);
    } catch (const std::exception&) {
        return false;
    }
}

// One call of collectGenericBindingsFromType.
class BindingCollector {
public:
    BindingCollector(const GenericPlaceholderSet& placeholders, GenericBindingMap& bindings, const ContextPtr& context,
                     const TokenPtr& token)
        : placeholders_(placeholders), bindings_(bindings), context_(context), token_(token) {}

    void collect(const Str& declared, const Str& actual, int depth) {
        if (declared.empty() || actual.empty() || depth > MAX_TYPE_TEXT_DEPTH) return;
        if (placeholders_.contains(declared)) return bind(declared, actual);
        if (isFunctionTypeText(declared) || isFunctionTypeText(actual)) return;
        if (const Str text = trimCopy(declared); text.ends_with('?')) {
            return collect(trimmedWithoutNull(declared), trimmedWithoutNull(actual), depth + 1);
        }
        // A raw generic class would bind parameters that are called like its own.
        if (!typeContainsGenericPlaceholder(withoutOptionals(declared), placeholders_)) return;

        const Str source = trimmedWithoutNull(actual);
        ParsedGenericType declaredType = structured(declared), actualType = structured(source);
        if (const std::size_t pairs = declaredType.arraySuffix.size() / 2; pairs > 0) {
            // Of an array with more dimensions the elements are arrays.
            if (actualType.arraySuffix.size() / 2 < pairs) return;
            return collect(withoutArrayPairs(trimCopy(declared), pairs), withoutArrayPairs(source, pairs), depth + 1);
        }
        if (!declaredType.args.empty() && declaredType.args.size() == actualType.args.size() &&
            canonicalBaseOrEmpty(declaredType.base, context_, token_) ==
                canonicalBaseOrEmpty(actualType.base, context_, token_)) {
            for (std::size_t i = 0; i < declaredType.args.size(); i++) {
                collect(declaredType.args[i], actualType.args[i], depth + 1);
            }
            return;
        }
        if (context_) projectOntoSupertypes(declared, source, actualType.base, depth);
    }

    // What the map did not have before.
    const std::vector<const GenericBindingMap::value_type*>& bound() const { return bound_; }

private:
    void bind(const Str& name, const Str& text) {
        const Str actual = withoutParentheses(text);
        const auto [binding, isNew] = bindings_.try_emplace(name, actual);
        if (isNew) bound_.push_back(&*binding);
        if (isNew || binding->second == actual) return;
        const Str prior = binding->second;
        const Str priorBase = canonicalTypeForBinding(prior, context_, token_);
        if (!priorBase.empty() && priorBase == canonicalTypeForBinding(actual, context_, token_) &&
            resolveTypeNameOrKeep(prior, context_, token_) == resolveTypeNameOrKeep(actual, context_, token_)) {
            return;
        }
        throw InferenceError(token_, "Inconsistent generic argument for " + name,
                             {InferenceFailureReason::InconsistentArguments, name});
    }

    // The parts of a type; a flattened name and a raw generic class are given arguments.
    ParsedGenericType structured(const Str& type) {
        ParsedGenericType parsed = parseGenericTypeText(type);
        if (!parsed.args.empty() || !parsed.arraySuffix.empty()) return parsed;
        if (recoverStructuredGenericType(parsed.base, context_, token_, parsed)) return parsed;
        ClassBindings own;
        if (!classBindings(parsed.base, context_, token_, own) || own.names.empty()) return parsed;
        if (const Str base = canonicalBaseOrEmpty(parsed.base, context_, token_); !base.empty()) parsed.base = base;
        parsed.args = own.args.empty() ? own.names : own.args;
        return parsed;
    }

    void projectOntoSupertypes(const Str& declared, const Str& actual, const Str& parsedBase, int depth) {
        load(declared);
        load(actual);
        const Str resolved = resolveTypeNameOrKeep(actual, context_, token_);
        ClassBindings own;
        if (!classBindings(actual, context_, token_, own)) {
            own = {};
            if (!classBindings(declared, context_, token_, own)) own = {};
        }
        const StrVec forms = {resolved,
                              actual,
                              canonicalBaseOrEmpty(actual, context_, token_),
                              parsedBase,
                              shortTypeNameGeneric(resolved),
                              shortTypeNameGeneric(actual)};
        const auto visit = [&](const Str& supertype) {
            const Str named =
                substituteTypeThroughout(resolveTypeNameOrKeep(supertype, context_, token_), own.names, own.args);
            if (named.empty() || named == actual || named == resolved) return;
            if (visited_.emplace(declared, named).second) collect(declared, named, depth + 1);
        };
        for (const Str& interfaceName : interfacesOf(forms)) visit(interfaceName);
        if (const Str super = superOf(forms); !super.empty()) visit(super);
    }

    StrVec interfacesOf(const StrVec& forms) {
        for (const Str& form : forms) {
            if (form.empty()) continue;
            if (StrVec interfaces = context_->getImplementedInterfaces(form); !interfaces.empty()) return interfaces;
        }
        return {};
    }

    Str superOf(const StrVec& forms) {
        for (const Str& form : forms) {
            if (form.empty()) continue;
            if (Str super = context_->getClassSuper(form); !super.empty()) return super;
        }
        return {};
    }

    void load(const Str& type) {
        try {
            ClassLoader::ensureClassLoaded(type, context_, token_);
        } catch (const std::exception&) {
            // A class that cannot be loaded has no supertypes to look at.
        }
    }

    const GenericPlaceholderSet& placeholders_;
    GenericBindingMap& bindings_;
    const ContextPtr& context_;
    const TokenPtr& token_;
    std::set<std::pair<Str, Str>> visited_;
    std::vector<const GenericBindingMap::value_type*> bound_;
};

}  // namespace

void collectGenericBindingsFromType(const Str& declared, const Str& actual, const GenericPlaceholderSet& placeholders,
                                    GenericBindingMap& bindings, const ContextPtr& context, const TokenPtr& token) {
    BindingCollector(placeholders, bindings, context, token).collect(declared, actual, 0);
}

GenericBindingMap collectGenericBindings(const std::vector<GenericTypeParam>& params, const StrVec& declaredTypes,
                                         const StrVec& argTypes, const ContextPtr& context, const TokenPtr& token,
                                         InferenceTrace* trace) {
    GenericPlaceholderSet placeholders;
    for (const GenericTypeParam& param : params) placeholders.insert(param.name);
    GenericBindingMap bindings;
    for (std::size_t i = 0; i < std::min(declaredTypes.size(), argTypes.size()); i++) {
        BindingCollector collector(placeholders, bindings, context, token);
        try {
            collector.collect(declaredTypes[i], argTypes[i], 0);
        } catch (InferenceError& error) {
            error.setPosition(i);
            throw;
        }
        if (!trace) continue;
        for (const auto* binding : collector.bound()) {
            trace->boundBy.emplace(binding->first, i);
            trace->bindings.emplace(binding->first, binding->second);
        }
    }
    return bindings;
}

namespace {

bool containsPlaceholder(const Str& type, const GenericPlaceholderSet& placeholders, int depth) {
    const Str text = trimCopy(type);
    if (text.empty() || depth > MAX_TYPE_TEXT_DEPTH) return false;
    if (placeholders.contains(text)) return true;
    const ParsedGenericType parsed = parseGenericTypeText(text);
    if (!parsed.base.empty() && placeholders.contains(parsed.base)) return true;
    for (const Str& arg : parsed.args) {
        if (containsPlaceholder(arg, placeholders, depth + 1)) return true;
    }
    return false;
}

}  // namespace

bool typeContainsGenericPlaceholder(const Str& type, const GenericPlaceholderSet& placeholders) {
    return containsPlaceholder(type, placeholders, 0);
}

bool nominalTypeMatchesBase(const Str& actual, const Str& declaredBase, const ContextPtr& context,
                            const TokenPtr& token) {
    if (actual.empty() || declaredBase.empty()) return false;
    if (actual == declaredBase) return true;
    if (const Str base = canonicalBaseOrEmpty(actual, context, token); !base.empty() && base == declaredBase)
        return true;
    return shortTypeNameGeneric(actual) == shortTypeNameGeneric(declaredBase);
}

}  // namespace vesk::compiler
