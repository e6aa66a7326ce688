// Typed functions made by hand, lowered, checked by the verifier and run: what the tests of this folder share.
#pragma once

#include <gtest/gtest.h>

#include "il/function_lowering.h"
#include "il/jit.h"
#include "il/module_state.h"

namespace vesk::compiler {

// One module under construction. Functions are named by their symbol and lie in "/test/sample.vk".
class SampleModule {
public:
    explicit SampleModule(CompileSession& ownSession)
        : session(ownSession), state_(std::make_unique<UnitModule::State>()) {
        state_->context = makeContext();
        state_->module = makeModule(*state_->context, "sample");
        state_->name = "sample";
        builder = std::make_unique<ModuleBuilder>(session, *state_->context, *state_->module, "/test/sample.vk");
    }

    const Type* type(TypeKind kind) { return session.types().builtin(kind); }

    template <class T, class... Fields>
    T* make(Fields&&... fields) {
        return arena_.make<T>(std::forward<Fields>(fields)...);
    }
    template <class T>
    std::span<T* const> list(const std::vector<T*>& items) {
        return arena_.copy(items);
    }

    LocalVariable* variable(std::string_view name, const Type* of) {
        return make<LocalVariable>(LocalVariable{.name = name, .type = of});
    }
    Expression* read(LocalVariable* of) {
        return make<LocalRead>(LocalRead{{ExpressionKind::LocalRead, of->type, {}}, of});
    }
    Expression* integer(const Type* of, std::uint64_t value) {
        return make<IntegerConstant>(IntegerConstant{{ExpressionKind::IntegerConstant, of, {}}, value});
    }
    Expression* number(int value) { return integer(type(TypeKind::Int), std::uint64_t(value)); }
    Expression* truth(bool value) { return integer(type(TypeKind::Bool), value); }
    Expression* arithmetic(ArithmeticOperator op, Expression* left, Expression* right, int line = 1) {
        return make<Arithmetic>(Arithmetic{{ExpressionKind::Arithmetic, left->type, {line, 1}}, op, left, right});
    }
    Expression* compare(ComparisonOperator op, Expression* left, Expression* right) {
        return make<Comparison>(Comparison{{ExpressionKind::Comparison, type(TypeKind::Bool), {}}, op, left, right});
    }
    Expression* convert(ConversionKind kind, Expression* operand, const Type* to) {
        return make<Conversion>(Conversion{{ExpressionKind::Conversion, to, {1, 1}}, kind, operand});
    }
    Expression* text(std::string_view value) {
        return make<StringConstant>(
            StringConstant{{ExpressionKind::StringConstant, type(TypeKind::String), {}}, value});
    }
    Expression* call(FunctionInstance* target, const std::vector<Expression*>& arguments, int line = 1) {
        return make<Call>(Call{
            {ExpressionKind::Call, target->returnType, {line, 1}}, target, list(arguments), Dispatch::Direct, false});
    }
    Statement* giveBack(Expression* value) {
        return make<ReturnStatement>(ReturnStatement{{StatementKind::Return, {}}, value});
    }
    Statement* declare(LocalVariable* of, Expression* value) {
        return make<DeclareLocal>(DeclareLocal{{StatementKind::DeclareLocal, {}}, of, value});
    }
    Statement* assign(LocalVariable* to, Expression* value) {
        return make<AssignLocal>(AssignLocal{{StatementKind::AssignLocal, {}}, to, value});
    }
    Statement* evaluate(Expression* value) {
        return make<EvaluateStatement>(EvaluateStatement{{StatementKind::Evaluate, {}}, value});
    }
    BlockStatement* block(const std::vector<Statement*>& statements) {
        return make<BlockStatement>(BlockStatement{{StatementKind::Block, {}}, list(statements)});
    }

    FunctionInstance* instance(const std::string& symbol, const Type* result,
                               const std::vector<LocalVariable*>& parameters) {
        auto made = std::make_unique<FunctionInstance>();
        made->symbol = made->displayName = symbol;
        made->returnType = result;
        made->sourcePath = "/test/sample.vk";
        made->line = 1;
        for (const LocalVariable* parameter : parameters) made->parameterTypes.push_back(parameter->type);
        instances_.push_back(std::move(made));
        return instances_.back().get();
    }
    void define(FunctionInstance* function, const std::vector<LocalVariable*>& parameters,
                const std::vector<Statement*>& statements, const std::vector<TypedLambda*>& lambdas = {}) {
        TypedBody body;
        body.function = function;
        body.parameters = parameters;
        body.body = block(statements);
        body.lambdas = lambdas;
        FunctionLowering(*builder).lower(body, *builder->function(*function));
    }
    FunctionInstance* define(const std::string& symbol, const Type* result,
                             const std::vector<LocalVariable*>& parameters, const std::vector<Statement*>& statements) {
        FunctionInstance* function = instance(symbol, result, parameters);
        define(function, parameters, statements);
        return function;
    }

    // The module, which must be well formed.
    std::unique_ptr<UnitModule> finish() {
        auto module = std::make_unique<UnitModule>(std::move(state_));
        EXPECT_EQ(verifyModule(*module), "") << printIL(*module);
        return module;
    }

    CompileSession& session;
    std::unique_ptr<ModuleBuilder> builder;

private:
    std::unique_ptr<UnitModule::State> state_;
    Arena arena_;
    std::vector<std::unique_ptr<FunctionInstance>> instances_;
};

// A session without sources of its own.
class Lowering : public testing::TestWithParam<OptimizationLevel> {
protected:
    CompileSession session{{}};
    ScopedCompileSession scope{session};
    SampleModule sample{session};

    const Type* type(TypeKind kind) { return session.types().builtin(kind); }
};

}  // namespace vesk::compiler
