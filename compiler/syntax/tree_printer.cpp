// Printing with a stack of its own: what is still to be written lies on it, the next piece on top.
#include "syntax/tree_printer.h"

#include "syntax/token_codes.h"

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
    return "unknown";
}

Str quoted(const Str& value) {
    static constexpr char DIGITS[] = "0123456789ABCDEF";
    Str text = "\"";
    for (char c : value) {
        if (c == '"' || c == '\\') {
            text += '\\';
            text += c;
        } else if (c == '\n') {
            text += "\\n";
        } else if (static_cast<unsigned char>(c) < 0x20) {
            text += "\\u{";
            text += DIGITS[static_cast<unsigned char>(c) >> 4];
            text += DIGITS[static_cast<unsigned char>(c) & 15];
            text += '}';
        } else {
            text += c;
        }
    }
    return text + "\"";
}

class TreePrinter {
public:
    Str print(const NodePtr& root) {
        pushNode(root.get(), 0, true);
        while (!stack_.empty()) {
            const Piece piece = std::move(stack_.back());
            stack_.pop_back();
            if (piece.node == nullptr)
                out_ += piece.text;
            else
                write(*piece.node, piece.indent, piece.isLine);
        }
        return std::move(out_);
    }

private:
    struct Piece {
        const AbstractNode* node = nullptr;
        Str text;
        int indent = 0;
        bool isLine = false;  // the node is written on lines of its own
    };
    // Pieces in reading order, put on the stack as a whole.
    struct Sequence {
        std::vector<Piece> pieces;
        Sequence& text(Str text) {
            pieces.push_back({nullptr, std::move(text), 0, false});
            return *this;
        }
        Sequence& expression(const NodePtr& node) {
            if (node)
                pieces.push_back({node.get(), {}, 0, false});
            else
                text("<none>");
            return *this;
        }
        Sequence& expressions(const NodeVec& nodes) {
            for (const NodePtr& node : nodes) text(" ").expression(node);
            return *this;
        }
        Sequence& line(const NodePtr& node, int indent) {
            if (node) pieces.push_back({node.get(), {}, indent, true});
            return *this;
        }
        Sequence& lines(const NodeVec& nodes, int indent) {
            for (const NodePtr& node : nodes) line(node, indent);
            return *this;
        }
    };

    void pushNode(const AbstractNode* node, int indent, bool isLine) {
        if (node != nullptr) stack_.push_back({node, {}, indent, isLine});
    }
    void push(Sequence sequence) {
        for (std::size_t i = sequence.pieces.size(); i-- > 0;) stack_.push_back(std::move(sequence.pieces[i]));
    }

    void write(const AbstractNode& node, int indent, bool isLine) {
        if (isLine) out_.append(static_cast<std::size_t>(indent) * 4, ' ');
        Sequence sequence;
        switch (node.getKind()) {
            case NodeKind::File: writeFile(static_cast<const FileNode&>(node), sequence); break;
            case NodeKind::Class: writeClass(static_cast<const ClassNode&>(node), indent, sequence); break;
            case NodeKind::Function:
            case NodeKind::Method:
                writeCallable(static_cast<const CallableDeclarationNode&>(node), indent, sequence);
                break;
            case NodeKind::Field: writeField(static_cast<const FieldNode&>(node), indent, sequence); break;
            case NodeKind::Annotation:
                sequence.text("@" + node.getName()).expressions(node.getChildren()).text("\n");
                break;
            case NodeKind::Block:
            case NodeKind::If:
            case NodeKind::While:
            case NodeKind::For:
            case NodeKind::Declaration:
            case NodeKind::Assignment:
            case NodeKind::Return:
            case NodeKind::Break:
            case NodeKind::Continue:
            case NodeKind::Pass: writeStatement(node, indent, sequence); break;
            default:
                writeExpression(node, sequence);
                if (isLine) sequence.text("\n");
        }
        push(std::move(sequence));
    }

    static void writeFile(const FileNode& file, Sequence& out) {
        if (!file.package().name.empty()) out.text("package " + file.package().name + "\n");
        for (const PackageLine& import : file.imports()) out.text("import " + import.name + "\n");
        out.lines(file.getChildren(), 0);
    }

    // Annotations are written on lines before the declaration whose indentation is written already.
    static void writeAnnotations(const std::vector<std::shared_ptr<AnnotationNode>>& annotations, int indent,
                                 Sequence& out) {
        for (const auto& annotation : annotations) {
            out.text("@" + annotation->getName()).expressions(annotation->getChildren());
            out.text("\n" + Str(static_cast<std::size_t>(indent) * 4, ' '));
        }
    }

    static Str typeParamsText(const std::vector<GenericTypeParam>& params) {
        if (params.empty()) return {};
        Str text = "<";
        for (const GenericTypeParam& param : params) {
            if (text.size() > 1) text += ", ";
            text += param.name;
            if (!param.constraint.empty()) text += ": " + param.constraint;
            if (!param.defaultType.empty()) text += " = " + param.defaultType;
        }
        return text + ">";
    }

    static Str paramsText(const std::vector<FunctionParam>& params) {
        Str text = "(";
        for (const FunctionParam& param : params) {
            if (text.size() > 1) text += ", ";
            text += param.isVariadic ? "*" : param.isNamedVariadic ? "**" : "";
            text += param.name + ": " + param.type;
            if (!param.hasDefault) continue;
            text += " =";
            for (const TokenPtr& token : param.defaultValueTokens) text += " " + token->getText();
        }
        return text + ")";
    }

    static void writeCallable(const CallableDeclarationNode& node, int indent, Sequence& out) {
        writeAnnotations(node.getAnnotations(), indent, out);
        Str head;
        for (const Str& modifier : node.getModifiers()) head += modifier + " ";
        head += "def " + node.name() + typeParamsText(node.getTypeParams()) + paramsText(node.getParams());
        if (!node.returnType().empty()) head += " -> " + node.returnType();
        out.text(head + (node.hasBody() ? ":\n" : "\n")).lines(node.getBody(), indent + 1);
    }

    static void writeClass(const ClassNode& node, int indent, Sequence& out) {
        writeAnnotations(node.getAnnotations(), indent, out);
        Str head = node.isNative() ? "native " : "";
        head += (node.isInterface() ? "interface " : "class ") + node.name() + typeParamsText(node.getTypeParams());
        if (!node.superType().empty()) head += " extends " + node.superType();
        const char* keyword = node.isInterface() ? " extends " : " implements ";
        for (const Str& interface : node.interfaces()) {
            head += keyword + interface;
            keyword = ", ";
        }
        out.text(head + ":\n").lines(node.getChildren(), indent + 1);
    }

    static void writeField(const FieldNode& node, int indent, Sequence& out) {
        static constexpr const char* VISIBILITIES[] = {"", "protected ", "private ", "internal "};
        writeAnnotations(node.getAnnotations(), indent, out);
        out.text(VISIBILITIES[static_cast<int>(node.visibility())] + Str(node.isStatic() ? "static " : "") + "field " +
                 node.name() + ": " + node.type());
        if (node.getInitializer()) out.text(" = ").expression(node.getInitializer());
        out.text("\n");
    }

    static void writeStatement(const AbstractNode& node, int indent, Sequence& out) {
        switch (node.getKind()) {
            case NodeKind::Block:
                out.text("block\n").lines(static_cast<const BlockNode&>(node).getStatements(), indent + 1);
                break;
            case NodeKind::If: {
                const auto& branch = static_cast<const IfNode&>(node);
                out.text("if ").expression(branch.getCondition()).text("\n");
                writeBranch(branch.getThenBranch(), indent, out);
                writeElse(branch.getElseBranch(), indent, out);
                break;
            }
            case NodeKind::While:
                out.text("while ").expression(node.getChildren()[0]).text("\n");
                out.lines(static_cast<const BlockNode&>(node).getStatements(), indent + 1);
                break;
            case NodeKind::For:
                out.text("for " + static_cast<const ForNode&>(node).variable() + " in ")
                    .expression(node.getChildren()[0]);
                out.text("\n").lines(static_cast<const BlockNode&>(node).getStatements(), indent + 1);
                break;
            case NodeKind::Declaration: {
                const auto& declaration = static_cast<const DeclarationNode&>(node);
                const bool isOpen = declaration.declaredType().compare(0, 3, "###") == 0;
                out.text("var " + node.getName() + (isOpen ? "" : ": " + declaration.declaredType()));
                if (declaration.getInitializer()) out.text(" = ").expression(declaration.getInitializer());
                out.text("\n");
                break;
            }
            case NodeKind::Assignment: {
                const auto& assignment = static_cast<const AssignmentNode&>(node);
                out.text("(" + assignment.op() + " ").expression(assignment.target()).text(" ");
                out.expression(assignment.value()).text(")\n");
                break;
            }
            case NodeKind::Return: out.text("return").expressions(node.getChildren()).text("\n"); break;
            case NodeKind::Break: out.text("break\n"); break;
            case NodeKind::Continue: out.text("continue\n"); break;
            default: out.text("pass\n"); break;
        }
    }

    static void writeBranch(const NodePtr& branch, int indent, Sequence& out) {
        if (branch && branch->getKind() == NodeKind::Block)
            out.lines(static_cast<const BlockNode&>(*branch).getStatements(), indent + 1);
    }

    static void writeElse(const NodePtr& branch, int indent, Sequence& out) {
        if (!branch) return;
        const Str blanks(static_cast<std::size_t>(indent) * 4, ' ');
        if (branch->getKind() == NodeKind::If) {
            out.text(blanks + "el");
            out.pieces.push_back({branch.get(), {}, indent, false});
        } else {
            out.text(blanks + "else\n");
            writeBranch(branch, indent, out);
        }
    }

    static void writeExpression(const AbstractNode& node, Sequence& out) {
        switch (node.getKind()) {
            case NodeKind::Value: out.text(static_cast<const ValueExpressionNode&>(node).value()); break;
            case NodeKind::Literal: out.text(static_cast<const LiteralNode&>(node).text()); break;
            case NodeKind::StringLiteral: out.text(quoted(static_cast<const StringLiteralNode&>(node).value())); break;
            case NodeKind::Type: out.text("'" + static_cast<const TypeNode&>(node).typeText() + "'"); break;
            case NodeKind::Member:
                out.text("(. ").expression(node.getChildren()[0]).text(" " + node.getName() + ")");
                break;
            case NodeKind::Index: out.text("(index").expressions(node.getChildren()).text(")"); break;
            case NodeKind::Callable: {
                const auto& call = static_cast<const CallableExpressionNode&>(node);
                if (call.receiver())
                    out.text("(call (. ").expression(call.receiver()).text(" " + call.name() + ")");
                else
                    out.text("(call " + call.name());
                out.expressions(call.getArguments()).text(")");
                break;
            }
            case NodeKind::CallValue: out.text("(call-value").expressions(node.getChildren()).text(")"); break;
            case NodeKind::Operator: {
                const auto& operation = static_cast<const OperatorExpressionNode&>(node);
                out.text("(" + operation.op()).expressions(node.getChildren());
                if (operation.getTypeOperand()) out.text(" ").expression(operation.getTypeOperand());
                out.text(")");
                break;
            }
            case NodeKind::Conditional: out.text("(if").expressions(node.getChildren()).text(")"); break;
            case NodeKind::ListLiteral: out.text("(list").expressions(node.getChildren()).text(")"); break;
            case NodeKind::MapLiteral: out.text("(map").expressions(node.getChildren()).text(")"); break;
            case NodeKind::Lambda:
                out.text("(lambda " + paramsText(static_cast<const LambdaNode&>(node).params()));
                out.expressions(node.getChildren()).text(")");
                break;
            case NodeKind::NamedArgument:
                out.text("(" + node.getName() + " =").expressions(node.getChildren()).text(")");
                break;
            default: out.text("?"); break;
        }
    }

    std::vector<Piece> stack_;
    Str out_;
};

}  // namespace

Str printTokens(const TokenVec& tokens) {
    Str out;
    for (const TokenPtr& token : tokens) {
        out += std::to_string(token->getLine()) + ":" + std::to_string(token->getColumn()) + "\t" +
               (token->startsLine() ? "|" : " ") + " " + kindName(token->getType()) + "\t" + token->getText() + "\n";
    }
    return out;
}

Str printTokensAsSource(const TokenVec& tokens) {
    Str out;
    const Token* before = nullptr;
    for (const TokenPtr& token : tokens) {
        if (token->startsLine() || (before == nullptr && !token->lineBlanks().empty())) {
            if (before != nullptr) out += '\n';
            out += token->lineBlanks();
        } else if (token->hasBlankBefore() && before != nullptr) {
            out += ' ';
        }
        out += token->getText();
        before = token.get();
    }
    if (before != nullptr) out += '\n';
    return out;
}

Str printTree(const NodePtr& root) { return TreePrinter().print(root); }

}  // namespace vesk::compiler
