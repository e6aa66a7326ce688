// Sets against std::vector without doubles, and tuples.
#include <algorithm>

#include "runtime/collections/native_calls_test.h"

namespace vesk::runtime {
namespace {

template <class Elements>
struct SetUnderTest {
    using Model = typename Elements::Model;

    std::string className;
    Object* set;
    std::vector<Model> model;  // in order of insertion

    explicit SetUnderTest(std::string name)
        : className(std::move(name)), set(newCollection(className, Elements::NAME, Elements::descriptor())) {}

    std::string symbol(const char* method) const { return "vesk_collections_" + className + "_" + method; }
    template <class R, class... Arguments>
    R call(const char* method, Arguments... arguments) const {
        return callNative<R>(symbol(method), Elements::descriptor(), set, arguments...);
    }
    bool callWithItem(const char* method, int seed) const {
        typename Elements::Value item = Elements::make(seed);
        return call<bool>(method, static_cast<const void*>(&item));
    }
    bool has(const Model& value) const { return std::find(model.begin(), model.end(), value) != model.end(); }
    bool add(int seed) {
        if (has(Elements::model(seed))) return false;
        model.push_back(Elements::model(seed));
        return true;
    }
    bool remove(const Model& value) { return std::erase(model, value) > 0; }
    std::vector<Model> made(const char* method, const Object* other) const {
        const ClassRecord* record = collectionRecord("HashSet", Elements::NAME).get();
        return iterated<Elements>(callNative<Object*>(symbol(method), Elements::descriptor(), record, set, other));
    }
};

// Any collection of the element type, with its content.
template <class Elements>
std::pair<Object*, std::vector<int>> anyCollection(const char* className) {
    const std::vector<int> seeds = *rc::gen::container<std::vector<int>>(rc::gen::inRange(-20, 20));
    Object* collection = newCollection(className, Elements::NAME, Elements::descriptor());
    for (int seed : seeds) {
        typename Elements::Value item = Elements::make(seed);
        callNative<bool>(std::string("vesk_collections_") + className + "_add", Elements::descriptor(), collection,
                         static_cast<const void*>(&item));
    }
    return {collection, seeds};
}

template <class Elements>
class Sets : public testing::Test {};
TYPED_TEST_SUITE(Sets, ElementKinds);

TYPED_TEST(Sets, BehaveLikeAVectorWithoutDoubles) {
    using Model = typename TypeParam::Model;
    for (const char* className : {"HashSet", "HashSetSync"}) {
        EXPECT_TRUE(rc::check(className, [&] {
            SetUnderTest<TypeParam> set(className);
            const auto steps = *rc::gen::container<std::vector<std::pair<int, int>>>(
                rc::gen::pair(rc::gen::inRange(0, 50), rc::gen::inRange(-20, 20)));
            for (auto [operation, seed] : steps) {
                if (operation < 30) {
                    RC_ASSERT(set.callWithItem("add", seed) == set.add(seed));
                } else if (operation < 46) {
                    RC_ASSERT(set.callWithItem("remove", seed) == set.remove(TypeParam::model(seed)));
                } else if (operation < 47) {
                    set.template call<void>("clear");
                    set.model.clear();
                } else {
                    const bool isAdded = operation == 47;
                    auto [other, seeds] = anyCollection<TypeParam>(operation == 48 ? "ArrayList" : "HashSetSync");
                    bool changes = false;
                    for (int each : seeds) changes |= isAdded ? set.add(each) : set.remove(TypeParam::model(each));
                    RC_ASSERT(set.template call<bool>(isAdded ? "addAll" : "removeAll",
                                                      static_cast<const Object*>(other)) == changes);
                }
                RC_ASSERT(set.callWithItem("contains", seed) == set.has(TypeParam::model(seed)));
                RC_ASSERT(set.template call<std::int32_t>("size") == std::int32_t(set.model.size()));
                RC_ASSERT(set.template call<bool>("isEmpty") == set.model.empty());
            }
            RC_ASSERT(iterated<TypeParam>(set.set) == set.model);

            auto [other, seeds] = anyCollection<TypeParam>("ArrayList");
            std::vector<Model> both = set.model, common, rest;
            bool hasAll = true;
            for (int seed : seeds) {
                if (std::find(both.begin(), both.end(), TypeParam::model(seed)) == both.end())
                    both.push_back(TypeParam::model(seed));
                hasAll &= set.has(TypeParam::model(seed));
            }
            for (const Model& value : set.model) {
                const bool isCommon =
                    std::any_of(seeds.begin(), seeds.end(), [&](int seed) { return TypeParam::model(seed) == value; });
                (isCommon ? common : rest).push_back(value);
            }
            RC_ASSERT(set.made("unionWith", other) == both);
            RC_ASSERT(set.made("intersection", other) == common);
            RC_ASSERT(set.made("difference", other) == rest);
            RC_ASSERT(set.template call<bool>("containsAll", static_cast<const Object*>(other)) == hasAll);

            // The same elements in another order and class.
            SetUnderTest<TypeParam> copy(std::string(className) == "HashSet" ? "HashSetSync" : "HashSet");
            Object* reversed = vesk_rt_new(collectionRecord("ArrayList", TypeParam::NAME).get());
            callNative<void>("vesk_collections_ArrayList_init__dup2", TypeParam::descriptor(), reversed,
                             static_cast<const Object*>(set.set));
            RC_ASSERT(iterated<TypeParam>(reversed) == set.model);
            callNative<void>("vesk_collections_ArrayList_reverse", TypeParam::descriptor(), reversed);
            copy.template call<void>("init__dup2", static_cast<const Object*>(reversed));
            RC_ASSERT(vesk_rt_equals(set.set, copy.set));
            RC_ASSERT(vesk_rt_hash(set.set) == vesk_rt_hash(copy.set));
            RC_ASSERT(!vesk_rt_equals(set.set, reversed));
            if (copy.callWithItem("add", 100)) RC_ASSERT(!vesk_rt_equals(set.set, copy.set));
        }));
    }
}

TEST(Set, Text) {
    Object* set = newCollection("HashSet", "String", Strings::descriptor());
    EXPECT_EQ(viewOf(vesk_rt_text(set)), "{}");
    for (const char* item : {"", "a", "b"}) {
        const Object* element = makeString(item);
        callNative<bool>("vesk_collections_HashSet_add", Strings::descriptor(), set,
                         static_cast<const void*>(&element));
    }
    EXPECT_EQ(viewOf(vesk_rt_text(set)), "{, a, b}");
}

TEST(Set, ArrayOfASet) {
    Object* set = newCollection("HashSet", "Int", Ints::descriptor());
    for (std::int32_t item : {5, 3, 5})
        callNative<bool>("vesk_collections_HashSet_add", Ints::descriptor(), set, static_cast<const void*>(&item));
    TestRecord record("Int[]", ARRAY_ELEMENTS_OFFSET);
    record.record.record.kind = RecordKind::Array;
    record.record.record.valueKind = ValueKind::Int;
    Array* array = callNative<Array*>("vesk_collections_HashSet_toArray", Ints::descriptor(), record.get(), set);
    ASSERT_EQ(array->length, 2);
    EXPECT_EQ(static_cast<std::int32_t*>(array->elements())[0], 5);
    EXPECT_EQ(static_cast<std::int32_t*>(array->elements())[1], 3);
}

Object* tuple(std::int32_t first, const char* second) {
    const ClassRecord *a = &vesk_class_Int.record, *b = &vesk_class_String.record;
    startMemory();
    Object* made = vesk_rt_new(collectionRecord("Tuple", "Int, String").get());
    const Object* text = makeString(second);
    callNative<void>("vesk_collections_Tuple_init", a, b, made, static_cast<const void*>(&first),
                     static_cast<const void*>(&text));
    return made;
}

TEST(Tuple, HoldsTwoValues) {
    const ClassRecord *a = &vesk_class_Int.record, *b = &vesk_class_String.record;
    Object* made = tuple(1, "a");
    std::int32_t first = 0;
    const Object* second = nullptr;
    callNative<void>("vesk_collections_Tuple_first", a, b, static_cast<void*>(&first), made);
    callNative<void>("vesk_collections_Tuple_second", a, b, static_cast<void*>(&second), made);
    EXPECT_EQ(first, 1);
    EXPECT_EQ(Strings::modelOf(second), "a");
    EXPECT_EQ(viewOf(vesk_rt_text(made)), "(1, a)");
}

TEST(Tuple, EqualityAndOrder) {
    const ClassRecord *a = &vesk_class_Int.record, *b = &vesk_class_String.record;
    struct Row {
        int first;
        const char* second;
        int otherFirst;
        const char* otherSecond;
        int order;
    };
    const Row rows[] = {{1, "a", 1, "a", 0}, {1, "a", 1, "b", -1}, {2, "a", 1, "b", 1}, {1, "b", 1, "a", 1}};
    for (const Row& row : rows) {
        Object *first = tuple(row.first, row.second), *second = tuple(row.otherFirst, row.otherSecond);
        EXPECT_EQ(vesk_rt_equals(first, second), row.order == 0);
        EXPECT_EQ(callNative<std::int32_t>("vesk_collections_Tuple_compareTo", a, b, first, second), row.order);
        if (row.order != 0) continue;
        EXPECT_EQ(vesk_rt_hash(first), vesk_rt_hash(second));
    }
    EXPECT_FALSE(vesk_rt_equals(tuple(1, "a"), nullptr));
    EXPECT_FALSE(vesk_rt_equals(tuple(1, "a"), makeString("a")));
}

}  // namespace
}  // namespace vesk::runtime
