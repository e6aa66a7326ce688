// Expressions, by precedence climbing. Loosest first:
//     a if c else b, lambda      right
//     ||                         left
//     &&                         left
//     !                          prefix
//     == != < <= > >= is isnot   left
//     + -                        left
//     * / // % @                 left
//     as                         postfix with a type
//     - +                        prefix
//     **                         right; its right operand may begin with a sign
//     call, index, member        postfix
// A lambda takes all that follows it, so nothing is called, indexed or raised to a power behind it: what its body leaves
// over, as the `(3)` of `(x: Int) => x as Long(3)`, is a mistake.
// Chains of one level are built by loops: only brackets, prefixes and right operands nest, and these are counted.
#include "syntax/parser.h"
#include "syntax/scope_building.h"
#include "syntax/string_literal.h"

namespace vesk::compiler {

namespace {

enum Level { OR = 1, AND, NOT, COMPARISON, SUM, PRODUCT, CAST };

int levelOf(TokenCode code) {
    switch (code) {
        case TokenCode::Or: return OR;
        case TokenCode::And: return AND;
        case TokenCode::Equal:
        case TokenCode::NotEqual:
        case TokenCode::Less:
        case TokenCode::LessEqual:
        case TokenCode::Greater:
        case TokenCode::GreaterEqual:
        case TokenCode::Is:
        case TokenCode::IsNot: return COMPARISON;
        case TokenCode::Plus:
        case TokenCode::Minus: return SUM;
        case TokenCode::Star:
        case TokenCode::Slash:
        case TokenCode::FloorDivide:
        case TokenCode::Percent:
        case TokenCode::At: return PRODUCT;
        case TokenCode::As: return CAST;
        default: return 0;
    }
}

bool hasClause(const Str& name) { return name.back() == '>'; }

NodePtr unary(const TokenPtr& op, NodePtr operand, const ContextPtr& scope) {
    NodeVec operands;
    operands.push_back(std::move(operand));
    return std::make_shared<OperatorExpressionNode>(op->getText(), std::move(operands), nullptr, scope, op);
}

NodePtr binary(const TokenPtr& op, NodePtr left, NodePtr right, const ContextPtr& scope) {
    NodeVec operands;
    operands.reserve(2);
    operands.push_back(std::move(left));
    operands.push_back(std::move(right));
    return std::make_shared<OperatorExpressionNode>(op->getText(), std::move(operands), nullptr, scope, op);
}

}  // namespace

NodePtr Parser::parseExpression() {
    DepthGuard depth(*this, depth_);
    NodePtr value = parseBinary(OR);
    if (code_ != TokenCode::If) return value;
    const TokenPtr keyword = advance();
    NodePtr condition = parseBinary(OR);
    expect(TokenCode::Else, "'else' of the conditional expression");
    NodePtr otherwise = parseExpression();
    return std::make_shared<ConditionalNode>(std::move(condition), std::move(value), std::move(otherwise), scope_,
                                             keyword);
}

NodePtr Parser::parseBinary(int minimum) {
    NodePtr left = code_ == TokenCode::Not ? parseNot(minimum) : parseUnary();
    for (;;) {
        const int level = levelOf(code_);
        if (level == 0 || level < minimum) return left;
        if (code_ == TokenCode::Is || code_ == TokenCode::IsNot) {
            left = parseTypeTest(std::move(left));
        } else if (code_ == TokenCode::As) {
            left = parseCast(std::move(left));
        } else {
            const TokenPtr& op = advance();
            NodePtr right = parseBinary(level + 1);
            left = binary(op, std::move(left), std::move(right), scope_);
        }
    }
}

NodePtr Parser::parseNot(int minimum) {
    const TokenPtr& op = token();
    if (minimum > NOT) fail(op, "'!' binds looser than the operator before it: put it in parentheses");
    DepthGuard depth(*this, depth_);
    advance();
    return unary(op, parseBinary(NOT), scope_);
}

NodePtr Parser::parseUnary() {
    if (code_ == TokenCode::Not) fail(token(), "'!' binds looser than the operator before it: put it in parentheses");
    if (code_ == TokenCode::OpenParen && isLambdaAhead()) return parseLambda();
    if (code_ != TokenCode::Minus && code_ != TokenCode::Plus) return parsePower();
    DepthGuard depth(*this, depth_);
    const TokenPtr& op = advance();
    return unary(op, parseUnary(), scope_);
}

NodePtr Parser::parsePower() {
    NodePtr base = parsePostfix();
    if (code_ != TokenCode::Power) return base;
    DepthGuard depth(*this, depth_);
    const TokenPtr& op = advance();
    return binary(op, std::move(base), parseUnary(), scope_);
}

// `is T`, `isnot T`, `is null`, `isnot null`.
NodePtr Parser::parseTypeTest(NodePtr operand) {
    const TokenPtr& op = advance();
    if (code_ == TokenCode::Null) {
        const TokenPtr& null = advance();
        return binary(op, std::move(operand),
                      std::make_shared<LiteralNode>(LiteralKind::Null, null->getText(), scope_, null), scope_);
    }
    NodePtr type = parseTypeNode();
    NodeVec operands;
    operands.push_back(std::move(operand));
    return std::make_shared<OperatorExpressionNode>(op->getText(), std::move(operands), std::move(type), scope_, op);
}

NodePtr Parser::parseCast(NodePtr operand) {
    const TokenPtr& op = advance();
    Str name(CAST_PREFIX);
    name += parseType();
    NodeVec arguments;
    arguments.push_back(std::move(operand));
    return std::make_shared<CallableExpressionNode>(nullptr, std::move(name), std::move(arguments), scope_, op);
}

// ------------------------------------------------------------------------------- names, members and calls

NodePtr Parser::parsePostfix() {
    NodePtr value = parsePrimary();
    for (;;) {
        switch (code_) {
            case TokenCode::Dot:
                advance();
                value = parseMember(std::move(value));
                break;
            case TokenCode::OpenParen: {
                const TokenPtr open = token();
                NodeVec arguments = parseArguments();
                value = std::make_shared<CallValueNode>(std::move(value), std::move(arguments), scope_, open);
                break;
            }
            case TokenCode::OpenBracket: {
                const TokenPtr& open = advance();
                NodePtr index = parseExpression();
                expect(TokenCode::CloseBracket, "']' behind the index");
                value = std::make_shared<IndexExpressionNode>(std::move(value), std::move(index), scope_, open);
                break;
            }
            default: return value;
        }
    }
}

bool Parser::namesAhead(std::initializer_list<std::string_view> names) const {
    std::size_t at = position_;
    for (std::string_view name : names) {
        if (codeAt(at) != TokenCode::Dot || codeAt(at + 1) != TokenCode::Identifier ||
            tokens_[at + 1]->getText() != name)
            return false;
        at += 2;
    }
    return codeAt(at) == TokenCode::OpenParen;
}

NodePtr Parser::parseNameExpression() {
    const TokenPtr& name = advance();
    const Str& text = name->getText();
    if (text == "type" && code_ == TokenCode::OpenParen) return parseTypeCall(text, name);
    if (code_ == TokenCode::Dot && text == "Application" && namesAhead({"type"})) {
        position_ += 2;
        return parseTypeCall("Application.type", tokens_[position_ - 1]);
    }
    if (code_ == TokenCode::Dot && text == "vesk" && namesAhead({"Application", "type"})) {
        position_ += 4;
        return parseTypeCall("vesk.Application.type", tokens_[position_ - 1]);
    }
    Str full = hasClause(text) ? nameWithClause(name) : text;
    if (code_ == TokenCode::OpenParen) {
        NodeVec arguments = parseArguments();
        return std::make_shared<CallableExpressionNode>(nullptr, std::move(full), std::move(arguments), scope_, name);
    }
    if (code_ == TokenCode::Question ||
        (code_ == TokenCode::OpenBracket && codeAt(position_ + 1) == TokenCode::CloseBracket))
        return parseArrayConstructor(std::move(full), name);
    if (code_ == TokenCode::Dot && hasClause(full)) return typeExpression(full, name);
    return std::make_shared<ValueExpressionNode>(std::move(full), scope_, name);
}

// What stands behind a '.'.
NodePtr Parser::parseMember(NodePtr object) {
    const TokenPtr& name = expect(TokenCode::Identifier, "the name of a member behind '.'");
    Str full = hasClause(name->getText()) ? nameWithClause(name) : name->getText();
    if (code_ == TokenCode::OpenParen) {
        NodeVec arguments = parseArguments();
        return std::make_shared<CallableExpressionNode>(std::move(object), std::move(full), std::move(arguments),
                                                        scope_, name);
    }
    const bool isArrayType = code_ == TokenCode::Question ||
                             (code_ == TokenCode::OpenBracket && codeAt(position_ + 1) == TokenCode::CloseBracket);
    if (isArrayType || (code_ == TokenCode::Dot && hasClause(full))) {
        const std::optional<Str> qualifier = qualifiedText(object);
        if (!qualifier) fail(name, "a type cannot stand behind a value");
        Str type = *qualifier + "." + full;
        return isArrayType ? parseArrayConstructor(std::move(type), name) : typeExpression(type, name);
    }
    return std::make_shared<MemberExpressionNode>(std::move(object), std::move(full), scope_, name);
}

NodePtr Parser::typeExpression(const Str& type, const TokenPtr& token) {
    constexpr std::size_t MAX_TYPE_NAME = 1 << 16;
    if (type.size() > MAX_TYPE_NAME) fail(token, "this type's name is too long");
    return std::make_shared<ValueExpressionNode>(Str(TYPE_EXPRESSION_PREFIX) + type, scope_, token);
}

// The text `a.b.C` of a chain of names, nothing for any other expression.
std::optional<Str> Parser::qualifiedText(const NodePtr& chain) const {
    std::vector<Str> parts;
    const AbstractNode* at = chain.get();
    while (at->getKind() == NodeKind::Member) {
        parts.push_back(at->getName());
        at = at->getChildren()[0].get();
    }
    if (at->getKind() != NodeKind::Value) return std::nullopt;
    Str text = at->getName();
    if (text.compare(0, TYPE_EXPRESSION_PREFIX.size(), TYPE_EXPRESSION_PREFIX) == 0)
        text.erase(0, TYPE_EXPRESSION_PREFIX.size());
    for (std::size_t i = parts.size(); i-- > 0;) text += "." + parts[i];
    return text;
}

// `Int[](10)`, `a.b.C?[][](n)`: the suffixes and the arguments.
NodePtr Parser::parseArrayConstructor(Str elementType, TokenPtr token) {
    Str type = std::move(elementType);
    for (;;) {
        if (type.back() != '?' && accept(TokenCode::Question)) {
            type += '?';
            continue;
        }
        if (code_ != TokenCode::OpenBracket) break;
        advance();
        expect(TokenCode::CloseBracket, "']' of an array type");
        type += "[]";
    }
    if (type.back() != ']') failExpected("'[]' of an array type");
    if (code_ != TokenCode::OpenParen) failExpected("'(' and the length of the array");
    NodeVec arguments = parseArguments();
    return std::make_shared<CallableExpressionNode>(nullptr, std::move(type), std::move(arguments), scope_,
                                                    std::move(token));
}

// `type(T)`: the argument is a type.
NodePtr Parser::parseTypeCall(Str callee, TokenPtr token) {
    advance();  // the "("
    NodeVec arguments;
    arguments.push_back(parseTypeNode());
    expect(TokenCode::CloseParen, "')' behind the type");
    return std::make_shared<CallableExpressionNode>(nullptr, std::move(callee), std::move(arguments), scope_,
                                                    std::move(token));
}

NodeVec Parser::parseArguments() {
    NodeVec arguments;
    advance();
    if (accept(TokenCode::CloseParen)) return arguments;
    bool hasNamed = false;
    do {
        const TokenPtr& start = token();
        if (code_ == TokenCode::Identifier && codeAt(position_ + 1) == TokenCode::Assign) {
            if (hasClause(start->getText())) fail(start, "the name of an argument has no generic clause");
            hasNamed = true;
            advance();
            advance();
            NodePtr value = parseExpression();
            arguments.push_back(std::make_shared<NamedArgumentNode>(start->getText(), std::move(value), scope_, start));
            continue;
        }
        NodePtr value = parseExpression();
        if (hasNamed) fail(start, "a positional argument cannot follow a named one");
        arguments.push_back(std::move(value));
    } while (accept(TokenCode::Comma));
    expect(TokenCode::CloseParen, "',' or ')' in the arguments");
    return arguments;
}

// -------------------------------------------------------------------------------------------- primaries

NodePtr Parser::parsePrimary() {
    const auto literal = [this](LiteralKind kind) {
        const TokenPtr& token = advance();
        return std::make_shared<LiteralNode>(kind, token->getText(), scope_, token);
    };
    switch (code_) {
        case TokenCode::Identifier: return parseNameExpression();
        case TokenCode::Integer: return literal(LiteralKind::Integer);
        case TokenCode::Floating: return literal(LiteralKind::Floating);
        case TokenCode::True:
        case TokenCode::False: return literal(LiteralKind::Bool);
        case TokenCode::Null: return literal(LiteralKind::Null);
        case TokenCode::String: {
            const TokenPtr& token = advance();
            return std::make_shared<StringLiteralNode>(decodeStringLiteral(token->getText()), scope_, token);
        }
        case TokenCode::OpenParen: return parseParenthesised();
        case TokenCode::OpenBracket: return parseListLiteral();
        case TokenCode::OpenBrace: return parseMapLiteral();
        default: failExpected("an expression");
    }
}

bool Parser::isLambdaAhead() {
    const std::size_t close = matchingClose(position_);
    return close != 0 && codeAt(close + 1) == TokenCode::FatArrow;
}

// `((A) -> B)` begins the constructor of an array of functions.
bool Parser::isFunctionTypeAhead() {
    if (codeAt(position_ + 1) != TokenCode::OpenParen) return false;
    const std::size_t close = matchingClose(position_ + 1);
    return close != 0 && codeAt(close + 1) == TokenCode::Arrow;
}

NodePtr Parser::parseParenthesised() {
    if (isFunctionTypeAhead()) return parseFunctionArrayConstructor();
    advance();
    NodePtr inner = parseExpression();
    expect(TokenCode::CloseParen, "')'");
    return inner;
}

NodePtr Parser::parseFunctionArrayConstructor() {
    const TokenPtr open = token();
    Str type = parseType();
    if (type.back() != ']') failExpected("'[]' of an array type");
    if (code_ != TokenCode::OpenParen) failExpected("'(' and the length of the array");
    NodeVec arguments = parseArguments();
    return std::make_shared<CallableExpressionNode>(nullptr, std::move(type), std::move(arguments), scope_, open);
}

NodePtr Parser::parseLambda() {
    const TokenPtr open = advance();
    ContextPtr scope = std::make_shared<Context>(scope_);
    std::vector<FunctionParam> params;
    if (code_ != TokenCode::CloseParen) {
        do {
            FunctionParam param;
            param.token = expect(TokenCode::Identifier, "the name of a parameter");
            param.name = declaredName(param.token, "a parameter");
            if (code_ != TokenCode::Colon) failExpected("':' and the type of the parameter '" + param.name + "'");
            advance();
            param.type = parseType();
            for (const FunctionParam& earlier : params)
                if (earlier.name == param.name)
                    fail(param.token, "the parameter '" + param.name + "' is declared twice");
            params.push_back(std::move(param));
            if (params.size() > MAX_NESTING) fail(params.back().token, "a lambda has too many parameters");
        } while (accept(TokenCode::Comma));
    }
    expect(TokenCode::CloseParen, "',' or ')' in the parameters");
    expect(TokenCode::FatArrow, "'=>'");
    ScopeChange inner(*this, scope);
    declareParams(params);
    auto lambda = std::make_shared<LambdaNode>(std::move(params), std::move(scope), open);
    lambda->addChild(parseExpression());
    return lambda;
}

NodePtr Parser::parseListLiteral() {
    const TokenPtr open = advance();
    NodeVec elements;
    if (!accept(TokenCode::CloseBracket)) {
        do elements.push_back(parseExpression());
        while (accept(TokenCode::Comma));
        expect(TokenCode::CloseBracket, "',' or ']' in the list");
    }
    return std::make_shared<ListLiteralNode>(std::move(elements), scope_, open);
}

NodePtr Parser::parseMapLiteral() {
    const TokenPtr open = advance();
    NodeVec entries;
    if (!accept(TokenCode::CloseBrace)) {
        do {
            entries.push_back(parseExpression());
            expect(TokenCode::Colon, "':' behind the key");
            entries.push_back(parseExpression());
        } while (accept(TokenCode::Comma));
        expect(TokenCode::CloseBrace, "',' or '}' in the map");
    }
    return std::make_shared<MapLiteralNode>(std::move(entries), scope_, open);
}

}  // namespace vesk::compiler
