// Numbers: operators, comparisons, conversions; and the tests and casts of references.
// Integers wrap: no operation here has undefined results. Division looks at its divisor first; the one quotient that
// does not fit, of the smallest number by -1, wraps like a negation.
#include "il/function_lowering.h"
#include "runtime/object_layout.h"

namespace vesk::compiler {

FunctionLowering::Value* FunctionLowering::arithmetic(const Arithmetic* expression, Value* left) {
    Value* right = lower(expression->right);
    if (expression->op == ArithmeticOperator::Power) return power(expression, left, right);
    if (expression->type->isFloating()) return floatingArithmetic(expression, left, right);
    switch (expression->op) {
        case ArithmeticOperator::Add: return builder_.CreateAdd(left, right);
        case ArithmeticOperator::Subtract: return builder_.CreateSub(left, right);
        case ArithmeticOperator::Multiply: return builder_.CreateMul(left, right);
        default: return integerDivision(expression, left, right);
    }
}

FunctionLowering::Value* FunctionLowering::integerDivision(const Arithmetic* expression, Value* left, Value* right) {
    Value* zero = llvm::ConstantInt::get(right->getType(), 0);
    auto* constant = llvm::dyn_cast<llvm::ConstantInt>(right);
    if (!constant || constant->isZero())
        failIf(constant ? builder_.getTrue() : builder_.CreateICmpEQ(right, zero), "vesk_rt_panic_division", {},
               expression->place);
    bool isRemainder = expression->op == ArithmeticOperator::Remainder;
    if (!expression->type->isSignedInteger())
        return isRemainder ? builder_.CreateURem(left, right) : builder_.CreateUDiv(left, right);

    // The machine's division stops at smallest / -1; by 1 instead, with the sign put right, nothing is left to stop at.
    Value* minusOne = nullptr;
    Value* divisor = right;
    if (!constant || constant->isMinusOne()) {
        Value* one = llvm::ConstantInt::get(right->getType(), 1);
        minusOne = builder_.CreateICmpEQ(
            right, llvm::ConstantInt::getSigned(llvm::cast<llvm::IntegerType>(right->getType()), -1));
        divisor = builder_.CreateSelect(minusOne, one, right);
    }
    if (expression->op == ArithmeticOperator::Divide) {
        Value* quotient = builder_.CreateSDiv(left, divisor);
        return minusOne ? builder_.CreateSelect(minusOne, builder_.CreateNeg(left), quotient) : quotient;
    }
    // Rounding down differs from truncating where something is left over and the signs differ. By 1 or -1 nothing is
    // left over, so the changed divisor decides nothing here.
    Value* remainder = builder_.CreateSRem(left, divisor);
    Value* isUneven = builder_.CreateICmpNE(remainder, zero);
    Value* signsDiffer = builder_.CreateICmpSLT(builder_.CreateXor(remainder, divisor), zero);
    Value* adjusts = builder_.CreateAnd(isUneven, signsDiffer);
    if (isRemainder) return builder_.CreateSelect(adjusts, builder_.CreateAdd(remainder, divisor), remainder);
    Value* quotient = builder_.CreateSDiv(left, divisor);
    if (minusOne) quotient = builder_.CreateSelect(minusOne, builder_.CreateNeg(left), quotient);
    return builder_.CreateSelect(adjusts, builder_.CreateSub(quotient, llvm::ConstantInt::get(right->getType(), 1)),
                                 quotient);
}

FunctionLowering::Value* FunctionLowering::floatingArithmetic(const Arithmetic* expression, Value* left, Value* right) {
    bool isFloat = expression->type->kind == TypeKind::Float;
    llvm::Type* type = left->getType();
    switch (expression->op) {
        case ArithmeticOperator::Add: return builder_.CreateFAdd(left, right);
        case ArithmeticOperator::Subtract: return builder_.CreateFSub(left, right);
        case ArithmeticOperator::Multiply: return builder_.CreateFMul(left, right);
        case ArithmeticOperator::Divide: return builder_.CreateFDiv(left, right);
        case ArithmeticOperator::FloorDivide:
            return emitCall(
                module_.runtimeFunction(isFloat ? "vesk_rt_floor_divide_float" : "vesk_rt_floor_divide_double", type,
                                        {type, type}),
                {left, right}, expression->place);
        default:
            return emitCall(module_.runtimeFunction(isFloat ? "vesk_rt_remainder_float" : "vesk_rt_remainder_double",
                                                    type, {type, type}),
                            {left, right}, expression->place);
    }
}

FunctionLowering::Value* FunctionLowering::power(const Arithmetic* expression, Value* left, Value* right) {
    const Type* type = expression->type;
    if (type->isFloating()) {
        llvm::Type* own = left->getType();
        auto* raise = module_.runtimeFunction(
            type->kind == TypeKind::Float ? "vesk_rt_power_float" : "vesk_rt_power_double", own, {own, own});
        return emitCall(raise, {left, right}, expression->place);
    }
    bool isSigned = type->isSignedInteger();
    llvm::Type* wide = module_.longType;
    auto* raise =
        module_.runtimeFunction(isSigned ? "vesk_rt_power_signed" : "vesk_rt_power_unsigned", wide, {wide, wide});
    Value* result =
        emitCall(raise, {builder_.CreateIntCast(left, wide, isSigned), builder_.CreateIntCast(right, wide, isSigned)},
                 expression->place);
    return builder_.CreateTrunc(result, left->getType());
}

FunctionLowering::Value* FunctionLowering::comparison(const Comparison* expression, Value* left) {
    using Predicate = llvm::CmpInst::Predicate;
    Value* right = lower(expression->right);
    const Type* type = expression->left->type;
    std::size_t which = std::size_t(expression->op);
    if (type->isFloating()) {
        static constexpr Predicate FLOATING[] = {Predicate::FCMP_OEQ, Predicate::FCMP_UNE, Predicate::FCMP_OLT,
                                                 Predicate::FCMP_OLE, Predicate::FCMP_OGT, Predicate::FCMP_OGE};
        return builder_.CreateFCmp(FLOATING[which], left, right);
    }
    static constexpr Predicate SIGNED[] = {Predicate::ICMP_EQ,  Predicate::ICMP_NE,  Predicate::ICMP_SLT,
                                           Predicate::ICMP_SLE, Predicate::ICMP_SGT, Predicate::ICMP_SGE};
    static constexpr Predicate UNSIGNED[] = {Predicate::ICMP_EQ,  Predicate::ICMP_NE,  Predicate::ICMP_ULT,
                                             Predicate::ICMP_ULE, Predicate::ICMP_UGT, Predicate::ICMP_UGE};
    return builder_.CreateICmp((type->isSignedInteger() ? SIGNED : UNSIGNED)[which], left, right);
}

// -------------------------------------------------------------------------------------------- conversions

FunctionLowering::Value* FunctionLowering::conversion(const Conversion* expression, Value* operand) {
    const Type *from = expression->operand->type, *to = expression->type;
    Place place = expression->place;
    switch (expression->conversion) {
        case ConversionKind::Widen:
            return builder_.CreateIntCast(operand, module_.valueType(to), from->isSignedInteger());
        case ConversionKind::Narrow: return builder_.CreateTrunc(operand, module_.valueType(to));
        case ConversionKind::IntegerToFloating:
            return from->isSignedInteger() ? builder_.CreateSIToFP(operand, module_.valueType(to))
                                           : builder_.CreateUIToFP(operand, module_.valueType(to));
        case ConversionKind::FloatingToInteger: {
            auto intrinsic = to->isSignedInteger() ? llvm::Intrinsic::fptosi_sat : llvm::Intrinsic::fptoui_sat;
            return builder_.CreateIntrinsic(intrinsic, {module_.valueType(to), operand->getType()}, {operand});
        }
        case ConversionKind::FloatingResize: return builder_.CreateFPCast(operand, module_.valueType(to));
        case ConversionKind::Box: {
            auto* box =
                module_.runtimeFunction("vesk_rt_box_" + from->structured, module_.pointerType, {operand->getType()});
            return emitCall(box, {operand}, place);
        }
        case ConversionKind::Unbox: {
            const Type* scalar = withoutNull(to);
            llvm::Constant* record = module_.record(scalar);
            auto* test = module_.runtimeFunction("vesk_rt_check_cast", module_.voidType,
                                                 {module_.pointerType, module_.pointerType});
            emitCall(test, {operand, record}, place);
            return load(scalar, address(operand, runtime::BOX_VALUE_OFFSET));
        }
        case ConversionKind::Reference: return operand;
        case ConversionKind::Downcast: {
            auto* test = module_.runtimeFunction(
                to->kind == TypeKind::Nullable ? "vesk_rt_check_cast_or_null" : "vesk_rt_check_cast", module_.voidType,
                {module_.pointerType, module_.pointerType});
            emitCall(test, {operand, module_.record(withoutNull(to))}, place);
            return operand;
        }
        case ConversionKind::NotNull:
            if (!isNeverNull(expression->operand))
                failIf(builder_.CreateICmpEQ(operand, module_.nullPointer()), "vesk_rt_panic_cast",
                       {module_.nullPointer(), module_.record(withoutNull(to))}, place);
            return operand;
    }
    return operand;
}

FunctionLowering::Value* FunctionLowering::typeTest(const TypeTest* expression, Value* operand) {
    const Type* tested = withoutNull(expression->tested);
    if (tested->kind == TypeKind::Object) return builder_.CreateICmpNE(operand, module_.nullPointer());
    auto* test =
        module_.runtimeFunction("vesk_rt_is_instance", module_.boolType, {module_.pointerType, module_.pointerType});
    return emitCall(test, {operand, module_.record(tested)}, expression->place);
}

}  // namespace vesk::compiler
