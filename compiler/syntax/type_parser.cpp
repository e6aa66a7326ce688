// Types where the grammar wants one. The result is a text in canonical spelling (type_text.h).
#include "syntax/parser.h"
#include "syntax/type_text.h"

namespace vesk::compiler {

// A name token's text with its generic clause in canonical spelling.
Str Parser::nameWithClause(const TokenPtr& name) const { return spellingOf(name).text; }

TypeSpelling Parser::spellingOf(const TokenPtr& name) const {
    TypeTextResult result = canonicalTypeText(name->getText());
    if (result.mistake.empty()) return {std::move(result.text), result.isFunction};
    fail(name, result.mistake == "nested too deeply" ? result.mistake : "malformed generic clause: " + result.mistake);
}

TypeSpelling Parser::parseQualifiedType() {
    if (code_ != TokenCode::Identifier) failExpected("a type");
    TypeSpelling type;
    for (;;) {
        const TokenPtr& name = expect(TokenCode::Identifier, "a name behind '.'");
        // A text put in by the specializer may be more than a name, so everything but a plain name is spelled again.
        if (name->getText().find_first_of("<([?") == Str::npos) {
            type.text += name->getText();
        } else {
            TypeSpelling part = spellingOf(name);
            type.text += part.text;
            type.isFunction = part.isFunction;
        }
        if (code_ != TokenCode::Dot) return type;
        advance();
        type.text += '.';
    }
}

void Parser::parseParenthesisedType(TypeSpelling& type) {
    advance();
    Str inner;
    bool holdsOneFunction = false;
    if (!accept(TokenCode::CloseParen)) {
        for (std::size_t count = 1;; count++) {
            TypeSpelling item;
            parseTypeInto(item);
            inner += item.text;
            holdsOneFunction = count == 1 && item.isFunction;
            if (accept(TokenCode::CloseParen)) break;
            if (!accept(TokenCode::Comma)) failExpected("',' or ')' in the type");
            inner += ", ";
        }
    }
    type.isFunction = true;
    if (code_ != TokenCode::Arrow) {
        if (!holdsOneFunction) failExpected("'->' and the result of the function type");
        type.text = std::move(inner);
        return;
    }
    advance();
    TypeSpelling result;
    parseTypeInto(result);
    type.text = "(" + inner + ") -> " + result.text;
}

void Parser::parseTypeInto(TypeSpelling& type) {
    DepthGuard depth(*this, typeDepth_);
    if (code_ == TokenCode::OpenParen)
        parseParenthesisedType(type);
    else
        type = parseQualifiedType();
    for (;;) {
        if (code_ == TokenCode::Question) {
            if (type.text.back() == '?' && !type.isFunction) fail(token(), "'?' stands twice");
            advance();
            type.addSuffix("?");
        } else if (code_ == TokenCode::OpenBracket && codeAt(position_ + 1) == TokenCode::CloseBracket) {
            advance();
            advance();
            type.addSuffix("[]");
        } else {
            return;
        }
    }
}

Str Parser::parseType() {
    TypeSpelling type;
    parseTypeInto(type);
    return std::move(type.text);
}

// The token is the node's own: the specializer rewrites its text.
NodePtr Parser::parseTypeNode() {
    const TokenPtr& first = token();
    auto whole = std::make_shared<Token>(nullptr, TokenType::Identifier, Str(), first->getLine(), first->getColumn());
    whole->setFilename(first->getFilename());
    whole->setText(parseType());
    return std::make_shared<TypeNode>(scope_, std::move(whole));
}

}  // namespace vesk::compiler
