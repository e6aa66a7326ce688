// Lists against std::vector under random operations, and their failures.
#include <algorithm>
#include <thread>

#include "runtime/collections/list_storage.h"
#include "runtime/collections/native_calls_test.h"

namespace vesk::runtime {
namespace {

struct Step {
    int operation;
    int seed;   // which value
    int place;  // which index, counted in thousandths of the length
};

std::vector<Step> anySteps(int operations) {
    return *rc::gen::container<std::vector<Step>>(rc::gen::construct<Step>(
        rc::gen::inRange(0, operations), rc::gen::inRange(-20, 20), rc::gen::inRange(0, 1000)));
}

// A list of a class under test together with its model.
template <class Elements>
struct ListUnderTest {
    using Value = typename Elements::Value;
    using Model = typename Elements::Model;

    std::string className;
    Object* list;
    std::vector<Model> model;

    explicit ListUnderTest(std::string name)
        : className(std::move(name)), list(newCollection(className, Elements::NAME, Elements::descriptor())) {}

    std::string symbol(const char* method) const { return "vesk_collections_" + className + "_" + method; }
    template <class R, class... Arguments>
    R call(const char* method, Arguments... arguments) const {
        return callNative<R>(symbol(method), Elements::descriptor(), list, arguments...);
    }
    template <class... Arguments>
    Model callForElement(const char* method, Arguments... arguments) const {
        Value result{};
        callNative<void>(symbol(method), Elements::descriptor(), static_cast<void*>(&result), list, arguments...);
        return Elements::modelOf(result);
    }
    template <class R, class... Arguments>
    R callWithItem(const char* method, int seed, Arguments... before) const {
        Value item = Elements::make(seed);
        return callNative<R>(symbol(method), Elements::descriptor(), list, before..., static_cast<const void*>(&item));
    }
    std::vector<Model> content() const { return iterated<Elements>(list); }

    std::string modelText() const {
        std::string shown = "[";
        for (std::size_t i = 0; i < model.size(); i++) {
            if (i > 0) shown += ", ";
            shown += shownText<Elements>(reinterpret_cast<const Value*>(static_cast<ListObject*>(list)->data)[i]);
        }
        return shown + "]";
    }

    void checkReading(int seed) const {
        RC_ASSERT(content() == model);
        RC_ASSERT(call<std::int32_t>("size") == std::int32_t(model.size()));
        RC_ASSERT(call<bool>("isEmpty") == model.empty());
        const Model wanted = Elements::model(seed);
        const auto first = std::find(model.begin(), model.end(), wanted);
        const auto last = std::find(model.rbegin(), model.rend(), wanted);
        const bool isThere = first != model.end();
        RC_ASSERT(callWithItem<bool>("contains", seed) == isThere);
        RC_ASSERT(callWithItem<std::int32_t>("indexOf", seed) == (isThere ? std::int32_t(first - model.begin()) : -1));
        RC_ASSERT(callWithItem<std::int32_t>("lastIndexOf", seed) ==
                  (isThere ? std::int32_t(model.rend() - last) - 1 : -1));
        for (std::size_t i = 0; i < model.size(); i++) {
            RC_ASSERT(callForElement("get", std::int32_t(i)) == model[i]);
            RC_ASSERT(callForElement("operator_index", std::int32_t(i)) == model[i]);
        }
        RC_ASSERT(viewOf(call<const String*>("toString")) == modelText());
    }

    void apply(const Step& step) {
        const std::int32_t length = std::int32_t(model.size());
        const std::int32_t index = length * step.place / 1000;
        const Model value = Elements::model(step.seed);
        switch (step.operation) {
            case 0:
            case 1:
                RC_ASSERT(callWithItem<bool>("add", step.seed));
                model.push_back(value);
                break;
            case 2:
                callWithItem<void>("insert", step.seed, index);
                model.insert(model.begin() + index, value);
                break;
            case 3: {
                const auto found = std::find(model.begin(), model.end(), value);
                RC_ASSERT(callWithItem<bool>("remove", step.seed) == (found != model.end()));
                if (found != model.end()) model.erase(found);
                break;
            }
            case 4:
                callWithItem<void>("insert", step.seed, 0);
                model.insert(model.begin(), value);
                break;
            case 5:
                call<void>("sort");
                std::stable_sort(model.begin(), model.end());
                break;
            case 6:
                call<void>("reverse");
                std::reverse(model.begin(), model.end());
                break;
            case 7:
                if (step.place < 100) {
                    call<void>("clear");
                    model.clear();
                }
                break;
            case 8: {  // the list itself, or another list
                const bool isItself = step.place < 300;
                Object* other = isItself ? list : otherList(step);
                const std::vector<Model> added = iterated<Elements>(other);
                RC_ASSERT(call<bool>("addAll", static_cast<const Object*>(other)) == !added.empty());
                model.insert(model.end(), added.begin(), added.end());
                break;
            }
            case 9:
                callWithItem<void>("fill", step.seed);
                std::fill(model.begin(), model.end(), value);
                break;
            default: applyToElement(step, index, value);
        }
    }

    // Operations that need an element.
    void applyToElement(const Step& step, std::int32_t index, const Model& value) {
        if (model.empty()) return;
        switch (step.operation) {
            case 10:
                callWithItem<void>("set", step.seed, index);
                model[std::size_t(index)] = value;
                break;
            case 11:
                callWithItem<void>("operator_index_eq", step.seed, index);
                model[std::size_t(index)] = value;
                break;
            case 12:
                RC_ASSERT(callForElement("removeAt", index) == model[std::size_t(index)]);
                model.erase(model.begin() + index);
                break;
            case 13:
                RC_ASSERT(callForElement("first") == model.front());
                RC_ASSERT(callForElement("removeFirst") == model.front());
                model.erase(model.begin());
                break;
            default:
                RC_ASSERT(callForElement("last") == model.back());
                RC_ASSERT(callForElement("removeLast") == model.back());
                model.pop_back();
        }
    }

    Object* otherList(const Step& step) const {
        ListUnderTest other(step.seed % 2 ? "ArrayListSync" : "ArrayList");
        for (int i = 0; i < step.place % 20; i++) other.callWithItem<bool>("add", step.seed + i);
        return other.list;
    }

    // What makes new objects: slice, toArray, a list of the list, the sum of lists, castTo.
    void checkCopies(std::int32_t from, std::int32_t to) const {
        const ClassRecord* t = Elements::descriptor();
        const ClassRecord* record = collectionRecord("ArrayList", Elements::NAME).get();
        Object* slice = callNative<Object*>(symbol("slice"), t, record, list, from, to);
        RC_ASSERT(iterated<Elements>(slice) == std::vector<Model>(model.begin() + from, model.begin() + to));

        TestRecord arrayRecord(std::string(Elements::NAME) + "[]", ARRAY_ELEMENTS_OFFSET);
        arrayRecord.record.record.kind = RecordKind::Array;
        arrayRecord.record.record.valueKind = valueKindOf(t);
        arrayRecord.record.record.element = t;
        Array* array = callNative<Array*>(symbol("toArray"), t, arrayRecord.get(), list);
        RC_ASSERT(array->length == std::int64_t(model.size()));
        for (std::size_t i = 0; i < model.size(); i++)
            RC_ASSERT(Elements::modelOf(static_cast<Value*>(array->elements())[i]) == model[i]);

        for (const char* copyClass : {"ArrayList", "ArrayListSync", "ImmutableList", "Array", "ArraySync"}) {
            Object* copy = vesk_rt_new(collectionRecord(copyClass, Elements::NAME).get());
            callNative<void>(std::string("vesk_collections_") + copyClass + "_init__dup2", t, copy,
                             static_cast<const Object*>(list));
            RC_ASSERT(iterated<Elements>(copy) == model);
            RC_ASSERT(call<bool>("equals", static_cast<const Object*>(copy)));
            RC_ASSERT(vesk_rt_equals(copy, list));
            RC_ASSERT(vesk_rt_hash(copy) == call<std::int32_t>("hashCode"));
        }
        if (!model.empty())
            RC_ASSERT(call<bool>("equals", static_cast<const Object*>(slice)) ==
                      (from == 0 && to == std::int32_t(model.size())));

        Object* sum = callNative<Object*>(symbol("operator_plus"), t, record, list, static_cast<const Object*>(slice));
        std::vector<Model> expected = model;
        expected.insert(expected.end(), model.begin() + from, model.begin() + to);
        RC_ASSERT(iterated<Elements>(sum) == expected);

        const ClassRecord* object = &vesk_class_Object.record;
        Object* boxed = callNative<Object*>("vesk_collections_Collection_castTo", t, object,
                                            collectionRecord("ArrayList", "Object").get(), list);
        Object* back = callNative<Object*>("vesk_collections_Collection_castTo", object, t, record, boxed);
        RC_ASSERT(iterated<Elements>(back) == model);
    }
};

template <class Elements>
class Lists : public testing::Test {};
TYPED_TEST_SUITE(Lists, ElementKinds);

TYPED_TEST(Lists, BehaveLikeAVector) {
    for (const char* className : {"ArrayList", "ArrayListSync"}) {
        EXPECT_TRUE(rc::check(className, [&] {
            ListUnderTest<TypeParam> list(className);
            for (const Step& step : anySteps(15)) list.apply(step);
            list.checkReading(*rc::gen::inRange(-20, 20));
            const std::int32_t length = std::int32_t(list.model.size());
            const std::int32_t from = *rc::gen::inRange(0, length + 1);
            list.checkCopies(from, *rc::gen::inRange(from, length + 1));
        }));
    }
}

// Fixed size: what can be changed is where the elements stand.
TYPED_TEST(Lists, ArraysBehaveLikeAVector) {
    for (const char* className : {"Array", "ArraySync"}) {
        const std::string prefix = std::string("vesk_collections_") + className + "_";
        EXPECT_TRUE(rc::check(className, [&] {
            startMemory();
            const ClassRecord* t = TypeParam::descriptor();
            const std::int32_t length = *rc::gen::inRange(0, 20);
            Object* array = vesk_rt_new(collectionRecord(className, TypeParam::NAME).get());
            callNative<void>(prefix + "init", t, array, length);
            RC_ASSERT(callNative<std::int32_t>(prefix + "size", t, array) == length);
            std::vector<typename TypeParam::Model> model;
            for (std::int32_t i = 0; i < length; i++) {
                const int seed = *rc::gen::inRange(-20, 20);
                typename TypeParam::Value item = TypeParam::make(seed), read{};
                callNative<void>(prefix + (seed % 2 ? "set" : "operator_index_eq"), t, array, i,
                                 static_cast<const void*>(&item));
                callNative<void>(prefix + (seed % 2 ? "get" : "operator_index"), t, static_cast<void*>(&read), array,
                                 i);
                model.push_back(TypeParam::model(seed));
                RC_ASSERT(TypeParam::modelOf(read) == model.back());
            }
            RC_ASSERT(iterated<TypeParam>(array) == model);
            callNative<void>(prefix + "sort", t, array);
            std::stable_sort(model.begin(), model.end());
            RC_ASSERT(iterated<TypeParam>(array) == model);
            callNative<void>(prefix + "reverse", t, array);
            std::reverse(model.begin(), model.end());
            RC_ASSERT(iterated<TypeParam>(array) == model);
        }));
    }
}

TYPED_TEST(Lists, SortByKeysIsStable) {
    EXPECT_TRUE(rc::check([] {
        ListUnderTest<Ints> values("ArrayList");
        ListUnderTest<TypeParam> keys("ArrayList");
        std::vector<std::pair<typename TypeParam::Model, std::int32_t>> model;
        const std::vector<int> seeds = *rc::gen::container<std::vector<int>>(rc::gen::inRange(-5, 5));
        for (std::size_t i = 0; i < seeds.size(); i++) {
            values.template callWithItem<bool>("add", int(i));
            keys.template callWithItem<bool>("add", seeds[i]);
            model.emplace_back(TypeParam::model(seeds[i]), std::int32_t(i));
        }
        std::stable_sort(model.begin(), model.end(), [](auto& a, auto& b) { return a.first < b.first; });
        callNative<void>("vesk_collections_ArrayList_sortByKeys", Ints::descriptor(), TypeParam::descriptor(),
                         values.list, static_cast<const Object*>(keys.list));
        const std::vector<std::int32_t> sorted = values.content();
        for (std::size_t i = 0; i < model.size(); i++) RC_ASSERT(sorted[i] == model[i].second);
    }));
}

TEST(List, QueuesReuseTheirRoom) {
    ListUnderTest<Ints> queue("ArrayList");
    const ListObject& list = *static_cast<ListObject*>(queue.list);
    for (int i = 0; i < 100000; i++) {
        queue.callWithItem<bool>("add", i);
        if (i < 10) continue;
        EXPECT_EQ(queue.callForElement("removeFirst"), i - 10);
    }
    EXPECT_EQ(list.length, 10);
    EXPECT_LT(list.capacity + list.front, 200);
    while (list.length > 0) queue.callForElement("removeFirst");
    EXPECT_EQ(list.front, 0);
}

TEST(List, NotANumberComesLast) {
    ListUnderTest<Doubles> list("ArrayList");
    for (double number : {2.0, std::nan(""), -1.0, std::nan(""), 0.5})
        callNative<bool>("vesk_collections_ArrayList_add", Doubles::descriptor(), list.list,
                         static_cast<const void*>(&number));
    list.call<void>("sort");
    EXPECT_EQ(viewOf(list.call<const String*>("toString")), "[-1.0, 0.5, 2.0, nan, nan]");
}

TEST(List, TextOfNestedAndRecursiveLists) {
    ListUnderTest<Ints> inner("ArrayList");
    inner.callWithItem<bool>("add", 1);
    inner.callWithItem<bool>("add", 2);
    const ClassRecord* object = &vesk_class_Object.record;
    Object* outer = newCollection("ArrayList", "Object", object);
    for (const Object* element : {static_cast<const Object*>(inner.list), static_cast<const Object*>(outer),
                                  static_cast<const Object*>(nullptr)})
        callNative<bool>("vesk_collections_ArrayList_add", object, outer, static_cast<const void*>(&element));
    EXPECT_EQ(viewOf(vesk_rt_text(outer)), "[[1, 2], ..., null]");
}

TEST(List, OfOtherElementTypesAreNotEqual) {
    Object* ints = newCollection("ArrayList", "Int", &vesk_class_Int.record);
    Object* longs = newCollection("ArrayList", "Long", &vesk_class_Long.record);
    Object* moreInts = newCollection("ImmutableList", "Int", &vesk_class_Int.record);
    EXPECT_FALSE(vesk_rt_equals(ints, longs));
    EXPECT_TRUE(vesk_rt_equals(ints, moreInts));
    EXPECT_TRUE(vesk_rt_equals(moreInts, ints));
    EXPECT_FALSE(vesk_rt_equals(ints, makeString("x")));
    EXPECT_FALSE(vesk_rt_equals(ints, nullptr));
}

TEST(ListDeathTest, BadIndicesPanic) {
    ListUnderTest<Ints> list("ArrayList");
    for (int i = 0; i < 3; i++) list.callWithItem<bool>("add", i);
    const auto panicsWith = testing::ExitedWithCode(101);
    for (const char* method : {"get", "operator_index", "removeAt"}) {
        EXPECT_EXIT(list.callForElement(method, std::int32_t(5)), panicsWith, "index 5 out of range for length 3");
        EXPECT_EXIT(list.callForElement(method, std::int32_t(3)), panicsWith, "index 3 out of range for length 3");
        EXPECT_EXIT(list.callForElement(method, std::int32_t(-1)), panicsWith, "index -1 out of range for length 3");
    }
    EXPECT_EXIT(list.callWithItem<void>("set", 1, std::int32_t(3)), panicsWith, "index 3 out of range for length 3");
    EXPECT_EXIT(list.callWithItem<void>("insert", 1, std::int32_t(4)), panicsWith, "index 4 out of range for length 3");
    EXPECT_EXIT(list.callWithItem<void>("insert", 1, std::int32_t(-1)), panicsWith, "index -1 out of range");
    const ClassRecord *t = Ints::descriptor(), *record = list.list->record;
    EXPECT_EXIT(callNative<Object*>("vesk_collections_ArrayList_slice", t, record, list.list, 2, 4), panicsWith,
                "index 4");
    EXPECT_EXIT(callNative<Object*>("vesk_collections_ArrayList_slice", t, record, list.list, 2, 1), panicsWith,
                "index 1");
    list.call<void>("clear");
    for (const char* method : {"first", "last", "removeFirst", "removeLast"})
        EXPECT_EXIT(list.callForElement(method), panicsWith, "index 0 out of range for length 0");
}

TEST(ListDeathTest, OtherFailuresPanic) {
    const auto panicsWith = testing::ExitedWithCode(101);
    const ClassRecord *t = &vesk_class_String.record, *object = &vesk_class_Object.record;
    startMemory();
    Object* array = vesk_rt_new(collectionRecord("Array", "String").get());
    callNative<void>("vesk_collections_Array_init", t, array, 2);
    const Object* read = nullptr;
    void* result = &read;
    EXPECT_EXIT(callNative<void>("vesk_collections_Array_get", t, result, array, 1), panicsWith, "null element");
    callNative<void>("vesk_collections_Array_get", nullableRecord(t), result, array, 1);
    EXPECT_EQ(read, nullptr);
    EXPECT_EXIT(callNative<void>("vesk_collections_Array_init", t, array, -1), panicsWith, "negative array length -1");
    EXPECT_EXIT(callNative<int>("vesk_collections_ArrayList_size", t, static_cast<Object*>(nullptr)), panicsWith,
                "null receiver");

    // Objects of a class without order.
    Object* list = newCollection("ArrayList", "Object", object);
    for (int i = 0; i < 2; i++) {
        const Object* element = vesk_rt_new(object);
        callNative<bool>("vesk_collections_ArrayList_add", object, list, static_cast<const void*>(&element));
    }
    EXPECT_EXIT(callNative<void>("vesk_collections_ArrayList_sort", object, list), panicsWith,
                "cannot compare Object with Object");
    EXPECT_EXIT(callNative<Object*>("vesk_collections_Collection_castTo", object, Ints::descriptor(),
                                    collectionRecord("ArrayList", "Int").get(), list),
                panicsWith, "cannot cast Object to Int");
}

TEST(ListDeathTest, ChangeDuringIterationPanics) {
    ListUnderTest<Ints> list("ArrayList");
    for (int i = 0; i < 3; i++) list.callWithItem<bool>("add", i);
    const ClassRecord* t = Ints::descriptor();
    const auto startIteration = [&] {
        Object* iterator = vesk_rt_new(collectionRecord("CollectionIterator", "Int").get());
        callNative<void>("vesk_collections_CollectionIterator_init", t, iterator, list.list);
        return iterator;
    };
    const auto panicsWith = testing::ExitedWithCode(101);
    for (const char* method : {"clear", "sort", "reverse"}) {
        Object* iterator = startIteration();
        list.callWithItem<bool>("add", 4);
        list.call<void>(method);
        EXPECT_EXIT(callNative<bool>("vesk_collections_CollectionIterator_hasNext", t, iterator), panicsWith,
                    "collection changed during iteration");
        std::int32_t value;
        EXPECT_EXIT(
            callNative<void>("vesk_collections_CollectionIterator_next", t, static_cast<void*>(&value), iterator),
            panicsWith, "collection changed during iteration");
    }
    list.callWithItem<bool>("add", 1);
    Object* iterator = startIteration();
    list.callWithItem<void>("fill", 7);  // replaces, and moves nothing
    EXPECT_TRUE(callNative<bool>("vesk_collections_CollectionIterator_hasNext", t, iterator));
}

TEST(ListDeathTest, IteratorsEnd) {
    Object* list = newCollection("ArrayList", "Int", Ints::descriptor());
    Object* iterator = vesk_rt_new(collectionRecord("CollectionIterator", "Int").get());
    callNative<void>("vesk_collections_CollectionIterator_init", Ints::descriptor(), iterator, list);
    std::int32_t value;
    EXPECT_EXIT(callNative<void>("vesk_collections_CollectionIterator_next", Ints::descriptor(),
                                 static_cast<void*>(&value), iterator),
                testing::ExitedWithCode(101), "no more elements");
    Object* text = makeString("x");
    EXPECT_EXIT(callNative<void>("vesk_collections_CollectionIterator_init", Ints::descriptor(), iterator, text),
                testing::ExitedWithCode(101), "cannot iterate over String");
}

}  // namespace
}  // namespace vesk::runtime
