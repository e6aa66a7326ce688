// Made for each method that a unit finds in a bundle, so the common case is short: a list of types that are concrete
// already, in a scope shared with all others of the declaring file.
#include "generics/called_signature.h"

#include <algorithm>

#include "generics/method_materialization.h"
#include "generics/source/declaration_parser.h"
#include "host/host_services.h"

namespace vesk::compiler {

namespace {

// The expression of a default may mention whatever is in scope there.
std::shared_ptr<MethodNode> signatureWithDefaults(const GenericMethodInfo& info, const Str& declaring,
                                                  const StrVec& typeArgs, const GenericMethodSpec& spec,
                                                  const ContextPtr& context, const TokenPtr& token) {
    auto node = syntheticGenericMethod(info, context, token);
    putIntoClass(*node, declaring);
    concretizeGenericMethod(node, info, declaring, typeArgs, spec.paramTypes, spec.returnType, "", context, token);
    return node;
}

}  // namespace

std::shared_ptr<MethodNode> calledMethodSignature(const GenericMethodInfo& info, const Str& declaring,
                                                  const StrVec& typeArgs, const GenericMethodSpec& spec,
                                                  const ContextPtr& context, const TokenPtr& token) {
    if (std::any_of(info.paramHasDefault.begin(), info.paramHasDefault.end(), [](bool has) { return has; }))
        return signatureWithDefaults(info, declaring, typeArgs, spec, context, token);
    auto node =
        std::make_shared<MethodNode>(info.name, spec.returnType, genericMethodParams(info, spec.paramTypes, token),
                                     StrVec{}, std::vector<std::shared_ptr<AnnotationNode>>{}, info.isStatic,
                                     declarationScope(info.sourceFile, context), token);
    node->setOverloadIndex(info.overloadIndex);
    node->setVisibility(info.visibility);
    node->setDisplayName(genericMethodDisplayName(info, declaring, typeArgs));
    return node;
}

}  // namespace vesk::compiler
