// Tables of keywords, symbols and operator names.
#include "syntax/token_codes.h"

namespace vesk::compiler {

TokenCode wordCode(std::string_view word) {
    switch (word.size()) {
        case 2:
            if (word == "if") return TokenCode::If;
            if (word == "is") return TokenCode::Is;
            if (word == "in") return TokenCode::In;
            if (word == "as") return TokenCode::As;
            break;
        case 3:
            if (word == "def") return TokenCode::Def;
            if (word == "var") return TokenCode::Var;
            if (word == "for") return TokenCode::For;
            break;
        case 4:
            if (word == "elif") return TokenCode::Elif;
            if (word == "else") return TokenCode::Else;
            if (word == "pass") return TokenCode::Pass;
            if (word == "true") return TokenCode::True;
            if (word == "null") return TokenCode::Null;
            break;
        case 5:
            if (word == "class") return TokenCode::Class;
            if (word == "while") return TokenCode::While;
            if (word == "break") return TokenCode::Break;
            if (word == "isnot") return TokenCode::IsNot;
            if (word == "false") return TokenCode::False;
            break;
        case 6:
            if (word == "return") return TokenCode::Return;
            if (word == "import") return TokenCode::Import;
            if (word == "public") return TokenCode::Public;
            if (word == "static") return TokenCode::Static;
            if (word == "native") return TokenCode::Native;
            break;
        case 7:
            if (word == "package") return TokenCode::Package;
            if (word == "extends") return TokenCode::Extends;
            if (word == "private") return TokenCode::Private;
            break;
        case 8:
            if (word == "continue") return TokenCode::Continue;
            break;
        case 9:
            if (word == "interface") return TokenCode::Interface;
            if (word == "protected") return TokenCode::Protected;
            break;
        case 10:
            if (word == "implements") return TokenCode::Implements;
            break;
        default: break;
    }
    return TokenCode::Identifier;
}

SymbolMatch symbolAt(std::string_view text) {
    const auto at = [text](std::size_t i) { return i < text.size() ? text[i] : '\0'; };
    const char second = at(1);
    const bool assigns = second == '=';
    switch (at(0)) {
        case '(': return {TokenCode::OpenParen, 1};
        case ')': return {TokenCode::CloseParen, 1};
        case '[': return {TokenCode::OpenBracket, 1};
        case ']': return {TokenCode::CloseBracket, 1};
        case '{': return {TokenCode::OpenBrace, 1};
        case '}': return {TokenCode::CloseBrace, 1};
        case ',': return {TokenCode::Comma, 1};
        case ':': return {TokenCode::Colon, 1};
        case '.': return {TokenCode::Dot, 1};
        case '?': return {TokenCode::Question, 1};
        case '@': return assigns ? SymbolMatch{TokenCode::MatrixAssign, 2} : SymbolMatch{TokenCode::At, 1};
        case '+': return assigns ? SymbolMatch{TokenCode::AddAssign, 2} : SymbolMatch{TokenCode::Plus, 1};
        case '-':
            if (second == '>') return {TokenCode::Arrow, 2};
            return assigns ? SymbolMatch{TokenCode::SubtractAssign, 2} : SymbolMatch{TokenCode::Minus, 1};
        case '*':
            if (second == '*')
                return at(2) == '=' ? SymbolMatch{TokenCode::PowerAssign, 3} : SymbolMatch{TokenCode::Power, 2};
            return assigns ? SymbolMatch{TokenCode::MultiplyAssign, 2} : SymbolMatch{TokenCode::Star, 1};
        case '/':
            if (second == '/')
                return at(2) == '=' ? SymbolMatch{TokenCode::FloorAssign, 3} : SymbolMatch{TokenCode::FloorDivide, 2};
            return assigns ? SymbolMatch{TokenCode::DivideAssign, 2} : SymbolMatch{TokenCode::Slash, 1};
        case '%': return assigns ? SymbolMatch{TokenCode::RemainderAssign, 2} : SymbolMatch{TokenCode::Percent, 1};
        case '=':
            if (second == '>') return {TokenCode::FatArrow, 2};
            return assigns ? SymbolMatch{TokenCode::Equal, 2} : SymbolMatch{TokenCode::Assign, 1};
        case '!': return assigns ? SymbolMatch{TokenCode::NotEqual, 2} : SymbolMatch{TokenCode::Not, 1};
        case '<': return assigns ? SymbolMatch{TokenCode::LessEqual, 2} : SymbolMatch{TokenCode::Less, 1};
        case '>': return assigns ? SymbolMatch{TokenCode::GreaterEqual, 2} : SymbolMatch{TokenCode::Greater, 1};
        case '&':
            if (second == '&') return {TokenCode::And, 2};
            break;
        case '|':
            if (second == '|') return {TokenCode::Or, 2};
            break;
        default: break;
    }
    return {TokenCode::Unknown, 0};
}

std::size_t operatorNameLength(std::string_view text) {
    static constexpr std::string_view NAMES[] = {
        "[]=", "**=", "//=", "[]", "+=", "++", "-=", "--", "*=", "**", "/=", "//", "%=", "@=", "==",
        "!=",  "<=",  ">=",  "&&", "||", "+",  "-",  "*",  "/",  "%",  "@",  "<",  ">",  "!",
    };
    for (std::string_view name : NAMES)
        if (text.substr(0, name.size()) == name) return name.size();
    return 0;
}

TokenCode tokenCode(TokenType type, std::string_view text) {
    switch (type) {
        case TokenType::Identifier: return TokenCode::Identifier;
        case TokenType::Integer: return TokenCode::Integer;
        case TokenType::Floating: return TokenCode::Floating;
        case TokenType::String: return TokenCode::String;
        case TokenType::Keyword: {
            const TokenCode code = wordCode(text);
            return code == TokenCode::Identifier ? TokenCode::Unknown : code;
        }
        case TokenType::Symbol: {
            const SymbolMatch match = symbolAt(text);
            return match.length == text.size() ? match.code : TokenCode::Unknown;
        }
    }
    return TokenCode::Unknown;
}

}  // namespace vesk::compiler
