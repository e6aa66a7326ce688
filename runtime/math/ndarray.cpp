// NDArray: numbers in a block, row by row, with a shape. Element-wise work and matrix products are Eigen's.
#include "runtime/math/ndarray.h"

#include <Eigen/Core>
#include <algorithm>
#include <limits>
#include <numeric>
#include <string>
#include <string_view>

#include "runtime/collections/element_reader.h"
#include "runtime/collections/element_type.h"
#include "runtime/collections/list_storage.h"
#include "runtime/collections/native_methods.h"
#include "runtime/memory.h"
#include "runtime/panic.h"
#include "runtime/records.h"
#include "runtime/strings.h"

namespace vesk::runtime {
namespace {

template <class T>
using Vector = Eigen::Map<Eigen::Array<T, Eigen::Dynamic, 1>>;
template <class T>
using Matrix = Eigen::Map<Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>>;

NDArrayObject& arrayOf(Object* self) { return received<NDArrayObject>(self); }

// Calls the action with float or double.
template <class Action>
decltype(auto) withFloat(Descriptor element, Action&& action) {
    if (valueKindOf(element) == ValueKind::Float) return action.template operator()<float>();
    if (valueKindOf(element) != ValueKind::Double)
        panic("NDArray holds Float or Double, not " + std::string(element->name));
    return action.template operator()<double>();
}

template <class T>
T* numbersOf(const NDArrayObject& array) {
    return reinterpret_cast<T*>(array.data);
}

template <class T>
Vector<T> vectorOf(const NDArrayObject& array) {
    return Vector<T>(numbersOf<T>(array), array.count);
}

std::string shapeText(const NDArrayObject& array) {
    std::string text = "[";
    for (std::int64_t i = 0; i < array.rank; i++) text += (i > 0 ? ", " : "") + std::to_string(array.shape[i]);
    return text + "]";
}

// Zeros of that shape.
void setShape(NDArrayObject& array, Descriptor element, const std::int64_t* shape, std::int64_t rank) {
    array.element = element;
    array.rank = rank;
    array.shape = static_cast<std::int64_t*>(allocateBytes(std::size_t(std::max<std::int64_t>(rank, 1)) * 8, true));
    array.count = 1;
    for (std::int64_t i = 0; i < rank; i++) {
        if (shape[i] < 0) panic("negative length in shape: " + std::to_string(shape[i]));
        array.shape[i] = shape[i];
        array.count *= shape[i];
        if (array.count > std::numeric_limits<std::int32_t>::max()) panic("an NDArray cannot hold that many elements");
    }
    array.data = ElementType(element).allocate(std::max<std::int64_t>(array.count, 1));
}

NDArrayObject& makeArray(Descriptor element, const ClassRecord* record, const std::int64_t* shape, std::int64_t rank) {
    NDArrayObject& array = *static_cast<NDArrayObject*>(vesk_rt_new(record));
    setShape(array, element, shape, rank);
    return array;
}

NDArrayObject& makeLike(const NDArrayObject& model, Descriptor element, const ClassRecord* record) {
    return makeArray(element, record, model.shape, model.rank);
}

// The Ints of a collection, as wide numbers.
struct Extents {
    std::int64_t* values;
    std::int64_t count;
};

Extents extentsOf(const Object* collection) {
    const ElementRun run = elementsOf(collection, ElementType(&vesk_class_Int.record));
    Extents extents{static_cast<std::int64_t*>(allocateBytes(std::size_t(run.length + 1) * 8, true)), run.length};
    for (std::int64_t i = 0; i < run.length; i++) extents.values[i] = loadElement<std::int32_t>(run.data + 4 * i);
    return extents;
}

bool haveOneShape(const NDArrayObject& first, const NDArrayObject& second) {
    return first.rank == second.rank && std::equal(first.shape, first.shape + first.rank, second.shape);
}

void checkShapes(const NDArrayObject& first, const NDArrayObject& second) {
    if (!haveOneShape(first, second))
        panic("shapes " + shapeText(first) + " and " + shapeText(second) + " do not match");
}

std::int64_t flatIndex(const NDArrayObject& array, const Object* indices) {
    const Extents at = extentsOf(indices);
    if (at.count != array.rank) panic(std::to_string(at.count) + " indices for an array of shape " + shapeText(array));
    std::int64_t flat = 0;
    for (std::int64_t i = 0; i < at.count; i++) {
        if (at.values[i] < 0 || at.values[i] >= array.shape[i])
            vesk_rt_panic_index(std::int32_t(at.values[i]), array.shape[i]);
        flat = flat * array.shape[i] + at.values[i];
    }
    return flat;
}

char* placeOf(Descriptor element, const NDArrayObject& array, std::int32_t index) {
    if (std::uint64_t(index) >= std::uint64_t(array.count)) vesk_rt_panic_index(index, array.count);
    return array.data + std::int64_t(index) * ElementType(element).width();
}

// result = operation(self, other) for arrays of one shape.
template <class Operation>
Object* combine(Descriptor t, const ClassRecord* record, Object* self, Object* other, Operation operation) {
    const NDArrayObject &first = arrayOf(self), &second = arrayOf(other);
    checkShapes(first, second);
    NDArrayObject& result = makeLike(first, t, record);
    withFloat(t, [&]<class T>() { vectorOf<T>(result) = operation(vectorOf<T>(first), vectorOf<T>(second)); });
    return &result;
}

// result = operation(self, number)
template <class Operation>
Object* combineWithNumber(Descriptor t, const ClassRecord* record, Object* self, const void* number,
                          Operation operation) {
    const NDArrayObject& array = arrayOf(self);
    NDArrayObject& result = makeLike(array, t, record);
    withFloat(t, [&]<class T>() { vectorOf<T>(result) = operation(vectorOf<T>(array), loadElement<T>(number)); });
    return &result;
}

template <class Reduction>
void reduce(Descriptor t, void* result, Object* self, Reduction reduction) {
    const NDArrayObject& array = arrayOf(self);
    if (array.count == 0) panic("the array is empty");
    withFloat(t, [&]<class T>() {
        const T reduced = reduction(vectorOf<T>(array));
        std::memcpy(result, &reduced, sizeof reduced);
    });
}

// Brackets close and open where a row, a matrix and so on ends.
std::string textOf(const NDArrayObject& array, const ElementType& type) {
    std::string text(std::size_t(array.rank), '[');
    for (std::int64_t i = 0; i < array.count; i++) {
        if (i > 0) {
            std::size_t ended = 0;
            for (std::int64_t axis = array.rank, block = 1; axis-- > 1 && i % (block *= array.shape[axis]) == 0;)
                ended++;
            text.append(ended, ']').append(", ").append(ended, '[');
        }
        type.appendText(text, array.data + i * type.width());
    }
    return text + std::string(std::size_t(array.rank), ']');
}

}  // namespace

unsigned ndarrayInstanceSize(std::string_view qualifiedName) {
    return qualifiedName == "vesk.math.NDArray" ? sizeof(NDArrayObject) : 0;
}

extern "C" {

void vesk_math_NDArray_init(Descriptor t, Object* self, const Object* shape) {
    const Extents extents = extentsOf(shape);
    withFloat(t, []<class T>() {});
    setShape(arrayOf(self), t, extents.values, extents.count);
}

std::int32_t vesk_math_NDArray_rank(Descriptor, Object* self) { return std::int32_t(arrayOf(self).rank); }

std::int32_t vesk_math_NDArray_extent(Descriptor, Object* self, std::int32_t axis) {
    const NDArrayObject& array = arrayOf(self);
    if (axis < 0 || axis >= array.rank) vesk_rt_panic_index(axis, array.rank);
    return std::int32_t(array.shape[axis]);
}

std::int32_t vesk_math_NDArray_size(Descriptor, Object* self) { return std::int32_t(arrayOf(self).count); }

// Takes the numbers of a collection, row by row.
void vesk_math_NDArray_assign(Descriptor t, Object* self, const Object* values) {
    NDArrayObject& array = arrayOf(self);
    const ElementType type(t);
    const ElementRun run = elementsOf(values, type);
    if (run.length != array.count)
        panic(std::to_string(run.length) + " values for an array of shape " + shapeText(array));
    if (run.length > 0) std::memcpy(array.data, run.data, std::size_t(run.length) * type.width());
}

void vesk_math_NDArray_operator_index(Descriptor t, void* result, Object* self, std::int32_t index) {
    copyElement(result, placeOf(t, arrayOf(self), index), ElementType(t).width());
}

void vesk_math_NDArray_operator_index__dup2(Descriptor t, void* result, Object* self, const Object* indices) {
    const NDArrayObject& array = arrayOf(self);
    const unsigned width = ElementType(t).width();
    copyElement(result, array.data + flatIndex(array, indices) * width, width);
}

void vesk_math_NDArray_operator_index_eq(Descriptor t, Object* self, std::int32_t index, const void* value) {
    copyElement(placeOf(t, arrayOf(self), index), value, ElementType(t).width());
}

void vesk_math_NDArray_operator_index_eq__dup2(Descriptor t, Object* self, const Object* indices, const void* value) {
    NDArrayObject& array = arrayOf(self);
    const unsigned width = ElementType(t).width();
    copyElement(array.data + flatIndex(array, indices) * width, value, width);
}

// The operators: for an array of the same shape, and (second overload) for one number.
#define VESK_NDARRAY_OPERATOR(NAME, OP)                                                                               \
    Object* vesk_math_NDArray_operator_##NAME(Descriptor t, const ClassRecord* record, Object* self, Object* other) { \
        return combine(t, record, self, other, [](const auto& a, const auto& b) { return a OP b; });                  \
    }                                                                                                                 \
    Object* vesk_math_NDArray_operator_##NAME##__dup2(Descriptor t, const ClassRecord* record, Object* self,          \
                                                      const void* number) {                                           \
        return combineWithNumber(t, record, self, number, [](const auto& a, auto b) { return a OP b; });              \
    }
VESK_NDARRAY_OPERATOR(plus, +)
VESK_NDARRAY_OPERATOR(minus, -)
VESK_NDARRAY_OPERATOR(mul, *)
VESK_NDARRAY_OPERATOR(div, /)
#undef VESK_NDARRAY_OPERATOR

// Matrix by matrix, or matrix by vector.
Object* vesk_math_NDArray_operator_matmul(Descriptor t, const ClassRecord* record, Object* self, Object* other) {
    const NDArrayObject &first = arrayOf(self), &second = arrayOf(other);
    if (first.rank != 2 || (second.rank != 1 && second.rank != 2) || first.shape[1] != second.shape[0])
        panic("arrays of shapes " + shapeText(first) + " and " + shapeText(second) +
              " cannot be multiplied as matrices");
    const std::int64_t rows = first.shape[0], inner = first.shape[1], columns = second.rank == 2 ? second.shape[1] : 1;
    const std::int64_t shape[] = {rows, columns};
    NDArrayObject& product = makeArray(t, record, shape, second.rank);
    withFloat(t, [&]<class T>() {
        Matrix<T>(numbersOf<T>(product), rows, columns).noalias() =
            Matrix<T>(numbersOf<T>(first), rows, inner) * Matrix<T>(numbersOf<T>(second), inner, columns);
    });
    return &product;
}

Object* vesk_math_NDArray_transposed(Descriptor t, const ClassRecord* record, Object* self) {
    const NDArrayObject& array = arrayOf(self);
    if (array.rank != 2) panic("an array of shape " + shapeText(array) + " is no matrix");
    const std::int64_t shape[] = {array.shape[1], array.shape[0]};
    NDArrayObject& result = makeArray(t, record, shape, 2);
    withFloat(t, [&]<class T>() {
        Matrix<T>(numbersOf<T>(result), shape[0], shape[1]) =
            Matrix<T>(numbersOf<T>(array), shape[1], shape[0]).transpose();
    });
    return &result;
}

Object* vesk_math_NDArray_reshaped(Descriptor t, const ClassRecord* record, Object* self, const Object* shape) {
    const NDArrayObject& array = arrayOf(self);
    const Extents extents = extentsOf(shape);
    NDArrayObject& result = makeArray(t, record, extents.values, extents.count);
    if (result.count != array.count)
        panic("an array of shape " + shapeText(array) + " cannot take the shape " + shapeText(result));
    std::memcpy(result.data, array.data, std::size_t(array.count) * ElementType(t).width());
    return &result;
}

void vesk_math_NDArray_fill(Descriptor t, Object* self, const void* value) {
    NDArrayObject& array = arrayOf(self);
    withFloat(t, [&]<class T>() { vectorOf<T>(array).setConstant(loadElement<T>(value)); });
}

void vesk_math_NDArray_sum(Descriptor t, void* result, Object* self) {
    const NDArrayObject& array = arrayOf(self);
    withFloat(t, [&]<class T>() {
        const T sum = vectorOf<T>(array).sum();
        std::memcpy(result, &sum, sizeof sum);
    });
}

void vesk_math_NDArray_mean(Descriptor t, void* result, Object* self) {
    reduce(t, result, self, [](const auto& numbers) { return numbers.mean(); });
}

void vesk_math_NDArray_max(Descriptor t, void* result, Object* self) {
    reduce(t, result, self, [](const auto& numbers) { return numbers.template maxCoeff<Eigen::PropagateNaN>(); });
}

void vesk_math_NDArray_min(Descriptor t, void* result, Object* self) {
    reduce(t, result, self, [](const auto& numbers) { return numbers.template minCoeff<Eigen::PropagateNaN>(); });
}

Object* vesk_math_NDArray_mapped(Descriptor t, const ClassRecord* record, Object* self, const Closure* function) {
    const NDArrayObject& array = arrayOf(self);
    if (!function) vesk_rt_panic_null();
    NDArrayObject& result = makeLike(array, t, record);
    withFloat(t, [&]<class T>() {
        for (std::int64_t i = 0; i < array.count; i++)
            numbersOf<T>(result)[i] = callGenerated<T>(function->code, function, numbersOf<T>(array)[i]);
    });
    return &result;
}

// The numbers row by row, as an ArrayList.
Object* vesk_math_NDArray_toList(Descriptor t, const ClassRecord* record, Object* self) {
    const NDArrayObject& array = arrayOf(self);
    ListObject* list = vesk_rt_new_list(t, record, std::int32_t(array.count));
    if (array.count > 0) std::memcpy(list->data, array.data, std::size_t(array.count) * ElementType(t).width());
    return list;
}

String* vesk_math_NDArray_toString(Descriptor t, Object* self) {
    return makeString(textOf(arrayOf(self), ElementType(t)));
}

bool vesk_math_NDArray_equals(Descriptor t, Object* self, const Object* other) {
    const NDArrayObject& array = arrayOf(self);
    if (self == other) return true;
    if (!other) return false;
    const ClassRecord* own = other->record;
    while (own && std::string_view(own->name).substr(0, 18) != "vesk.math.NDArray<") own = own->super;
    if (!own) return false;
    const NDArrayObject& compared = *static_cast<const NDArrayObject*>(other);
    if (compared.element != t || !haveOneShape(array, compared)) return false;
    return withFloat(t, [&]<class T>() { return bool((vectorOf<T>(array) == vectorOf<T>(compared)).all()); });
}

std::int32_t vesk_math_NDArray_hashCode(Descriptor t, Object* self) {
    const NDArrayObject& array = arrayOf(self);
    const ElementType type(t);
    std::uint32_t hash = 1;
    for (std::int64_t i = 0; i < array.rank; i++) hash = hash * 31 + std::uint32_t(array.shape[i]);
    for (std::int64_t i = 0; i < array.count; i++)
        hash = hash * 31 + std::uint32_t(type.hashCode(array.data + i * type.width()));
    return std::int32_t(hash);
}

}  // extern "C"
}  // namespace vesk::runtime
