// Lambdas: functions of their own that reach the variables around them.
#include "semantics/checker.h"

namespace vesk::compiler {

Expression* Checker::checkLambda(const LambdaNode& node, const Type* expected) {
    Place place = placeOf(node);
    const Type* wanted = expected ? withoutNull(expected) : nullptr;
    if (wanted && (wanted->kind != TypeKind::Function || wanted->arguments.size() != node.params().size()))
        wanted = nullptr;
    auto owned = std::make_unique<TypedLambda>();
    TypedLambda& lambda = *owned;
    body_.ownedLambdas.push_back(std::move(owned));
    body_.lambdas.push_back(&lambda);
    lambda.place = place;
    if (function_) {
        lambda.symbol = function_->symbol + "__L" + std::to_string(body_.lambdas.size());
        lambda.displayName = "lambda in " + function_->shownName();
    }

    BlockScope scope(*this);
    lambdas_.push_back(&lambda);
    captured_.emplace_back();
    struct Leave {
        Checker& checker;
        ~Leave() {
            checker.lambdas_.pop_back();
            checker.captured_.pop_back();
        }
    } leave{*this};
    std::vector<const Type*> types;
    for (std::size_t i = 0; i < node.params().size(); i++) {
        const FunctionParam& param = node.params()[i];
        const TokenPtr& token = param.token ? param.token : node.token();
        const Type* type = nullptr;
        if (!param.type.empty())
            type = declaredType(param.type, node.context(), token);
        else if (wanted)
            type = wanted->arguments[i];
        else
            fail(token, "The parameter '" + param.name + "' of a lambda needs a type");
        LocalVariable* variable = newVariable(param.name, type, placeOf(token), true);
        lambda.parameters.push_back(variable);
        types.push_back(type);
        declareLocal(variable, token);
    }
    Expression* value = check(node.body(), wanted ? wanted->result : nullptr);
    std::vector<Statement*> statements;
    if (value->type->isVoid()) {
        statements.push_back(makeStatement<EvaluateStatement>(StatementKind::Evaluate, value->place, value));
        value = nullptr;
    } else if (value->type->kind == TypeKind::Null && !(wanted && !wanted->result->isVoid())) {
        fail(*node.body(), "The type of this lambda's result is not known");
    }
    const Type* result = value ? value->type : builtin(TypeKind::Void);
    if (value && wanted && !wanted->result->isVoid() && accepts(node.body().get(), value, wanted->result)) {
        value = coerce(value, wanted->result, *node.body());
        result = wanted->result;
    }
    statements.push_back(makeStatement<ReturnStatement>(StatementKind::Return, placeOf(*node.body()), value));
    lambda.returnType = result;
    lambda.body = blockOf(statements, place);
    return make<LambdaExpression>(ExpressionKind::Lambda, types_.function(types, result), place, &lambda);
}

}  // namespace vesk::compiler
