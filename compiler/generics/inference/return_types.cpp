// Inferring a return type from the return statements of a body.
#include "generics/errors.h"
#include "generics/inference/body_rewriting.h"
#include "host/ast_nodes.h"
#include "host/context.h"
#include "host/diagnostics.h"
#include "host/inference_services.h"

namespace vesk::compiler {

namespace {

bool isBlock(NodeKind kind) { return kind == NodeKind::Block || kind == NodeKind::While || kind == NodeKind::For; }

// One list of statements under way. A block works out a type of its own, which is then one value of the list around it,
// at `token`, the return statement that it comes from. The branches of an if-statement add to the list around them.
struct StatementList {
    NodeVec nodes;
    std::size_t target;  // index of the list that receives the types
    std::size_t next = 0;
    Str type;
    TokenPtr token;
};

Str returnedType(const ReturnNode& statement) {
    const NodePtr expression = statement.getExpression();
    if (!expression) return "Void";
    if (expression->getKind() < NodeKind::Value) throw compileError(statement.token(), "Invalid return expression");
    Str type = inferExpressionType(expression);
    if (type.empty()) throw returnTypeNotInferrable(statement.token());
    return type;
}

// The branch bodies of an if-statement and all its else-ifs, in order.
NodeVec branchesOf(const IfNode& statement) {
    NodeVec branches{statement.getThenBranch()};
    NodePtr rest = statement.getElseBranch();
    while (rest && rest->getKind() == NodeKind::If) {
        branches.push_back(static_cast<const IfNode&>(*rest).getThenBranch());
        rest = static_cast<const IfNode&>(*rest).getElseBranch();
    }
    if (rest) branches.push_back(rest);
    return branches;
}

}  // namespace

Str unifyReturnType(const ContextPtr& context, const Str& current, const Str& next, const TokenPtr& token) {
    if (current.empty()) return next;
    if (next.empty() || next == current) return current;
    if (context && context->isAssignable(current, next)) return current;
    if (context && context->isAssignable(next, current)) return next;
    throw compileError(token, "Inconsistent return types in generic function");
}

Str inferReturnTypeFromNodes(const NodeVec& nodes, const ContextPtr& context) {
    std::vector<StatementList> lists;
    const auto open = [&](NodeVec statements, std::size_t target) {
        lists.push_back({std::move(statements), target, 0, {}, nullptr});
    };
    const auto unify = [&](const Str& type, const TokenPtr& token) {
        if (type.empty()) return;
        StatementList& list = lists[lists.back().target];
        list.type = unifyReturnType(context, list.type, type, token);
        list.token = token;
    };
    open(nodes, 0);
    while (true) {
        StatementList& list = lists.back();
        if (list.next == list.nodes.size()) {
            const StatementList done = std::move(list);
            lists.pop_back();
            if (lists.empty()) return done.type;
            if (done.target == lists.size()) unify(done.type, done.token);
            continue;
        }
        const NodePtr node = list.nodes[list.next++];
        if (!node) continue;
        if (node->getKind() == NodeKind::Return) {
            unify(returnedType(static_cast<const ReturnNode&>(*node)), node->token());
        } else if (isBlock(node->getKind())) {
            open(static_cast<const BlockNode&>(*node).getStatements(), lists.size());
        } else if (node->getKind() == NodeKind::If) {
            open(branchesOf(static_cast<const IfNode&>(*node)), list.target);
        }
    }
}

}  // namespace vesk::compiler
