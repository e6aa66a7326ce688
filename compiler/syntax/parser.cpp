// The parser's ground: the token cursor, mistakes and recovery, lines and blocks.
#include "syntax/parser.h"

#include <algorithm>
#include <iterator>

#include "syntax/interned_text.h"

namespace vesk::compiler {

namespace {

bool comesBefore(const CompilerException& a, const CompilerException& b) {
    const TokenPtr left = a.getToken(), right = b.getToken();
    if (!left || !right) return left != nullptr;
    return left->getLine() != right->getLine() ? left->getLine() < right->getLine()
                                               : left->getColumn() < right->getColumn();
}

}  // namespace

Parser::Parser(Str path, ContextPtr scope, bool reparsed, std::vector<CompilerException>* errors)
    : path_(std::move(path)), fileScope_(scope), scope_(std::move(scope)), reparsed_(reparsed), errors_(errors) {}

// ------------------------------------------------------------------------------------------------- tokens

void Parser::readTokens(Tokenizer& tokenizer) {
    constexpr std::size_t SMALL_DECLARATION = 64;
    tokens_.reserve(SMALL_DECLARATION);
    for (;;) {
        try {
            while (TokenPtr next = tokenizer.nextToken()) tokens_.push_back(std::move(next));
            break;
        } catch (const CompilerException& error) {
            lexical_.push_back(error);
            if (errors_ == nullptr || lexical_.size() >= MAX_ERRORS) break;
            if (!error.getToken()->getText().empty()) tokens_.push_back(error.getToken());
        }
    }
    lineCount_ = tokenizer.lineCount();
    finishTokens();
}

void Parser::readTokens(TokenVec tokens) {
    tokens_ = std::move(tokens);
    finishTokens();
}

// Adds the token that stands for the end of the text: it begins a line of its own, left of every block.
void Parser::finishTokens() {
    TokenPtr end = tokens_.empty() ? std::make_shared<Token>(nullptr, TokenType::Symbol, Str(), 1, 1)
                                   : placeAfter(*tokens_.back());
    if (tokens_.empty()) end->setFilename(path_);
    end->setLayout({}, true, false);
    tokens_.push_back(std::move(end));
    position_ = 0;
    code_ = codeAt(0);
}

TokenCode Parser::codeAt(std::size_t index) const {
    if (index + 1 >= tokens_.size()) return TokenCode::LineEnd;
    const Token& at = *tokens_[index];
    return at.startsLine() ? TokenCode::LineEnd : at.code();
}

const TokenPtr& Parser::advance() {
    const TokenPtr& taken = tokens_[position_];
    if (position_ + 1 < tokens_.size()) position_++;
    code_ = codeAt(position_);
    return taken;
}

bool Parser::accept(TokenCode wanted) {
    if (code_ != wanted) return false;
    advance();
    return true;
}

const TokenPtr& Parser::expect(TokenCode wanted, const char* what) {
    if (code_ != wanted) failExpected(what);
    return advance();
}

// Index of the bracket that closes the one at `open`, 0 when there is none. All are found in one pass, so that
// looking ahead from each of many nested parentheses stays linear.
std::size_t Parser::matchingClose(std::size_t open) {
    if (matches_.empty()) {
        matches_.assign(tokens_.size(), 0);
        std::vector<std::uint32_t> brackets;
        for (std::size_t i = 0; i < tokens_.size(); i++) {
            if (tokens_[i]->startsLine()) brackets.clear();
            switch (tokens_[i]->code()) {
                case TokenCode::OpenParen:
                case TokenCode::OpenBracket:
                case TokenCode::OpenBrace: brackets.push_back(static_cast<std::uint32_t>(i)); break;
                case TokenCode::CloseParen:
                case TokenCode::CloseBracket:
                case TokenCode::CloseBrace:
                    if (brackets.empty()) break;
                    matches_[brackets.back()] = static_cast<std::uint32_t>(i);
                    brackets.pop_back();
                    break;
                default: break;
            }
        }
    }
    return matches_[open];
}

int Parser::lineOfNextCode() const {
    if (position_ + 1 < tokens_.size()) return token()->getLine();
    return lineCount_ > 0 ? lineCount_ + 1 : 0;
}

// ----------------------------------------------------------------------------------------------- mistakes

void Parser::fail(const TokenPtr& at, Str message) const { throw compileError(at, std::move(message)); }

TokenPtr Parser::placeAfter(const Token& before) const {
    auto place = std::make_shared<Token>(nullptr, TokenType::Symbol, Str(), before.getLine(),
                                         before.getColumn() + static_cast<int>(before.getText().size()));
    place->setFilename(before.getFilename());
    return place;
}

Str Parser::describeCurrent() const {
    if (position_ + 1 >= tokens_.size()) return "the end of the file";
    if (code_ == TokenCode::LineEnd) return "the end of the line";
    constexpr std::size_t MAX_SHOWN = 40;
    const Str& text = token()->getText();
    if (text.size() <= MAX_SHOWN) return "'" + text + "'";
    std::size_t end = MAX_SHOWN;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) end--;
    return "'" + text.substr(0, end) + "...'";
}

void Parser::failExpected(std::string_view what) const {
    const bool lineEnded = code_ == TokenCode::LineEnd && position_ > 0;
    fail(lineEnded ? placeAfter(*tokens_[position_ - 1]) : token(),
         "expected " + Str(what) + ", found " + describeCurrent());
}

// A mistake on a line that the tokenizer has refused a part of is most likely that mistake again, and so is one at the
// place of the last.
void Parser::record(const CompilerException& error) {
    const int line = error.getToken() ? error.getToken()->getLine() : 0;
    if (!found_.empty() && !comesBefore(found_.back(), error) && !comesBefore(error, found_.back())) return;
    const auto isThere = [line](const CompilerException& known) { return known.getToken()->getLine() == line; };
    if (std::any_of(lexical_.begin(), lexical_.end(), isThere)) return;
    found_.push_back(error);
    if (found_.size() < MAX_ERRORS) return;
    found_.push_back(compileError(error.getToken(), "too many errors; the rest of the file is not read"));
    position_ = tokens_.size() - 1;
    code_ = TokenCode::LineEnd;
}

void Parser::reportErrors() {
    std::vector<CompilerException> all;
    std::merge(found_.begin(), found_.end(), lexical_.begin(), lexical_.end(), std::back_inserter(all), comesBefore);
    if (errors_ == nullptr && !all.empty()) throw all.front();
    if (errors_ != nullptr) errors_->insert(errors_->end(), all.begin(), all.end());
}

// Where the tokens stop early because the tokenizer refused the rest, a mistake at the last token follows from that.
void Parser::throwEarlier(const CompilerException& error) {
    if (lexical_.empty()) return;
    const TokenPtr at = error.getToken();
    const TokenPtr refused = lexical_.front().getToken();
    const bool isAtEnd = position_ + 1 >= tokens_.size() || at == nullptr;
    if (isAtEnd || at->getLine() >= refused->getLine()) throw lexical_.front();
}

// ---------------------------------------------------------------------------------------- lines and blocks

Parser::BlockLayout Parser::openBlock(const Token& header, const char* owner) {
    if (code_ != TokenCode::LineEnd)
        fail(token(), Str("the body of ") + owner + " begins on the next line, not behind the ':'");
    const Token& first = *token();
    const Str& blanks = first.lineBlanks();
    const Str& headerBlanks = header.lineBlanks();
    if (position_ + 1 >= tokens_.size())
        fail(token(), Str("expected an indented body of ") + owner + ", found the end of the file");
    const std::size_t common = std::min(blanks.size(), headerBlanks.size());
    if (blanks.compare(0, common, headerBlanks, 0, common) != 0)
        fail(token(), "mixed indentation: this line does not begin with the blanks of its header's line");
    if (blanks.size() <= headerBlanks.size())
        fail(token(), Str("expected an indented body of ") + owner + ", found a line that is not deeper");
    return layoutOf(first);
}

Parser::BlockLayout Parser::layoutOf(const Token& first) {
    BlockLayout layout;
    layout.blanks = &first.lineBlanks();
    layout.width = first.lineIndent();
    return layout;
}

// Whether the line that begins here belongs to the block.
bool Parser::hasNextItem(BlockLayout& layout) {
    if (position_ + 1 >= tokens_.size()) return false;
    const Token& next = *token();
    if (code_ != TokenCode::LineEnd && position_ > 0) failExpected("the end of the line");
    if (&next.lineBlanks() == layout.blanks) return true;
    if (next.lineIndent() < layout.width) return false;
    if (next.lineIndent() == layout.width) {
        if (layout.hadOtherBlanks) return true;
        layout.hadOtherBlanks = true;
        fail(token(), "mixed indentation: this line begins with other blanks than the lines of its block");
    }
    fail(token(), layout.afterInnerBlock ? "mixed indentation: no block around this line begins with its blanks"
                                         : "mixed indentation: this line is deeper than the lines of its block");
}

// Goes on at the next line of the block or of one around it.
void Parser::recover(const BlockLayout& layout, std::size_t start) {
    if (position_ == start && position_ + 1 < tokens_.size()) position_++;
    const auto beginsItem = [&layout](const Token& at) {  // the rest of a refused `if` goes with it
        return at.startsLine() && at.lineIndent() <= layout.width &&
               (at.lineIndent() < layout.width || (at.code() != TokenCode::Elif && at.code() != TokenCode::Else));
    };
    while (position_ + 1 < tokens_.size() && !beginsItem(*tokens_[position_])) position_++;
    code_ = TokenCode::LineEnd;
}

void Parser::noteRefused(std::size_t start, RefusedNames& names) const {
    for (std::size_t i = start; i < position_; i++)
        if (tokens_[i]->code() == TokenCode::Identifier) {
            const Str& text = tokens_[i]->getText();
            names.insert(text.substr(0, text.find('<')));
        }
}

void Parser::expectLineEnd(const char* after) {
    if (code_ != TokenCode::LineEnd) fail(token(), "unexpected " + describeCurrent() + " after " + after);
}

void Parser::expectBodyColon(const char* owner) {
    if (code_ != TokenCode::Colon) failExpected(Str("':' before the body of ") + owner);
    advance();
}

}  // namespace vesk::compiler
