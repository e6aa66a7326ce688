// The parser's inside, shared by its chapters: lines and blocks (parser.cpp), declarations, statements, expressions
// and types. It descends by hand over a vector of tokens. A token that begins a line looks like `LineEnd` until a new
// item is begun with `beginLine()`, so that no expression runs on into the next line.
#pragma once

#include <functional>
#include <initializer_list>
#include <optional>

#include "host/ast_nodes.h"
#include "host/diagnostics.h"
#include "syntax/token_codes.h"

namespace vesk::compiler {

inline constexpr int MAX_NESTING = 256;
inline constexpr std::size_t MAX_ERRORS = 200;

class Parser {
public:
    Parser(Str path, ContextPtr scope, bool reparsed, std::vector<CompilerException>* errors);

    // Where the tokens come from; mistakes that the tokenizer finds are kept until their place is reached.
    void readTokens(Tokenizer& tokenizer);
    void readTokens(TokenVec tokens);

    NodePtr parseFile();
    void parseBlockInto(const NodePtr& parent, unsigned indent);

private:
    // How the lines of one block begin.
    struct BlockLayout {
        const Str* blanks = nullptr;
        int width = 0;
        bool hadOtherBlanks = false;  // reported once
        bool afterInnerBlock = false;
        bool holdsDeclarations = false;
    };
    // What stands before a declaration.
    struct DeclarationPrefix {
        std::vector<std::shared_ptr<AnnotationNode>> annotations;
        StrVec modifiers;
        TokenVec modifierTokens;
        MemberVisibility visibility = MemberVisibility::Public;
        bool isStatic = false, isNative = false;
        TokenPtr firstToken;
    };
    struct Header {
        TokenPtr nameToken, returnTypeToken;
        Str returnType;
        std::vector<FunctionParam> params;
        std::vector<GenericTypeParam> typeParams;
        bool hasReturnType = false;
    };
    using OverloadCounts = std::unordered_map<Str, std::size_t>;
    class ScopeChange;
    class DepthGuard;

    // --- tokens
    const TokenPtr& token() const { return tokens_[position_]; }
    TokenCode code() const { return code_; }
    TokenCode codeAt(std::size_t index) const;
    const TokenPtr& advance();
    bool accept(TokenCode code);
    const TokenPtr& expect(TokenCode code, const char* what);
    void beginLine() { code_ = token()->code(); }
    void finishTokens();
    std::size_t matchingClose(std::size_t open);
    int lineOfNextCode() const;

    // --- mistakes
    [[noreturn]] void fail(const TokenPtr& at, Str message) const;
    [[noreturn]] void failExpected(std::string_view what) const;
    Str describeCurrent() const;
    TokenPtr placeAfter(const Token& token) const;
    void record(const CompilerException& error);
    void reportErrors();
    void throwEarlier(const CompilerException& error);

    // --- lines and blocks
    BlockLayout openBlock(const Token& header, const char* owner);
    bool hasNextItem(BlockLayout& layout);
    void recover(const BlockLayout& layout, std::size_t start);
    // The names from a token to the current one.
    void noteRefused(std::size_t start, RefusedNames& names) const;
    void parseDeclarations(BlockLayout& layout, const std::function<void()>& declaration);
    template <class Item>
    void parseItems(BlockLayout& layout, Item item);
    void expectLineEnd(const char* after);
    void expectBodyColon(const char* owner);

    // --- declarations
    void parseFileHeader(FileNode& file, BlockLayout& layout);
    void parseChunkItems(BlockLayout& layout, FileNode& file);
    bool beginsDeclaration() const;
    // Whether the line may have been meant as a declaration: of lines that may not, a mistake before them is the reason
    // that they stand here.
    bool mayBeDeclaration() const;
    void parsePackageLine(FileNode& file);
    void parseImportLine(FileNode& file);
    PackageLine parsePackageName();
    DeclarationPrefix parsePrefix();
    std::shared_ptr<AnnotationNode> parseAnnotation();
    NodePtr parseTopLevelDeclaration();
    NodePtr parseFunction(DeclarationPrefix prefix);
    NodePtr parseClass(DeclarationPrefix prefix);
    void parseClassHeader(ClassNode& node);
    NodePtr parseMember(ClassNode& owner, OverloadCounts& overloads);
    NodePtr parseMethod(DeclarationPrefix prefix, const ClassNode& owner, OverloadCounts& overloads);
    NodePtr parseField(DeclarationPrefix prefix, const ClassNode& owner);
    Header parseHeader();
    std::vector<GenericTypeParam> parseTypeParams();
    std::vector<FunctionParam> parseParams();
    FunctionParam parseParam();
    void declareParams(const std::vector<FunctionParam>& params);
    void parseCallableBody(CallableDeclarationNode& node, const Token& headerStart);
    void checkMethod(const Header& header, const DeclarationPrefix& prefix, const ClassNode& owner, bool hasBody) const;
    Str declaredName(const TokenPtr& name, std::string_view what) const;

    // --- statements
    static bool holdsBlocks(const AbstractNode& statement);
    void parseStatements(BlockLayout& layout, AbstractNode& parent);
    NodePtr parseStatement();
    std::shared_ptr<BlockNode> parseBlock(const TokenPtr& header, const char* owner);
    void parseBlockStatements(AbstractNode& parent, const Token& header, const char* owner);
    NodePtr parseIf();
    NodePtr parseWhile();
    void parseLoopBody(BlockNode& loop, const char* owner);
    NodePtr parseFor();
    NodePtr parseReturn();
    NodePtr parseSimple(NodeKind kind);
    NodePtr parseVar();
    NodePtr parseTypedLocal();
    NodePtr parseExpressionStatement();
    NodePtr declareLocal(const TokenPtr& name, Str type, NodePtr initializer);
    void checkAssignable(const AbstractNode& target, const TokenPtr& op) const;

    // --- expressions
    NodePtr parseExpression();
    NodePtr parseBinary(int minimum);
    NodePtr parseNot(int minimum);
    NodePtr parseUnary();
    NodePtr parsePower();
    NodePtr parsePostfix();
    NodePtr parsePrimary();
    NodePtr parseNameExpression();
    NodePtr parseMember(NodePtr object);
    NodePtr parseTypeTest(NodePtr operand);
    NodePtr parseCast(NodePtr operand);
    NodePtr parseTypeCall(Str callee, TokenPtr token);
    NodePtr parseArrayConstructor(Str elementType, TokenPtr token);
    NodePtr parseFunctionArrayConstructor();
    bool isLambdaAhead();
    bool isFunctionTypeAhead();
    bool namesAhead(std::initializer_list<std::string_view> names) const;
    NodePtr parseParenthesised();
    NodePtr parseLambda();
    NodePtr parseListLiteral();
    NodePtr parseMapLiteral();
    NodeVec parseArguments();
    NodePtr typeExpression(const Str& type, const TokenPtr& token);
    std::optional<Str> qualifiedText(const NodePtr& chain) const;

    // --- types
    Str parseType();
    void parseTypeInto(struct TypeSpelling& type);
    void parseParenthesisedType(struct TypeSpelling& type);
    struct TypeSpelling parseQualifiedType();
    struct TypeSpelling spellingOf(const TokenPtr& name) const;
    Str nameWithClause(const TokenPtr& name) const;
    NodePtr parseTypeNode();
    static BlockLayout layoutOf(const Token& first);

    Str path_;
    ContextPtr fileScope_;
    ContextPtr scope_;
    TokenVec tokens_;
    std::size_t position_ = 0;
    TokenCode code_ = TokenCode::End;
    int depth_ = 0;
    int blockDepth_ = 0;
    int typeDepth_ = 0;
    int loopDepth_ = 0;
    int lineCount_ = 0;  // 0: not known
    bool reparsed_;
    bool isChunkStatement_ = false;           // between the declarations of an interactive chunk
    std::vector<CompilerException>* errors_;  // null: the first mistake is thrown
    std::vector<CompilerException> found_, lexical_;
    RefusedNames refusedDeclarations_, refusedStatements_;  // of the file, of the function under way
    bool lacksStatements_ = false;
    std::vector<std::uint32_t> matches_;
};

// While it lives, names are declared in another scope.
class Parser::ScopeChange {
public:
    ScopeChange(Parser& parser, ContextPtr scope) : parser_(parser), outer_(std::move(parser.scope_)) {
        parser_.scope_ = std::move(scope);
    }
    ~ScopeChange() { parser_.scope_ = std::move(outer_); }
    ScopeChange(const ScopeChange&) = delete;
    ScopeChange& operator=(const ScopeChange&) = delete;

private:
    Parser& parser_;
    ContextPtr outer_;
};

// One level of nesting deeper, as long as it lives.
class Parser::DepthGuard {
public:
    DepthGuard(const Parser& parser, int& depth) : depth_(depth) {
        if (depth_ >= MAX_NESTING) parser.fail(parser.token(), "nested too deeply");
        depth_++;
    }
    ~DepthGuard() { depth_--; }
    DepthGuard(const DepthGuard&) = delete;
    DepthGuard& operator=(const DepthGuard&) = delete;

private:
    int& depth_;
};

template <class Item>
void Parser::parseItems(BlockLayout& layout, Item item) {
    for (;;) {
        const std::size_t start = position_;
        try {
            if (!hasNextItem(layout)) return;
            beginLine();
            item();
        } catch (const CompilerException& error) {
            if (errors_ == nullptr) throw;
            record(error);
            recover(layout, start);
            if (!layout.holdsDeclarations) lacksStatements_ = true;
            noteRefused(start, layout.holdsDeclarations ? refusedDeclarations_ : refusedStatements_);
        }
    }
}

}  // namespace vesk::compiler
