// The statements of an interactive chunk: variables that outlive it, and the result that is shown.
#include "generics/generic_specializer.h"
#include "semantics/checker.h"
#include "semantics/interactive_session.h"

namespace vesk::compiler {

// A variable declared in an inner block is an ordinary local.
void Checker::checkChunk(std::vector<Statement*>& out) {
    inferredReturn_ = builtin(TypeKind::Void);
    const NodeVec& nodes = function_->node->getBody();
    for (const NodePtr& node : nodes) {
        guarded([&] {
            if (node->getKind() == NodeKind::Declaration)
                declareChunkVariable(static_cast<const DeclarationNode&>(*node), out);
            else if (node == nodes.back() && node->getKind() >= NodeKind::Value)
                showResult(node, out);
            else
                checkStatement(node, out);
        });
    }
    if (hasMistakes_) inferredReturn_ = nullptr;
}

void Checker::declareChunkVariable(const DeclarationNode& node, std::vector<Statement*>& out) {
    const std::string& name = node.getVariableName();
    const bool isOpen = node.declaredType() == AUTO_TYPED_VAR;
    Expression* value = nullptr;
    const Type* type = builtin(TypeKind::Unknown);
    NodePtr initializer = node.getInitializer();
    try {
        if (!isOpen) {
            type = declaredType(node.declaredType(), node.context(), node.token());
            if (type->isVoid()) fail(node, "A variable cannot have the type Void");
        }
        if (initializer) value = isOpen ? checkValue(initializer) : checkInto(initializer, type);
        if (isOpen && value->type->kind == TypeKind::Null)
            fail(*initializer, "The type of '" + name + "' is not known from null: write it");
        if (isOpen) type = value->type;
    } catch (...) {
        // The name is there all the same: its uses are no further mistakes.
        LocalVariable* variable = newVariable(name, builtin(TypeKind::Unknown), placeOf(node));
        addVisible(variable, variable->type);
        throw;
    }
    const ChunkVariable* made =
        vesk::compiler::declareChunkVariable(session_, *function_->file, name, type, node.token());
    if (!made) fail(node, "'" + name + "' is declared twice in one chunk");
    if (value)
        out.push_back(makeStatement<AssignStatic>(StatementKind::AssignStatic, placeOf(node), &made->field, value));
}

// Prints "TEXT: TYPE" and returns the value, so that the chunk's type is that of its result.
void Checker::showResult(const NodePtr& node, std::vector<Statement*>& out) {
    Expression* value = check(node);
    const Place place = placeOf(*node);
    if (value->type->isVoid()) {
        out.push_back(makeStatement<EvaluateStatement>(StatementKind::Evaluate, place, value));
        return;
    }
    value = keep(value, out);
    std::vector<Expression*> parts{textOf(value),
                                   text(": " + withoutChunkPackages(session_, value->type->structured), place)};
    std::vector<Expression*> shown{make<Concat>(ExpressionKind::Concat, builtin(TypeKind::String), place, list(parts))};
    Expression* print = make<RuntimeCall>(ExpressionKind::RuntimeCall, builtin(TypeKind::Void), place,
                                          std::string_view("vesk_print"), list(shown));
    out.push_back(makeStatement<EvaluateStatement>(StatementKind::Evaluate, place, print));
    out.push_back(makeStatement<ReturnStatement>(StatementKind::Return, place, value));
    inferredReturn_ = value->type;
}

FoundField Checker::findChunkField(const std::string& name, const AbstractNode& node) {
    const ContextPtr& scope = node.context() ? node.context() : inferenceScope_;
    const std::string chunk = chunkOf(session_, scope);
    const ChunkVariable* variable = chunk.empty() ? nullptr : findChunkVariable(session_, name, chunk);
    return variable ? FoundField{nullptr, &variable->field, variable->type} : FoundField{};
}

Expression* Checker::chunkVariable(const std::string& name, const AbstractNode& node) {
    FoundField field = findChunkField(name, node);
    return field ? readField(field, nullptr, false, node) : nullptr;
}

}  // namespace vesk::compiler
