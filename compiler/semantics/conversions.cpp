// How the checker turns a value of one type into a value of another: implicit conversions, casts, declared types.
#include <algorithm>
#include <atomic>

#include "generics/inference/binding_inference.h"
#include "semantics/argument_bindings.h"
#include "semantics/checker.h"
#include "semantics/numeric_promotion.h"

namespace vesk::compiler {

// --------------------------------------------------------------------------------------------------- types

const Type* Checker::declaredTypeUnchecked(const Str& text, const ContextPtr& scope, const TokenPtr& token) {
    if (const Type* type = types_.builtinNamed(text)) return type;
    try {
        return resolveDeclaredType(text, scope, token, &environment_);
    } catch (const CompilerException& error) {
        throw CheckMistake(error);
    }
}

const Type* Checker::declaredType(const Str& text, const ContextPtr& scope, const TokenPtr& token) {
    const Type* type = declaredTypeUnchecked(text, scope, token);
    // In a static method the class has no arguments.
    if (mode_ == CheckMode::Body && !type->isConcrete && type->kind != TypeKind::Unknown)
        fail(token, type->structured + " names a type parameter, which has no meaning here");
    validateClassConstraints(type, token);
    return type;
}

namespace {

void validateArguments(const Type* type, const std::vector<GenericTypeParam>& parameters, const TokenPtr& token) {
    StrVec arguments;
    for (const Type* argument : type->arguments) arguments.push_back(argument->text);
    try {
        validateGenericConstraints(parameters, arguments, type->declaration->node->getContext(), token);
    } catch (CompilerException& error) {
        noteFailedConstraint(error, parameters);
        throw;
    }
}

}  // namespace

void validateTypeConstraints(const Type* type, const TokenPtr& token, std::unordered_set<const Type*>& validated) {
    if (type->arguments.empty() || !type->isConcrete || validated.contains(type)) return;
    for (const Type* argument : type->arguments) validateTypeConstraints(argument, token, validated);
    if (type->result) validateTypeConstraints(type->result, token, validated);
    if (type->kind == TypeKind::Class && type->declaration) {
        const std::vector<GenericTypeParam>& parameters = type->declaration->node->getTypeParams();
        bool isConstrained =
            std::any_of(parameters.begin(), parameters.end(), [](auto& p) { return !p.constraint.empty(); });
        if (isConstrained) validateArguments(type, parameters, token);
    }
    validated.insert(type);
}

void Checker::validateClassConstraints(const Type* type, const TokenPtr& token) {
    if (type->arguments.empty()) return;
    try {
        validateTypeConstraints(type, token, validated_);
    } catch (const CompilerException& error) {
        throw CheckMistake(error);
    }
}

const Type* Checker::returnTypeOf(FunctionInstance& function) {
    const Type* type = std::atomic_ref<const Type*>(function.returnType).load(std::memory_order_acquire);
    if (!type) type = session_.returnTypeOf(function);
    if (!type || type->kind == TypeKind::Unknown) throw Poisoned{};
    return type;
}

bool Checker::isSubclass(const ClassDeclaration* cls, const ClassDeclaration* base) const {
    return superTypeOf(types_.classType(const_cast<ClassDeclaration*>(cls), {}), base) != nullptr;
}

const Type* Checker::unify(const Type* first, const Type* second) const {
    if (first == second) return first;
    bool isNullable = first->kind == TypeKind::Nullable || second->kind == TypeKind::Nullable ||
                      first->kind == TypeKind::Null || second->kind == TypeKind::Null;
    if (first->kind == TypeKind::Null) return second->isVoid() ? nullptr : types_.nullable(second);
    if (second->kind == TypeKind::Null) return first->isVoid() ? nullptr : types_.nullable(first);
    if (isNullable) {
        const Type* both = unify(withoutNull(first), withoutNull(second));
        return both ? types_.nullable(both) : nullptr;
    }
    if (isAssignable(first, second)) return first;
    if (isAssignable(second, first)) return second;
    return nullptr;
}

// --------------------------------------------------------------------------------------------- conversions

Expression* Checker::conversion(ConversionKind kind, Expression* value, const Type* target) {
    return make<Conversion>(ExpressionKind::Conversion, target, value->place, kind, value);
}

Expression* Checker::convertNumber(Expression* value, const Type* target) {
    const Type* source = value->type;
    if (source == target) return value;
    if (source->isInteger() && target->isInteger()) {
        bool widens = target->bitWidth() >= source->bitWidth();
        if (value->kind == ExpressionKind::IntegerConstant && widens) {
            // The constant keeps its bits: they are sign-extended where the source is signed.
            auto* constant = static_cast<IntegerConstant*>(value);
            std::uint64_t bits = constant->value;
            unsigned width = source->bitWidth();
            if (width < 64) {
                std::uint64_t mask = (std::uint64_t{1} << width) - 1;
                bits &= mask;
                if (source->isSignedInteger() && (bits >> (width - 1)) & 1) bits |= ~mask;
            }
            return make<IntegerConstant>(ExpressionKind::IntegerConstant, target, value->place, bits);
        }
        return conversion(widens ? ConversionKind::Widen : ConversionKind::Narrow, value, target);
    }
    if (source->isInteger()) return conversion(ConversionKind::IntegerToFloating, value, target);
    if (target->isInteger()) return conversion(ConversionKind::FloatingToInteger, value, target);
    return conversion(ConversionKind::FloatingResize, value, target);
}

bool Checker::accepts(const AbstractNode* node, const Expression* value, const Type* target) const {
    if (isAssignable(target, value->type)) return true;
    const Type* plain = withoutNull(target);
    if (plain->isNumeric()) {
        if (std::optional<IntegerLiteral> literal = integerLiteralOf(node)) return literalTakes(*literal, plain->kind);
        return plain->kind == TypeKind::Float && isPlainFloatingLiteral(node);
    }
    if (plain->kind == TypeKind::Function && value->kind == ExpressionKind::Lambda)
        return value->type->arguments == plain->arguments &&
               (plain->result->isVoid() ||
                (!value->type->result->isVoid() && isAssignable(plain->result, value->type->result)));
    return false;
}

Expression* Checker::coerce(Expression* value, const Type* target, const AbstractNode& node) {
    const Type* source = value->type;
    if (source == target) return value;
    if (source->kind == TypeKind::Unknown || target->kind == TypeKind::Unknown) throw Poisoned{};
    const Type* plain = withoutNull(target);
    if (plain->isNumeric() && value->kind != ExpressionKind::LocalRead) {
        std::optional<IntegerLiteral> literal = integerLiteralOf(&node);
        if (literal && literal->suffix == TypeKind::Unknown && plain != source) {
            if (!literalFits(*literal, plain->kind))
                fail(node, literalText(*literal) + " does not fit " + plain->structured);
            value = integerConstant(*literal, plain, value->place);
            return plain == target ? value : conversion(ConversionKind::Box, value, target);
        }
        if (plain->kind == TypeKind::Float && value->kind == ExpressionKind::FloatingConstant &&
            isPlainFloatingLiteral(&node)) {
            value = make<FloatingConstant>(
                ExpressionKind::FloatingConstant, plain, value->place,
                static_cast<double>(static_cast<float>(static_cast<FloatingConstant*>(value)->value)));
            return plain == target ? value : conversion(ConversionKind::Box, value, target);
        }
    }
    if (plain->kind == TypeKind::Function && value->kind == ExpressionKind::Lambda && adaptLambda(value, plain))
        return plain == target ? value : conversion(ConversionKind::Reference, value, target);
    if (!isAssignable(target, source)) {
        if (source->isVoid()) fail(node, "expected " + target->structured + ", got a call that returns nothing");
        fail(node, "expected " + target->structured + ", got " + source->structured);
    }
    return convertAssignable(value, target);
}

Expression* Checker::convertAssignable(Expression* value, const Type* target) {
    const Type* source = value->type;
    if (source == target) return value;
    if (source->isScalar()) {
        if (target->isScalar()) return convertNumber(value, target);
        const Type* plain = withoutNull(target);
        if (plain->isScalar()) value = convertNumber(value, plain);
        return conversion(ConversionKind::Box, value, target);
    }
    if (source->kind == TypeKind::Nullable && target->kind != TypeKind::Nullable) {
        const Type* plain = source->element();
        if (target->isScalar()) {
            Expression* unboxed = conversion(ConversionKind::Unbox, value, plain);
            return convertNumber(unboxed, target);
        }
        // Object takes everything, null too.
        if (target->kind == TypeKind::Object) return conversion(ConversionKind::Reference, value, target);
        Expression* present = conversion(ConversionKind::NotNull, value, plain->isScalar() ? target : plain);
        return present->type == target ? present : conversion(ConversionKind::Reference, present, target);
    }
    if (target->isScalar()) return conversion(ConversionKind::Unbox, value, target);
    return conversion(ConversionKind::Reference, value, target);
}

Expression* Checker::checkCast(Expression* value, const Type* target, const AbstractNode& node) {
    const Type* source = value->type;
    if (source == target) return value;
    auto impossible = [&] { fail(node, "Cannot cast " + source->structured + " to " + target->structured); };
    if (source->isVoid() || target->isVoid()) impossible();
    if (source->isNumeric() && target->isNumeric()) {
        // `300 as Byte` wraps like any other value; a literal that fits needs no conversion.
        return convertNumber(value, target);
    }
    const Type* plainSource = withoutNull(source);
    const Type* plainTarget = withoutNull(target);
    if (source->isScalar()) {
        if (target->isScalar()) impossible();
        if (isAssignable(target, source)) return convertAssignable(value, target);
        if (plainTarget->isNumeric() && source->isNumeric())
            return conversion(ConversionKind::Box, convertNumber(value, plainTarget), target);
        impossible();
    }
    if (source->kind == TypeKind::Null) {
        if (target->kind != TypeKind::Nullable) impossible();
        return conversion(ConversionKind::Reference, value, target);
    }
    if (target->isScalar()) {
        if (plainSource->isNumeric() && target->isNumeric())
            return convertNumber(conversion(ConversionKind::Unbox, value, plainSource), target);
        if (!isAssignable(plainSource, target)) impossible();
        return conversion(ConversionKind::Unbox, value, target);
    }
    if (target->kind == TypeKind::Nullable && plainSource == plainTarget)
        return conversion(ConversionKind::Reference, value, target);
    bool dropsNull = source->kind == TypeKind::Nullable && target->kind != TypeKind::Nullable;
    if (isAssignable(plainTarget, plainSource) && !dropsNull) return convertAssignable(value, target);
    bool mayHold = isAssignable(plainTarget, plainSource) || isAssignable(plainSource, plainTarget) ||
                   plainSource->isInterface() || plainTarget->isInterface();
    if (!mayHold) impossible();
    return conversion(ConversionKind::Downcast, value, target);
}

// A lambda whose parameters are those that are wanted takes the wanted result type, when its value fits.
bool Checker::adaptLambda(Expression* value, const Type* target) {
    if (value->type == target) return true;
    if (!accepts(nullptr, value, target)) return false;
    TypedLambda& lambda = *static_cast<LambdaExpression*>(value)->lambda;
    if (lambda.body) {
        Statement* last = lambda.body->statements.back();
        auto* result = static_cast<ReturnStatement*>(last);
        if (target->result->isVoid()) {
            if (result->value) {
                std::vector<Statement*> statements{
                    makeStatement<EvaluateStatement>(StatementKind::Evaluate, result->place, result->value),
                    makeStatement<ReturnStatement>(StatementKind::Return, result->place,
                                                   static_cast<Expression*>(nullptr))};
                lambda.body = blockOf(statements, result->place);
            }
        } else {
            result->value = convertAssignable(result->value, target->result);
        }
    }
    lambda.returnType = target->result;
    value->type = target;
    return true;
}

}  // namespace vesk::compiler
