// Maps against standard containers under random operations, and their failures.
#include <algorithm>
#include <map>
#include <random>

#include "runtime/collections/native_calls_test.h"

namespace vesk::runtime {
namespace {

template <class KeyKind, class ValueKindOf>
struct Entries {
    using Keys = KeyKind;
    using Values = ValueKindOf;
};

// A map of a class under test together with its model: entries in the order that the class promises.
template <class Kinds>
struct MapUnderTest {
    using Keys = typename Kinds::Keys;
    using Values = typename Kinds::Values;
    using Key = typename Keys::Model;
    using Value = typename Values::Model;

    std::string className;
    Object* map;
    std::vector<std::pair<Key, Value>> model;

    explicit MapUnderTest(std::string name)
        : className(std::move(name)),
          map(newCollection(className, arguments(), Keys::descriptor(), Values::descriptor())) {}

    static std::string arguments() { return std::string(Keys::NAME) + ", " + Values::NAME; }
    std::string symbol(const char* method) const { return "vesk_collections_" + className + "_" + method; }
    bool isSorted() const { return className.starts_with("Sorted"); }

    template <class R>
    R call(const char* method) const {
        return callNative<R>(symbol(method), Keys::descriptor(), Values::descriptor(), map);
    }
    template <class R>
    R callWithKey(const char* method, int seed) const {
        typename Keys::Value key = Keys::make(seed);
        return callNative<R>(symbol(method), Keys::descriptor(), Values::descriptor(), map,
                             static_cast<const void*>(&key));
    }
    void put(const char* method, int keySeed, int valueSeed) {
        typename Keys::Value key = Keys::make(keySeed);
        typename Values::Value value = Values::make(valueSeed);
        callNative<void>(symbol(method), Keys::descriptor(), Values::descriptor(), map, static_cast<const void*>(&key),
                         static_cast<const void*>(&value));
        const auto found = find(keySeed);
        if (found != model.end())
            found->second = Values::model(valueSeed);
        else
            model.emplace_back(Keys::model(keySeed), Values::model(valueSeed));
        if (isSorted())
            std::stable_sort(model.begin(), model.end(), [](auto& a, auto& b) { return a.first < b.first; });
    }
    Value get(const char* method, int seed) const {
        typename Keys::Value key = Keys::make(seed);
        typename Values::Value value{};
        callNative<void>(symbol(method), Keys::descriptor(), Values::descriptor(), static_cast<void*>(&value), map,
                         static_cast<const void*>(&key));
        return Values::modelOf(value);
    }
    Value getOrDefault(int seed, int otherSeed) const {
        typename Keys::Value key = Keys::make(seed);
        typename Values::Value other = Values::make(otherSeed), value{};
        callNative<void>(symbol("getOrDefault"), Keys::descriptor(), Values::descriptor(), static_cast<void*>(&value),
                         map, static_cast<const void*>(&key), static_cast<const void*>(&other));
        return Values::modelOf(value);
    }
    auto find(int seed) {
        const Key key = Keys::model(seed);
        return std::find_if(model.begin(), model.end(), [&](auto& entry) { return entry.first == key; });
    }

    template <class Kind>
    std::vector<typename Kind::Model> listed(const char* method) const {
        const ClassRecord* record = collectionRecord("ArrayList", Kind::NAME).get();
        return iterated<Kind>(
            callNative<Object*>(symbol(method), Keys::descriptor(), Values::descriptor(), record, map));
    }

    void check(int seed) {
        std::vector<Key> keys;
        std::vector<Value> values;
        for (auto& [key, value] : model) {
            keys.push_back(key);
            values.push_back(value);
        }
        RC_ASSERT(iterated<Keys>(map) == keys);
        RC_ASSERT(listed<Keys>("keys") == keys);
        RC_ASSERT(listed<Values>("values") == values);
        RC_ASSERT(call<std::int32_t>("size") == std::int32_t(model.size()));
        RC_ASSERT(call<bool>("isEmpty") == model.empty());

        const auto found = find(seed);
        const bool isThere = found != model.end();
        RC_ASSERT(callWithKey<bool>("containsKey", seed) == isThere);
        RC_ASSERT(getOrDefault(seed, 7) == (isThere ? found->second : Values::model(7)));
        const Object* boxed = callWithKey<const Object*>("getOrNull", seed);
        RC_ASSERT((boxed != nullptr) == isThere);
        if (isThere) {
            RC_ASSERT(get("get", seed) == found->second);
            RC_ASSERT(get("operator_index", seed) == found->second);
        }
    }

    // A copy in another class is equal and has the same hash.
    void checkEquality(const char* otherClass) {
        MapUnderTest other(otherClass);
        const ClassRecord *k = Keys::descriptor(), *v = Values::descriptor();
        const ClassRecord* keyList = collectionRecord("ArrayList", Keys::NAME).get();
        const ListObject& keys = *callNative<ListObject*>(symbol("keys"), k, v, keyList, map);
        for (std::int64_t i = keys.length; i-- > 0;) {
            const void* key = reinterpret_cast<typename Keys::Value*>(keys.data) + i;
            typename Values::Value value{};
            callNative<void>(symbol("get"), k, v, static_cast<void*>(&value), map, key);
            callNative<void>(other.symbol("put"), k, v, other.map, key, static_cast<const void*>(&value));
        }
        RC_ASSERT(vesk_rt_equals(map, other.map));
        RC_ASSERT(vesk_rt_equals(other.map, map));
        RC_ASSERT(vesk_rt_hash(map) == vesk_rt_hash(other.map));
        other.put("put", 100, 1);
        RC_ASSERT(!vesk_rt_equals(map, other.map));
    }

    std::string expectedText() const {
        std::string shown;
        for (auto& [key, value] : model)
            shown += (shown.empty() ? "" : ", ") + shownKey(key) + ": " + shownValue(value);
        return "{" + shown + "}";
    }
    static std::string shownKey(const Key& key) {
        if constexpr (std::is_same_v<Key, std::string>)
            return key;
        else if constexpr (std::is_floating_point_v<Key>)
            return floatText(key);
        else
            return std::to_string(key);
    }
    static std::string shownValue(const Value& value) {
        if constexpr (std::is_same_v<Value, std::string>)
            return value;
        else if constexpr (std::is_floating_point_v<Value>)
            return floatText(value);
        else
            return std::to_string(value);
    }
};

template <class Kinds>
class Maps : public testing::Test {};
using EntryKinds = testing::Types<Entries<Ints, Strings>, Entries<Strings, Ints>, Entries<Doubles, Bytes>,
                                  Entries<Boxes, Doubles>, Entries<Bytes, Ints>, Entries<Shorts, Boxes>>;
TYPED_TEST_SUITE(Maps, EntryKinds);

TYPED_TEST(Maps, BehaveLikeOrderedEntries) {
    for (const char* className : {"HashMap", "HashMapSync", "SortedMap", "SortedMapSync"}) {
        EXPECT_TRUE(rc::check(className, [&] {
            MapUnderTest<TypeParam> map(className);
            const auto steps = *rc::gen::container<std::vector<std::pair<int, int>>>(
                rc::gen::pair(rc::gen::inRange(0, 100), rc::gen::inRange(-20, 20)));
            for (auto [operation, seed] : steps) {
                if (operation < 30) {
                    map.put("put", seed, operation);
                } else if (operation < 60) {
                    map.put("operator_index_eq", seed, operation);
                } else if (operation < 99) {
                    const auto found = map.find(seed);
                    RC_ASSERT(map.template callWithKey<bool>("remove", seed) == (found != map.model.end()));
                    if (found != map.model.end()) map.model.erase(found);
                } else {
                    map.template call<void>("clear");
                    map.model.clear();
                }
                map.check(seed);
            }
            RC_ASSERT(viewOf(map.template call<const String*>("toString")) == map.expectedText());
            map.checkEquality("HashMap");
            map.checkEquality("SortedMapSync");
        }));
    }
}

// Large enough for tables to grow, to be cleaned of removed entries, and for chunks to split and join.
TEST(Map, ManyEntries) {
    for (const std::string className : {"HashMap", "SortedMap"}) {
        const ClassRecord *k = &vesk_class_Int.record, *v = &vesk_class_Long.record;
        Object* map = newCollection(className, "Int, Long", k, v);
        const std::string prefix = "vesk_collections_" + className + "_";
        std::map<std::int32_t, std::int64_t> model;
        std::mt19937 random(7);
        for (int phase = 0; phase < 6; phase++) {
            for (int i = 0; i < 20000; i++) {
                // Growing and shrinking take turns; two phases come in ascending order.
                const std::int32_t key = phase == 2 ? 100000 + i : std::int32_t(random() % 20000);
                const bool isRemoved = random() % 100 < (phase % 2 ? 90u : 10u);
                if (isRemoved) {
                    ASSERT_EQ(callNative<bool>(prefix + "remove", k, v, map, static_cast<const void*>(&key)),
                              model.erase(key) == 1);
                } else {
                    const std::int64_t value = std::int64_t(random());
                    callNative<void>(prefix + "put", k, v, map, static_cast<const void*>(&key),
                                     static_cast<const void*>(&value));
                    model[key] = value;
                }
            }
            ASSERT_EQ(callNative<std::int32_t>(prefix + "size", k, v, map), std::int32_t(model.size()));
            for (auto [key, value] : model) {
                std::int64_t found = 0;
                callNative<void>(prefix + "get", k, v, static_cast<void*>(&found), map, static_cast<const void*>(&key));
                ASSERT_EQ(found, value);
            }
            std::vector<std::int32_t> keys = iterated<Ints>(map);
            if (className == "HashMap") std::sort(keys.begin(), keys.end());
            std::vector<std::int32_t> expected;
            for (auto& entry : model) expected.push_back(entry.first);
            ASSERT_EQ(keys, expected);
            if (className == "SortedMap" && !model.empty()) {
                std::int32_t first = 0, last = 0;
                callNative<void>(prefix + "firstKey", k, v, static_cast<void*>(&first), map);
                callNative<void>(prefix + "lastKey", k, v, static_cast<void*>(&last), map);
                EXPECT_EQ(first, model.begin()->first);
                EXPECT_EQ(last, model.rbegin()->first);
            }
        }
    }
}

TEST(Map, KeysThatAreNotNumbersOrNull) {
    const ClassRecord *d = &vesk_class_Double.record, *i = &vesk_class_Int.record;
    const ClassRecord* s = nullableRecord(&vesk_class_String.record);
    const double nan = std::nan("");
    const double zeros[] = {0.0, -0.0};
    for (const std::string className : {"HashMap", "SortedMap"}) {
        Object* map = newCollection(className, "Double, Int", d, i);
        const std::string put = "vesk_collections_" + className + "_put";
        for (std::int32_t value : {1, 2}) {
            callNative<void>(put, d, i, map, static_cast<const void*>(&nan), static_cast<const void*>(&value));
            callNative<void>(put, d, i, map, static_cast<const void*>(&zeros[value - 1]),
                             static_cast<const void*>(&value));
        }
        EXPECT_EQ(viewOf(vesk_rt_text(map)), className == "HashMap" ? "{nan: 2, 0.0: 2}" : "{0.0: 2, nan: 2}");

        Object* texts = newCollection(className, "String?, Int", s, i);
        const Object* keys[] = {makeString("a"), nullptr};
        for (const Object*& key : keys) {
            std::int32_t value = 5;
            callNative<void>(put, s, i, texts, static_cast<const void*>(&key), static_cast<const void*>(&value));
        }
        EXPECT_EQ(viewOf(vesk_rt_text(texts)), className == "HashMap" ? "{a: 5, null: 5}" : "{null: 5, a: 5}");
    }
}

TEST(MapDeathTest, MissingKeysPanic) {
    const auto panicsWith = testing::ExitedWithCode(101);
    for (const char* className : {"HashMap", "HashMapSync", "SortedMap", "SortedMapSync"}) {
        MapUnderTest<Entries<Strings, Ints>> map(className);
        EXPECT_EXIT(map.get("get", 2), panicsWith, "panic: key not found: 2\n");
        map.put("put", 2, 1);
        EXPECT_EXIT(map.get("operator_index", 4), panicsWith, "panic: key not found: 4\n");
        EXPECT_EXIT(callNative<int>(map.symbol("size"), Strings::descriptor(), Ints::descriptor(),
                                    static_cast<Object*>(nullptr)),
                    panicsWith, "null receiver");
    }
    Object* empty = newCollection("SortedMap", "Int, Int", Ints::descriptor(), Ints::descriptor());
    std::int32_t key;
    EXPECT_EXIT(callNative<void>("vesk_collections_SortedMap_firstKey", Ints::descriptor(), Ints::descriptor(),
                                 static_cast<void*>(&key), empty),
                panicsWith, "the map is empty");
}

TEST(MapDeathTest, ChangeDuringIterationPanics) {
    for (const char* className : {"HashMap", "SortedMapSync"}) {
        MapUnderTest<Entries<Ints, Ints>> map(className);
        map.put("put", 1, 1);
        map.put("put", 2, 1);
        const ClassRecord* t = Ints::descriptor();
        Object* iterator = vesk_rt_new(collectionRecord("CollectionIterator", "Int").get());
        callNative<void>("vesk_collections_CollectionIterator_init", t, iterator, map.map);
        map.put("put", 1, 5);  // an existing key: nothing moves
        EXPECT_TRUE(callNative<bool>("vesk_collections_CollectionIterator_hasNext", t, iterator));
        map.callWithKey<bool>("remove", 2);
        EXPECT_EXIT(callNative<bool>("vesk_collections_CollectionIterator_hasNext", t, iterator),
                    testing::ExitedWithCode(101), "collection changed during iteration");
    }
}

// An object whose equals() or hashCode() changes the very map that is being searched.
Object* gChanged = nullptr;

bool equalsThatChanges(const Object*, const Object*) {
    callNative<void>("vesk_collections_HashMap_clear", &vesk_class_Object.record, &vesk_class_Int.record, gChanged);
    return true;
}

std::int32_t sameHash(const Object*) { return 1; }

TEST(MapDeathTest, ChangeDuringSearchPanics) {
    startMemory();
    TestRecord record("app.Bad", 16);
    record.setMethods(record.record.methods[0], reinterpret_cast<void*>(equalsThatChanges),
                      reinterpret_cast<void*>(sameHash));
    const ClassRecord *k = &vesk_class_Object.record, *v = &vesk_class_Int.record;
    gChanged = newCollection("HashMap", "Object, Int", k, v);
    const std::int32_t value = 1;
    const Object *first = vesk_rt_new(record.get()), *second = vesk_rt_new(record.get());
    callNative<void>("vesk_collections_HashMap_put", k, v, gChanged, static_cast<const void*>(&first),
                     static_cast<const void*>(&value));
    EXPECT_EXIT(callNative<void>("vesk_collections_HashMap_put", k, v, gChanged, static_cast<const void*>(&second),
                                 static_cast<const void*>(&value)),
                testing::ExitedWithCode(101), "collection changed during iteration");
}

}  // namespace
}  // namespace vesk::runtime
