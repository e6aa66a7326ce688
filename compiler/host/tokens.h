// Tokens of vesk source text and the tokenizer that makes them.
// A token knows the place it has in its file and how its line begins: the parser makes blocks from that
// alone, there are no tokens for line ends or indentation.
#pragma once

#include <cstdint>
#include <string_view>

#include "host/model_records.h"

namespace vesk::compiler {

class Tokenizer;
enum class TokenCode : std::uint8_t;  // which keyword or symbol; defined by the syntax folder

enum class TokenType : int {
    Keyword = 0,     // a reserved word
    Symbol = 1,      // an operator or a bracket
    Identifier = 2,  // a name with the generic clause that follows it without a blank
    Integer = 3,
    Floating = 4,
    String = 5,  // text with its quotes and escapes, as written
};

class Token {
public:
    // The tokenizer may be null for tokens made by hand; `line` and `column` count from 1.
    Token(Tokenizer* tokenizer, TokenType type, Str text, int line, int column);
    // The tokenizer's own way.
    struct Scanned;
    explicit Token(const Scanned& scanned);

    TokenType getType() const { return type_; }
    const Str& getText() const { return text_; }
    void setText(const Str& text) { text_ = text; }
    int getLine() const { return line_; }
    int getColumn() const { return column_; }
    const Str& getFilename() const { return *filename_; }
    void setFilename(const Str& filename);

    // True for the first token of a line that is not a continuation inside open brackets.
    bool startsLine() const { return startsLine_; }
    // The blanks that the token's line begins with, as written.
    const Str& lineBlanks() const { return *lineBlanks_; }
    // Width of those blanks; a space counts 1, a tab counts 4.
    int lineIndent() const { return lineIndent_; }
    bool hasBlankBefore() const { return hasBlankBefore_; }
    void setLayout(const Str& lineBlanks, bool startsLine, bool hasBlankBefore);
    TokenCode code() const { return code_; }

    // A copy with the same text and layout at another place of the same file.
    TokenPtr withPlace(int line, int column) const;

private:
    friend class Tokenizer;

    Str text_;
    const Str* filename_;    // interned, lives as long as the process
    const Str* lineBlanks_;  // interned, lives as long as the process
    std::int32_t line_, column_;
    std::int32_t lineIndent_ = 0;
    TokenType type_;
    TokenCode code_;
    bool startsLine_ = false, hasBlankBefore_ = false;
};

struct Token::Scanned {
    std::string_view text;
    const Str* filename;
    const Str* lineBlanks;
    std::int32_t line, column, lineIndent;
    TokenType type;
    TokenCode code;
    bool startsLine, hasBlankBefore;
};

inline Token::Token(const Scanned& scanned)
    : text_(scanned.text),
      filename_(scanned.filename),
      lineBlanks_(scanned.lineBlanks),
      line_(scanned.line),
      column_(scanned.column),
      lineIndent_(scanned.lineIndent),
      type_(scanned.type),
      code_(scanned.code),
      startsLine_(scanned.startsLine),
      hasBlankBefore_(scanned.hasBlankBefore) {}

// Turns a text into tokens. Throws CompilerException (CompileError) at the first character that starts no
// token, at an unterminated string or comment, and for a text that is not UTF-8; the next call goes on behind the mistake.
// Columns count bytes.
class Tokenizer {
public:
    Tokenizer(Str text, Str path);

    // The next token, null at the end of the text.
    TokenPtr nextToken();
    // Hands a token back; the last one handed back comes first.
    void unToken(TokenPtr token);
    // All tokens that are left.
    TokenVec tokens();
    const Str& path() const { return path_; }
    // Lines of the whole text; known once the end has been reached.
    int lineCount() const;

private:
    friend class Token;

    TokenPtr scan();
    void checkText();
    void skipBlanksAndComments();
    void skipBlockComment();
    void startNextLine();
    void measureLine();
    TokenPtr scanWord();
    TokenPtr scanNumber();
    TokenPtr scanString();
    TokenPtr scanSymbol();
    std::size_t clauseEnd(std::size_t open);
    void scanClauses(std::size_t open);
    bool comparesAfter(std::size_t end) const;
    TokenPtr makeToken(TokenType type, TokenCode code, std::size_t begin, std::size_t end);
    TokenPtr place(std::size_t position) const;
    [[noreturn]] void fail(std::size_t position, Str message);

    // Where the clause that opens at `open` ends; 0 = it is none.
    struct KnownClause {
        std::size_t open, end;
    };

    Str text_, path_;
    const Str* internedPath_;
    const Str* lineBlanks_;
    std::size_t position_ = 0;
    std::size_t lineStart_ = 0;
    int line_ = 1;
    int lineIndent_ = 0;
    int measuredLine_ = 0;  // the line that lineBlanks_ and lineIndent_ belong to
    int bracketDepth_ = 0;
    int declaredClauseDepth_ = 0;  // bracket depth inside the type parameters of a declaration, 0 outside
    bool checked_ = false;
    bool atLineStart_ = true, blankBefore_ = false;
    // What the last token says about the next name.
    bool declaresName_ = false, afterDef_ = false, afterDeclaredName_ = false;
    bool inTypePosition_ = false, nameWasInTypePosition_ = false;
    std::vector<KnownClause> knownClauses_;  // all that the last scan met, by position
    std::size_t knownUntil_ = 0, knownNext_ = 0;
    TokenVec handedBack_;
    // Tokens are made in blocks, each kept alive by any of its tokens: one allocation instead of many.
    std::shared_ptr<std::vector<Token>> block_;
};

}  // namespace vesk::compiler
