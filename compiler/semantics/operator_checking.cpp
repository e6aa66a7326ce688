// Operators: numbers and their promotion, texts, comparison, type tests, and operators that classes declare.
// A chain `a + b + c ...` leans to the left and may be very long: it is taken apart and built up without recursion.
#include <algorithm>

#include "semantics/checker.h"
#include "semantics/numeric_promotion.h"

namespace vesk::compiler {

namespace {

std::optional<ArithmeticOperator> arithmeticOperator(const std::string& op) {
    if (op == "+") return ArithmeticOperator::Add;
    if (op == "-") return ArithmeticOperator::Subtract;
    if (op == "*") return ArithmeticOperator::Multiply;
    if (op == "/") return ArithmeticOperator::Divide;
    if (op == "//") return ArithmeticOperator::FloorDivide;
    if (op == "%") return ArithmeticOperator::Remainder;
    if (op == "**") return ArithmeticOperator::Power;
    return std::nullopt;
}

ComparisonOperator comparisonOperator(const std::string& op) {
    if (op == "==") return ComparisonOperator::Equal;
    if (op == "!=") return ComparisonOperator::NotEqual;
    if (op == "<") return ComparisonOperator::Less;
    if (op == "<=") return ComparisonOperator::LessEqual;
    if (op == ">") return ComparisonOperator::Greater;
    return ComparisonOperator::GreaterEqual;
}

bool isComparison(const std::string& op) {
    return op == "==" || op == "!=" || op == "<" || op == "<=" || op == ">" || op == ">=";
}

bool isText(const Type* type) { return withoutNull(type)->kind == TypeKind::String; }

bool isBinaryOperator(const AbstractNode& node) {
    if (node.getKind() != NodeKind::Operator) return false;
    auto& op = static_cast<const OperatorExpressionNode&>(node);
    return op.getChildren().size() == 2 && !op.getTypeOperand() && op.op() != "is" && op.op() != "isnot";
}

}  // namespace

Expression* Checker::checkOperator(const NodePtr& node, const Type* expected) {
    auto& top = static_cast<const OperatorExpressionNode&>(*node);
    if (top.op() == "is" || top.op() == "isnot") return checkTypeTest(top);
    if (top.isUnary()) return checkUnary(top, expected);

    // The chain of left operands, outermost first.
    std::vector<const OperatorExpressionNode*> chain{&top};
    NodePtr leftmost = top.getChildren()[0];
    while (isBinaryOperator(*leftmost)) {
        chain.push_back(static_cast<const OperatorExpressionNode*>(leftmost.get()));
        leftmost = leftmost->getChildren()[0];
    }
    auto hintFor = [&](const std::string& op) {
        if (op == "&&" || op == "||") return builtin(TypeKind::Bool);
        return arithmeticOperator(op) ? expected : nullptr;
    };
    Operand left = operand(leftmost, hintFor(chain.back()->op()));
    std::vector<Expression*> parts;  // of a text that is being joined: `left` stands for them
    auto finishText = [&] {
        if (parts.empty()) return;
        left.value = make<Concat>(ExpressionKind::Concat, builtin(TypeKind::String), left.value->place, list(parts));
        parts.clear();
    };
    for (std::size_t i = chain.size(); i-- > 0;) {
        const OperatorExpressionNode& current = *chain[i];
        const std::string& op = current.op();
        Operand right = operand(current.getChildren()[1], hintFor(op));
        if (op == "+" && !parts.empty()) {
            parts.push_back(textOf(valueOf(right)));
            continue;
        }
        finishText();
        bool mayJoin =
            op == "+" && ((left.value && isText(left.value->type)) || (right.value && isText(right.value->type)));
        if (mayJoin) {
            // A class that adds texts itself comes first.
            Expression* first = valueOf(left);
            Expression* second = valueOf(right);
            bool isOwn = withoutNull(first->type)->kind == TypeKind::Class &&
                         !methodsNamed(withoutNull(first->type), "operator+").empty();
            Expression* own = isOwn ? callOperator(first, "operator+", second, current) : nullptr;
            if (!own) {
                parts = {textOf(first), textOf(second)};
                left = {first, nullptr, std::nullopt};
                left.value =
                    make<Concat>(ExpressionKind::Concat, builtin(TypeKind::String), placeOf(current), ExpressionList{});
                continue;
            }
            left = {own, nullptr, std::nullopt};
            continue;
        }
        left = {combine(left, right, op, current, hintFor(op)), nullptr, std::nullopt};
    }
    finishText();
    return left.value;
}

Checker::Operand Checker::operand(const NodePtr& node, const Type* expected) {
    if (std::optional<IntegerLiteral> literal = integerLiteralOf(node.get());
        literal && literal->suffix == TypeKind::Unknown)
        return {nullptr, node.get(), literal};
    return {checkOperand(node, expected), node.get(), std::nullopt};
}

Expression* Checker::valueOf(const Operand& operand) {
    return operand.value ? operand.value : checkLiteral(*operand.node, nullptr);
}

// Gives literals without a suffix the type of the other operand where the place expects that type, or where the
// operands would have no common type otherwise.
void Checker::settleLiterals(Operand& left, Operand& right, const Type* expected) {
    expected = expected ? withoutNull(expected) : nullptr;
    auto take = [&](Operand& operand, const Type* type) {
        operand.value = integerConstant(*operand.literal, type, placeOf(*operand.node));
        operand.literal.reset();
    };
    if (left.literal && right.literal) {
        bool wantsInteger = expected && (expected->kind == TypeKind::Int || expected->kind == TypeKind::UInt ||
                                         expected->kind == TypeKind::Long || expected->kind == TypeKind::ULong);
        if (wantsInteger && literalFits(*left.literal, expected->kind) && literalFits(*right.literal, expected->kind)) {
            take(left, expected);
            take(right, expected);
        }
    } else if (left.literal || right.literal) {
        Operand& literal = left.literal ? left : right;
        const Type* other = (left.literal ? right : left).value->type;
        if (other->isNumeric() && literalFits(*literal.literal, other->kind)) {
            bool isWanted = expected == other;
            bool fitsInt = literalFits(*literal.literal, TypeKind::Int);
            bool hasCommon = fitsInt && promotedType(TypeKind::Int, other->kind) != TypeKind::Unknown;
            if (isWanted || !hasCommon) take(literal, other);
        }
    }
    left.value = valueOf(left);
    right.value = valueOf(right);
}

// An operand of a logical operator.
Expression* Checker::condition(Expression* value, const std::string& op, const AbstractNode& node) {
    const Type* boolType = builtin(TypeKind::Bool);
    if (!value->type->isConcrete) return value;
    if (!isAssignable(boolType, value->type)) fail(node, "'" + op + "' expected Bool, got " + value->type->structured);
    return convertAssignable(value, boolType);
}

Expression* Checker::combine(Operand& left, Operand& right, const std::string& op, const AbstractNode& node,
                             const Type* expected) {
    if (op == "&&" || op == "||") {
        Expression* first = condition(valueOf(left), op, node);
        Expression* second = condition(valueOf(right), op, node);
        return make<Binary>(op == "&&" ? ExpressionKind::And : ExpressionKind::Or, builtin(TypeKind::Bool),
                            placeOf(node), first, second);
    }
    if (isComparison(op)) {
        settleLiterals(left, right, nullptr);
        return comparison(left, right, op, node);
    }
    settleLiterals(left, right, expected);
    if (std::optional<ArithmeticOperator> known = arithmeticOperator(op))
        return arithmetic(left, right, *known, node, expected, op);
    if (Expression* call = callOperator(left.value, "operator" + op, right.value, node)) return call;
    fail(node, "'" + op + "' does not take " + left.value->type->structured + " and " + right.value->type->structured);
}

Expression* Checker::arithmetic(Operand& left, Operand& right, ArithmeticOperator op, const AbstractNode& node,
                                const Type*, const std::string& name) {
    const Type* first = withoutNull(left.value->type);
    const Type* second = withoutNull(right.value->type);
    if (first->isNumeric() && second->isNumeric()) {
        TypeKind kind = promotedType(first->kind, second->kind);
        if (kind == TypeKind::Unknown)
            fail(node, "'" + name + "' has no common type for " + first->structured + " and " + second->structured +
                           ": convert one of them with 'as'");
        const Type* type = builtin(kind);
        return make<Arithmetic>(ExpressionKind::Arithmetic, type, placeOf(node), op,
                                convertNumber(withoutNullReceiver(left.value), type),
                                convertNumber(withoutNullReceiver(right.value), type));
    }
    if (Expression* call = callOperator(left.value, "operator" + name, right.value, node)) return call;
    fail(node,
         "'" + name + "' does not take " + left.value->type->structured + " and " + right.value->type->structured);
}

// `left.operator(right)` where the left operand's class declares it, null where it does not or takes no such operand.
Expression* Checker::callOperator(Expression* left, std::string_view op, Expression* right, const AbstractNode& node) {
    const Type* type = withoutNull(left->type);
    if (type->isScalar() || type->kind == TypeKind::Null) return nullptr;
    std::vector<MethodCandidate> methods = methodsNamed(type, op);
    if (methods.empty()) return nullptr;
    if (!type->isConcrete) {
        CallSite site{.node = node,
                      .token = node.token(),
                      .argumentNodes = node.getChildren(),
                      .name = std::string(op),
                      .typeArguments = {}};
        return openMethodResult(methods[0], site);
    }
    if (type != left->type) left = conversion(ConversionKind::Reference, left, type);
    ArgumentList arguments;
    if (right) arguments.push_back({.node = nullptr, .name = {}, .token = node.token(), .value = right});
    return callChecked(left, op, arguments, node);
}

// ----------------------------------------------------------------------------------------------- comparison

Expression* Checker::comparison(Operand& left, Operand& right, const std::string& op, const AbstractNode& node) {
    const Type* first = left.value->type;
    const Type* second = right.value->type;
    const Type* boolType = builtin(TypeKind::Bool);
    bool isEquality = op == "==" || op == "!=";
    bool bothNumbers = isEquality ? first->isNumeric() && second->isNumeric()
                                  : withoutNull(first)->isNumeric() && withoutNull(second)->isNumeric();
    if (bothNumbers) {
        TypeKind kind = promotedType(withoutNull(first)->kind, withoutNull(second)->kind);
        if (kind == TypeKind::Unknown)
            fail(node, "'" + op + "' has no common type for " + first->structured + " and " + second->structured +
                           ": convert one of them with 'as'");
        const Type* type = builtin(kind);
        return make<Comparison>(ExpressionKind::Comparison, boolType, placeOf(node), comparisonOperator(op),
                                convertNumber(withoutNullReceiver(left.value), type),
                                convertNumber(withoutNullReceiver(right.value), type));
    }
    if (isEquality) {
        if (op == "!=")
            if (Expression* call = callOperator(left.value, "operator!=", right.value, node)) return call;
        return equality(left.value, right.value, op == "!=", node);
    }
    // false comes before true.
    if (withoutNull(first)->kind == TypeKind::Bool && withoutNull(second)->kind == TypeKind::Bool)
        return make<Comparison>(ExpressionKind::Comparison, boolType, placeOf(node), comparisonOperator(op),
                                withoutNullReceiver(left.value), withoutNullReceiver(right.value));
    if (Expression* call = callOperator(left.value, "operator" + op, right.value, node)) return call;
    // Whatever can be compared has an order.
    const Type* plain = withoutNull(first);
    if (!plain->isScalar() && plain->isConcrete && plain->kind != TypeKind::Null &&
        !methodsNamed(plain, "compareTo").empty()) {
        Expression* order = callOperator(left.value, "compareTo", right.value, node);
        if (order && order->type->kind == TypeKind::Int)
            return make<Comparison>(ExpressionKind::Comparison, boolType, placeOf(node), comparisonOperator(op), order,
                                    integerConstant({}, builtin(TypeKind::Int), placeOf(node)));
    }
    fail(node, "'" + op + "' does not take " + first->structured + " and " + second->structured);
}

Expression* Checker::equality(Expression* left, Expression* right, bool negated, const AbstractNode& node) {
    const Type* first = left->type;
    const Type* second = right->type;
    const Type* boolType = builtin(TypeKind::Bool);
    Place place = placeOf(node);
    auto finish = [&](Expression* result) -> Expression* {
        return negated ? make<Unary>(ExpressionKind::Not, boolType, place, result) : result;
    };
    if (mode_ == CheckMode::Inference && (!first->isConcrete || !second->isConcrete)) return typedOnly(boolType, place);
    if (first->kind == TypeKind::Null || second->kind == TypeKind::Null) {
        const Type* other = first->kind == TypeKind::Null ? second : first;
        if (other->isScalar()) fail(node, "A value of type " + other->structured + " is never null");
        return finish(make<Binary>(ExpressionKind::SameReference, boolType, place, left, right));
    }
    if (first->kind == TypeKind::Bool && second->kind == TypeKind::Bool)
        return make<Comparison>(ExpressionKind::Comparison, boolType, place,
                                negated ? ComparisonOperator::NotEqual : ComparisonOperator::Equal, left, right);
    const Type* plainFirst = withoutNull(first);
    const Type* plainSecond = withoutNull(second);
    bool neverMeet = (plainFirst->isScalar() || plainFirst->kind == TypeKind::String) &&
                     (plainSecond->isScalar() || plainSecond->kind == TypeKind::String) && plainFirst != plainSecond &&
                     !(plainFirst->isNumeric() && plainSecond->isNumeric());
    if (neverMeet) fail(node, "Cannot compare " + first->structured + " with " + second->structured);
    if (plainFirst->kind == TypeKind::Function || plainSecond->kind == TypeKind::Function ||
        plainFirst->kind == TypeKind::Array) {
        const Type* object = builtin(TypeKind::Object);
        return finish(make<Binary>(ExpressionKind::SameReference, boolType, place,
                                   left->type->isScalar() ? convertAssignable(left, object) : left,
                                   right->type->isScalar() ? convertAssignable(right, object) : right));
    }
    // Numbers behind "?" meet in one type, boxed.
    if (plainFirst->isNumeric() && plainSecond->isNumeric() && plainFirst != plainSecond) {
        TypeKind kind = promotedType(plainFirst->kind, plainSecond->kind);
        if (kind == TypeKind::Unknown)
            fail(node, "Cannot compare " + first->structured + " with " + second->structured);
        const Type* type = builtin(kind);
        return make<Comparison>(ExpressionKind::Comparison, boolType, place,
                                negated ? ComparisonOperator::NotEqual : ComparisonOperator::Equal,
                                convertNumber(withoutNullReceiver(left), type),
                                convertNumber(withoutNullReceiver(right), type));
    }
    auto call = [&](Expression* object, Expression* other) -> Expression* {
        for (std::string_view name : {std::string_view("operator=="), std::string_view("equals")}) {
            if (name == "operator==" && object->type->isScalar()) continue;
            ArgumentList arguments{{.node = nullptr, .name = {}, .token = node.token(), .value = other}};
            if (methodsNamed(object->type, name).empty()) continue;
            if (Expression* result = callChecked(object, name, arguments, node)) return result;
        }
        fail(node, "Cannot compare " + first->structured + " with " + second->structured);
    };
    if (first->isScalar())
        left = convertAssignable(left, plainSecond->isScalar() ? types_.nullable(first) : builtin(TypeKind::Object));
    if (left->type->kind != TypeKind::Nullable) return finish(call(left, right));

    // null equals null alone; the operands are evaluated once.
    std::vector<std::pair<LocalVariable*, Expression*>> lets;
    if (right->type->isScalar()) right = convertAssignable(right, types_.nullable(right->type));
    left = once(left, lets);
    right = once(right, lets);
    Expression* isNull = make<Binary>(ExpressionKind::SameReference, boolType, place, left, nullValue(place));
    Expression* otherIsNull = make<Binary>(ExpressionKind::SameReference, boolType, place, right, nullValue(place));
    const Type* plain = left->type->element();
    Expression* object = plain->isScalar() ? conversion(ConversionKind::Reference, left, builtin(TypeKind::Object))
                                           : conversion(ConversionKind::Reference, left, plain);
    Expression* otherValue = right;
    if (right->type->kind == TypeKind::Nullable) {
        // `equals` takes an Object; a class's own operator may want the plain type, for which null is no value.
        otherValue = conversion(ConversionKind::Reference, right, builtin(TypeKind::Object));
        if (!plain->isScalar() && !methodsNamed(plain, "operator==").empty() && plainSecond->isReference())
            otherValue = conversion(ConversionKind::Reference, right, plainSecond);
        Expression* same = call(object, otherValue);
        Expression* present =
            make<Conditional>(ExpressionKind::Conditional, boolType, place, otherIsNull, boolean(false, place), same);
        Expression* result =
            make<Conditional>(ExpressionKind::Conditional, boolType, place, isNull, otherIsNull, present);
        return finish(wrapInLets(lets, result));
    }
    Expression* same = call(object, otherValue);
    return finish(wrapInLets(
        lets, make<Conditional>(ExpressionKind::Conditional, boolType, place, isNull, boolean(false, place), same)));
}

// --------------------------------------------------------------------------------------------- other operators

Expression* Checker::checkUnary(const OperatorExpressionNode& node, const Type* expected) {
    const std::string& op = node.op();
    if (integerLiteralOf(&node)) return checkLiteral(node, expected);
    if (op == "!") {
        // A chain of negations folds to one or none.
        const OperatorExpressionNode* innermost = &node;
        bool isNegated = true;
        while (true) {
            const NodePtr& inner = innermost->getChildren()[0];
            if (inner->getKind() != NodeKind::Operator) break;
            auto& next = static_cast<const OperatorExpressionNode&>(*inner);
            if (!next.isUnary() || next.op() != "!") break;
            innermost = &next;
            isNegated = !isNegated;
        }
        Expression* value = condition(checkValue(innermost->getChildren()[0], builtin(TypeKind::Bool)), op, node);
        return isNegated ? make<Unary>(ExpressionKind::Not, builtin(TypeKind::Bool), placeOf(node), value) : value;
    }
    const NodePtr& inner = node.getChildren()[0];
    if (inner->getKind() == NodeKind::Literal &&
        static_cast<const LiteralNode&>(*inner).literalKind() == LiteralKind::Floating)
        return checkLiteral(node, expected);
    Expression* value = checkOperand(inner, expected);
    const Type* plain = withoutNull(value->type);
    if (plain->isNumeric()) {
        value = withoutNullReceiver(value);
        const Type* type = builtin(promotedType(plain->kind, plain->kind));
        value = convertNumber(value, type);
        return op == "-" ? make<Unary>(ExpressionKind::Negate, type, placeOf(node), value) : value;
    }
    if (Expression* call = callOperator(value, "operator" + op, nullptr, node)) return call;
    fail(node, "'" + op + "' does not take " + value->type->structured);
}

Expression* Checker::checkTypeTest(const OperatorExpressionNode& node) {
    bool negated = node.op() == "isnot";
    Place place = placeOf(node);
    Expression* value = checkValue(node.getChildren()[0]);
    const Type* boolType = builtin(TypeKind::Bool);
    auto finish = [&](Expression* result) -> Expression* {
        return negated ? make<Unary>(ExpressionKind::Not, boolType, place, result) : result;
    };
    auto decided = [&](bool answer) -> Expression* {
        return make<Let>(ExpressionKind::Let, boolType, place, static_cast<LocalVariable*>(nullptr), value,
                         boolean(answer != negated, place));
    };
    if (!node.getTypeOperand()) {
        if (value->type->isScalar()) return decided(false);
        return finish(make<Binary>(ExpressionKind::SameReference, boolType, place, value, nullValue(place)));
    }
    auto& written = static_cast<const TypeNode&>(*node.getTypeOperand());
    const Type* tested = withoutNull(declaredType(written.typeText(), written.context(), written.token()));
    if (!tested->isConcrete || !value->type->isConcrete) return typedOnly(boolType, place);
    if (tested->isVoid()) fail(*node.getTypeOperand(), "No value has the type Void");
    if (value->type->isScalar()) {
        // A number is of its own type, and of what it may be boxed to; another number's type it only converts to.
        bool answer = tested == value->type || (!tested->isScalar() && isAssignable(tested, value->type));
        return decided(answer);
    }
    return finish(make<TypeTest>(ExpressionKind::TypeTest, boolType, place, value, tested));
}

Expression* Checker::textOf(Expression* value) {
    const Type* text_ = builtin(TypeKind::String);
    if (value->type == text_) return value;
    if (value->type->kind == TypeKind::Null) return text("null", value->place);
    if (isText(value->type)) return conversion(ConversionKind::Reference, value, text_);
    return make<Unary>(ExpressionKind::ToText, text_, value->place, value);
}

}  // namespace vesk::compiler
