// NDArray against plain loops; shapes that do not fit; the functions of Math.
#include <numeric>

#include "runtime/collections/native_calls_test.h"

namespace vesk::runtime {
namespace {

const ClassRecord* const D = &vesk_class_Double.record;

Object* listOf(const std::vector<double>& values) {
    Object* list = newCollection("ArrayList", "Double", D);
    for (double value : values)
        callNative<bool>("vesk_collections_ArrayList_add", D, list, static_cast<const void*>(&value));
    return list;
}

Object* intsOf(const std::vector<int>& values) {
    Object* list = newCollection("ArrayList", "Int", &vesk_class_Int.record);
    for (std::int32_t value : values)
        callNative<bool>("vesk_collections_ArrayList_add", &vesk_class_Int.record, list,
                         static_cast<const void*>(&value));
    return list;
}

Object* array(const std::vector<int>& shape, const std::vector<double>& values) {
    startMemory();
    Object* made = vesk_rt_new(collectionRecord("NDArray", "Double").get());
    callNative<void>("vesk_math_NDArray_init", D, made, static_cast<const Object*>(intsOf(shape)));
    callNative<void>("vesk_math_NDArray_assign", D, made, static_cast<const Object*>(listOf(values)));
    return made;
}

std::vector<double> counted(std::int64_t count, double start = 1) {
    std::vector<double> values(static_cast<std::size_t>(count));
    std::iota(values.begin(), values.end(), start);
    return values;
}

template <class... Arguments>
Object* combined(const char* method, Object* self, Arguments... arguments) {
    return callNative<Object*>(std::string("vesk_math_NDArray_") + method, D, self->record, self, arguments...);
}

double number(const char* method, Object* self) {
    double result = 0;
    callNative<void>(std::string("vesk_math_NDArray_") + method, D, static_cast<void*>(&result), self);
    return result;
}

std::vector<double> content(Object* self) {
    return iterated<Doubles>(
        callNative<Object*>("vesk_math_NDArray_toList", D, collectionRecord("ArrayList", "Double").get(), self));
}

TEST(NDArray, TextShowsTheShape) {
    EXPECT_EQ(viewOf(vesk_rt_text(array({3}, {1, 2, 3}))), "[1.0, 2.0, 3.0]");
    EXPECT_EQ(viewOf(vesk_rt_text(array({2, 2}, {1, 2, 3, 4.5}))), "[[1.0, 2.0], [3.0, 4.5]]");
    EXPECT_EQ(viewOf(vesk_rt_text(array({2, 1, 2}, {1, 2, 3, 4}))), "[[[1.0, 2.0]], [[3.0, 4.0]]]");
    EXPECT_EQ(viewOf(vesk_rt_text(array({0}, {}))), "[]");
}

TEST(NDArray, ElementsByIndex) {
    Object* made = array({2, 3}, counted(6));
    EXPECT_EQ(callNative<std::int32_t>("vesk_math_NDArray_rank", D, made), 2);
    EXPECT_EQ(callNative<std::int32_t>("vesk_math_NDArray_extent", D, made, 1), 3);
    EXPECT_EQ(callNative<std::int32_t>("vesk_math_NDArray_size", D, made), 6);
    double result = 0, nine = 9;
    void* to = &result;
    callNative<void>("vesk_math_NDArray_operator_index", D, to, made, 4);
    EXPECT_EQ(result, 5);
    const Object* place = intsOf({1, 2});
    callNative<void>("vesk_math_NDArray_operator_index__dup2", D, to, made, place);
    EXPECT_EQ(result, 6);
    callNative<void>("vesk_math_NDArray_operator_index_eq__dup2", D, made, place, static_cast<const void*>(&nine));
    callNative<void>("vesk_math_NDArray_operator_index_eq", D, made, 0, static_cast<const void*>(&nine));
    EXPECT_EQ(content(made), (std::vector<double>{9, 2, 3, 4, 5, 9}));
    callNative<void>("vesk_math_NDArray_fill", D, made, static_cast<const void*>(&nine));
    EXPECT_EQ(number("sum", made), 54);
}

TEST(NDArray, ElementWise) {
    EXPECT_TRUE(rc::check([] {
        const int rows = *rc::gen::inRange(1, 8), columns = *rc::gen::inRange(1, 8);
        const std::vector<double> a = counted(rows * columns), b = counted(rows * columns, 3);
        Object *first = array({rows, columns}, a), *second = array({rows, columns}, b);
        const double two = 2;
        const void* scalar = &two;
        struct Row {
            const char* method;
            double (*operation)(double, double);
        };
        const Row operations[] = {{"operator_plus", [](double x, double y) { return x + y; }},
                                  {"operator_minus", [](double x, double y) { return x - y; }},
                                  {"operator_mul", [](double x, double y) { return x * y; }},
                                  {"operator_div", [](double x, double y) { return x / y; }}};
        for (const Row& row : operations) {
            std::vector<double> both, single;
            for (std::size_t i = 0; i < a.size(); i++) {
                both.push_back(row.operation(a[i], b[i]));
                single.push_back(row.operation(a[i], two));
            }
            RC_ASSERT(content(combined(row.method, first, second)) == both);
            RC_ASSERT(content(combined((std::string(row.method) + "__dup2").c_str(), first, scalar)) == single);
        }
        RC_ASSERT(number("sum", first) == std::accumulate(a.begin(), a.end(), 0.0));
        RC_ASSERT(number("max", first) == a.back());
        RC_ASSERT(number("min", first) == 1);
    }));
}

TEST(NDArray, Products) {
    EXPECT_TRUE(rc::check([] {
        const int rows = *rc::gen::inRange(1, 12), inner = *rc::gen::inRange(1, 12), columns = *rc::gen::inRange(1, 12);
        const std::vector<double> a = counted(rows * inner), b = counted(inner * columns, -4);
        Object* product = combined("operator_matmul", array({rows, inner}, a), array({inner, columns}, b));
        std::vector<double> expected(std::size_t(rows * columns), 0);
        for (int r = 0; r < rows; r++)
            for (int c = 0; c < columns; c++)
                for (int k = 0; k < inner; k++)
                    expected[std::size_t(r * columns + c)] +=
                        a[std::size_t(r * inner + k)] * b[std::size_t(k * columns + c)];
        RC_ASSERT(content(product) == expected);
        RC_ASSERT(callNative<std::int32_t>("vesk_math_NDArray_extent", D, product, 1) == columns);
    }));
    Object* vector = combined("operator_matmul", array({2, 2}, {1, 2, 3, 4}), array({2}, {1, 1}));
    EXPECT_EQ(viewOf(vesk_rt_text(vector)), "[3.0, 7.0]");
    EXPECT_EQ(viewOf(vesk_rt_text(combined("transposed", array({2, 3}, counted(6))))),
              "[[1.0, 4.0], [2.0, 5.0], [3.0, 6.0]]");
    Object* reshaped = combined("reshaped", array({2, 3}, counted(6)), static_cast<const Object*>(intsOf({3, 2})));
    EXPECT_EQ(viewOf(vesk_rt_text(reshaped)), "[[1.0, 2.0], [3.0, 4.0], [5.0, 6.0]]");
}

TEST(NDArray, Equality) {
    Object *first = array({2, 2}, counted(4)), *same = array({2, 2}, counted(4)), *flat = array({4}, counted(4));
    EXPECT_TRUE(vesk_rt_equals(first, same));
    EXPECT_EQ(vesk_rt_hash(first), vesk_rt_hash(same));
    EXPECT_FALSE(vesk_rt_equals(first, flat));
    EXPECT_FALSE(vesk_rt_equals(first, listOf({1})));
}

TEST(NDArrayDeathTest, ShapesAreChecked) {
    const auto panicsWith = testing::ExitedWithCode(101);
    Object *wide = array({2, 3}, counted(6)), *tall = array({3, 2}, counted(6));
    EXPECT_EXIT(combined("operator_plus", wide, tall), panicsWith, R"(shapes \[2, 3\] and \[3, 2\] do not match)");
    EXPECT_EXIT(combined("operator_matmul", wide, wide), panicsWith, "cannot be multiplied as matrices");
    EXPECT_EXIT(combined("transposed", array({2}, {1, 2})), panicsWith, R"(shape \[2\] is no matrix)");
    EXPECT_EXIT(array({2, 2}, {1}), panicsWith, R"(1 values for an array of shape \[2, 2\])");
    EXPECT_EXIT(array({-1}, {}), panicsWith, "negative length in shape: -1");
    EXPECT_EXIT(array({100000, 100000}, {}), panicsWith, "cannot hold that many elements");
    EXPECT_EXIT(combined("reshaped", wide, static_cast<const Object*>(intsOf({4}))), panicsWith,
                "cannot take the shape");
    double result;
    void* to = &result;
    EXPECT_EXIT(callNative<void>("vesk_math_NDArray_operator_index", D, to, wide, 6), panicsWith,
                "index 6 out of range for length 6");
    EXPECT_EXIT(callNative<void>("vesk_math_NDArray_operator_index__dup2", D, to, wide,
                                 static_cast<const Object*>(intsOf({0, 3}))),
                panicsWith, "index 3 out of range for length 3");
    EXPECT_EXIT(callNative<void>("vesk_math_NDArray_operator_index__dup2", D, to, wide,
                                 static_cast<const Object*>(intsOf({0}))),
                panicsWith, R"(1 indices for an array of shape \[2, 3\])");
    EXPECT_EXIT(number("mean", array({0}, {})), panicsWith, "the array is empty");
}

TEST(Math, Functions) {
    struct Row {
        const char* name;
        double argument, result;
    };
    const Row rows[] = {{"sqrt", 9, 3},     {"cbrt", 27, 3},     {"exp", 0, 1},       {"log", 1, 0},
                        {"log2", 8, 3},     {"log10", 100, 2},   {"sin", 0, 0},       {"cos", 0, 1},
                        {"tan", 0, 0},      {"asin", 0, 0},      {"acos", 1, 0},      {"atan", 0, 0},
                        {"sinh", 0, 0},     {"cosh", 0, 1},      {"tanh", 0, 0},      {"floor", -1.5, -2},
                        {"ceil", -1.5, -1}, {"trunc", -1.5, -1}, {"round", -1.5, -2}, {"abs__dup3", -2.5, 2.5}};
    for (const Row& row : rows)
        EXPECT_DOUBLE_EQ(callNative<double>(std::string("vesk_math_Math_") + row.name, row.argument), row.result)
            << row.name;
    EXPECT_EQ(callNative<double>("vesk_math_Math_pow", 2.0, 10.0), 1024);
    EXPECT_EQ(callNative<double>("vesk_math_Math_hypot", 3.0, 4.0), 5);
    EXPECT_EQ(callNative<double>("vesk_math_Math_atan2", 0.0, 1.0), 0);
    EXPECT_EQ(callNative<std::int32_t>("vesk_math_Math_abs", -2147483647 - 1), -2147483647 - 1);
    EXPECT_EQ(callNative<std::int32_t>("vesk_math_Math_max", 2, 3), 3);
    EXPECT_EQ(callNative<std::int64_t>("vesk_math_Math_min__dup2", std::int64_t(2), std::int64_t(3)), 2);
    EXPECT_TRUE(std::isnan(callNative<double>("vesk_math_Math_max__dup3", 1.0, std::nan(""))));
    EXPECT_TRUE(std::isnan(callNative<double>("vesk_math_Math_min__dup3", std::nan(""), 1.0)));
    EXPECT_TRUE(callNative<bool>("vesk_math_Math_isNaN", std::nan("")));
}

}  // namespace
}  // namespace vesk::runtime
