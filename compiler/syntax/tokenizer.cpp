// From text to tokens: layout, comments, names, literals and symbols. What decides whether `<` opens a generic clause
// stands in generic_clause.cpp.
#include <algorithm>
#include <cstring>

#include "host/diagnostics.h"
#include "syntax/characters.h"
#include "syntax/interned_text.h"
#include "syntax/string_literal.h"
#include "syntax/token_codes.h"

namespace vesk::compiler {

namespace {

// Words that no line inside brackets begins with: at one of them, a bracket left open before is given up, so that the
// mistake stays on its own line.
bool beginsStatement(TokenCode code) {
    switch (code) {
        case TokenCode::Package:
        case TokenCode::Import:
        case TokenCode::Class:
        case TokenCode::Interface:
        case TokenCode::Def:
        case TokenCode::Var:
        case TokenCode::Elif:
        case TokenCode::While:
        case TokenCode::For:
        case TokenCode::Break:
        case TokenCode::Continue:
        case TokenCode::Return:
        case TokenCode::Pass:
        case TokenCode::Public:
        case TokenCode::Protected:
        case TokenCode::Private:
        case TokenCode::Static:
        case TokenCode::Native: return true;
        default: return false;
    }
}

// A clause that spans lines becomes a text on one line.
Str onOneLine(std::string_view text) {
    Str line;
    line.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        if (!isBlank(text[i]) && text[i] != '\r' && text[i] != '\n') {
            line += text[i++];
            continue;
        }
        std::size_t end = i;
        bool broken = false;
        while (end < text.size() && (isBlank(text[end]) || text[end] == '\r' || text[end] == '\n'))
            broken |= text[end++] == '\n';
        if (!broken)
            line.append(text.substr(i, end - i));
        else if (!line.empty() && line.back() == ',')
            line += ' ';
        i = end;
    }
    return line;
}

}  // namespace

Tokenizer::Tokenizer(Str text, Str path)
    : text_(std::move(text)),
      path_(std::move(path)),
      internedPath_(internFilename(path_)),
      lineBlanks_(internBlanks({})) {
    if (text_.compare(0, 3, "\xEF\xBB\xBF") == 0) position_ = lineStart_ = 3;
}

TokenPtr Tokenizer::nextToken() {
    if (!handedBack_.empty()) {
        TokenPtr token = std::move(handedBack_.back());
        handedBack_.pop_back();
        return token;
    }
    return scan();
}

void Tokenizer::unToken(TokenPtr token) {
    if (token) handedBack_.push_back(std::move(token));
}

TokenVec Tokenizer::tokens() {
    TokenVec all;
    all.reserve(handedBack_.size() + (text_.size() - std::min(position_, text_.size())) / 4 + 1);
    while (TokenPtr token = nextToken()) all.push_back(std::move(token));
    return all;
}

int Tokenizer::lineCount() const { return text_.empty() ? 0 : text_.back() == '\n' ? line_ - 1 : line_; }

TokenPtr Tokenizer::place(std::size_t position) const {
    int line = line_;
    std::size_t start = lineStart_;
    if (position < start) {  // only for what was found ahead of, or behind, the scan
        line = 1;
        start = 0;
    }
    for (std::size_t i = start; i < position; i++)
        if (text_[i] == '\n') {
            line++;
            start = i + 1;
        }
    auto token =
        std::make_shared<Token>(nullptr, TokenType::Symbol, Str(), line, static_cast<int>(position - start) + 1);
    token->filename_ = internedPath_;
    return token;
}

// The exception's token holds what was refused, with its layout, so that a parser that goes on can put it into its place.
void Tokenizer::fail(std::size_t position, Str message) {
    constexpr std::size_t MAX_REFUSED = 40;
    const std::size_t resume = position_;
    TokenPtr refused = makeToken(TokenType::Symbol, TokenCode::Unknown, position,
                                 position + std::min(std::max<std::size_t>(resume - position, 1), MAX_REFUSED));
    position_ = resume;
    throw compileError(refused, std::move(message));
}

// Once, before the first token: a text with a byte that can stand nowhere has no tokens.
void Tokenizer::checkText() {
    checked_ = true;
    const std::size_t invalid = firstInvalidUtf8(text_);
    const std::size_t nul = text_.find('\0');
    if (invalid == Str::npos && nul == Str::npos) return;
    const TokenPtr at = place(std::min(invalid, nul));
    const bool isNul = nul < invalid;
    position_ = text_.size();
    throw compileError(at, isNul ? "the file holds a NUL byte" : "the file is not UTF-8");
}

void Tokenizer::startNextLine() {
    line_++;
    lineStart_ = position_;
    atLineStart_ = true;
}

void Tokenizer::skipBlockComment() {
    const std::size_t open = position_;
    const TokenPtr start = text_.find("*/", open + 2) == Str::npos ? place(open) : nullptr;
    position_ += 2;
    if (start) {
        for (; position_ < text_.size();) {
            if (text_[position_++] == '\n') startNextLine();
        }
        throw compileError(start, "this comment is not closed: expected '*/'");
    }
    while (text_[position_] != '*' || text_[position_ + 1] != '/')
        if (text_[position_++] == '\n') startNextLine();
    position_ += 2;
}

void Tokenizer::skipBlanksAndComments() {
    blankBefore_ = false;
    for (;; blankBefore_ = true) {
        switch (text_[position_]) {
            case ' ':
            case '\t': position_++; break;
            case '\n':
                position_++;
                startNextLine();
                break;
            case '\r':
                if (text_[position_ + 1] != '\n') return;
                position_++;
                break;
            case '#': {
                const void* end = std::memchr(text_.data() + position_, '\n', text_.size() - position_);
                position_ = end != nullptr ? static_cast<std::size_t>(static_cast<const char*>(end) - text_.data())
                                           : text_.size();
                break;
            }
            case '/':
                if (text_[position_ + 1] != '*') return;
                skipBlockComment();
                break;
            default: return;
        }
    }
}

// Finds the blanks that the current line begins with.
void Tokenizer::measureLine() {
    measuredLine_ = line_;
    std::size_t end = lineStart_;
    while (isBlank(text_[end])) end++;
    lineBlanks_ = internBlanks(std::string_view(text_).substr(lineStart_, end - lineStart_));
    lineIndent_ = blanksWidth(*lineBlanks_);
}

TokenPtr Tokenizer::makeToken(TokenType type, TokenCode code, std::size_t begin, std::size_t end) {
    if (measuredLine_ != line_) measureLine();
    if (!block_ || block_->size() == block_->capacity()) {
        constexpr std::size_t MAX_BLOCK = 64, BYTES_PER_TOKEN = 4;
        block_ = std::make_shared<std::vector<Token>>();
        block_->reserve(std::min(MAX_BLOCK, (text_.size() - begin) / BYTES_PER_TOKEN + 4));
    }
    Token& token = block_->emplace_back(Token::Scanned{
        .text = std::string_view(text_).substr(begin, end - begin),
        .filename = internedPath_,
        .lineBlanks = lineBlanks_,
        .line = line_,
        .column = static_cast<int>(begin - lineStart_) + 1,
        .lineIndent = lineIndent_,
        .type = type,
        .code = code,
        .startsLine = atLineStart_ && bracketDepth_ == 0,
        .hasBlankBefore = blankBefore_,
    });
    atLineStart_ = false;
    position_ = end;
    return TokenPtr(block_, &token);
}

TokenPtr Tokenizer::scan() {
    if (!checked_) checkText();
    skipBlanksAndComments();
    if (position_ >= text_.size()) return nullptr;
    const char c = text_[position_];
    if (isNameStart(c)) return scanWord();
    TokenPtr token = isDigit(c) ? scanNumber() : c == '"' ? scanString() : scanSymbol();
    const TokenCode code = token->code_;
    inTypePosition_ =
        code == TokenCode::Colon || code == TokenCode::Arrow || (code == TokenCode::Dot && nameWasInTypePosition_);
    nameWasInTypePosition_ = declaresName_ = afterDef_ = afterDeclaredName_ = false;
    return token;
}

TokenPtr Tokenizer::scanWord() {
    const std::size_t begin = position_;
    std::size_t end = begin + 1;
    while (isNamePart(text_[end])) end++;
    const std::string_view word = std::string_view(text_).substr(begin, end - begin);
    const TokenCode code = wordCode(word);
    const bool declares = declaresName_;
    const bool isOperator = afterDef_ && word == "operator";
    const bool isTypePosition = inTypePosition_;
    declaresName_ = afterDef_ = afterDeclaredName_ = inTypePosition_ = nameWasInTypePosition_ = false;
    if (code != TokenCode::Identifier) {
        if (atLineStart_ && bracketDepth_ > 0 && beginsStatement(code)) bracketDepth_ = declaredClauseDepth_ = 0;
        afterDef_ = code == TokenCode::Def;
        declaresName_ = afterDef_ || code == TokenCode::Class || code == TokenCode::Interface;
        inTypePosition_ = code == TokenCode::Is || code == TokenCode::IsNot || code == TokenCode::As ||
                          code == TokenCode::Extends || code == TokenCode::Implements;
        return makeToken(TokenType::Keyword, code, begin, end);
    }
    if (declares) {
        if (isOperator) end += operatorNameLength(std::string_view(text_).substr(end));
        afterDeclaredName_ = true;
        return makeToken(TokenType::Identifier, code, begin, end);
    }
    nameWasInTypePosition_ = isTypePosition;
    if (text_[end] != '<') return makeToken(TokenType::Identifier, code, begin, end);
    const std::size_t closed = clauseEnd(end);
    if (closed == 0 || (!isTypePosition && comparesAfter(closed)))
        return makeToken(TokenType::Identifier, code, begin, end);

    TokenPtr token = makeToken(TokenType::Identifier, code, begin, closed);
    if (token->text_.find('\n') != Str::npos) {
        token->text_ = onOneLine(token->text_);
        for (std::size_t i = end; i < closed; i++)
            if (text_[i] == '\n') {
                line_++;
                lineStart_ = i + 1;
            }
    }
    return token;
}

TokenPtr Tokenizer::scanNumber() {
    const std::size_t begin = position_;
    std::size_t end = begin;
    bool wellFormed = true;
    bool isFloating = false;
    const auto digits = [&](bool (*isPart)(char)) {
        wellFormed &= isPart(text_[end]);
        while (isPart(text_[end]) || text_[end] == '_') {
            wellFormed &= text_[end] != '_' || isPart(text_[end + 1]);
            end++;
        }
    };
    const auto isDecimal = [](char c) { return isDigit(c); };
    if (text_[end] == '0' && (text_[end + 1] == 'x' || text_[end + 1] == 'X')) {
        end += 2;
        digits([](char c) { return isHexDigit(c); });
    } else {
        digits(isDecimal);
        if (text_[end] == '.' && isDigit(text_[end + 1])) {
            isFloating = true;
            end++;
            digits(isDecimal);
        }
        if (text_[end] == 'e' || text_[end] == 'E') {
            isFloating = true;
            end++;
            if (text_[end] == '+' || text_[end] == '-') end++;
            digits(isDecimal);
        }
    }
    if (isFloating) {
        if (text_[end] == 'f') end++;
    } else {
        if (text_[end] == 'u') end++;
        if (text_[end] == 'L') end++;
    }
    if (isNamePart(text_[end])) wellFormed = false;
    if (!wellFormed) {
        while (isNamePart(text_[end])) end++;
        position_ = end;
        fail(begin, "malformed number '" + text_.substr(begin, std::min<std::size_t>(end - begin, 40)) + "'");
    }
    return isFloating ? makeToken(TokenType::Floating, TokenCode::Floating, begin, end)
                      : makeToken(TokenType::Integer, TokenCode::Integer, begin, end);
}

TokenPtr Tokenizer::scanString() {
    const std::size_t begin = position_;
    std::size_t i = begin + 1;
    std::size_t badEscape = 0;
    while (i < text_.size() && text_[i] != '"' && text_[i] != '\n') {
        if (text_[i] != '\\') {
            i++;
            continue;
        }
        const std::size_t length = readEscape(std::string_view(text_).substr(i, 16)).length;
        if (length == 0 && badEscape == 0) badEscape = i;
        // Behind an unknown escape, a quote or the line's end counts as what it is after a backslash.
        if (length == 0 && (i + 1 >= text_.size() || text_[i + 1] == '\n')) {
            i++;
            continue;
        }
        i += length > 0 ? length : 2;
    }
    if (i >= text_.size() || text_[i] != '"') {
        position_ = i;
        fail(begin, "this string is not closed: expected '\"' before the end of the line");
    }
    if (badEscape != 0) {
        position_ = i + 1;
        fail(badEscape, R"(unknown escape: expected \n \t \r \" \\ \0 or \u{1F600})");
    }
    return makeToken(TokenType::String, TokenCode::String, begin, i + 1);
}

TokenPtr Tokenizer::scanSymbol() {
    const std::size_t begin = position_;
    const std::string_view rest = std::string_view(text_).substr(begin);
    // In the type parameters of a declaration `<` and `>` are brackets.
    if (rest[0] == '<' && (afterDeclaredName_ || declaredClauseDepth_ > 0)) {
        TokenPtr open = makeToken(TokenType::Symbol, TokenCode::Less, begin, begin + 1);
        bracketDepth_++;
        if (declaredClauseDepth_ == 0) declaredClauseDepth_ = bracketDepth_;
        return open;
    }
    if (rest[0] == '>' && declaredClauseDepth_ > 0) {
        TokenPtr close = makeToken(TokenType::Symbol, TokenCode::Greater, begin, begin + 1);
        if (bracketDepth_ <= declaredClauseDepth_) declaredClauseDepth_ = 0;
        if (bracketDepth_ > 0) bracketDepth_--;
        return close;
    }
    const SymbolMatch match = symbolAt(rest);
    switch (match.code) {
        case TokenCode::Unknown: {
            std::size_t end = begin + 1;
            while (end < text_.size() && (static_cast<unsigned char>(text_[end]) & 0xC0U) == 0x80U) end++;
            const Str shown = static_cast<unsigned char>(text_[begin]) < 0x20 || text_[begin] == 0x7F
                                  ? Str("control character")
                                  : "character '" + text_.substr(begin, end - begin) + "'";
            position_ = end;
            Str hint;
            if (text_[begin] == '&') hint = ": write '&&'";
            if (text_[begin] == '|') hint = ": write '||'";
            if (text_[begin] == ';') hint = ": a statement ends with its line";
            if (text_[begin] == '\'') hint = ": strings stand in double quotes";
            fail(begin, "unexpected " + shown + hint);
        }
        case TokenCode::OpenParen:
        case TokenCode::OpenBracket:
        case TokenCode::OpenBrace: {
            TokenPtr open = makeToken(TokenType::Symbol, match.code, begin, begin + match.length);
            bracketDepth_++;
            return open;
        }
        case TokenCode::CloseParen:
        case TokenCode::CloseBracket:
        case TokenCode::CloseBrace: {
            TokenPtr close = makeToken(TokenType::Symbol, match.code, begin, begin + match.length);
            if (bracketDepth_ > 0) bracketDepth_--;
            if (bracketDepth_ < declaredClauseDepth_) declaredClauseDepth_ = 0;
            return close;
        }
        default: return makeToken(TokenType::Symbol, match.code, begin, begin + match.length);
    }
}

}  // namespace vesk::compiler
