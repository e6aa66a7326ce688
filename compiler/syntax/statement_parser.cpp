// Statements and blocks of statements.
#include <utility>

#include "syntax/parser.h"
#include "syntax/scope_building.h"

namespace vesk::compiler {

namespace {

bool isAssignment(TokenCode code) { return code >= TokenCode::Assign && code <= TokenCode::MatrixAssign; }

}  // namespace

// ------------------------------------------------------------------------------------------------- blocks

void Parser::parseBlockInto(const NodePtr& parent, unsigned indent) {
    if (!parent) return;
    try {
        if (position_ + 1 < tokens_.size()) {
            const ScopeChange inner(*this, parent->context() ? parent->context() : scope_);
            BlockLayout layout = layoutOf(*token());
            if (layout.width < static_cast<int>(indent)) fail(token(), "expected an indented block");
            beginLine();
            if (auto* callable = dynamic_cast<CallableDeclarationNode*>(parent.get())) callable->setHasBody(true);
            parseStatements(layout, *parent);
            if (position_ + 1 < tokens_.size())
                fail(token(), "mixed indentation: no block around this line begins with its blanks");
        }
    } catch (const CompilerException& error) {
        if (errors_ == nullptr) {
            throwEarlier(error);
            throw;
        }
        record(error);
    }
    reportErrors();
}

bool Parser::holdsBlocks(const AbstractNode& statement) {
    const NodeKind kind = statement.getKind();
    return kind == NodeKind::If || kind == NodeKind::While || kind == NodeKind::For;
}

void Parser::parseStatements(BlockLayout& layout, AbstractNode& parent) {
    auto* block = dynamic_cast<BlockNode*>(&parent);
    const std::size_t start = position_;
    bool hadDeclaration = false;
    parseItems(layout, [&] {
        // Those that follow the first have come here in the same way.
        if (beginsDeclaration() && std::exchange(hadDeclaration, true)) return recover(layout, position_);
        NodePtr statement = parseStatement();
        layout.afterInnerBlock = holdsBlocks(*statement);
        if (block != nullptr)
            block->addStatement(std::move(statement));
        else
            parent.addChild(std::move(statement));
    });
    if (hadDeclaration) noteRefused(start, refusedDeclarations_);
}

// The indented lines behind a header's ':'.
void Parser::parseBlockStatements(AbstractNode& parent, const Token& header, const char* owner) {
    DepthGuard depth(*this, blockDepth_);
    BlockLayout layout = openBlock(header, owner);
    parseStatements(layout, parent);
}

std::shared_ptr<BlockNode> Parser::parseBlock(const TokenPtr& header, const char* owner) {
    auto block = std::make_shared<BlockNode>(std::make_shared<Context>(scope_), header);
    ScopeChange inner(*this, block->context());
    parseBlockStatements(*block, *header, owner);
    return block;
}

// --------------------------------------------------------------------------------------------- statements

NodePtr Parser::parseStatement() {
    switch (code_) {
        case TokenCode::If: return parseIf();
        case TokenCode::While: return parseWhile();
        case TokenCode::For: return parseFor();
        case TokenCode::Return: return parseReturn();
        case TokenCode::Break: return parseSimple(NodeKind::Break);
        case TokenCode::Continue: return parseSimple(NodeKind::Continue);
        case TokenCode::Pass: return parseSimple(NodeKind::Pass);
        case TokenCode::Var: return parseVar();
        case TokenCode::Identifier:
            return codeAt(position_ + 1) == TokenCode::Colon ? parseTypedLocal() : parseExpressionStatement();
        case TokenCode::Elif:
        case TokenCode::Else: fail(token(), "'" + token()->getText() + "' without an 'if' above it");
        case TokenCode::Def: fail(token(), "functions are declared in a file or a class, not inside a body");
        case TokenCode::Class:
        case TokenCode::Interface: fail(token(), "classes are declared in a file or a class, not inside a body");
        case TokenCode::Package:
        case TokenCode::Import: fail(token(), "'" + token()->getText() + "' stands at the beginning of a file");
        case TokenCode::At: fail(token(), "an annotation stands above a declaration, not above a statement");
        default: return parseExpressionStatement();
    }
}

// A chain of `elif` is as long as it likes: each hangs below the one before without recursion here.
NodePtr Parser::parseIf() {
    const Str* const blanks = &token()->lineBlanks();
    std::shared_ptr<IfNode> first, last;
    for (;;) {
        const TokenPtr keyword = advance();
        NodePtr condition = parseExpression();
        const char* owner = first ? "'elif'" : "'if'";
        expectBodyColon(owner);
        NodePtr thenBranch = parseBlock(keyword, owner);
        auto node = std::make_shared<IfNode>(std::move(condition), std::move(thenBranch), scope_, keyword);
        if (last)
            last->setElseBranch(node);
        else
            first = node;
        last = std::move(node);
        const Token& next = *token();
        if (position_ + 1 >= tokens_.size() || &next.lineBlanks() != blanks) return first;
        if (next.code() == TokenCode::Elif) {
            beginLine();
            continue;
        }
        if (next.code() == TokenCode::Else) {
            beginLine();
            const TokenPtr otherwise = advance();
            expectBodyColon("'else'");
            last->setElseBranch(parseBlock(otherwise, "'else'"));
        }
        return first;
    }
}

void Parser::parseLoopBody(BlockNode& loop, const char* owner) {
    expectBodyColon(owner);
    ScopeChange inner(*this, loop.context());
    loopDepth_++;
    struct LoopEnd {
        int& depth;
        ~LoopEnd() { depth--; }
    } const end{loopDepth_};
    parseBlockStatements(loop, *loop.token(), owner);
}

NodePtr Parser::parseWhile() {
    const TokenPtr keyword = advance();
    NodePtr condition = parseExpression();
    auto loop = std::make_shared<WhileNode>(std::move(condition), std::make_shared<Context>(scope_), keyword);
    parseLoopBody(*loop, "'while'");
    return loop;
}

NodePtr Parser::parseFor() {
    const TokenPtr keyword = advance();
    const TokenPtr variable = expect(TokenCode::Identifier, "the name of the loop variable");
    Str name = declaredName(variable, "a loop variable");
    expect(TokenCode::In, "'in' behind the loop variable");
    NodePtr iterable = parseExpression();
    auto loop =
        std::make_shared<ForNode>(name, variable, std::move(iterable), std::make_shared<Context>(scope_), keyword);
    declareScopeVariable(loop->context(), name, Str(AUTO_TYPE_MARKER), loop.get(), variable->getLine(),
                         variable->getColumn());
    parseLoopBody(*loop, "'for'");
    return loop;
}

NodePtr Parser::parseReturn() {
    const TokenPtr keyword = advance();
    if (isChunkStatement_) fail(keyword, "'return' outside a function");
    NodePtr value;
    if (code_ != TokenCode::LineEnd) value = parseExpression();
    expectLineEnd("the statement");
    return std::make_shared<ReturnNode>(std::move(value), scope_, keyword);
}

NodePtr Parser::parseSimple(NodeKind kind) {
    const TokenPtr keyword = advance();
    if (kind != NodeKind::Pass && loopDepth_ == 0) fail(keyword, "'" + keyword->getText() + "' outside a loop");
    expectLineEnd("the statement");
    return std::make_shared<SimpleStatementNode>(kind, scope_, keyword);
}

NodePtr Parser::declareLocal(const TokenPtr& name, Str type, NodePtr initializer) {
    expectLineEnd("the declaration");
    auto node = std::make_shared<DeclarationNode>(name->getText(), type, std::move(initializer), scope_, name);
    declareScopeVariable(scope_, name->getText(), type, node.get(), name->getLine(), name->getColumn());
    return node;
}

NodePtr Parser::parseVar() {
    advance();
    const TokenPtr name = expect(TokenCode::Identifier, "the name of a variable");
    declaredName(name, "a variable");
    Str type;
    if (accept(TokenCode::Colon)) type = parseType();
    NodePtr initializer;
    if (accept(TokenCode::Assign)) initializer = parseExpression();
    if (type.empty()) {
        if (!initializer) failExpected("':' and a type, or '=' and a value");
        type = AUTO_TYPE_MARKER;
    }
    return declareLocal(name, std::move(type), std::move(initializer));
}

NodePtr Parser::parseTypedLocal() {
    const TokenPtr name = advance();
    declaredName(name, "a variable");
    advance();
    if (code_ == TokenCode::LineEnd) failExpected("a type");
    Str type = parseType();
    NodePtr initializer;
    if (accept(TokenCode::Assign)) initializer = parseExpression();
    return declareLocal(name, std::move(type), std::move(initializer));
}

void Parser::checkAssignable(const AbstractNode& target, const TokenPtr& op) const {
    switch (target.getKind()) {
        case NodeKind::Index: return;
        case NodeKind::Value:
        case NodeKind::Member: {
            const Str name = target.getName();
            if (target.getKind() == NodeKind::Value && (name == "self" || name == "this" || name == "super"))
                fail(op, "cannot assign to '" + name + "'");
            if (name.back() != '>') return;
            break;
        }
        default: break;
    }
    fail(op, "cannot assign to this expression: expected a variable, a member or an element before '" + op->getText() +
                 "'");
}

NodePtr Parser::parseExpressionStatement() {
    NodePtr expression = parseExpression();
    if (!isAssignment(code_)) {
        expectLineEnd("the statement");
        return expression;
    }
    const TokenPtr op = advance();
    checkAssignable(*expression, op);
    NodePtr value = parseExpression();
    expectLineEnd("the statement");
    return std::make_shared<AssignmentNode>(std::move(expression), op->getText(), std::move(value), scope_, op);
}

}  // namespace vesk::compiler
