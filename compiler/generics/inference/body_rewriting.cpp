// Rewriting of specialized bodies. The walk keeps its own stack: bodies hold long chains of operators and of else-if.
#include "generics/inference/body_rewriting.h"

#include <algorithm>

#include "generics/typetext/type_text.h"
#include "host/ast_nodes.h"
#include "host/class_loader.h"
#include "host/context.h"
#include "host/inference_services.h"

namespace vesk::compiler {

namespace {

// The names of a call that takes a type as its argument.
bool takesTypeArgument(const Str& callee) {
    return callee == "type" || callee == "Application.type" || callee == "vesk.Application.type";
}

class BodyRewriter {
public:
    BodyRewriter(const StrVec& names, const StrVec& args)
        : names_(names),
          args_(args),
          argumentsNameParameters_(
              std::any_of(args.begin(), args.end(), [&](const Str& arg) { return mentionsTypeName(arg, names_); })) {}

    void rewriteTree(const NodePtr& root) {
        if (!root) return;
        rewriteNode(*root);
        rewriteBelow(*root);
    }

    void rewriteBody(CallableDeclarationNode& declaration) {
        rewriteDefaults(declaration);
        rewriteBelow(declaration);
    }

private:
    void rewriteBelow(const AbstractNode& root) {
        std::vector<NodePtr> pending;
        pushBelow(root, pending);
        while (!pending.empty()) {
            const NodePtr node = std::move(pending.back());
            pending.pop_back();
            if (!node) continue;
            rewriteNode(*node);
            pushBelow(*node, pending);
        }
    }

    // Children in order, then the else branch: the stack takes them from the end.
    static void pushBelow(const AbstractNode& node, std::vector<NodePtr>& pending) {
        if (node.getKind() == NodeKind::If) pending.push_back(static_cast<const IfNode&>(node).getElseBranch());
        const NodeVec& children = node.getChildren();
        pending.insert(pending.end(), children.rbegin(), children.rend());
    }

    void rewriteNode(AbstractNode& node) {
        if (node.ownsContext() && node.context()) rewriteReturnTypeOf(*node.context());
        switch (node.getKind()) {
            case NodeKind::Value: rewriteValue(static_cast<ValueExpressionNode&>(node)); break;
            case NodeKind::Declaration: rewriteDeclaration(static_cast<DeclarationNode&>(node)); break;
            case NodeKind::Operator: rewriteOperator(static_cast<OperatorExpressionNode&>(node)); break;
            case NodeKind::Callable: rewriteCallable(static_cast<CallableExpressionNode&>(node)); break;
            case NodeKind::Member: rewriteMember(static_cast<MemberExpressionNode&>(node)); break;
            case NodeKind::Lambda: rewriteLambda(static_cast<LambdaNode&>(node)); break;
            case NodeKind::Function:
            case NodeKind::Method: rewriteSignature(static_cast<CallableDeclarationNode&>(node)); break;
            default: break;
        }
    }

    void rewriteValue(ValueExpressionNode& value) {
        const Str& text = value.value();
        if (!text.starts_with(TYPE_EXPRESSION_PREFIX)) {
            if (Str changed; substitute(text, changed)) value.setValue(changed);
            return;
        }
        const Str type = text.substr(TYPE_EXPRESSION_PREFIX.size());
        Str changed = substituteIndexedType(type, names_, args_);
        // `T.Node<Int>.count`: the owner of a nested class.
        const std::size_t dot = type.find('.');
        if (Str owner; dot < type.find('<') && substituteOwner(type.substr(0, dot), owner))
            changed.replace(0, dot, owner);
        if (changed != type) value.setValue(Str(TYPE_EXPRESSION_PREFIX) + changed);
    }

    // A block's scope answers the return type of the function around it, which has its own turn.
    void rewriteReturnTypeOf(Context& context) {
        const Str* const type = context.ownReturnType();
        if (!type) return;
        if (Str changed; substitute(*type, changed)) context.setReturnType(changed);
    }

    void rewriteDeclaration(DeclarationNode& declaration) {
        const ContextPtr& scope = declaration.context();
        if (declaration.declaredType() == AUTO_TYPE_MARKER) {
            // The scope still takes a type argument that is spelled like a type parameter for the parameter; then the
            // type waits until it is asked for.
            const NodePtr initializer = declaration.getInitializer();
            if (!initializer || !scope || argumentsNameParameters_) return;
            const Str type = inferExpressionType(initializer);
            if (type.empty() || type == AUTO_TYPE_MARKER || type == "Void") return;
            scope->setVariableType(declaration.getVariableName(), substituteIndexedType(type, names_, args_));
            return;
        }
        Str type;
        if (!substitute(declaration.declaredType(), type)) return;
        declaration.setDeclaredType(type);
        if (scope) scope->setVariableType(declaration.getVariableName(), type);
    }

    void rewriteOperator(const OperatorExpressionNode& expression) {
        if (expression.op() == "is" || expression.op() == "isnot") rewriteTypeTokens(expression.getTypeOperand());
    }

    void rewriteCallable(CallableExpressionNode& call) {
        const Str& name = call.name();
        if (call.receiver()) {
            if (Str changed; substituteClause(name, changed)) call.setName(changed);
        } else if (name.starts_with(CAST_PREFIX)) {
            const std::string_view type = std::string_view(name).substr(CAST_PREFIX.size());
            if (Str changed; substitute(type, changed)) call.setName(Str(CAST_PREFIX) + changed);
        } else if (takesTypeArgument(name)) {
            for (const NodePtr& argument : call.getArguments()) rewriteTypeTokens(argument);
        } else if (Str changed; substitute(name, changed)) {
            call.setName(changed);
        }
    }

    void rewriteMember(MemberExpressionNode& member) {
        if (Str changed; substituteClause(member.name(), changed)) member.setName(changed);
    }

    void rewriteLambda(LambdaNode& lambda) {
        if (StrVec types; substituteParams(lambda.params(), types)) lambda.setParamTypes(types);
    }

    void rewriteSignature(CallableDeclarationNode& callable) {
        rewriteDefaults(callable);
        if (StrVec types; substituteParams(callable.getParams(), types)) callable.setParamTypes(types);
        if (Str changed; substitute(callable.returnType(), changed)) callable.setReturnType(changed);
    }

    // Default tokens belong to the declaration, which other specializations read too: the node gets tokens of its own.
    void rewriteDefaults(CallableDeclarationNode& callable) const {
        std::vector<FunctionParam> params;
        for (std::size_t p = 0; p < callable.getParams().size(); p++) {
            const TokenVec& tokens = callable.getParams()[p].defaultValueTokens;
            for (std::size_t t = 0; t < tokens.size(); t++) {
                Str changed;
                if (!substituteToken(tokens, t, changed)) continue;
                // The owner of a member that is put in is no earlier parameter of the same name.
                const bool isOwner = t + 1 < tokens.size() && tokens[t + 1]->getText() == ".";
                const auto begin = callable.getParams().begin(), end = begin + static_cast<std::ptrdiff_t>(p);
                if (isOwner && std::any_of(begin, end, [&](const auto& earlier) { return earlier.name == changed; }))
                    changed.insert(0, TYPE_EXPRESSION_PREFIX);
                if (params.empty()) params = callable.getParams();
                TokenPtr& token = params[p].defaultValueTokens[t];
                token = std::make_shared<Token>(*token);
                token->setText(changed);
            }
        }
        if (!params.empty()) callable.setParams(std::move(params));
    }

    // One token of an expression that has not been parsed yet. Suffixes of a type are tokens of their own.
    bool substituteToken(const TokenVec& tokens, std::size_t at, Str& changed) const {
        if (tokens[at]->getType() != TokenType::Identifier) return false;
        const auto textAt = [&](std::size_t index) {
            return index < tokens.size() ? std::string_view(tokens[index]->getText()) : std::string_view();
        };
        const Str& text = tokens[at]->getText();
        const std::string_view next = textAt(at + 1);
        if (at > 0 && textAt(at - 1) == ".") return substituteClause(text, changed);
        if (next == "=" || next == ":") return false;  // named arguments, parameters of lambdas
        if (next == ".") return substituteOwner(text, changed);
        if (next != "?" && next != "[") return substitute(text, changed);
        if (!substitute(text + Str(next), changed)) return false;
        changed.pop_back();
        return true;
    }

    // Every identifier token of a type operand. The tokens are this tree's own.
    void rewriteTypeTokens(const NodePtr& operand) {
        std::vector<NodePtr> pending{operand};
        while (!pending.empty()) {
            const NodePtr node = std::move(pending.back());
            pending.pop_back();
            if (!node) continue;
            const TokenPtr& token = node->token();
            if (token && token->getType() == TokenType::Identifier) {
                if (Str changed; substitute(token->getText(), changed)) token->setText(changed);
            }
            pushBelow(*node, pending);
        }
    }

    bool substitute(std::string_view text, Str& changed) const {
        return substituteTypeThroughout(text, names_, args_, changed);
    }

    // What stands in front of a dot is a class: its arguments do not matter there, and a member of a `T?` is one of T.
    bool substituteOwner(const Str& name, Str& changed) const {
        if (!substitute(name, changed)) return false;
        if (changed.ends_with('?')) changed.pop_back();
        const bool isFlattened = changed.find("__T_") != Str::npos;
        if (Str base; isFlattened && ClassLoader::resolveConcreteGenericBase(changed, base)) changed = base;
        return true;
    }

    // For names that are not types themselves: the base of a clause stays.
    bool substituteClause(const Str& name, Str& changed) const {
        return name.find('<') != Str::npos && substitute(name, changed);
    }

    bool substituteParams(const std::vector<FunctionParam>& params, StrVec& types) const {
        bool isChanged = false;
        for (const FunctionParam& param : params) {
            Str changed;
            if (substitute(param.type, changed)) {
                isChanged = true;
                types.push_back(std::move(changed));
            } else {
                types.push_back(param.type);
            }
        }
        return isChanged;
    }

    const TypeParameterIndex names_;
    const StrVec& args_;
    const bool argumentsNameParameters_;
};

}  // namespace

void applyGenericBindingsToNode(const NodePtr& node, const StrVec& names, const StrVec& args) {
    BodyRewriter(names, args).rewriteTree(node);
}

void applyGenericBindingsToBody(const std::shared_ptr<CallableDeclarationNode>& declaration, const StrVec& names,
                                const StrVec& args) {
    BodyRewriter(names, args).rewriteBody(*declaration);
}

}  // namespace vesk::compiler
