// Every keyword and symbol of the language as a small number, so that the parser compares bytes instead of texts.
// The code follows from a token's type and text; the tokenizer knows it from scanning.
#pragma once

#include "host/tokens.h"

namespace vesk::compiler {

enum class TokenCode : std::uint8_t {
    End,      // behind the last token
    LineEnd,  // the parser's view of a token that begins a new line
    Identifier,
    Integer,
    Floating,
    String,
    // keywords
    Package,
    Import,
    Class,
    Interface,
    Extends,
    Implements,
    Def,
    Var,
    If,
    Elif,
    Else,
    While,
    For,
    In,
    Break,
    Continue,
    Return,
    Pass,
    Public,
    Protected,
    Private,
    Static,
    Native,
    Is,
    IsNot,
    As,
    True,
    False,
    Null,
    // symbols
    OpenParen,
    CloseParen,
    OpenBracket,
    CloseBracket,
    OpenBrace,
    CloseBrace,
    Comma,
    Colon,
    Dot,
    Question,
    At,
    Arrow,
    FatArrow,
    Assign,
    AddAssign,
    SubtractAssign,
    MultiplyAssign,
    DivideAssign,
    FloorAssign,
    RemainderAssign,
    PowerAssign,
    MatrixAssign,
    Or,
    And,
    Not,
    Equal,
    NotEqual,
    Less,
    LessEqual,
    Greater,
    GreaterEqual,
    Plus,
    Minus,
    Star,
    Slash,
    FloorDivide,
    Percent,
    Power,
    Unknown,  // a symbol or keyword token made by hand with another text
};

// The keyword that a word is, Identifier when it is none.
TokenCode wordCode(std::string_view word);
// The symbol at the beginning of a text, the longest first, and its length; Unknown and 0 when there is none.
struct SymbolMatch {
    TokenCode code;
    std::size_t length;
};
SymbolMatch symbolAt(std::string_view text);
// The operator that may follow `operator` in a declaration, the longest first; its length, 0 when there is none.
std::size_t operatorNameLength(std::string_view text);
TokenCode tokenCode(TokenType type, std::string_view text);

}  // namespace vesk::compiler
