// Literals take the types that their places expect.
#include "generics/inference/literal_arguments.h"

#include "generics/typetext/type_text.h"
#include "host/ast_nodes.h"
#include "host/class_loader.h"
#include "host/context.h"
#include "host/inference_services.h"

namespace vesk::compiler {

namespace {

// The type of what a list or a map holds, "" where the text says nothing about it.
Str elementTypeOf(const Str& collectorType, const ContextPtr& context, const TokenPtr& token) {
    ParsedGenericType parsed = parseGenericTypeText(collectorType);
    if (!recoverStructuredGenericType(collectorType, context, token, parsed) || parsed.args.empty()) return {};
    return resolveTypeNameOrKeep(parsed.args.back(), context, token);
}

}  // namespace

bool isLiteralArgument(const NodePtr& node) {
    if (!node) return false;
    switch (node->getKind()) {
        case NodeKind::Literal:
        case NodeKind::StringLiteral:
        case NodeKind::ListLiteral:
        case NodeKind::MapLiteral: return true;
        case NodeKind::Operator: return node->getChildren().size() == 1 && isLiteralArgument(node->getChildren()[0]);
        default: return false;
    }
}

bool adaptCollectedLiterals(const std::vector<CallArgInfo>& arguments, const std::vector<int>& collected,
                            const Str& collectorType, StrVec& argTypes, const ContextPtr& context,
                            const TokenPtr& token) {
    if (!context || collected.empty()) return false;
    const Str element = elementTypeOf(collectorType, context, token);
    if (element.empty()) return false;
    bool hasChanged = false;
    for (const int index : collected) {
        const NodePtr& node = arguments[static_cast<std::size_t>(index)].node;
        Str& type = argTypes[static_cast<std::size_t>(index)];
        if (type == element || !isLiteralArgument(node)) continue;
        const Str adapted = inferExpectedLiteralType(node, element, type);
        if (adapted != element && !context->isAssignable(element, adapted)) continue;
        type = element;
        hasChanged = true;
    }
    return hasChanged;
}

bool adaptCollectedLiterals(const std::vector<CallArgInfo>& arguments, const CallArgumentBinding& binding,
                            const VariadicParameters& variadics, const StrVec& paramTypes, const StrVec& typeParamNames,
                            const StrVec& typeArgs, StrVec& argTypes, const ContextPtr& scope, const TokenPtr& token) {
    if (typeArgs.empty() || typeArgs.size() != typeParamNames.size()) return false;
    const auto adapt = [&](bool isThere, int index, const std::vector<int>& collected) {
        if (!isThere || index < 0 || static_cast<std::size_t>(index) >= paramTypes.size() || collected.empty())
            return false;
        const Str type =
            substituteTypeThroughout(paramTypes[static_cast<std::size_t>(index)], typeParamNames, typeArgs);
        return adaptCollectedLiterals(arguments, collected, type, argTypes, scope, token);
    };
    const bool positional = adapt(variadics.isVariadic, variadics.variadicIndex, binding.variadicArgs);
    return adapt(variadics.isNamedVariadic, variadics.namedVariadicIndex, binding.namedVariadicArgs) || positional;
}

Str callArgumentKey(const Str& name, const Str& type) { return (name.empty() ? "#:" : name + "=") + type; }

}  // namespace vesk::compiler
