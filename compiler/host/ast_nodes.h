// The syntax tree.
// Every construct of the language has one node class and one NodeKind. Nodes are shared; a node belongs to one
// thread while it is changed. Reading guide: declarations first, then statements, then expressions.
// Expressions in statement position stand in the statement list themselves.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <set>

#include "host/context.h"
#include "host/model_records.h"
#include "host/tokens.h"

namespace vesk::compiler {

enum class NodeKind : std::uint8_t {
    // declarations
    File,
    Function,
    Method,
    Class,
    Field,
    Annotation,
    // statements
    Block,
    If,
    While,
    For,
    Declaration,
    Assignment,
    Return,
    Break,
    Continue,
    Pass,
    // expressions
    Value,
    Literal,
    StringLiteral,
    Member,
    Index,
    Callable,
    CallValue,
    Operator,
    Conditional,
    ListLiteral,
    MapLiteral,
    Lambda,
    NamedArgument,
    Type,
};

// Base of all nodes. `getChildren` holds every operand and sub-statement in source order, except else branches
// and type operands.
class AbstractNode {
public:
    AbstractNode(NodeKind kind, ContextPtr context, TokenPtr token);
    // Takes long chains apart without recursion.
    virtual ~AbstractNode();
    AbstractNode(const AbstractNode&) = delete;
    AbstractNode& operator=(const AbstractNode&) = delete;

    NodeKind getKind() const { return kind_; }
    ContextPtr getContext() const { return context_; }
    const ContextPtr& context() const { return context_; }
    // True only where the node opens the scope that getContext() answers.
    virtual bool ownsContext() const { return false; }
    const NodeVec& getChildren() const { return children_; }
    TokenPtr getToken() const { return token_; }
    const TokenPtr& token() const { return token_; }
    // Declared or used name, "" for nodes without one.
    virtual Str getName() const { return {}; }
    void addChild(NodePtr child) { children_.push_back(std::move(child)); }

protected:
    NodeVec children_;

private:
    ContextPtr context_;
    TokenPtr token_;
    NodeKind kind_;
};

// ------------------------------------------------------------------------------------------- expressions

class ExpressionNode : public AbstractNode {
public:
    using AbstractNode::AbstractNode;
};

// A name in value position: a variable, `self`, `this`, `super`, a function, a class or package that a member
// follows; or a type used as an expression: "__vesk_typeexpr__" + type text.
class ValueExpressionNode : public ExpressionNode {
public:
    ValueExpressionNode(Str value, ContextPtr context, TokenPtr token);
    Str getValue() const { return value_; }
    const Str& value() const { return value_; }
    void setValue(const Str& value) { value_ = value; }
    Str getName() const override { return value_; }

private:
    Str value_;
};

inline constexpr std::string_view TYPE_EXPRESSION_PREFIX = "__vesk_typeexpr__";
inline constexpr std::string_view CAST_PREFIX = "__vesk_cast__";

enum class LiteralKind : std::uint8_t { Integer, Floating, Bool, Null };

// A number, `true`, `false` or `null`; the text is the one of the source, suffix and all.
class LiteralNode : public ExpressionNode {
public:
    LiteralNode(LiteralKind kind, Str text, ContextPtr context, TokenPtr token);
    LiteralKind literalKind() const { return literalKind_; }
    const Str& text() const { return text_; }

private:
    Str text_;
    LiteralKind literalKind_;
};

// A string literal; `value` has its escapes resolved and is UTF-8.
class StringLiteralNode : public ExpressionNode {
public:
    StringLiteralNode(Str value, ContextPtr context, TokenPtr token);
    const Str& value() const { return value_; }

private:
    Str value_;
};

// `object.name` that is not called. Child 0 is the object. The token is the name's. A generic clause stays in the
// name (`vesk.collections.List<Int>` as the owner of a static member).
class MemberExpressionNode : public ExpressionNode {
public:
    MemberExpressionNode(NodePtr object, Str name, ContextPtr context, TokenPtr token);
    const NodePtr& object() const { return children_[0]; }
    Str getName() const override { return name_; }
    const Str& name() const { return name_; }
    void setName(const Str& name) { name_ = name; }

private:
    Str name_;
};

// `object[index]`. Children: object, index. The token is the "[".
class IndexExpressionNode : public ExpressionNode {
public:
    IndexExpressionNode(NodePtr object, NodePtr index, ContextPtr context, TokenPtr token);
    const NodePtr& object() const { return children_[0]; }
    const NodePtr& index() const { return children_[1]; }
};

// A call by name: `f(x)`, `f<Int>(x)`, `o.m<Int>(x)`, `Box<Int>(x)`, `Int[](10)`, `super.m(x)`, `type(T)`, and the cast
// `x as T`, which is a call of "__vesk_cast__T". The name carries the generic clause. The token is the name's.
// Children: the receiver, where there is one, then the arguments (named ones as NamedArgumentNode).
class CallableExpressionNode : public ExpressionNode {
public:
    CallableExpressionNode(NodePtr receiver, Str name, NodeVec arguments, ContextPtr context, TokenPtr token);
    Str getName() const override { return name_; }
    const Str& name() const { return name_; }
    void setName(const Str& name) { name_ = name; }
    const NodeVec& getArguments() const { return hasReceiver_ ? arguments_ : children_; }
    // Null when the call has no receiver.
    NodePtr receiver() const { return hasReceiver_ ? children_[0] : nullptr; }

private:
    Str name_;
    NodeVec arguments_;  // only filled beside a receiver
    bool hasReceiver_;
};

// A call of a value that is not a name: `f(1)(2)`, `xs[0](1)`, `(e)(1)`. Children: the callee, then the arguments.
class CallValueNode : public ExpressionNode {
public:
    CallValueNode(NodePtr callee, NodeVec arguments, ContextPtr context, TokenPtr token);
    const NodePtr& callee() const { return children_[0]; }
};

// A type written where the grammar wants one (`is` operands, the argument of `type(...)`). Its token is an
// identifier token whose text is the whole type text.
class TypeNode : public ExpressionNode {
public:
    TypeNode(ContextPtr context, TokenPtr token);
    const Str& typeText() const { return token()->getText(); }
};

// A unary or binary operator. Children: the operands in order (one for unary ones and for `is`, `isnot`). The
// token is the operator's. `x is null` has a null LiteralNode as second child and no type operand.
class OperatorExpressionNode : public ExpressionNode {
public:
    OperatorExpressionNode(Str op, NodeVec operands, NodePtr typeOperand, ContextPtr context, TokenPtr token);
    Str getOperator() const { return operator_; }
    const Str& op() const { return operator_; }
    // The TypeNode of `is` and `isnot`, null otherwise. Not among the children.
    NodePtr getTypeOperand() const { return typeOperand_; }
    bool isUnary() const { return children_.size() == 1 && !typeOperand_; }

private:
    Str operator_;
    NodePtr typeOperand_;
};

// `a if c else b`. Children in order of evaluation: condition, then-value, else-value.
class ConditionalNode : public ExpressionNode {
public:
    ConditionalNode(NodePtr condition, NodePtr thenValue, NodePtr elseValue, ContextPtr context, TokenPtr token);
};

// `[a, b]`. Children: the elements.
class ListLiteralNode : public ExpressionNode {
public:
    ListLiteralNode(NodeVec elements, ContextPtr context, TokenPtr token);
};

// `{k: v, ...}`. Children: key, value, key, value, ...
class MapLiteralNode : public ExpressionNode {
public:
    MapLiteralNode(NodeVec keysAndValues, ContextPtr context, TokenPtr token);
};

// `(x: Int) => e`. Owns the scope that holds its parameters. Child: the body expression.
class LambdaNode : public ExpressionNode {
public:
    LambdaNode(std::vector<FunctionParam> params, ContextPtr context, TokenPtr token);
    bool ownsContext() const override { return true; }
    const std::vector<FunctionParam>& params() const { return params_; }
    void setParamTypes(const StrVec& types);
    const NodePtr& body() const { return children_[0]; }

private:
    std::vector<FunctionParam> params_;
};

// `name = value` in an argument list. Child: the value.
class NamedArgumentNode : public ExpressionNode {
public:
    NamedArgumentNode(Str name, NodePtr value, ContextPtr context, TokenPtr token);
    Str getName() const override { return name_; }
    const NodePtr& value() const { return children_[0]; }

private:
    Str name_;
};

// -------------------------------------------------------------------------------------------- statements

// A sequence of statements with a scope of its own. Loops are blocks.
class BlockNode : public AbstractNode {
public:
    BlockNode(ContextPtr context, TokenPtr token) : BlockNode(NodeKind::Block, std::move(context), std::move(token)) {}
    bool ownsContext() const override { return true; }
    const NodeVec& getStatements() const { return statements_; }
    void addStatement(NodePtr statement);

protected:
    BlockNode(NodeKind kind, ContextPtr context, TokenPtr token);

private:
    NodeVec statements_;  // children are the head's expressions, then these
};

// `while c:`. Child 0 is the condition.
class WhileNode : public BlockNode {
public:
    WhileNode(NodePtr condition, ContextPtr context, TokenPtr token);
    const NodePtr& condition() const { return children_[0]; }
};

// `for x in e:`. Child 0 is the iterable, whose scope is the enclosing one; the variable lives in the loop's scope.
class ForNode : public BlockNode {
public:
    ForNode(Str variable, TokenPtr variableToken, NodePtr iterable, ContextPtr context, TokenPtr token);
    const Str& variable() const { return variable_; }
    const TokenPtr& variableToken() const { return variableToken_; }
    const NodePtr& iterable() const { return children_[0]; }

private:
    Str variable_;
    TokenPtr variableToken_;
};

// `if c: ... [else ...]`. Children: condition, then-branch (a BlockNode). The else branch is a BlockNode, or an IfNode
// for `elif`, and is not among the children.
class IfNode : public AbstractNode {
public:
    IfNode(NodePtr condition, NodePtr thenBranch, ContextPtr context, TokenPtr token);
    ~IfNode() override;
    NodePtr getCondition() const { return children_[0]; }
    NodePtr getThenBranch() const { return children_[1]; }
    NodePtr getElseBranch() const { return elseBranch_; }
    void setElseBranch(NodePtr branch) { elseBranch_ = std::move(branch); }

private:
    NodePtr elseBranch_;
};

// `x: T = e`, `x: T`, `var x = e`, `var x: T = e`. The declared type of `var x = e` is the auto marker. The token is the name's.
class DeclarationNode : public AbstractNode {
public:
    DeclarationNode(Str name, Str declaredType, NodePtr initializer, ContextPtr context, TokenPtr token);
    Str getVariableName() const { return name_; }
    Str getName() const override { return name_; }
    Str getDeclaredType() const { return declaredType_; }
    const Str& declaredType() const { return declaredType_; }
    void setDeclaredType(const Str& type) { declaredType_ = type; }
    // Null when there is none.
    NodePtr getInitializer() const { return children_.empty() ? nullptr : children_[0]; }

private:
    Str name_, declaredType_;
};

// `target = value`, `target += value` and the like. Children: target, value. The token is the operator's.
class AssignmentNode : public AbstractNode {
public:
    AssignmentNode(NodePtr target, Str op, NodePtr value, ContextPtr context, TokenPtr token);
    const NodePtr& target() const { return children_[0]; }
    const NodePtr& value() const { return children_[1]; }
    const Str& op() const { return operator_; }

private:
    Str operator_;
};

class ReturnNode : public AbstractNode {
public:
    ReturnNode(NodePtr expression, ContextPtr context, TokenPtr token);
    // Null for a bare `return`.
    NodePtr getExpression() const { return children_.empty() ? nullptr : children_[0]; }
};

// `break`, `continue` and `pass`: the kind tells which.
class SimpleStatementNode : public AbstractNode {
public:
    SimpleStatementNode(NodeKind kind, ContextPtr context, TokenPtr token);
};

// ------------------------------------------------------------------------------------------ declarations

// `@Name` or `@Name(args)`. Children: the arguments.
class AnnotationNode : public AbstractNode {
public:
    AnnotationNode(Str name, NodeVec arguments, ContextPtr context, TokenPtr token);
    Str getName() const override { return name_; }

private:
    Str name_;
};

// What functions and methods share. The scope holds the parameters; the body's statements are the children. The
// token is the `def`.
using RefusedNames = std::set<Str, std::less<>>;

class CallableDeclarationNode : public AbstractNode {
public:
    bool ownsContext() const override { return true; }
    Str getName() const override { return name_; }
    const Str& name() const { return name_; }
    void setName(const Str& name) { name_ = name; }

    const std::vector<FunctionParam>& getParams() const { return params_; }
    void setParams(std::vector<FunctionParam> params) { params_ = std::move(params); }
    // One type text per parameter; also retypes the parameters in the scope.
    void setParamTypes(const StrVec& types);
    Str getReturnType() const { return returnType_; }
    // "" leaves the return type to inference.
    const Str& returnType() const { return returnType_; }
    // Also recorded in the scope.
    void setReturnType(const Str& type);

    const std::vector<GenericTypeParam>& getTypeParams() const { return typeParams_; }
    void setTypeParams(std::vector<GenericTypeParam> params) { typeParams_ = std::move(params); }
    const std::vector<std::shared_ptr<AnnotationNode>>& getAnnotations() const { return annotations_; }
    void setAnnotations(std::vector<std::shared_ptr<AnnotationNode>> annotations) {
        annotations_ = std::move(annotations);
    }

    const NodeVec& getBody() const { return children_; }
    // Gives the body's memory back once its code has been made; the signature stays.
    void releaseBody() { NodeVec().swap(children_); }
    // A declaration without a body is abstract or native.
    bool hasBody() const { return hasBody_; }
    void setHasBody(bool hasBody) { hasBody_ = hasBody; }
    // The names on lines of the body that were refused, null when none were.
    const std::shared_ptr<const RefusedNames>& refusedNames() const { return refusedNames_; }
    void setRefusedNames(RefusedNames names) { refusedNames_ = std::make_shared<const RefusedNames>(std::move(names)); }
    const TokenPtr& nameToken() const { return nameToken_; }
    void setNameToken(TokenPtr token) { nameToken_ = std::move(token); }
    // Where the written return type begins; null where none is written.
    const TokenPtr& returnTypeToken() const { return returnTypeToken_; }
    void setReturnTypeToken(TokenPtr token) { returnTypeToken_ = std::move(token); }
    // "static", "native", "private" ... as written, in order.
    const StrVec& getModifiers() const { return modifiers_; }
    void setModifiers(const StrVec& modifiers) { modifiers_ = modifiers; }
    bool hasModifier(std::string_view modifier) const;
    bool isNative() const { return hasModifier("native"); }
    // Line of the first code after the body, number of lines + 1 at the end of the file, 0 unknown.
    int nextCodeLine() const { return nextCodeLine_; }
    void setNextCodeLine(int line) { nextCodeLine_ = line; }

protected:
    CallableDeclarationNode(NodeKind kind, Str name, Str returnType, std::vector<FunctionParam> params,
                            ContextPtr context, TokenPtr token);

private:
    Str name_, returnType_;
    std::vector<FunctionParam> params_;
    std::vector<GenericTypeParam> typeParams_;
    std::vector<std::shared_ptr<AnnotationNode>> annotations_;
    StrVec modifiers_;
    TokenPtr nameToken_, returnTypeToken_;
    int nextCodeLine_ = 0;
    std::shared_ptr<const RefusedNames> refusedNames_;
    bool hasBody_ = false;
};

class FunctionNode : public CallableDeclarationNode {
public:
    FunctionNode(Str name, Str returnType, std::vector<FunctionParam> params, ContextPtr context, TokenPtr token);
    // The emitted symbol; "" lets the host choose one.
    const Str& symbolBaseName() const { return symbolBaseName_; }
    void setSymbolBaseName(const Str& name) { symbolBaseName_ = name; }
    // The name as people write it, for diagnostics and debug information: "pick<Int>".
    const Str& displayName() const { return displayName_; }
    void setDisplayName(const Str& name) { displayName_ = name; }

private:
    Str symbolBaseName_, displayName_;
};

class MethodNode : public CallableDeclarationNode {
public:
    MethodNode(Str name, Str returnType, std::vector<FunctionParam> params, StrVec typeParamNames,
               std::vector<std::shared_ptr<AnnotationNode>> annotations, bool isStatic, ContextPtr context,
               TokenPtr token);
    bool isStatic() const { return isStatic_ || hasModifier("static"); }
    MemberVisibility visibility() const { return visibility_; }
    void setVisibility(MemberVisibility visibility) { visibility_ = visibility; }
    // Counts from 1 per class and name.
    std::size_t overloadIndex() const { return overloadIndex_; }
    void setOverloadIndex(std::size_t index) { overloadIndex_ = index; }
    const Str& displayName() const { return displayName_; }
    void setDisplayName(const Str& name) { displayName_ = name; }
    // Of a specialized native method: what its type parameters stand for.
    const StrVec& typeArguments() const { return typeArguments_; }
    void setTypeArguments(const StrVec& arguments) { typeArguments_ = arguments; }

private:
    Str displayName_;
    StrVec typeArguments_;
    std::size_t overloadIndex_ = 1;
    MemberVisibility visibility_{};
    bool isStatic_;
};

// A field of a class. Child: the initializer, where there is one. The token is the name's.
class FieldNode : public AbstractNode {
public:
    FieldNode(Str name, Str type, NodePtr initializer, bool isStatic, MemberVisibility visibility, ContextPtr context,
              TokenPtr token);
    Str getName() const override { return name_; }
    const Str& name() const { return name_; }
    const Str& type() const { return type_; }
    NodePtr getInitializer() const { return children_.empty() ? nullptr : children_[0]; }
    bool isStatic() const { return isStatic_; }
    MemberVisibility visibility() const { return visibility_; }
    const std::vector<std::shared_ptr<AnnotationNode>>& getAnnotations() const { return annotations_; }
    void setAnnotations(std::vector<std::shared_ptr<AnnotationNode>> annotations) {
        annotations_ = std::move(annotations);
    }

private:
    Str name_, type_;
    std::vector<std::shared_ptr<AnnotationNode>> annotations_;
    MemberVisibility visibility_;
    bool isStatic_;
};

// A class or an interface. Owns the scope that holds its type parameters. Children: the members in order
// (FieldNode, MethodNode, ClassNode). The token is the `class` or `interface`.
class ClassNode : public AbstractNode {
public:
    ClassNode(Str name, bool isInterface, ContextPtr context, TokenPtr token);
    bool ownsContext() const override { return true; }
    Str getName() const override { return name_; }
    const Str& name() const { return name_; }
    bool isInterface() const { return isInterface_; }
    const TokenPtr& nameToken() const { return nameToken_; }
    void setNameToken(TokenPtr token) { nameToken_ = std::move(token); }
    const std::vector<GenericTypeParam>& getTypeParams() const { return typeParams_; }
    void setTypeParams(std::vector<GenericTypeParam> params) { typeParams_ = std::move(params); }
    // Type texts as written; "" and empty when the header names none. An interface's `extends` list is in
    // `interfaces`. `superTokens` has the place of each: the super class first, where there is one.
    const Str& superType() const { return superType_; }
    const StrVec& interfaces() const { return interfaces_; }
    const TokenVec& superTokens() const { return superTokens_; }
    void setSuperTypes(Str superType, StrVec interfaces, TokenVec tokens);
    const std::vector<std::shared_ptr<AnnotationNode>>& getAnnotations() const { return annotations_; }
    void setAnnotations(std::vector<std::shared_ptr<AnnotationNode>> annotations) {
        annotations_ = std::move(annotations);
    }
    bool isNative() const { return isNative_; }
    void setNative(bool isNative) { isNative_ = isNative; }

private:
    Str name_, superType_;
    StrVec interfaces_;
    TokenVec superTokens_;
    TokenPtr nameToken_;
    std::vector<GenericTypeParam> typeParams_;
    std::vector<std::shared_ptr<AnnotationNode>> annotations_;
    bool isInterface_, isNative_ = false;
};

// One `package` or `import` line.
struct PackageLine {
    Str name;
    TokenPtr token;
};

// A whole file: children are its functions, classes and interfaces in order.
class FileNode : public AbstractNode {
public:
    FileNode(const Str& path, ContextPtr context);
    bool ownsContext() const override { return true; }
    const Str& path() const { return path_; }
    Str getName() const override { return path_; }
    const PackageLine& package() const { return package_; }
    const std::vector<PackageLine>& imports() const { return imports_; }
    void setPackage(PackageLine line) { package_ = std::move(line); }
    void addImport(PackageLine line) { imports_.push_back(std::move(line)); }
    // The names on lines that were refused where declarations stand: what the file seems to lack may be one of them.
    const RefusedNames& refusedNames() const { return refusedNames_; }
    void setRefusedNames(RefusedNames names) { refusedNames_ = std::move(names); }
    // Whether a line with an import was refused: the file knows less than it should.
    bool lacksImports() const { return lacksImports_; }
    void setLacksImports() { lacksImports_ = true; }

    // Writes the IL of this file's unit, with everything registered for `unitName` (or for the file itself when
    // that is empty). The sets receive the symbols defined, declared, and the units and bundles needed.
    void generateILCodeChunk(std::ostream& out, const Str& moduleName, std::set<Str>& defined, std::set<Str>& declared,
                             std::set<Str>& neededUnits, std::set<Str>& neededBundles, bool withDebugLines,
                             const Str& unitName, bool linkOnce);

private:
    Str path_;
    PackageLine package_;
    std::vector<PackageLine> imports_;
    RefusedNames refusedNames_;
    bool lacksImports_ = false;
};

}  // namespace vesk::compiler
