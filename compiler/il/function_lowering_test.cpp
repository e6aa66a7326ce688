// Functions made by hand: their code is well formed, and computes what the tree says, at every optimization level.
#include <cmath>
#include <limits>

#include "il/lowering_test.h"

namespace vesk::compiler {
namespace {

using Op = ArithmeticOperator;
using Cmp = ComparisonOperator;

// (a op b) of one type, through a function of two parameters.
template <class T>
T computed(CompileSession& session, TypeKind kind, Op op, T left, T right) {
    SampleModule sample(session);
    const Type* type = sample.type(kind);
    auto *a = sample.variable("a", type), *b = sample.variable("b", type);
    sample.define("f", type, {a, b}, {sample.giveBack(sample.arithmetic(op, sample.read(a), sample.read(b)))});
    Jit jit(OptimizationLevel::O0);
    jit.add(sample.finish());
    return reinterpret_cast<T (*)(T, T)>(jit.lookup("f"))(left, right);
}

constexpr int MIN = std::numeric_limits<int>::min(), MAX = std::numeric_limits<int>::max();

TEST_F(Lowering, IntegerArithmetic) {
    struct Case {
        Op op;
        int left, right, result;
    };
    for (auto [op, left, right, result] : {Case{Op::Add, 2, 3, 5},
                                           {Op::Add, MAX, 1, MIN},
                                           {Op::Subtract, MIN, 1, MAX},
                                           {Op::Multiply, 65536, 65536, 0},
                                           {Op::Divide, 7, 2, 3},
                                           {Op::Divide, -7, 2, -3},
                                           {Op::Divide, MIN, -1, MIN},
                                           {Op::Divide, 7, -1, -7},
                                           {Op::FloorDivide, 7, 2, 3},
                                           {Op::FloorDivide, -7, 2, -4},
                                           {Op::FloorDivide, 7, -2, -4},
                                           {Op::FloorDivide, -7, -2, 3},
                                           {Op::FloorDivide, MIN, -1, MIN},
                                           {Op::FloorDivide, -5, -1, 5},
                                           {Op::FloorDivide, 6, -3, -2},
                                           {Op::Remainder, 7, 3, 1},
                                           {Op::Remainder, -7, 3, 2},
                                           {Op::Remainder, 7, -3, -2},
                                           {Op::Remainder, -7, -3, -1},
                                           {Op::Remainder, MIN, -1, 0},
                                           {Op::Remainder, 5, -1, 0},
                                           {Op::Remainder, 6, 3, 0},
                                           {Op::Power, 3, 4, 81},
                                           {Op::Power, -2, 3, -8},
                                           {Op::Power, 2, 32, 0}})
        EXPECT_EQ(computed(session, TypeKind::Int, op, left, right), result)
            << int(op) << ": " << left << ", " << right;
}

TEST_F(Lowering, ArithmeticOfOtherTypes) {
    EXPECT_EQ(computed<std::uint32_t>(session, TypeKind::UInt, Op::Divide, 4000000000u, 3), 1333333333u);
    EXPECT_EQ(computed<std::uint32_t>(session, TypeKind::UInt, Op::Remainder, 4000000000u, 7), 4000000000u % 7);
    EXPECT_EQ(computed<std::uint64_t>(session, TypeKind::ULong, Op::FloorDivide, ~std::uint64_t(0), 2),
              ~std::uint64_t(0) / 2);
    EXPECT_EQ(computed<std::int8_t>(session, TypeKind::SByte, Op::Add, 127, 1), -128);
    EXPECT_EQ(computed<std::int8_t>(session, TypeKind::SByte, Op::Divide, -128, -1), -128);
    EXPECT_EQ(computed<std::uint8_t>(session, TypeKind::Byte, Op::Multiply, 16, 17), 16);
    EXPECT_EQ(computed<std::int16_t>(session, TypeKind::Short, Op::Power, -3, 3), -27);
    EXPECT_EQ(
        computed<std::int64_t>(session, TypeKind::Long, Op::Multiply, std::int64_t(1) << 40, std::int64_t(1) << 20),
        std::int64_t(1) << 60);
    EXPECT_EQ(computed<double>(session, TypeKind::Double, Op::Divide, 1, 4), 0.25);
    EXPECT_EQ(computed<double>(session, TypeKind::Double, Op::FloorDivide, -7, 2), -4);
    EXPECT_EQ(computed<double>(session, TypeKind::Double, Op::Remainder, -7, 3), 2);
    EXPECT_EQ(computed<double>(session, TypeKind::Double, Op::Power, 2, -1), 0.5);
    EXPECT_TRUE(std::isinf(computed<double>(session, TypeKind::Double, Op::Divide, 1, 0)));
    EXPECT_EQ(computed<float>(session, TypeKind::Float, Op::Subtract, 1.5f, 0.25f), 1.25f);
    EXPECT_EQ(computed<float>(session, TypeKind::Float, Op::Remainder, -1.0f, 3.0f), 2.0f);
}

TEST_F(Lowering, FailingArithmeticPanicsAtItsLine) {
    EXPECT_EXIT(computed(session, TypeKind::Int, Op::Divide, 1, 0), testing::ExitedWithCode(101),
                "/test/sample.vk:1: panic: division by zero");
    EXPECT_EXIT(computed(session, TypeKind::Int, Op::Remainder, 1, 0), testing::ExitedWithCode(101),
                "division by zero");
    EXPECT_EXIT(computed<std::uint64_t>(session, TypeKind::ULong, Op::FloorDivide, 1, 0), testing::ExitedWithCode(101),
                "division by zero");
    EXPECT_EXIT(computed(session, TypeKind::Int, Op::Power, 1, -1), testing::ExitedWithCode(101), "negative exponent");
}

TEST_F(Lowering, Comparisons) {
    const double nan = std::nan("");
    struct Case {
        Cmp op;
        double left, right;
        bool result;
    };
    for (auto [op, left, right, result] : {Case{Cmp::Less, 1, 2, true},
                                           {Cmp::Less, nan, 2, false},
                                           {Cmp::NotEqual, nan, nan, true},
                                           {Cmp::Equal, nan, nan, false},
                                           {Cmp::GreaterEqual, 2, 2, true},
                                           {Cmp::LessEqual, 3, 2, false}}) {
        SampleModule own(session);
        auto *a = own.variable("a", type(TypeKind::Double)), *b = own.variable("b", type(TypeKind::Double));
        own.define("f", type(TypeKind::Bool), {a, b}, {own.giveBack(own.compare(op, own.read(a), own.read(b)))});
        Jit jit(OptimizationLevel::O0);
        jit.add(own.finish());
        EXPECT_EQ(reinterpret_cast<bool (*)(double, double)>(jit.lookup("f"))(left, right), result)
            << int(op) << " " << left << " " << right;
    }
    // Bytes have no sign, signed bytes have one.
    for (TypeKind kind : {TypeKind::Byte, TypeKind::SByte}) {
        SampleModule own(session);
        auto *a = own.variable("a", type(kind)), *b = own.variable("b", type(kind));
        own.define("f", type(TypeKind::Bool), {a, b}, {own.giveBack(own.compare(Cmp::Less, own.read(a), own.read(b)))});
        Jit jit(OptimizationLevel::O0);
        jit.add(own.finish());
        EXPECT_EQ(reinterpret_cast<bool (*)(std::uint8_t, std::uint8_t)>(jit.lookup("f"))(200, 100),
                  kind == TypeKind::SByte);
    }
}

template <class From, class To>
To converted(CompileSession& session, ConversionKind conversion, TypeKind from, TypeKind to, From value) {
    SampleModule sample(session);
    auto* a = sample.variable("a", sample.type(from));
    sample.define("f", sample.type(to), {a},
                  {sample.giveBack(sample.convert(conversion, sample.read(a), sample.type(to)))});
    Jit jit(OptimizationLevel::O0);
    jit.add(sample.finish());
    return reinterpret_cast<To (*)(From)>(jit.lookup("f"))(value);
}

TEST_F(Lowering, Conversions) {
    using K = ConversionKind;
    using T = TypeKind;
    EXPECT_EQ((converted<std::int8_t, std::int64_t>(session, K::Widen, T::SByte, T::Long, -5)), -5);
    EXPECT_EQ((converted<std::uint8_t, std::int32_t>(session, K::Widen, T::Byte, T::Int, 250)), 250);
    EXPECT_EQ((converted<std::uint32_t, std::int64_t>(session, K::Widen, T::UInt, T::Long, 4000000000u)), 4000000000);
    EXPECT_EQ((converted<std::int32_t, std::uint8_t>(session, K::Narrow, T::Int, T::Byte, 300)), 44);
    EXPECT_EQ((converted<std::int32_t, std::uint32_t>(session, K::Narrow, T::Int, T::UInt, -1)), 0xFFFFFFFFu);
    EXPECT_EQ(
        (converted<std::uint64_t, double>(session, K::IntegerToFloating, T::ULong, T::Double, std::uint64_t(1) << 63)),
        9223372036854775808.0);
    EXPECT_EQ((converted<double, std::int32_t>(session, K::FloatingToInteger, T::Double, T::Int, 1e30)), MAX);
    EXPECT_EQ((converted<double, std::int32_t>(session, K::FloatingToInteger, T::Double, T::Int, -1e30)), MIN);
    EXPECT_EQ((converted<double, std::int32_t>(session, K::FloatingToInteger, T::Double, T::Int, std::nan(""))), 0);
    EXPECT_EQ((converted<double, std::int32_t>(session, K::FloatingToInteger, T::Double, T::Int, -2.9)), -2);
    EXPECT_EQ((converted<double, std::uint8_t>(session, K::FloatingToInteger, T::Double, T::Byte, 256)), 255);
    EXPECT_EQ((converted<float, std::uint64_t>(session, K::FloatingToInteger, T::Float, T::ULong, -1)), 0u);
    EXPECT_EQ((converted<float, double>(session, K::FloatingResize, T::Float, T::Double, 0.5f)), 0.5);
    EXPECT_EQ((converted<double, float>(session, K::FloatingResize, T::Double, T::Float, 0.1)), 0.1f);
}

TEST_F(Lowering, BoxingRoundTripAndItsFailure) {
    const Type *integer = type(TypeKind::Int), *object = type(TypeKind::Object);
    auto* a = sample.variable("a", integer);
    auto* boxed = sample.convert(ConversionKind::Box, sample.read(a), object);
    sample.define("good", integer, {a}, {sample.giveBack(sample.convert(ConversionKind::Unbox, boxed, integer))});
    auto* b = sample.variable("b", integer);
    auto* other = sample.convert(ConversionKind::Box, sample.read(b), object);
    sample.define("bad", type(TypeKind::Long), {b},
                  {sample.giveBack(sample.convert(ConversionKind::Unbox, other, type(TypeKind::Long)))});
    Jit jit(OptimizationLevel::O0);
    jit.add(sample.finish());
    EXPECT_EQ(reinterpret_cast<int (*)(int)>(jit.lookup("good"))(-12), -12);
    EXPECT_EXIT(reinterpret_cast<std::int64_t (*)(int)>(jit.lookup("bad"))(1), testing::ExitedWithCode(101),
                "cannot cast Int to Long");
}

// while, for, break, continue, variables that are assigned and such that are not.
class Loops : public Lowering {};

TEST_P(Loops, SumWithBreakAndContinue) {
    const Type* integer = type(TypeKind::Int);
    auto *n = sample.variable("n", integer), *sum = sample.variable("sum", integer), *i = sample.variable("i", integer);
    auto* skip = sample.make<IfStatement>(
        IfStatement{{StatementKind::If, {}},
                    sample.compare(Cmp::Equal, sample.read(i), sample.number(3)),
                    sample.block({sample.make<Statement>(Statement{StatementKind::Continue, {}})}),
                    nullptr});
    auto* stop = sample.make<IfStatement>(
        IfStatement{{StatementKind::If, {}},
                    sample.compare(Cmp::Equal, sample.read(i), sample.number(6)),
                    sample.block({sample.make<Statement>(Statement{StatementKind::Break, {}})}),
                    nullptr});
    auto* add = sample.assign(sum, sample.arithmetic(Op::Add, sample.read(sum), sample.read(i)));
    auto* loop = sample.make<ForRange>(
        ForRange{{StatementKind::ForRange, {}}, i, sample.number(0), sample.read(n), sample.block({skip, stop, add})});
    sample.define("f", integer, {n}, {sample.declare(sum, sample.number(0)), loop, sample.giveBack(sample.read(sum))});
    Jit jit(GetParam());
    jit.add(sample.finish());
    auto* f = reinterpret_cast<int (*)(int)>(jit.lookup("f"));
    EXPECT_EQ(f(0), 0);
    EXPECT_EQ(f(-5), 0);
    EXPECT_EQ(f(3), 0 + 1 + 2);
    EXPECT_EQ(f(5), 0 + 1 + 2 + 4);
    EXPECT_EQ(f(100), 0 + 1 + 2 + 4 + 5);
}

// An assigned parameter is a variable like any other.
TEST_P(Loops, WhileOverAnAssignedParameter) {
    const Type* integer = type(TypeKind::Int);
    auto *n = sample.variable("n", integer), *count = sample.variable("count", integer);
    auto* halve = sample.assign(n, sample.arithmetic(Op::Divide, sample.read(n), sample.number(2)));
    auto* step = sample.assign(count, sample.arithmetic(Op::Add, sample.read(count), sample.number(1)));
    auto* loop =
        sample.make<WhileStatement>(WhileStatement{{StatementKind::While, {}},
                                                   sample.compare(Cmp::Greater, sample.read(n), sample.number(0)),
                                                   sample.block({halve, step})});
    sample.define("f", integer, {n}, {sample.declare(count, nullptr), loop, sample.giveBack(sample.read(count))});
    Jit jit(GetParam());
    jit.add(sample.finish());
    auto* f = reinterpret_cast<int (*)(int)>(jit.lookup("f"));
    EXPECT_EQ(f(0), 0);
    EXPECT_EQ(f(1), 1);
    EXPECT_EQ(f(1024), 11);
}

// A closure sees later changes of what it captured, and its own changes are seen outside, also after the function has ended.
TEST_P(Loops, ClosuresShareTheirVariables) {
    const Type *integer = type(TypeKind::Int), *counter = session.types().function({integer}, integer);
    auto *start = sample.variable("start", integer), *total = sample.variable("total", integer),
         *by = sample.variable("by", integer);
    total->isCaptured = start->isCaptured = true;
    auto* lambda = sample.make<TypedLambda*>(new TypedLambda);
    std::unique_ptr<TypedLambda> owned(*lambda);
    owned->symbol = owned->displayName = "make.lambda1";
    owned->parameters = {by};
    owned->captures = {total, start};
    owned->returnType = integer;
    owned->body = sample.block({sample.assign(total, sample.arithmetic(Op::Add, sample.read(total), sample.read(by))),
                                sample.giveBack(sample.arithmetic(Op::Add, sample.read(total), sample.read(start)))});
    auto* value = sample.make<LambdaExpression>(LambdaExpression{{ExpressionKind::Lambda, counter, {}}, owned.get()});
    auto* made = sample.variable("made", counter);
    FunctionInstance* make = sample.instance("make", counter, {start});
    sample.define(make, {start},
                  {sample.declare(total, sample.number(100)), sample.declare(made, value),
                   sample.assign(total, sample.arithmetic(Op::Add, sample.read(total), sample.number(1))),
                   sample.giveBack(sample.read(made))},
                  {owned.get()});
    auto* f = sample.variable("f", counter);
    auto callIt = [&](int amount) {
        return sample.make<ClosureCall>(ClosureCall{{ExpressionKind::ClosureCall, integer, {}},
                                                    sample.read(f),
                                                    sample.list<Expression>({sample.number(amount)})});
    };
    sample.define("use", integer, {},
                  {sample.declare(f, sample.call(make, {sample.number(1000)})), sample.evaluate(callIt(10)),
                   sample.giveBack(callIt(20))});
    Jit jit(GetParam());
    jit.add(sample.finish());
    EXPECT_EQ(reinterpret_cast<int (*)()>(jit.lookup("use"))(), 1000 + 101 + 10 + 20);
}

TEST_P(Loops, ArraysAreCheckedAndKeepTheirWidth) {
    const Type *byte = type(TypeKind::Byte), *integer = type(TypeKind::Int), *bytes = session.types().array(byte);
    auto *n = sample.variable("n", integer), *array = sample.variable("array", bytes),
         *each = sample.variable("each", byte), *sum = sample.variable("sum", integer);
    auto* create = sample.make<NewArray>(NewArray{{ExpressionKind::NewArray, bytes, {}}, sample.number(3)});
    auto* set = sample.make<AssignElement>(AssignElement{
        {StatementKind::AssignElement, {7, 1}}, sample.read(array), sample.read(n), sample.integer(byte, 200)});
    auto* add =
        sample.assign(sum, sample.arithmetic(Op::Add, sample.read(sum),
                                             sample.convert(ConversionKind::Widen, sample.read(each), integer)));
    auto* loop =
        sample.make<ForArray>(ForArray{{StatementKind::ForArray, {}}, each, sample.read(array), sample.block({add})});
    sample.define(
        "f", integer, {n},
        {sample.declare(array, create), set, sample.declare(sum, nullptr), loop, sample.giveBack(sample.read(sum))});
    Jit jit(GetParam());
    jit.add(sample.finish());
    auto* f = reinterpret_cast<int (*)(int)>(jit.lookup("f"));
    EXPECT_EQ(f(0), 200);
    EXPECT_EQ(f(2), 200);
    EXPECT_EXIT(f(3), testing::ExitedWithCode(101), "sample.vk:7: panic: index 3 out of range for length 3");
    EXPECT_EXIT(f(-1), testing::ExitedWithCode(101), "index -1 out of range for length 3");
}

TEST_P(Loops, NullElementsPanicWhenTheyAreRead) {
    const Type *string = type(TypeKind::String), *strings = session.types().array(string);
    auto* create = sample.make<NewArray>(NewArray{{ExpressionKind::NewArray, strings, {}}, sample.number(1)});
    auto* element =
        sample.make<ElementRead>(ElementRead{{ExpressionKind::ElementRead, string, {4, 1}}, create, sample.number(0)});
    sample.define("f", string, {}, {sample.giveBack(element)});
    Jit jit(GetParam());
    jit.add(sample.finish());
    EXPECT_EXIT(reinterpret_cast<void* (*)()>(jit.lookup("f"))(), testing::ExitedWithCode(101),
                "sample.vk:4: panic: null element");
}

// The trace names the callers with the lines of their calls, also those that were inlined.
TEST_P(Loops, TracesNameCallers) {
    const Type* integer = type(TypeKind::Int);
    auto* a = sample.variable("a", integer);
    FunctionInstance* inner = sample.define(
        "inner", integer, {a}, {sample.giveBack(sample.arithmetic(Op::Divide, sample.number(1), sample.read(a), 11))});
    auto* b = sample.variable("b", integer);
    FunctionInstance* middle =
        sample.define("middle", integer, {b}, {sample.giveBack(sample.call(inner, {sample.read(b)}, 22))});
    sample.define("outer", integer, {}, {sample.giveBack(sample.call(middle, {sample.number(0)}, 33))});
    Jit jit(GetParam());
    jit.add(sample.finish());
    EXPECT_EXIT(reinterpret_cast<int (*)()>(jit.lookup("outer"))(), testing::ExitedWithCode(101),
                "/test/sample.vk:11: panic: division by zero\n    at middle \\(/test/sample.vk:22\\)\n    at outer "
                "\\(/test/sample.vk:33\\)\n");
}

INSTANTIATE_TEST_SUITE_P(Levels, Loops,
                         testing::Values(OptimizationLevel::O0, OptimizationLevel::O1, OptimizationLevel::O2,
                                         OptimizationLevel::O3),
                         [](const auto& level) { return "O" + std::to_string(int(level.param)); });

// Chains of any length are followed in a loop.
TEST_F(Lowering, LongChains) {
    const Type *integer = type(TypeKind::Int), *truth = type(TypeKind::Bool);
    constexpr int LENGTH = 100000;
    auto *a = sample.variable("a", integer), *b = sample.variable("b", truth);
    Expression* sum = sample.read(a);
    for (int i = 0; i < LENGTH; i++) sum = sample.arithmetic(Op::Add, sum, sample.read(a));
    sample.define("sum", integer, {a}, {sample.giveBack(sum)});
    Expression* all = sample.read(b);
    for (int i = 0; i < LENGTH / 10; i++)
        all = sample.make<Binary>(Binary{{ExpressionKind::And, truth, {}}, all, sample.read(b)});
    sample.define("all", truth, {b}, {sample.giveBack(all)});
    auto* n = sample.variable("n", integer);
    IfStatement* chain = nullptr;
    for (int i = LENGTH / 10; i > 0; i--)
        chain = sample.make<IfStatement>(IfStatement{{StatementKind::If, {}},
                                                     sample.compare(Cmp::Equal, sample.read(n), sample.number(i)),
                                                     sample.block({sample.giveBack(sample.number(i))}),
                                                     chain});
    sample.define("find", integer, {n}, {chain, sample.giveBack(sample.number(-1))});
    Jit jit(OptimizationLevel::O0);
    jit.add(sample.finish());
    EXPECT_EQ(reinterpret_cast<int (*)(int)>(jit.lookup("sum"))(3), 3 * (LENGTH + 1));
    EXPECT_TRUE(reinterpret_cast<bool (*)(bool)>(jit.lookup("all"))(true));
    EXPECT_EQ(reinterpret_cast<int (*)(int)>(jit.lookup("find"))(777), 777);
    EXPECT_EQ(reinterpret_cast<int (*)(int)>(jit.lookup("find"))(0), -1);
}

// What nothing assigns is a value; failing checks lie behind the straight way.
TEST_F(Lowering, CodeIsShort) {
    const Type* integer = type(TypeKind::Int);
    auto *a = sample.variable("a", integer), *b = sample.variable("b", integer);
    sample.define("f", integer, {a},
                  {sample.declare(b, sample.arithmetic(Op::Add, sample.read(a), sample.number(1))),
                   sample.giveBack(sample.arithmetic(Op::Divide, sample.read(b), sample.read(a)))});
    std::string il = printIL(*sample.finish());
    EXPECT_EQ(il.find("alloca"), il.npos);
    EXPECT_LT(il.find("ret i32"), il.find("call void @vesk_rt_panic_division"));
}

TEST_F(Lowering, TextsAreMadeOncePerModule) {
    const Type* string = type(TypeKind::String);
    sample.define("f", string, {}, {sample.giveBack(sample.text("häß"))});
    sample.define("g", string, {}, {sample.giveBack(sample.text("häß"))});
    sample.define("h", string, {}, {sample.giveBack(sample.text(""))});
    std::string il = printIL(*sample.finish());
    std::size_t first = il.find("i64 5, i64 3");
    EXPECT_NE(first, il.npos);
    EXPECT_EQ(il.find("i64 5, i64 3", first + 1), il.npos);
}

TEST_F(Lowering, ConcatJoinsAnyNumber) {
    const Type* string = type(TypeKind::String);
    for (int count = 2; count <= 6; count++) {
        SampleModule own(session);
        std::vector<Expression*> parts(std::size_t(count), own.text("ab"));
        parts[1] = own.make<NullConstant>(NullConstant{{ExpressionKind::NullConstant, string, {}}});
        auto* joined = own.make<Concat>(Concat{{ExpressionKind::Concat, string, {}}, own.list(parts)});
        own.define("f", string, {}, {own.giveBack(joined)});
        Jit jit(OptimizationLevel::O0);
        jit.add(own.finish());
        auto* text = reinterpret_cast<const char* (*)()>(jit.lookup("f"))();
        EXPECT_EQ(std::string(text + 24).size(), std::size_t(4 + 2 * (count - 1)));
    }
}

}  // namespace
}  // namespace vesk::compiler
