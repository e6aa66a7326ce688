// Cutting, tokenizing, parsing and picking.
#include "generics/source/declaration_parser.h"

#include <algorithm>
#include <exception>

#include "generics/source/declaration_blocks.h"
#include "generics/source/file_outline.h"
#include "generics/source/source_text_cache.h"
#include "generics/typetext/trimming.h"
#include "host/host_services.h"

namespace vesk::compiler {

namespace {

// Where the host's parser found a declaration: the line of its header and that of the first code behind it, 0 where it is
// unknown. A cut text is only used where the scanners find the same.
struct DeclarationLines {
    int header = 0, nextCode = 0;
};
// The tokens of a text. Most texts are used once; those that come again are kept from the second use on.
struct KeptTokens {
    TokenVec tokens;
    int uses = 0;
};

struct WholeFile {
    std::shared_ptr<const Str> text;  // the tokens are those of this very object
    SourceModuleHeader header;
    KeptTokens kept;
};

// They repeat what the line cache holds and live as long.
thread_local std::unordered_map<Str, KeptTokens> gCutDeclarations;
thread_local std::unordered_map<Str, WholeFile> gWholeFiles;

// Rewriting changes the tokens of type arguments; those of `is` operands are made by the parser, so only a text with
// `type(...)` calls in it needs tokens of its own.
TokenVec tokensForRewriting(const TokenVec& tokens) {
    const auto isTypeCall = [](const TokenPtr& token) {
        return token->getType() == TokenType::Identifier && token->getText() == "type";
    };
    return std::any_of(tokens.begin(), tokens.end(), isTypeCall) ? copyTokens(tokens) : tokens;
}

template <class Make>
TokenVec tokensFor(KeptTokens& kept, Make make) {
    kept.uses++;
    if (kept.uses == 1) return make();
    if (kept.uses == 2) kept.tokens = make();
    return tokensForRewriting(kept.tokens);
}

bool isLineOf(const StrVec& lines, int index) { return index >= 0 && static_cast<std::size_t>(index) < lines.size(); }

// A run of lines, `to` excluded.
struct LineRun {
    int from = 0, to = 0;
};

void appendTokens(TokenVec& tokens, const Str& path, const StrVec& lines, LineRun run) {
    Str text;
    for (int i = run.from; i < run.to; i++) {
        text += lines[static_cast<std::size_t>(i)];
        text += '\n';
    }
    TokenVec more = tokenizeAtFileLines(text, path, run.from + 1);
    if (tokens.empty()) {
        tokens = std::move(more);
    } else {
        tokens.insert(tokens.end(), more.begin(), more.end());
    }
}

TokenVec tokenizeRuns(const Str& path, const FileOutline& outline, const std::vector<LineRun>& runs) {
    TokenVec tokens = copyTokens(outline.preludeTokens);
    for (const LineRun& run : runs) appendTokens(tokens, path, *outline.lines, run);
    return tokens;
}

// The lines of the declaration whose header begins at `header`; nothing where the scanners and the host's parser
// disagree.
bool declarationRun(const StrVec& lines, int header, DeclarationLines expected, LineRun& run) {
    if (expected.nextCode > 0 && expected.header > 0 && header + 1 != expected.header) return false;
    run.to = findIndentedBlockEnd(lines, findHeaderEndIndex(lines, header));
    if (expected.nextCode > 0 && run.to + 1 != expected.nextCode) return false;
    run.from = extendBlockStartForAnnotations(lines, header);
    return true;
}

bool functionRuns(const FileOutline& outline, const Str& name, DeclarationLines expected, std::vector<LineRun>& runs) {
    const int header = outline.functionHeader(name);
    LineRun block;
    if (header < 0 || !isFunctionHeaderForName((*outline.lines)[static_cast<std::size_t>(header)], name)) return false;
    if (!outline.isPreludeWhole || !declarationRun(*outline.lines, header, expected, block)) return false;
    runs = {block};
    return true;
}

bool methodRuns(const FileOutline& outline, const Str& shortOwner, const Str& method, int lineHint,
                DeclarationLines expected, std::vector<LineRun>& runs) {
    if (!outline.isPreludeWhole) return false;
    const StrVec& lines = *outline.lines;
    const Str probe = method + "(";
    const auto holdsProbe = [&](int line) { return lines[static_cast<std::size_t>(line)].find(probe) != Str::npos; };
    int header = lineHint - 1;
    if (!isLineOf(lines, header)) {
        header = 0;
        while (isLineOf(lines, header) && !holdsProbe(header)) header++;
    }
    if (!isLineOf(lines, header) || !holdsProbe(header)) return false;
    const int width = indentationWidth(lines[static_cast<std::size_t>(header)]);
    int classLine = header - 1;
    for (; classLine >= 0; classLine--) {
        const Str& line = lines[static_cast<std::size_t>(classLine)];
        if (indentationWidth(line) >= width || line.find("class ") == Str::npos) continue;
        const std::string_view trimmed = quickTrimView(line);
        if (isNonCodeLine(Str(trimmed))) continue;
        if (trimmed.find("class ") != Str::npos && trimmed.find(shortOwner) != Str::npos) break;
    }
    LineRun block;
    if (classLine < 0 || !declarationRun(lines, header, expected, block)) return false;
    runs = {{extendBlockStartForAnnotations(lines, classLine), classLine + 1}, block};
    return true;
}

// The tree of a run of tokens, in a fresh scope that looks names up as the file does.
NodePtr parseTokens(const Str& path, TokenVec tokens, const SourceModuleHeader& header, const ContextPtr& context) {
    auto scope = std::make_shared<Context>(genericDeclarationParentContext(context));
    applySourceModuleHeader(header, scope);
    TreeGenerator generator(path, std::move(tokens), scope, true);
    return generator.generateTree();
}

// A tree and the header that its nodes are to carry; the header belongs to this thread's tables.
struct ParsedText {
    NodePtr tree;
    const SourceModuleHeader* header = nullptr;
};

ParsedText parseWholeFile(const Str& path, const ContextPtr& context) {
    std::shared_ptr<const Str> text = sourceTextSnapshot(path);
    if (!text) return {};
    WholeFile& file = gWholeFiles[path];
    if (file.text != text) file = {text, sourceModuleHeaderOf(*text), {}};
    TokenVec tokens = tokensFor(file.kept, [&] { return tokenizeAtFileLines(*text, path, 1); });
    return {parseTokens(path, std::move(tokens), file.header, context), &file.header};
}

std::shared_ptr<FunctionNode> pickFunction(const NodePtr& tree, const Str& name) {
    for (const NodePtr& child : tree->getChildren()) {
        if (!child || child->getKind() != NodeKind::Function) continue;
        auto function = std::static_pointer_cast<FunctionNode>(child);
        if (function->name() == name) return function;
    }
    return nullptr;
}

void collectMethods(const NodePtr& owner, const Str& method, std::vector<std::shared_ptr<MethodNode>>& found) {
    for (const NodePtr& child : owner->getChildren()) {
        if (!child || child->getKind() != NodeKind::Method) continue;
        auto node = std::static_pointer_cast<MethodNode>(child);
        if (node->name() == method) found.push_back(std::move(node));
    }
}

// Classes of that name at the top level; where there are none (a nested class in a whole file), those further down.
std::vector<NodePtr> classesNamed(const NodePtr& tree, const Str& name) {
    NodeVec level = tree->getChildren();
    while (!level.empty()) {
        NodeVec named, below;
        for (const NodePtr& node : level) {
            if (!node || node->getKind() != NodeKind::Class) continue;
            if (node->getName() == name) named.push_back(node);
            for (const NodePtr& child : node->getChildren()) below.push_back(child);
        }
        if (!named.empty()) return named;
        level = std::move(below);
    }
    return {};
}

std::shared_ptr<MethodNode> pickMethod(const NodePtr& tree, const Str& shortOwner, const Str& method, int lineHint) {
    std::vector<std::shared_ptr<MethodNode>> methods;
    for (const NodePtr& owner : classesNamed(tree, shortOwner)) collectMethods(owner, method, methods);
    for (const auto& node : methods) {
        if (!node->token() || node->token()->getLine() == lineHint) return node;
    }
    return methods.empty() ? nullptr : methods.front();
}

// As the file itself sees the function: the caller may know another one of that name.
DeclarationLines functionLines(const Str& path, const Str& name, const ContextPtr& context) {
    if (!context) return {};
    const std::shared_ptr<const GenericFunctionInfo> info = declarationScope(path, context)->getGenericFunction(name);
    if (!info || info->sourceFile != path) return {};
    return {info->declarationLine, info->nextCodeLine};
}

DeclarationLines methodLines(const Str& path, const Str& owner, const Str& method, int line,
                             const ContextPtr& context) {
    if (!context || line <= 0) return {};
    try {
        for (const GenericMethodInfo& info : context->getGenericMethods(owner, method)) {
            if (info.declarationLine == line && info.sourceFile == path) return {line, info.nextCodeLine};
        }
    } catch (const CompilerException&) {
        // An owner that cannot be loaded tells nothing.
    }
    return {};
}

}  // namespace

TokenVec tokenizeAtFileLines(const Str& text, const Str& path, int firstLine) {
    TokenVec tokens = Tokenizer(text, path).tokens();
    if (firstLine == 1) return tokens;
    for (TokenPtr& token : tokens) token = token->withPlace(token->getLine() + firstLine - 1, token->getColumn());
    return tokens;
}

TokenVec copyTokens(const TokenVec& tokens) {
    TokenVec copies;
    copies.reserve(tokens.size());
    for (const TokenPtr& token : tokens) copies.push_back(std::make_shared<Token>(*token));
    return copies;
}

ContextPtr genericDeclarationParentContext(const ContextPtr& context) {
    if (!context) return nullptr;
    const Str unit = context->getCompileUnitFile();
    ContextPtr outermost = context;
    while (outermost->parent() && outermost->parent()->getCompileUnitFile() == unit) outermost = outermost->parent();
    return outermost;
}

std::shared_ptr<FunctionNode> parseFunctionFromFile(const Str& path, const Str& name, const ContextPtr& context) {
    const DeclarationLines expected = functionLines(path, name, context);
    const FileOutline& outline = fileOutline(path);
    std::vector<LineRun> runs;
    ParsedText parsed;
    if (functionRuns(outline, name, expected, runs)) {
        KeptTokens& kept = gCutDeclarations[path + '|' + name];
        TokenVec tokens = tokensFor(kept, [&] { return tokenizeRuns(path, outline, runs); });
        parsed = {parseTokens(path, std::move(tokens), outline.header, context), &outline.header};
    } else {
        parsed = parseWholeFile(path, context);
    }
    if (!parsed.tree) return nullptr;
    std::shared_ptr<FunctionNode> function = pickFunction(parsed.tree, name);
    applySourceModuleHeaderToNode(*parsed.header, function);
    return function;
}

std::shared_ptr<MethodNode> parseMethodFromFile(const Str& path, const Str& ownerClass, const Str& methodName,
                                                int lineHint, const ContextPtr& context) {
    const FileOutline& outline = fileOutline(path);
    const Str shortOwner = ownerClass.substr(ownerClass.rfind('.') + 1);
    const DeclarationLines expected = methodLines(path, ownerClass, methodName, lineHint, context);
    std::vector<LineRun> runs;
    ParsedText parsed;
    if (methodRuns(outline, shortOwner, methodName, lineHint, expected, runs)) {
        KeptTokens& kept =
            gCutDeclarations[path + '|' + shortOwner + '|' + methodName + '|' + std::to_string(runs[1].from)];
        TokenVec tokens = tokensFor(kept, [&] { return tokenizeRuns(path, outline, runs); });
        parsed = {parseTokens(path, std::move(tokens), outline.header, context), &outline.header};
    } else {
        parsed = parseWholeFile(path, context);
    }
    if (!parsed.tree) return nullptr;
    std::shared_ptr<MethodNode> method = pickMethod(parsed.tree, shortOwner, methodName, lineHint);
    applySourceModuleHeaderToNode(*parsed.header, method);
    return method;
}

namespace {

struct KeptScope {
    std::weak_ptr<Context> parent;
    ContextPtr scope;
};

thread_local std::unordered_map<Str, KeptScope> gDeclarationScopes;

}  // namespace

ContextPtr declarationScope(const Str& path, const ContextPtr& context) {
    const ContextPtr parent = genericDeclarationParentContext(context);
    KeptScope& kept = gDeclarationScopes[path];
    if (kept.scope && parent && kept.parent.lock() == parent) return kept.scope;
    auto scope = std::make_shared<Context>(parent);
    applySourceModuleHeader(fileOutline(path).header, scope);
    // An empty declaration of the file: parsing it makes the scope one of the file.
    TreeGenerator(path, TokenVec{}, scope, true).generateTree();
    gDeclarationScopes[path] = {parent, scope};
    return scope;
}

void resetDeclarationScopes() { gDeclarationScopes.clear(); }

}  // namespace vesk::compiler
