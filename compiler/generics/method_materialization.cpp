// Building method nodes.
//
// A body is cut out of its file by indentation, its lines are stripped to the depth of a block at the left margin, and the
// text is preceded by as many line feeds as the file has lines before it: a body that starts on line 12 is parsed from a
// text whose first 11 lines are empty, and every message about it points at line 12. What was stripped from a line is
// added to the columns of its tokens.
#include "generics/method_materialization.h"

#include <algorithm>

#include "generics/generic_specializer.h"
#include "generics/inference/body_rewriting.h"
#include "generics/method_signature.h"
#include "generics/request_stack.h"
#include "generics/source/declaration_blocks.h"
#include "generics/source/declaration_parser.h"
#include "generics/typetext/type_text.h"
#include "host/host_services.h"

namespace vesk::compiler {

namespace {

constexpr std::size_t BLOCK_INDENT = 4;

template <typename Value>
Value valueAt(const std::vector<Value>& values, std::size_t index) {
    return index < values.size() ? values[index] : Value{};
}

Str baseClassOf(const Str& owner) {
    Str base;
    return ClassLoader::resolveConcreteGenericBase(owner, base) ? base : parseGenericTypeText(owner).base;
}

// The signature in a fresh scope that looks names up as the declaring file does.
std::shared_ptr<MethodNode> signatureNode(const GenericMethodInfo& info, const StrVec& paramTypes,
                                          const Str& returnType, const ContextPtr& context, const TokenPtr& callToken,
                                          const TokenPtr& ownToken) {
    auto scope = std::make_shared<Context>(genericDeclarationParentContext(context));
    applySourceModuleHeader(readSourceModuleHeader(info.sourceFile), scope);

    auto node =
        std::make_shared<MethodNode>(info.name, returnType, genericMethodParams(info, paramTypes, callToken), StrVec{},
                                     std::vector<std::shared_ptr<AnnotationNode>>{}, info.isStatic, scope, ownToken);
    StrVec modifiers;
    if (info.isStatic) modifiers.push_back("static");
    if (info.isNative) modifiers.push_back("native");
    node->setModifiers(modifiers);
    node->setTypeParams(toGenericTypeParams(info.typeParams, callToken));
    for (const GenericTypeParamInfo& param : info.typeParams) scope->addGenericTypeParam(param.name);
    node->setOverloadIndex(info.overloadIndex);
    node->setVisibility(info.visibility);
    for (const FunctionParam& param : node->getParams()) scope->addVariable(param.name, param.type);
    if (!returnType.empty()) scope->setReturnType(returnType);
    return node;
}

// Where a body stands among the lines of its file; empty when the file does not hold the declaration where it should.
struct BodyLines {
    std::size_t header = 0, first = 0, end = 0;
    bool empty() const { return first >= end; }
};

BodyLines findBody(const GenericMethodInfo& info, const StrVec& lines) {
    if (info.declarationLine < 1 || static_cast<std::size_t>(info.declarationLine) > lines.size()) return {};
    const int header = info.declarationLine - 1;
    const int headerEnd = findHeaderEndIndex(lines, header);
    const int end = findIndentedBlockEnd(lines, headerEnd);
    if (end <= headerEnd + 1) return {};
    // The scanners are misled by some legal headers and comments; then the whole file must be parsed.
    if (info.nextCodeLine > 0 && end + 1 != info.nextCodeLine) return {};
    return {static_cast<std::size_t>(header), static_cast<std::size_t>(headerEnd) + 1, static_cast<std::size_t>(end)};
}

std::size_t blankCount(const Str& line) {
    const std::size_t end = line.find_first_not_of(" \t");
    return end == Str::npos ? line.size() : end;
}

// The name where the declaration has it; null when the line has another.
TokenPtr nameTokenOf(const GenericMethodInfo& info, const Str& headerLine) {
    constexpr std::string_view KEYWORD = "def";
    std::size_t at = headerLine.find(KEYWORD);
    if (at == Str::npos) return nullptr;
    at = headerLine.find_first_not_of(" \t", at + KEYWORD.size());
    if (at == Str::npos || headerLine.compare(at, info.name.size(), info.name) != 0) return nullptr;
    auto token = std::make_shared<Token>(nullptr, TokenType::Identifier, info.name, info.declarationLine,
                                         static_cast<int>(at) + 1);
    token->setFilename(info.sourceFile);
    return token;
}

// The body's text at the left margin, and how many characters each of its lines lost.
struct StrippedBody {
    Str text;
    std::vector<int> dropped;  // by line of the body
    std::size_t firstLine = 0;
};

StrippedBody stripBody(const StrVec& lines, const BodyLines& body) {
    std::size_t most = static_cast<std::size_t>(indentationWidth(lines[body.header])) + BLOCK_INDENT;
    for (std::size_t i = body.first; i < body.end; i++) {
        if (isNonCodeLine(quickTrimCopy(lines[i]))) continue;
        most = std::min(most, blankCount(lines[i]));
        break;
    }
    StrippedBody stripped;
    stripped.firstLine = body.first;
    for (std::size_t i = body.first; i < body.end; i++) {
        const std::size_t drop = std::min(most, blankCount(lines[i]));
        stripped.text.append(lines[i], drop).append("\n");
        stripped.dropped.push_back(static_cast<int>(drop));
    }
    return stripped;
}

// The tokens of a body as they stand in the file.
TokenVec bodyTokens(const Str& path, const StrippedBody& body) {
    TokenVec tokens = Tokenizer(body.text, path).tokens();
    for (TokenPtr& token : tokens) {
        const std::size_t line = static_cast<std::size_t>(token->getLine()) - 1;
        const int dropped = line < body.dropped.size() ? body.dropped[line] : 0;
        token = token->withPlace(token->getLine() + static_cast<int>(body.firstLine), token->getColumn() + dropped);
    }
    return tokens;
}

// A declaration as it was read from its file.
struct ReadBody {
    Str path, name;
    int declarationLine = 0, nextCodeLine = 0;
    // The lines from the header to the one behind the body: while they are the same, so is the rest.
    StrVec lines;
    bool isAtEnd = false;  // no line stands behind the body
    TokenPtr nameToken;
    TokenVec tokens;                   // none where the body was not found
    std::vector<std::size_t> clauses;  // tokens that hold a type argument clause

    bool isOf(const GenericMethodInfo& info, const StrVec& fileLines) const {
        if (declarationLine != info.declarationLine || nextCodeLine != info.nextCodeLine || tokens.empty())
            return false;
        if (path != info.sourceFile || name != info.name) return false;
        const std::size_t header = static_cast<std::size_t>(declarationLine) - 1;
        if (isAtEnd ? fileLines.size() != header + lines.size() : fileLines.size() < header + lines.size())
            return false;
        return std::equal(lines.begin(), lines.end(), fileLines.begin() + static_cast<std::ptrdiff_t>(header));
    }
};

ReadBody readBody(const GenericMethodInfo& info, const StrVec& fileLines) {
    ReadBody read;
    read.path = info.sourceFile;
    read.name = info.name;
    read.declarationLine = info.declarationLine;
    read.nextCodeLine = info.nextCodeLine;
    const BodyLines body = findBody(info, fileLines);
    if (body.empty()) return read;
    read.isAtEnd = body.end >= fileLines.size();
    const std::size_t end = read.isAtEnd ? fileLines.size() : body.end + 1;
    read.lines.assign(fileLines.begin() + static_cast<std::ptrdiff_t>(body.header),
                      fileLines.begin() + static_cast<std::ptrdiff_t>(end));
    read.nameToken = nameTokenOf(info, fileLines[body.header]);
    read.tokens = bodyTokens(info.sourceFile, stripBody(fileLines, body));
    for (std::size_t i = 0; i < read.tokens.size(); i++) {
        const Token& token = *read.tokens[i];
        if (token.getType() == TokenType::Identifier && hasGenericClauseText(token.getText()))
            read.clauses.push_back(i);
    }
    return read;
}

// The last body read on this thread: calls of one method mostly follow each other.
thread_local ReadBody gLastBody;

// A clause with the type arguments in it is another token; all others serve every specialization.
void substituteClause(TokenPtr& token, const TypeParameterIndex& names, const StrVec& args) {
    Str text;
    if (!substituteTypeThroughout(std::string_view(token->getText()), names, args, text)) return;
    token = token->withPlace(token->getLine(), token->getColumn());
    token->setText(text);
}

// The type arguments, when they may be put into the clauses of a body that is going to be rewritten as a whole, with the
// class's parameters, later: one that is spelled like a type parameter would then be replaced again.
StrVec argsForClauses(const GenericMethodInfo& info, const ContextPtr& context, const TokenPtr& token,
                      const StrVec& names, const StrVec& args) {
    if (args.empty()) return {};
    const StrVec allNames =
        info.ownerClass.empty() ? names : genericMethodBindings(names, args, info.ownerClass, context, token).names;
    const TypeParameterIndex index(allNames);
    const bool isAmbiguous =
        std::any_of(args.begin(), args.end(), [&](const Str& arg) { return mentionsTypeName(arg, index); });
    return isAmbiguous ? StrVec{} : args;
}

void parseBody(const std::shared_ptr<MethodNode>& node, const ReadBody& body, const StrVec& names, const StrVec& args) {
    TokenVec tokens = body.tokens;
    const TypeParameterIndex index(names);
    for (const std::size_t place : body.clauses) substituteClause(tokens[place], index, args);
    node->setNameToken(body.nameToken);
    TreeGenerator(body.path, std::move(tokens), node->getContext(), true).parseBlock(node, 0);
    node->setHasBody(true);
}

}  // namespace

std::vector<FunctionParam> genericMethodParams(const GenericMethodInfo& info, const StrVec& paramTypes,
                                               const TokenPtr& token) {
    std::vector<FunctionParam> params;
    params.reserve(paramTypes.size());
    for (std::size_t i = 0; i < paramTypes.size(); i++) {
        FunctionParam param;
        param.name = valueAt(info.paramNames, i);
        if (param.name.empty()) param.name = "arg" + std::to_string(i);
        param.type = paramTypes[i];
        param.token = token;
        param.defaultValueTokens = valueAt(info.defaultValueTokens, i);
        param.hasDefault = valueAt(info.paramHasDefault, i);
        param.passingMode = valueAt(info.passingModes, i);
        param.isVariadic = info.isVariadic && info.variadicIndex == static_cast<int>(i);
        param.isNamedVariadic = info.isNamedVariadic && info.namedVariadicIndex == static_cast<int>(i);
        params.push_back(std::move(param));
    }
    return params;
}

void putIntoClass(const MethodNode& node, const Str& owner) {
    const ContextPtr& scope = node.getContext();
    scope->setEnclosingClassSelfType(owner);
    if (node.isStatic()) return;
    scope->addVariable("self", owner);
    scope->addVariable("this", owner);
}

std::shared_ptr<MethodNode> syntheticGenericMethod(const GenericMethodInfo& info, const ContextPtr& context,
                                                   const TokenPtr& token) {
    return signatureNode(info, info.paramTypes, info.returnType, context, token, token);
}

std::shared_ptr<MethodNode> rebuildCachedNativeGenericMethod(const CachedGenericMethodSpec& cached,
                                                             const ContextPtr& context, const TokenPtr& token) {
    auto node = syntheticGenericMethod(cached.info, context, token);
    node->setTypeParams(toGenericTypeParams(cached.info.typeParams, token));
    node->setParamTypes(cached.spec.paramTypes);
    node->setReturnType(cached.spec.returnType);
    return node;
}

std::shared_ptr<MethodNode> materializeGenericMethodFromInfo(const GenericMethodInfo& info, const ContextPtr& context,
                                                             const TokenPtr& token, const StrVec& typeParamNames,
                                                             const StrVec& typeArgs) {
    if (!context) return nullptr;
    const TypeParameterIndex names(typeParamNames);
    StrVec paramTypes;
    for (const Str& type : info.paramTypes) paramTypes.push_back(substituteIndexedType(type, names, typeArgs));
    const Str returnType = substituteIndexedType(info.returnType, names, typeArgs);
    auto ownToken =
        std::make_shared<Token>(nullptr, TokenType::Identifier, info.name, std::max(info.declarationLine, 1), 1);
    ownToken->setFilename(info.sourceFile.empty() ? "<unknown>" : info.sourceFile);
    auto node = signatureNode(info, paramTypes, returnType, context, token, ownToken);

    putIntoClass(*node, info.ownerClass);
    if (info.isNative) return node;
    const StrVec clauseArgs = argsForClauses(info, context, token, typeParamNames, typeArgs);
    const StrVec& lines = readSourceLinesCached(info.sourceFile);
    if (!gLastBody.isOf(info, lines)) gLastBody = readBody(info, lines);
    if (!gLastBody.tokens.empty()) parseBody(node, gLastBody, typeParamNames, clauseArgs);
    return node;
}

std::shared_ptr<MethodNode> loadGenericMethod(const GenericMethodInfo& info, const Str& owner,
                                              const ContextPtr& context, const TokenPtr& token,
                                              const StrVec& typeParamNames, const StrVec& typeArgs) {
    auto node = materializeGenericMethodFromInfo(info, context, token, typeParamNames, typeArgs);
    if (node && (info.isNative || !node->getBody().empty())) return node;
    node = parseMethodFromFile(info.sourceFile, baseClassOf(owner), info.name, info.declarationLine, context);
    if (!node) return nullptr;
    node->setOverloadIndex(info.overloadIndex);
    putIntoClass(*node, owner);
    return node;
}

Str genericMethodDisplayName(const GenericMethodInfo& info, const Str& owner, const StrVec& typeArgs) {
    return specializationDisplayName(shortTypeNameLocal(baseClassOf(owner)) + "." + info.name, typeArgs);
}

RequestedSpecialization requestedGenericMethod(const GenericMethodInfo& info, const Str& owner, const StrVec& typeArgs,
                                               const TokenPtr& token) {
    StrVec with = typeArgs;
    // A class that is no instantiation says nothing about growth.
    if (owner.find(FLATTENED_TYPE_MARKER) != Str::npos || owner.find('<') != Str::npos) with.push_back(owner);
    return {genericMethodDisplayName(info, owner, typeArgs),
            genericDeclarationKey(info.sourceFile, info.declarationLine, info.name), std::move(with), token};
}

void concretizeGenericMethod(const std::shared_ptr<MethodNode>& node, const GenericMethodInfo& info, const Str& owner,
                             const StrVec& typeArgs, const StrVec& paramTypes, const Str& returnType, const Str& unit,
                             const ContextPtr& context, const TokenPtr& token) {
    node->setParamTypes(paramTypes);
    node->setReturnType(returnType);
    if (!node->getTypeParams().empty()) {
        makeBodyConcrete(node,
                         genericMethodBindings(genericMethodTypeParamNameList(info), typeArgs, owner, context, token));
    }
    node->setDisplayName(genericMethodDisplayName(info, owner, typeArgs));
    applyCompileUnitToNode(unit, node);
}

}  // namespace vesk::compiler
