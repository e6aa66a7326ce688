// Construction of nodes, and their destruction without recursion: a sum of a million terms is a tree a million deep.
#include "host/ast_nodes.h"

namespace vesk::compiler {

namespace {

// The nodes that wait to be destroyed on this thread, null when none are. It has no destructor of its own, so
// nodes that die with other thread-local objects find it usable.
thread_local NodeVec* gDyingNodes = nullptr;

NodeVec twoNodes(NodePtr first, NodePtr second) {
    NodeVec nodes;
    nodes.reserve(2);
    nodes.push_back(std::move(first));
    nodes.push_back(std::move(second));
    return nodes;
}

}  // namespace

AbstractNode::AbstractNode(NodeKind kind, ContextPtr context, TokenPtr token)
    : context_(std::move(context)), token_(std::move(token)), kind_(kind) {}

AbstractNode::~AbstractNode() {
    if (children_.empty()) return;
    if (gDyingNodes != nullptr) {
        for (NodePtr& child : children_)
            if (child && child.use_count() == 1 && !child->children_.empty()) gDyingNodes->push_back(std::move(child));
        return;
    }
    NodeVec dying = std::move(children_);
    gDyingNodes = &dying;
    while (!dying.empty()) {
        const NodePtr node = std::move(dying.back());
        dying.pop_back();
    }
    gDyingNodes = nullptr;
}

// ------------------------------------------------------------------------------------------- expressions

ValueExpressionNode::ValueExpressionNode(Str value, ContextPtr context, TokenPtr token)
    : ExpressionNode(NodeKind::Value, std::move(context), std::move(token)), value_(std::move(value)) {}

LiteralNode::LiteralNode(LiteralKind kind, Str text, ContextPtr context, TokenPtr token)
    : ExpressionNode(NodeKind::Literal, std::move(context), std::move(token)),
      text_(std::move(text)),
      literalKind_(kind) {}

StringLiteralNode::StringLiteralNode(Str value, ContextPtr context, TokenPtr token)
    : ExpressionNode(NodeKind::StringLiteral, std::move(context), std::move(token)), value_(std::move(value)) {}

MemberExpressionNode::MemberExpressionNode(NodePtr object, Str name, ContextPtr context, TokenPtr token)
    : ExpressionNode(NodeKind::Member, std::move(context), std::move(token)), name_(std::move(name)) {
    addChild(std::move(object));
}

IndexExpressionNode::IndexExpressionNode(NodePtr object, NodePtr index, ContextPtr context, TokenPtr token)
    : ExpressionNode(NodeKind::Index, std::move(context), std::move(token)) {
    children_ = twoNodes(std::move(object), std::move(index));
}

CallableExpressionNode::CallableExpressionNode(NodePtr receiver, Str name, NodeVec arguments, ContextPtr context,
                                               TokenPtr token)
    : ExpressionNode(NodeKind::Callable, std::move(context), std::move(token)),
      name_(std::move(name)),
      hasReceiver_(receiver != nullptr) {
    if (!hasReceiver_) {
        children_ = std::move(arguments);
        return;
    }
    arguments_ = std::move(arguments);
    children_.reserve(1 + arguments_.size());
    children_.push_back(std::move(receiver));
    children_.insert(children_.end(), arguments_.begin(), arguments_.end());
}

CallValueNode::CallValueNode(NodePtr callee, NodeVec arguments, ContextPtr context, TokenPtr token)
    : ExpressionNode(NodeKind::CallValue, std::move(context), std::move(token)) {
    children_.reserve(1 + arguments.size());
    children_.push_back(std::move(callee));
    for (NodePtr& argument : arguments) children_.push_back(std::move(argument));
}

TypeNode::TypeNode(ContextPtr context, TokenPtr token)
    : ExpressionNode(NodeKind::Type, std::move(context), std::move(token)) {}

OperatorExpressionNode::OperatorExpressionNode(Str op, NodeVec operands, NodePtr typeOperand, ContextPtr context,
                                               TokenPtr token)
    : ExpressionNode(NodeKind::Operator, std::move(context), std::move(token)),
      operator_(std::move(op)),
      typeOperand_(std::move(typeOperand)) {
    children_ = std::move(operands);
}

ConditionalNode::ConditionalNode(NodePtr condition, NodePtr thenValue, NodePtr elseValue, ContextPtr context,
                                 TokenPtr token)
    : ExpressionNode(NodeKind::Conditional, std::move(context), std::move(token)) {
    children_.reserve(3);
    addChild(std::move(condition));
    addChild(std::move(thenValue));
    addChild(std::move(elseValue));
}

ListLiteralNode::ListLiteralNode(NodeVec elements, ContextPtr context, TokenPtr token)
    : ExpressionNode(NodeKind::ListLiteral, std::move(context), std::move(token)) {
    children_ = std::move(elements);
}

MapLiteralNode::MapLiteralNode(NodeVec keysAndValues, ContextPtr context, TokenPtr token)
    : ExpressionNode(NodeKind::MapLiteral, std::move(context), std::move(token)) {
    children_ = std::move(keysAndValues);
}

LambdaNode::LambdaNode(std::vector<FunctionParam> params, ContextPtr context, TokenPtr token)
    : ExpressionNode(NodeKind::Lambda, std::move(context), std::move(token)), params_(std::move(params)) {}

void LambdaNode::setParamTypes(const StrVec& types) {
    for (std::size_t i = 0; i < params_.size() && i < types.size(); i++) {
        params_[i].type = types[i];
        if (context()) context()->setVariableType(params_[i].name, types[i]);
    }
}

NamedArgumentNode::NamedArgumentNode(Str name, NodePtr value, ContextPtr context, TokenPtr token)
    : ExpressionNode(NodeKind::NamedArgument, std::move(context), std::move(token)), name_(std::move(name)) {
    addChild(std::move(value));
}

// -------------------------------------------------------------------------------------------- statements

BlockNode::BlockNode(NodeKind kind, ContextPtr context, TokenPtr token)
    : AbstractNode(kind, std::move(context), std::move(token)) {}

void BlockNode::addStatement(NodePtr statement) {
    statements_.push_back(statement);
    addChild(std::move(statement));
}

WhileNode::WhileNode(NodePtr condition, ContextPtr context, TokenPtr token)
    : BlockNode(NodeKind::While, std::move(context), std::move(token)) {
    addChild(std::move(condition));
}

ForNode::ForNode(Str variable, TokenPtr variableToken, NodePtr iterable, ContextPtr context, TokenPtr token)
    : BlockNode(NodeKind::For, std::move(context), std::move(token)),
      variable_(std::move(variable)),
      variableToken_(std::move(variableToken)) {
    addChild(std::move(iterable));
}

IfNode::IfNode(NodePtr condition, NodePtr thenBranch, ContextPtr context, TokenPtr token)
    : AbstractNode(NodeKind::If, std::move(context), std::move(token)) {
    children_ = twoNodes(std::move(condition), std::move(thenBranch));
}

// The base class destroys children without recursion, so the else branch becomes one.
IfNode::~IfNode() {
    if (elseBranch_) addChild(std::move(elseBranch_));
}

DeclarationNode::DeclarationNode(Str name, Str declaredType, NodePtr initializer, ContextPtr context, TokenPtr token)
    : AbstractNode(NodeKind::Declaration, std::move(context), std::move(token)),
      name_(std::move(name)),
      declaredType_(std::move(declaredType)) {
    if (initializer) addChild(std::move(initializer));
}

AssignmentNode::AssignmentNode(NodePtr target, Str op, NodePtr value, ContextPtr context, TokenPtr token)
    : AbstractNode(NodeKind::Assignment, std::move(context), std::move(token)), operator_(std::move(op)) {
    children_ = twoNodes(std::move(target), std::move(value));
}

ReturnNode::ReturnNode(NodePtr expression, ContextPtr context, TokenPtr token)
    : AbstractNode(NodeKind::Return, std::move(context), std::move(token)) {
    if (expression) addChild(std::move(expression));
}

SimpleStatementNode::SimpleStatementNode(NodeKind kind, ContextPtr context, TokenPtr token)
    : AbstractNode(kind, std::move(context), std::move(token)) {}

// ------------------------------------------------------------------------------------------ declarations

AnnotationNode::AnnotationNode(Str name, NodeVec arguments, ContextPtr context, TokenPtr token)
    : AbstractNode(NodeKind::Annotation, std::move(context), std::move(token)), name_(std::move(name)) {
    children_ = std::move(arguments);
}

CallableDeclarationNode::CallableDeclarationNode(NodeKind kind, Str name, Str returnType,
                                                 std::vector<FunctionParam> params, ContextPtr context, TokenPtr token)
    : AbstractNode(kind, std::move(context), std::move(token)),
      name_(std::move(name)),
      returnType_(std::move(returnType)),
      params_(std::move(params)) {}

void CallableDeclarationNode::setParamTypes(const StrVec& types) {
    for (std::size_t i = 0; i < params_.size() && i < types.size(); i++) {
        params_[i].type = types[i];
        if (context()) context()->setVariableType(params_[i].name, types[i]);
    }
}

void CallableDeclarationNode::setReturnType(const Str& type) {
    returnType_ = type;
    if (context()) context()->setReturnType(type);
}

bool CallableDeclarationNode::hasModifier(std::string_view modifier) const {
    for (const Str& own : modifiers_)
        if (own == modifier) return true;
    return false;
}

FunctionNode::FunctionNode(Str name, Str returnType, std::vector<FunctionParam> params, ContextPtr context,
                           TokenPtr token)
    : CallableDeclarationNode(NodeKind::Function, std::move(name), std::move(returnType), std::move(params),
                              std::move(context), std::move(token)) {}

MethodNode::MethodNode(Str name, Str returnType, std::vector<FunctionParam> params, StrVec typeParamNames,
                       std::vector<std::shared_ptr<AnnotationNode>> annotations, bool isStatic, ContextPtr context,
                       TokenPtr token)
    : CallableDeclarationNode(NodeKind::Method, std::move(name), std::move(returnType), std::move(params),
                              std::move(context), std::move(token)),
      isStatic_(isStatic) {
    std::vector<GenericTypeParam> typeParams;
    typeParams.reserve(typeParamNames.size());
    for (Str& typeParam : typeParamNames) {
        GenericTypeParam made;
        made.name = std::move(typeParam);
        typeParams.push_back(std::move(made));
    }
    setTypeParams(std::move(typeParams));
    setAnnotations(std::move(annotations));
}

FieldNode::FieldNode(Str name, Str type, NodePtr initializer, bool isStatic, MemberVisibility visibility,
                     ContextPtr context, TokenPtr token)
    : AbstractNode(NodeKind::Field, std::move(context), std::move(token)),
      name_(std::move(name)),
      type_(std::move(type)),
      visibility_(visibility),
      isStatic_(isStatic) {
    if (initializer) addChild(std::move(initializer));
}

ClassNode::ClassNode(Str name, bool isInterface, ContextPtr context, TokenPtr token)
    : AbstractNode(NodeKind::Class, std::move(context), std::move(token)),
      name_(std::move(name)),
      isInterface_(isInterface) {}

void ClassNode::setSuperTypes(Str superType, StrVec interfaces, TokenVec tokens) {
    superType_ = std::move(superType);
    interfaces_ = std::move(interfaces);
    superTokens_ = std::move(tokens);
}

FileNode::FileNode(const Str& path, ContextPtr context)
    : AbstractNode(NodeKind::File, std::move(context), nullptr), path_(path) {}

}  // namespace vesk::compiler
