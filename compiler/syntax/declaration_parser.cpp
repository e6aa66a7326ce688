// Files, functions, classes and their members.
#include <unordered_set>
#include <utility>

#include "syntax/characters.h"
#include "syntax/interactive_chunk.h"
#include "syntax/parser.h"
#include "syntax/scope_building.h"

namespace vesk::compiler {

namespace {

bool isModifier(TokenCode code) {
    return code == TokenCode::Public || code == TokenCode::Protected || code == TokenCode::Private ||
           code == TokenCode::Static || code == TokenCode::Native;
}

bool isOperatorName(const Str& name) { return name.compare(0, 8, "operator") == 0 && !isNamePart(name.back()); }

// The text of `operator` methods that cannot be declared.
bool isReservedOperator(std::string_view name) {
    for (std::string_view op : {"&&", "||", "!", "++", "--"})
        if (name.substr(8) == op) return true;
    return false;
}

// The place of the first name that an earlier one repeats; null when all differ.
template <class Item>
const Item* firstRepeated(const std::vector<Item>& items) {
    constexpr std::size_t FEW = 12;
    if (items.size() <= FEW) {
        for (std::size_t i = 1; i < items.size(); i++)
            for (std::size_t j = 0; j < i; j++)
                if (items[i].name == items[j].name) return &items[i];
        return nullptr;
    }
    std::unordered_set<std::string_view> seen;
    for (const Item& item : items)
        if (!seen.insert(item.name).second) return &item;
    return nullptr;
}

}  // namespace

// -------------------------------------------------------------------------------------------------- files

NodePtr Parser::parseFile() {
    auto file = std::make_shared<FileNode>(path_, scope_);
    try {
        BlockLayout layout = layoutOf(*token());
        if (!reparsed_ && position_ + 1 < tokens_.size() && layout.width > 0) {
            const CompilerException error =
                compileError(token(), "mixed indentation: a line at file level begins with no blanks");
            if (errors_ == nullptr) throw error;
            record(error);
        }
        parseFileHeader(*file, layout);
        if (reparsed_) layout = layoutOf(*token());
        if (isInteractiveChunk(path_))
            parseChunkItems(layout, *file);
        else
            parseDeclarations(layout, [&] {
                NodePtr declaration = parseTopLevelDeclaration();
                layout.afterInnerBlock = true;
                file->addChild(std::move(declaration));
            });
        if (position_ + 1 < tokens_.size())
            fail(token(), "mixed indentation: no block around this line begins with its blanks");
    } catch (const CompilerException& error) {
        if (errors_ == nullptr) {
            throwEarlier(error);
            throw;
        }
        record(error);
        const std::size_t start = std::exchange(position_, tokens_.size() - 1);
        noteRefused(start, refusedDeclarations_);
    }
    file->setRefusedNames(std::move(refusedDeclarations_));
    reportErrors();
    return file;
}

// A chunk's statements form a function without a name token, the file's last child; declarations may stand between them.
void Parser::parseChunkItems(BlockLayout& layout, FileNode& file) {
    ContextPtr scope = std::make_shared<Context>(scope_);
    auto body = std::make_shared<FunctionNode>(Str(interactiveChunkName(path_)), Str(), std::vector<FunctionParam>{},
                                               scope, token());
    body->setHasBody(true);
    parseItems(layout, [&] {
        isChunkStatement_ = !beginsDeclaration();
        if (!isChunkStatement_) {
            NodePtr declaration = parseTopLevelDeclaration();
            layout.afterInnerBlock = true;
            file.addChild(std::move(declaration));
            return;
        }
        ScopeChange inner(*this, scope);
        NodePtr statement = parseStatement();
        layout.afterInnerBlock = holdsBlocks(*statement);
        body->addChild(std::move(statement));
    });
    file.addChild(std::move(body));
}

bool Parser::beginsDeclaration() const {
    return code_ == TokenCode::Def || code_ == TokenCode::Class || code_ == TokenCode::Interface ||
           code_ == TokenCode::At || code_ == TokenCode::Package || code_ == TokenCode::Import || isModifier(code_);
}

bool Parser::mayBeDeclaration() const {
    if (beginsDeclaration() || code_ == TokenCode::Pass || position_ + 1 >= tokens_.size()) return true;
    const Token& next = *tokens_[position_ + 1];
    if (code_ != TokenCode::Identifier || next.startsLine()) return false;
    return next.code() == TokenCode::Colon || next.code() == TokenCode::Identifier;  // a field, a misspelt 'class'
}

// The lines behind a refused header are in their place no more: they are passed over with it.
void Parser::parseDeclarations(BlockLayout& layout, const std::function<void()>& declaration) {
    bool isMistaken = false;
    layout.holdsDeclarations = true;
    parseItems(layout, [&] {
        if (std::exchange(isMistaken, true) && !mayBeDeclaration()) {
            const std::size_t start = position_;
            recover(layout, start);
            return noteRefused(start, refusedDeclarations_);
        }
        declaration();
        isMistaken = false;
    });
}

void Parser::parseFileHeader(FileNode& file, BlockLayout& layout) {
    for (;;) {
        const TokenCode next = token()->code();
        if (position_ + 1 >= tokens_.size() || (next != TokenCode::Package && next != TokenCode::Import)) return;
        const std::size_t start = position_;
        try {
            if (!hasNextItem(layout)) return;
            beginLine();
            if (next == TokenCode::Package)
                parsePackageLine(file);
            else
                parseImportLine(file);
            expectLineEnd("the name of the package");
        } catch (const CompilerException& error) {
            if (errors_ == nullptr) throw;
            record(error);
            recover(layout, start);
            if (next == TokenCode::Import) file.setLacksImports();
        }
    }
}

PackageLine Parser::parsePackageName() {
    PackageLine line;
    line.token = token();
    for (;;) {
        const TokenPtr& part = expect(TokenCode::Identifier, "the name of a package");
        if (part->getText().back() == '>') fail(part, "the name of a package has no generic clause");
        line.name += part->getText();
        if (!accept(TokenCode::Dot)) return line;
        line.name += '.';
    }
}

void Parser::parsePackageLine(FileNode& file) {
    const TokenPtr keyword = advance();
    if (isInteractiveChunk(path_)) fail(keyword, "a chunk belongs to no package");
    if (!file.package().name.empty()) fail(keyword, "a file has one 'package' line");
    if (!file.imports().empty()) fail(keyword, "'package' stands before the imports");
    PackageLine line = parsePackageName();
    if (fileScope_) fileScope_->setPackageName(line.name);
    file.setPackage(std::move(line));
}

void Parser::parseImportLine(FileNode& file) {
    advance();
    PackageLine line = parsePackageName();
    if (fileScope_) fileScope_->addImportedPackageLocal(line.name);
    file.addImport(std::move(line));
}

// ------------------------------------------------------------------------------ what precedes a declaration

std::shared_ptr<AnnotationNode> Parser::parseAnnotation() {
    const TokenPtr at = advance();
    Str name = expect(TokenCode::Identifier, "the name of an annotation")->getText();
    if (name.back() == '>') fail(tokens_[position_ - 1], "an annotation has no generic clause");
    while (accept(TokenCode::Dot)) name += "." + expect(TokenCode::Identifier, "the name of an annotation")->getText();
    NodeVec arguments;
    if (code_ == TokenCode::OpenParen) arguments = parseArguments();
    if (code_ != TokenCode::LineEnd) fail(token(), "an annotation stands on a line of its own");
    return std::make_shared<AnnotationNode>(std::move(name), std::move(arguments), scope_, at);
}

Parser::DeclarationPrefix Parser::parsePrefix() {
    DeclarationPrefix prefix;
    while (code_ == TokenCode::At) {
        const TokenPtr at = token();
        prefix.annotations.push_back(parseAnnotation());
        if (position_ + 1 >= tokens_.size() || &token()->lineBlanks() != &at->lineBlanks())
            fail(at, "an annotation stands above a declaration, which begins with the same blanks");
        beginLine();
    }
    prefix.firstToken = token();
    bool hasVisibility = false;
    while (isModifier(code_)) {
        const TokenPtr& modifier = advance();
        for (const Str& earlier : prefix.modifiers)
            if (earlier == modifier->getText()) fail(modifier, "'" + earlier + "' stands twice");
        switch (modifier->code()) {
            case TokenCode::Static: prefix.isStatic = true; break;
            case TokenCode::Native: prefix.isNative = true; break;
            default:
                if (hasVisibility) fail(modifier, "'" + modifier->getText() + "' contradicts the modifier before it");
                hasVisibility = true;
                if (modifier->code() == TokenCode::Private) prefix.visibility = MemberVisibility::Private;
                if (modifier->code() == TokenCode::Protected) prefix.visibility = MemberVisibility::Protected;
        }
        prefix.modifiers.push_back(modifier->getText());
        prefix.modifierTokens.push_back(modifier);
    }
    return prefix;
}

Str Parser::declaredName(const TokenPtr& name, std::string_view what) const {
    const Str& text = name->getText();
    if (text.back() == '>' && text != "operator>") fail(name, "the name of " + Str(what) + " has no generic clause");
    if (text.compare(0, 2, "__") == 0 || text.find("__T_") != Str::npos)
        fail(name, "'" + text + "' belongs to the compiler: names do not begin with '__' or contain '__T_'");
    if (text == "self" || text == "this" || text == "super") fail(name, "'" + text + "' cannot be declared");
    return text;
}

NodePtr Parser::parseTopLevelDeclaration() {
    if (code_ == TokenCode::Package || code_ == TokenCode::Import)
        fail(token(), "'" + token()->getText() + "' stands before all declarations");
    DeclarationPrefix prefix = parsePrefix();
    for (const TokenPtr& modifier : prefix.modifierTokens)
        if (modifier->code() != TokenCode::Native)
            fail(modifier, "'" + modifier->getText() + "' is for members of classes");
    if (code_ == TokenCode::Def) return parseFunction(std::move(prefix));
    if (code_ == TokenCode::Class || code_ == TokenCode::Interface) return parseClass(std::move(prefix));
    failExpected("'def', 'class' or 'interface'");
}

// ------------------------------------------------------------------------------------------------ headers

std::vector<GenericTypeParam> Parser::parseTypeParams() {
    std::vector<GenericTypeParam> params;
    advance();
    do {
        GenericTypeParam param;
        param.token = expect(TokenCode::Identifier, "the name of a type parameter");
        param.name = declaredName(param.token, "a type parameter");
        if (accept(TokenCode::Colon)) param.constraint = parseType();
        if (accept(TokenCode::Assign)) {
            param.defaultToken = token();
            param.defaultType = parseType();
        }
        params.push_back(std::move(param));
    } while (accept(TokenCode::Comma));
    expect(TokenCode::Greater, "',' or '>' in the type parameters");
    if (const GenericTypeParam* repeated = firstRepeated(params))
        fail(repeated->token, "the type parameter '" + repeated->name + "' is declared twice");
    if (scope_)
        for (const GenericTypeParam& param : params) scope_->addGenericTypeParam(param.name);
    return params;
}

FunctionParam Parser::parseParam() {
    FunctionParam param;
    if (code_ == TokenCode::Star || code_ == TokenCode::Power) {
        param.isVariadic = code_ == TokenCode::Star;
        param.isNamedVariadic = !param.isVariadic;
        advance();
    }
    param.token = expect(TokenCode::Identifier, "the name of a parameter");
    param.name = declaredName(param.token, "a parameter");
    if (code_ != TokenCode::Colon) failExpected("':' and the type of the parameter '" + param.name + "'");
    advance();
    param.type = parseType();
    if (param.isVariadic) param.type = "vesk.collections.ArrayList<" + param.type + ">";
    if (param.isNamedVariadic) param.type = "vesk.collections.Map<String, " + param.type + ">";
    if (code_ == TokenCode::Assign) {
        if (param.isVariadic || param.isNamedVariadic) fail(token(), "a variadic parameter has no default");
        advance();
        const std::size_t begin = position_;
        parseExpression();
        param.hasDefault = true;
        param.defaultValueTokens.assign(tokens_.begin() + static_cast<std::ptrdiff_t>(begin),
                                        tokens_.begin() + static_cast<std::ptrdiff_t>(position_));
    }
    return param;
}

std::vector<FunctionParam> Parser::parseParams() {
    std::vector<FunctionParam> params;
    expect(TokenCode::OpenParen, "'(' and the parameters");
    if (accept(TokenCode::CloseParen)) return params;
    bool hasVariadic = false;
    do {
        const TokenPtr start = token();
        if (!params.empty() && params.back().isNamedVariadic) fail(start, "the '**' parameter stands last");
        params.push_back(parseParam());
        if (params.back().isVariadic && hasVariadic) fail(start, "a function has one '*' parameter");
        hasVariadic |= params.back().isVariadic;
    } while (accept(TokenCode::Comma));
    expect(TokenCode::CloseParen, "',' or ')' in the parameters");
    if (const FunctionParam* repeated = firstRepeated(params))
        fail(repeated->token, "the parameter '" + repeated->name + "' is declared twice");
    return params;
}

void Parser::declareParams(const std::vector<FunctionParam>& params) {
    reserveScopeVariables(scope_, params.size() + 1);  // most bodies declare a variable or none
    for (const FunctionParam& param : params) declareScopeVariable(scope_, param.name, param.type, nullptr, 0, 0);
}

// `NAME<T>(params) -> Type`, behind the `def`.
Parser::Header Parser::parseHeader() {
    Header header;
    header.nameToken = expect(TokenCode::Identifier, "the name of a function");
    if (code_ == TokenCode::Less) header.typeParams = parseTypeParams();
    header.params = parseParams();
    if (accept(TokenCode::Arrow)) {
        header.hasReturnType = true;
        header.returnTypeToken = token();
        header.returnType = parseType();
    }
    if (code_ != TokenCode::Colon && code_ != TokenCode::LineEnd)
        failExpected(header.hasReturnType ? "':' before the body"
                                          : "'->' and the result's type, or ':' before the body");
    return header;
}

void Parser::parseCallableBody(CallableDeclarationNode& node, const Token& headerStart) {
    if (accept(TokenCode::Colon)) {
        node.setHasBody(true);
        lacksStatements_ = false;
        parseBlockStatements(node, headerStart, "this function");
        if (lacksStatements_) node.setRefusedNames(std::exchange(refusedStatements_, {}));
    }
    node.setNextCodeLine(lineOfNextCode());
}

NodePtr Parser::parseFunction(DeclarationPrefix prefix) {
    const TokenPtr def = advance();
    ContextPtr scope = std::make_shared<Context>(scope_);
    ScopeChange inner(*this, scope);
    Header header = parseHeader();
    Str name = declaredName(header.nameToken, "a function");
    if (isOperatorName(name)) fail(header.nameToken, "'" + name + "' is declared in a class");
    const bool hasBody = code_ == TokenCode::Colon;
    if (prefix.isNative && hasBody) fail(token(), "a native function has no body");
    if (!prefix.isNative && !hasBody) fail(header.nameToken, "the function '" + name + "' needs a body");
    if (prefix.isNative && !header.hasReturnType) {
        if (!header.typeParams.empty()) fail(header.nameToken, "a native generic function needs a written return type");
        header.returnType = "Void";
    }
    declareParams(header.params);
    if (!header.returnType.empty()) scope->setReturnType(header.returnType);
    auto node = std::make_shared<FunctionNode>(std::move(name), std::move(header.returnType), std::move(header.params),
                                               std::move(scope), def);
    node->setNameToken(std::move(header.nameToken));
    node->setReturnTypeToken(std::move(header.returnTypeToken));
    if (!header.typeParams.empty()) node->setTypeParams(std::move(header.typeParams));
    if (!prefix.annotations.empty()) node->setAnnotations(std::move(prefix.annotations));
    if (!prefix.modifiers.empty()) node->setModifiers(prefix.modifiers);
    parseCallableBody(*node, *prefix.firstToken);
    return node;
}

// ------------------------------------------------------------------------------------------------ classes

NodePtr Parser::parseClass(DeclarationPrefix prefix) {
    const TokenPtr keyword = advance();
    const bool isInterface = keyword->code() == TokenCode::Interface;
    for (const TokenPtr& modifier : prefix.modifierTokens)
        if (modifier->code() != TokenCode::Native) fail(modifier, "'" + modifier->getText() + "' is not for classes");
    DepthGuard depth(*this, blockDepth_);
    const TokenPtr nameToken =
        expect(TokenCode::Identifier, isInterface ? "the name of an interface" : "the name of a class");
    Str name = declaredName(nameToken, isInterface ? "an interface" : "a class");
    ContextPtr scope = std::make_shared<Context>(scope_);
    ScopeChange inner(*this, scope);
    auto node = std::make_shared<ClassNode>(std::move(name), isInterface, std::move(scope), keyword);
    node->setNameToken(nameToken);
    node->setNative(prefix.isNative);
    node->setAnnotations(std::move(prefix.annotations));
    parseClassHeader(*node);
    BlockLayout layout = openBlock(*prefix.firstToken, isInterface ? "this interface" : "this class");
    OverloadCounts overloads;
    parseDeclarations(layout, [&] {
        NodePtr member = parseMember(*node, overloads);
        layout.afterInnerBlock = member != nullptr && member->getKind() != NodeKind::Field;
        if (member) node->addChild(std::move(member));
    });
    return node;
}

void Parser::parseClassHeader(ClassNode& node) {
    if (code_ == TokenCode::Less) node.setTypeParams(parseTypeParams());
    Str superType;
    StrVec interfaces;
    TokenVec places;
    const auto parseList = [&] {
        do {
            places.push_back(token());
            interfaces.push_back(parseType());
        } while (accept(TokenCode::Comma));
    };
    if (accept(TokenCode::Extends)) {
        if (node.isInterface()) {
            parseList();
        } else {
            places.push_back(token());
            superType = parseType();
            if (code_ == TokenCode::Comma) fail(token(), "a class extends one class; interfaces follow 'implements'");
        }
    }
    if (code_ == TokenCode::Implements) {
        if (node.isInterface()) fail(token(), "an interface extends interfaces: write 'extends'");
        advance();
        parseList();
        if (code_ == TokenCode::Extends) fail(token(), "'extends' stands before 'implements'");
    }
    node.setSuperTypes(std::move(superType), std::move(interfaces), std::move(places));
    const TokenPtr colon = token();
    expectBodyColon(node.isInterface() ? "this interface" : "this class");
    if (colon->getLine() != node.token()->getLine()) fail(colon, "the header of a class stands on one line");
}

NodePtr Parser::parseMember(ClassNode& owner, OverloadCounts& overloads) {
    if (code_ == TokenCode::Pass) {
        advance();
        expectLineEnd("'pass'");
        return nullptr;
    }
    DeclarationPrefix prefix = parsePrefix();
    switch (code_) {
        case TokenCode::Def: return parseMethod(std::move(prefix), owner, overloads);
        case TokenCode::Class:
        case TokenCode::Interface: return parseClass(std::move(prefix));
        case TokenCode::Identifier: return parseField(std::move(prefix), owner);
        case TokenCode::Var: fail(token(), "a field is written 'name: Type', without 'var'");
        default: failExpected("a field, 'def', 'class' or 'interface'");
    }
}

NodePtr Parser::parseField(DeclarationPrefix prefix, const ClassNode& owner) {
    const TokenPtr nameToken = advance();
    Str name = declaredName(nameToken, "a field");
    if (owner.isInterface()) fail(nameToken, "an interface has no fields");
    for (const TokenPtr& modifier : prefix.modifierTokens)
        if (modifier->code() == TokenCode::Native) fail(modifier, "a field cannot be native");
    if (code_ != TokenCode::Colon) failExpected("':' and the type of the field '" + name + "'");
    advance();
    Str type = parseType();
    NodePtr initializer;
    if (accept(TokenCode::Assign)) initializer = parseExpression();
    expectLineEnd("the field");
    auto node = std::make_shared<FieldNode>(std::move(name), std::move(type), std::move(initializer), prefix.isStatic,
                                            prefix.visibility, scope_, nameToken);
    node->setAnnotations(std::move(prefix.annotations));
    return node;
}

void Parser::checkMethod(const Header& header, const DeclarationPrefix& prefix, const ClassNode& owner,
                         bool hasBody) const {
    const TokenPtr& nameToken = header.nameToken;
    const Str& name = nameToken->getText();
    const bool isGeneric = !header.typeParams.empty();
    if (name == "init") {
        if (owner.isInterface()) fail(nameToken, "an interface has no 'init'");
        if (prefix.isStatic) fail(nameToken, "'init' cannot be static");
        if (isGeneric) fail(nameToken, "'init' has no type parameters of its own");
        if (header.hasReturnType && header.returnType != "Void") fail(nameToken, "'init' has no return type");
    }
    if (isOperatorName(name) && isReservedOperator(name)) fail(nameToken, "'" + name + "' cannot be declared");
    if (prefix.isNative) {
        if (hasBody) fail(token(), "a native method has no body");
        if (isGeneric && !header.hasReturnType) fail(nameToken, "a native generic method needs a written return type");
        return;
    }
    if (hasBody) return;
    if (isGeneric) fail(nameToken, "the generic method '" + name + "' needs a body");
    if (prefix.isStatic) fail(nameToken, "the static method '" + name + "' needs a body");
    if (!owner.isInterface()) fail(nameToken, "the method '" + name + "' of a class needs a body");
}

NodePtr Parser::parseMethod(DeclarationPrefix prefix, const ClassNode& owner, OverloadCounts& overloads) {
    const TokenPtr def = advance();
    ContextPtr scope = std::make_shared<Context>(scope_);
    ScopeChange inner(*this, scope);
    Header header = parseHeader();
    Str name = declaredName(header.nameToken, "a method");
    const bool hasBody = code_ == TokenCode::Colon;
    checkMethod(header, prefix, owner, hasBody);
    if (!prefix.isStatic) {
        reserveScopeVariables(scope, header.params.size() + 3);
        declareScopeVariable(scope, "self", {}, nullptr, 0, 0);
        declareScopeVariable(scope, "this", {}, nullptr, 0, 0);
    }
    declareParams(header.params);
    if (!header.hasReturnType && (!hasBody || name == "init")) header.returnType = "Void";
    if (!header.returnType.empty()) scope->setReturnType(header.returnType);
    const std::size_t overload = ++overloads[name];
    auto node =
        std::make_shared<MethodNode>(std::move(name), std::move(header.returnType), std::move(header.params), StrVec(),
                                     std::move(prefix.annotations), prefix.isStatic, std::move(scope), def);
    node->setOverloadIndex(overload);
    node->setNameToken(std::move(header.nameToken));
    node->setReturnTypeToken(std::move(header.returnTypeToken));
    node->setVisibility(prefix.visibility);
    if (!header.typeParams.empty()) node->setTypeParams(std::move(header.typeParams));
    if (!prefix.modifiers.empty()) node->setModifiers(prefix.modifiers);
    parseCallableBody(*node, *prefix.firstToken);
    return node;
}

}  // namespace vesk::compiler
