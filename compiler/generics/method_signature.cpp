// Specializing declared signatures.
#include "generics/method_signature.h"

#include <algorithm>

#include "generics/candidate_matching.h"
#include "generics/inference/binding_inference.h"
#include "generics/inference/body_rewriting.h"
#include "generics/session_state.h"
#include "generics/source/declaration_parser.h"
#include "generics/typetext/type_text.h"
#include "host/host_services.h"

namespace vesk::compiler {

namespace {

constexpr std::string_view BUILTIN_TYPES[] = {"Void",   "Bool",   "Byte", "SByte",  "Short",       "UShort",
                                              "Int",    "UInt",   "Long", "ULong",  "Float",       "Double",
                                              "String", "Object", "Null", "Number", "AbstractInt", "AbstractFloat"};

bool isNamePart(char c) {
    return c == '_' || c == '.' || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// The types of a declaration, resolved as its own file sees them; type parameters stay. The host mostly gives types that are
// resolved already: a scope is only made for others.
class DeclaredTypes {
public:
    DeclaredTypes(const Str& sourceFile, const Str& ownerClass, const std::vector<GenericTypeParam>& typeParams,
                  const TypeParameterIndex& typeParamNames, const ContextPtr& context, const TokenPtr& token)
        : sourceFile_(sourceFile),
          ownerClass_(ownerClass),
          typeParams_(typeParams),
          typeParamNames_(typeParamNames),
          context_(context),
          token_(token) {}

    Str resolve(const Str& type) {
        if (type.empty() || isResolved(type)) return type;
        return resolveTypeNameOrKeep(type, scope(), token_);
    }

    std::vector<GenericTypeParam> resolvedTypeParams() {
        std::vector<GenericTypeParam> params = typeParams_;
        for (GenericTypeParam& param : params) {
            param.constraint = resolve(param.constraint);
            param.defaultType = resolve(param.defaultType);
        }
        return params;
    }

private:
    // True when every name is qualified, built in or a type parameter, and no concrete clause waits to be flattened.
    bool isResolved(const Str& type) const {
        bool isOpen = false;
        for (std::size_t start = 0; start < type.size();) {
            if (!isNamePart(type[start])) {
                start++;
                continue;
            }
            std::size_t end = start;
            while (end < type.size() && isNamePart(type[end])) end++;
            const std::string_view name = std::string_view(type).substr(start, end - start);
            start = end;
            if (typeParamNames_.contains(name))
                isOpen = true;
            else if (name.find('.') == std::string_view::npos &&
                     std::ranges::find(BUILTIN_TYPES, name) == std::end(BUILTIN_TYPES))
                return false;
        }
        return isOpen || type.find('<') == Str::npos;
    }

    const ContextPtr& scope() {
        if (scope_ || !context_ || sourceFile_.empty()) return scope_ ? scope_ : context_;
        scope_ = std::make_shared<Context>(declarationScope(sourceFile_, context_));
        if (!ownerClass_.empty()) scope_->setEnclosingClassSelfType(ownerClass_);
        for (const GenericTypeParam& param : typeParams_) scope_->addGenericTypeParam(param.name);
        return scope_;
    }

    const Str& sourceFile_;
    const Str& ownerClass_;
    const std::vector<GenericTypeParam>& typeParams_;
    const TypeParameterIndex& typeParamNames_;
    const ContextPtr& context_;
    const TokenPtr& token_;
    ContextPtr scope_;
};

GenericBindingMap givenBindings(const std::vector<GenericTypeParam>& params, const StrVec& typeArgs,
                                const ContextPtr& context, const TokenPtr& token) {
    if (typeArgs.size() != params.size()) {
        throw compileError(token, "generic specialization expects " + std::to_string(params.size()) +
                                      " type arguments (got " + std::to_string(typeArgs.size()) + ")");
    }
    GenericBindingMap bindings;
    for (std::size_t i = 0; i < params.size(); i++) {
        bindings[params[i].name] = normalizeExplicitGenericSpecializationArg(typeArgs[i], context, token);
    }
    return bindings;
}

// The parts of a declaration that its signature is made of.
struct DeclaredSignature {
    std::vector<GenericTypeParam> typeParams;
    StrVec paramTypes;
    Str returnType, sourceFile, ownerClass;
};

SpecializedMethodSignature specialize(const DeclaredSignature& declared, const StrVec& argTypes,
                                      const StrVec& explicitTypeArgs, const ContextPtr& context, const TokenPtr& token,
                                      InferenceTrace* trace) {
    const TypeParameterIndex names(declared.typeParams);
    DeclaredTypes declaredTypes(declared.sourceFile, declared.ownerClass, declared.typeParams, names, context, token);
    const std::vector<GenericTypeParam> typeParams = declaredTypes.resolvedTypeParams();
    StrVec paramTypes;
    for (const Str& type : declared.paramTypes) paramTypes.push_back(declaredTypes.resolve(type));

    GenericBindingMap bindings = explicitTypeArgs.empty()
                                     ? collectGenericBindings(typeParams, paramTypes, argTypes, context, token, trace)
                                     : givenBindings(typeParams, explicitTypeArgs, context, token);
    SpecializedMethodSignature signature;
    signature.typeArgs = orderedGenericArgs(typeParams, bindings, context, token);
    validateGenericConstraints(typeParams, signature.typeArgs, context, token);
    for (Str& arg : signature.typeArgs) arg = resolveTypeNameOrKeep(arg, context, token);

    const auto concrete = [&](Str type) {
        if (const std::size_t own = names.positionOf(type); own != TypeParameterIndex::NONE)
            return signature.typeArgs[own];
        if (!mentionsTypeName(type, names)) return type;
        return resolveTypeNameOrKeep(substituteIndexedType(type, names, signature.typeArgs), context, token);
    };
    for (Str& type : paramTypes) signature.paramTypes.push_back(concrete(std::move(type)));
    if (!declared.returnType.empty()) signature.returnType = concrete(declaredTypes.resolve(declared.returnType));
    return signature;
}

// The base of a type text, with a clause or flattened.
Str baseOf(const Str& type) {
    Str base;
    return ClassLoader::resolveConcreteGenericBase(type, base) ? base : parseGenericTypeText(type).base;
}

// A variadic parameter's type as calls see it.
Str callSideType(const FunctionParam& param) {
    if (param.isVariadic && baseOf(param.type) != "vesk.collections.ArrayList") {
        return "vesk.collections.ArrayList<" + param.type + ">";
    }
    if (param.isNamedVariadic && baseOf(param.type) != "vesk.collections.Map") {
        return "vesk.collections.Map<String, " + param.type + ">";
    }
    return param.type;
}

}  // namespace

SpecializedMethodSignature specializeGenericMethodSignature(const GenericMethodInfo& info, const StrVec& argTypes,
                                                            const StrVec& explicitTypeArgs, const ContextPtr& context,
                                                            const TokenPtr& token, InferenceTrace* trace) {
    return specialize({toGenericTypeParams(info.typeParams, token), info.paramTypes, info.returnType, info.sourceFile,
                       info.ownerClass},
                      argTypes, explicitTypeArgs, context, token, trace);
}

StrVec specializeGenericMethodInfoSignature(const GenericMethodInfo& info, const StrVec& argTypes,
                                            const StrVec& explicitTypeArgs, const ContextPtr& context,
                                            const TokenPtr& token, StrVec* outTypeArgs, Str* outReturnType) {
    SpecializedMethodSignature signature =
        specializeGenericMethodSignature(info, argTypes, explicitTypeArgs, context, token, nullptr);
    if (outTypeArgs) *outTypeArgs = std::move(signature.typeArgs);
    if (outReturnType) *outReturnType = std::move(signature.returnType);
    return std::move(signature.paramTypes);
}

StrVec specializeExplicitGenericSignature(const std::shared_ptr<MethodNode>& method, const StrVec& argTypes,
                                          const StrVec& explicitTypeArgs, const ContextPtr& context,
                                          const TokenPtr& token, StrVec* outTypeArgs) {
    const Str owner = method->getContext() ? classloader::enclosingClass(method->getContext()) : Str();
    DeclaredSignature declared{method->getTypeParams(), {}, method->getReturnType(), {}, owner};
    if (method->getToken()) declared.sourceFile = method->getToken()->getFilename();
    for (const FunctionParam& param : method->getParams()) declared.paramTypes.push_back(callSideType(param));
    const SpecializedMethodSignature signature =
        specialize(declared, argTypes, explicitTypeArgs, context, token, nullptr);

    StrVec names;
    for (const GenericTypeParam& param : declared.typeParams) names.push_back(param.name);
    makeBodyConcrete(method, genericMethodBindings(names, signature.typeArgs, owner, context, token));
    method->setParamTypes(signature.paramTypes);
    if (!signature.returnType.empty()) method->setReturnType(signature.returnType);
    invalidateTypeInferenceCaches();
    if (outTypeArgs) *outTypeArgs = signature.typeArgs;
    return signature.paramTypes;
}

StrVec genericMethodTypeParamNameList(const GenericMethodInfo& info) {
    StrVec names;
    for (const GenericTypeParamInfo& param : info.typeParams) names.push_back(param.name);
    return names;
}

void makeBodyConcrete(const std::shared_ptr<MethodNode>& node, const GenericMethodBindings& bindings) {
    if (node->getTypeParams().empty()) return;
    // While its types are open the body names no class by the name of a class's parameter either.
    for (const Str& name : bindings.names) node->getContext()->addGenericTypeParam(name);
    applyGenericBindingsToBody(node, bindings.names, bindings.args);
    node->setTypeParams({});
    // What the body now calls "T" is a class of that name.
    node->getContext()->clearGenericTypeParams();
}

GenericMethodBindings genericMethodBindings(const StrVec& typeParamNames, const StrVec& typeArgs, const Str& owner,
                                            const ContextPtr& context, const TokenPtr& token) {
    GenericMethodBindings bindings{typeParamNames, typeArgs};
    StrVec classNames, classArgs;
    if (!ClassLoader::resolveGenericTypeBindings(owner, context, token, classNames, classArgs)) return bindings;
    const TypeParameterIndex own(typeParamNames);
    for (std::size_t i = 0; i < std::min(classNames.size(), classArgs.size()); i++) {
        if (own.contains(classNames[i])) continue;
        bindings.names.push_back(classNames[i]);
        bindings.args.push_back(classArgs[i]);
    }
    return bindings;
}

}  // namespace vesk::compiler
