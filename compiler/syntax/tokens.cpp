// Tokens as records: construction by hand, file names and layout.
#include "host/tokens.h"

#include "syntax/interned_text.h"
#include "syntax/token_codes.h"

namespace vesk::compiler {

Token::Token(Tokenizer* tokenizer, TokenType type, Str text, int line, int column)
    : text_(std::move(text)),
      filename_(tokenizer != nullptr ? tokenizer->internedPath_ : internFilename({})),
      lineBlanks_(internBlanks({})),
      line_(line),
      column_(column),
      type_(type),
      code_(tokenCode(type, text_)) {}

void Token::setFilename(const Str& filename) { filename_ = internFilename(filename); }

void Token::setLayout(const Str& lineBlanks, bool startsLine, bool hasBlankBefore) {
    lineBlanks_ = internBlanks(lineBlanks);
    lineIndent_ = blanksWidth(lineBlanks);
    startsLine_ = startsLine;
    hasBlankBefore_ = hasBlankBefore;
}

TokenPtr Token::withPlace(int line, int column) const {
    auto copy = std::make_shared<Token>(*this);
    copy->line_ = line;
    copy->column_ = column;
    return copy;
}

}  // namespace vesk::compiler
