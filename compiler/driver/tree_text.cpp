// Writing of tokens and trees.
#include "driver/tree_text.h"

namespace vesk::compiler {
namespace {

const char* kindName(TokenType type) {
    switch (type) {
        case TokenType::Keyword: return "keyword";
        case TokenType::Symbol: return "symbol";
        case TokenType::Identifier: return "identifier";
        case TokenType::Integer: return "integer";
        case TokenType::Floating: return "floating";
        case TokenType::String: return "string";
    }
    return "token";
}

const char* kindName(NodeKind kind) {
    switch (kind) {
        case NodeKind::File: return "File";
        case NodeKind::Function: return "Function";
        case NodeKind::Method: return "Method";
        case NodeKind::Class: return "Class";
        case NodeKind::Field: return "Field";
        case NodeKind::Annotation: return "Annotation";
        case NodeKind::Block: return "Block";
        case NodeKind::If: return "If";
        case NodeKind::While: return "While";
        case NodeKind::For: return "For";
        case NodeKind::Declaration: return "Declaration";
        case NodeKind::Assignment: return "Assignment";
        case NodeKind::Return: return "Return";
        case NodeKind::Break: return "Break";
        case NodeKind::Continue: return "Continue";
        case NodeKind::Pass: return "Pass";
        case NodeKind::Value: return "Value";
        case NodeKind::Literal: return "Literal";
        case NodeKind::StringLiteral: return "StringLiteral";
        case NodeKind::Member: return "Member";
        case NodeKind::Index: return "Index";
        case NodeKind::Callable: return "Call";
        case NodeKind::CallValue: return "CallValue";
        case NodeKind::Operator: return "Operator";
        case NodeKind::Conditional: return "Conditional";
        case NodeKind::ListLiteral: return "ListLiteral";
        case NodeKind::MapLiteral: return "MapLiteral";
        case NodeKind::Lambda: return "Lambda";
        case NodeKind::NamedArgument: return "NamedArgument";
        case NodeKind::Type: return "Type";
    }
    return "Node";
}

std::string typeParametersText(const std::vector<GenericTypeParam>& parameters) {
    if (parameters.empty()) return "";
    std::string text = "<";
    for (const GenericTypeParam& parameter : parameters) {
        if (text.size() > 1) text += ", ";
        text += parameter.name;
        if (!parameter.constraint.empty()) text += ": " + parameter.constraint;
        if (!parameter.defaultType.empty()) text += " = " + parameter.defaultType;
    }
    return text + ">";
}

std::string parametersText(const std::vector<FunctionParam>& parameters) {
    std::string text = "(";
    for (const FunctionParam& parameter : parameters) {
        if (text.size() > 1) text += ", ";
        text += (parameter.isNamedVariadic ? "**"
                 : parameter.isVariadic    ? "*"
                                           : "") +
                parameter.name + ": " + parameter.type;
        if (parameter.hasDefault) {
            text += " =";
            for (const TokenPtr& token : parameter.defaultValueTokens) text += " " + token->getText();
        }
    }
    return text + ")";
}

std::string callableText(const CallableDeclarationNode& node) {
    std::string text;
    for (const Str& modifier : node.getModifiers()) text += " " + modifier;
    text += " " + node.name() + typeParametersText(node.getTypeParams()) + parametersText(node.getParams());
    if (!node.returnType().empty()) text += " -> " + node.returnType();
    return text;
}

std::string classText(const ClassNode& node) {
    std::string text =
        (node.isInterface() ? " interface " : " ") + node.name() + typeParametersText(node.getTypeParams());
    if (!node.superType().empty()) text += " extends " + node.superType();
    for (std::size_t i = 0; i < node.interfaces().size(); i++)
        text += (i ? ", " : " implements ") + node.interfaces()[i];
    return text;
}

// What a node says beside its kind and its children.
std::string detail(const AbstractNode& node) {
    switch (node.getKind()) {
        case NodeKind::Function:
        case NodeKind::Method: return callableText(static_cast<const CallableDeclarationNode&>(node));
        case NodeKind::Class: return classText(static_cast<const ClassNode&>(node));
        case NodeKind::Field: {
            const auto& field = static_cast<const FieldNode&>(node);
            return " " + field.name() + ": " + field.type() + (field.isStatic() ? " static" : "");
        }
        case NodeKind::For: return " " + static_cast<const ForNode&>(node).variable();
        case NodeKind::Declaration: {
            const auto& declaration = static_cast<const DeclarationNode&>(node);
            return " " + declaration.getVariableName() + ": " + declaration.declaredType();
        }
        case NodeKind::Assignment: return " " + static_cast<const AssignmentNode&>(node).op();
        case NodeKind::Literal: return " " + static_cast<const LiteralNode&>(node).text();
        case NodeKind::StringLiteral: return " " + node.token()->getText();
        case NodeKind::Operator: {
            const auto& operation = static_cast<const OperatorExpressionNode&>(node);
            std::string text = " " + operation.op();
            if (const NodePtr type = operation.getTypeOperand()) text += " " + type->token()->getText();
            return text;
        }
        case NodeKind::Lambda: return " " + parametersText(static_cast<const LambdaNode&>(node).params());
        case NodeKind::Type: return " " + static_cast<const TypeNode&>(node).typeText();
        default: {
            const Str name = node.getName();
            return name.empty() ? "" : " " + name;
        }
    }
}

void appendPackageLines(std::ostream& out, const FileNode& file) {
    if (!file.package().name.empty()) out << "  Package " << file.package().name << "\n";
    for (const PackageLine& line : file.imports()) out << "  Import " << line.name << "\n";
}

}  // namespace

void writeTokens(std::ostream& out, const TokenVec& tokens) {
    for (const TokenPtr& token : tokens) {
        out << token->getLine() << ":" << token->getColumn() << " " << kindName(token->getType()) << " "
            << token->getText();
        if (token->startsLine()) out << " (line begins, indent " << token->lineIndent() << ")";
        out << "\n";
    }
}

void writeTree(std::ostream& out, const NodePtr& root) {
    struct Pending {
        NodePtr node;
        std::size_t depth;
        const char* role;
    };
    std::vector<Pending> pending = {{root, 0, ""}};
    while (!pending.empty()) {
        const Pending next = std::move(pending.back());
        pending.pop_back();
        if (!next.node) continue;
        out << std::string(2 * std::min<std::size_t>(next.depth, 200), ' ') << next.role
            << kindName(next.node->getKind());
        if (next.node->getKind() == NodeKind::File) {
            out << "\n";
            appendPackageLines(out, static_cast<const FileNode&>(*next.node));
        } else {
            out << detail(*next.node);
            if (next.node->token())
                out << " @" << next.node->token()->getLine() << ":" << next.node->token()->getColumn();
            out << "\n";
        }
        if (next.node->getKind() == NodeKind::If) {
            pending.push_back({static_cast<const IfNode&>(*next.node).getElseBranch(), next.depth + 1, "else "});
        }
        const NodeVec& children = next.node->getChildren();
        for (auto child = children.rbegin(); child != children.rend(); ++child)
            pending.push_back({*child, next.depth + 1, ""});
    }
}

}  // namespace vesk::compiler
