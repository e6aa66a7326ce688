// The partial order of overloads, and the forms of type names that scoring compares.
#include "generics/candidate_matching.h"
#include "generics/typetext/type_text.h"
#include "host/class_loader.h"
#include "host/context.h"
#include "host/diagnostics.h"

namespace vesk::compiler {

Str genericMethodSpecificityType(const GenericMethodInfo& info, const Str& paramType, const ContextPtr& context,
                                 const TokenPtr& token) {
    for (const GenericTypeParamInfo& param : info.typeParams) {
        if (param.name == paramType) return param.constraint.empty() ? "Object" : param.constraint;
    }
    return resolveTypeNameOrKeep(paramType, context, token);
}

Str resolveTypeNameForGenericScore(const Str& type, const GenericPlaceholderSet& typeParamNames,
                                   const ContextPtr& context, const TokenPtr& token) {
    if (typeParamNames.contains(type)) return type;
    return resolveTypeNameOrKeep(type, context, token);
}

Str canonicalBaseForGenericScore(const Str& type, const GenericPlaceholderSet& typeParamNames,
                                 const ContextPtr& context, const TokenPtr& token) {
    Str base = parseGenericTypeText(type).base;
    if (typeParamNames.contains(base)) return base;
    try {
        return ClassLoader::canonicalBaseTypeName(base, context, token);
    } catch (const std::exception&) {
        return base;
    }
}

GenericMethodSpecificity genericMethodSpecificity(const GenericMethodInfo& info, const ContextPtr& context,
                                                  const TokenPtr& token) {
    GenericMethodSpecificity result;
    const GenericPlaceholderSet names = genericMethodTypeParamNames(info.typeParams);
    for (const Str& paramType : info.paramTypes) {
        result.types.push_back(genericMethodSpecificityType(info, paramType, context, token));
        result.bases.push_back(canonicalBaseForGenericScore(result.types.back(), names, context, token));
    }
    return result;
}

int SpecificityDifference::verdict() const {
    if (aNarrower.empty() == bNarrower.empty()) return 0;
    return aNarrower.empty() ? -1 : 1;
}

SpecificityDifference compareGenericMethodSpecificity(const GenericMethodSpecificity& a,
                                                      const GenericMethodSpecificity& b, const ContextPtr& context,
                                                      const TokenPtr& token) {
    SpecificityDifference difference;
    if (!context) return difference;
    const std::size_t positions = std::min(a.types.size(), b.types.size());
    for (std::size_t i = 0; i < positions; i++) {
        if (a.types[i].empty() || b.types[i].empty() || a.types[i] == b.types[i]) continue;
        if (!a.bases[i].empty() && a.bases[i] == b.bases[i]) continue;
        try {
            ClassLoader::ensureClassLoaded(a.types[i], context, token);
            ClassLoader::ensureClassLoaded(b.types[i], context, token);
            const bool aFitsB = context->isAssignable(b.types[i], a.types[i]);
            const bool bFitsA = context->isAssignable(a.types[i], b.types[i]);
            if (aFitsB && !bFitsA) difference.aNarrower.push_back(i);
            if (bFitsA && !aFitsB) difference.bNarrower.push_back(i);
        } catch (const std::exception&) {
            // No information about this position.
        }
    }
    return difference;
}

int compareGenericMethodSpecificity(const GenericMethodInfo& a, const GenericMethodInfo& b, const ContextPtr& context,
                                    const TokenPtr& token) {
    if (!context) return 0;
    return compareGenericMethodSpecificity(genericMethodSpecificity(a, context, token),
                                           genericMethodSpecificity(b, context, token), context, token)
        .verdict();
}

}  // namespace vesk::compiler
