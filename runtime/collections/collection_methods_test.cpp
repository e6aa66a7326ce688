// What every collection inherits, on native collections and on classes written in the language; natives that call
// back into the program.
#include <functional>

#include "runtime/collections/element_type.h"
#include "runtime/collections/native_calls_test.h"

namespace vesk::runtime {
namespace {

// A function value that counts its calls.
struct TestClosure {
    Closure* closure;
    explicit TestClosure(void* code) {
        startMemory();
        closure = static_cast<Closure*>(vesk_rt_new_closure(&vesk_class_Object.record, code, 8));
    }
    std::int64_t& calls() { return callsOf(closure); }
    static std::int64_t& callsOf(Closure* of) { return *reinterpret_cast<std::int64_t*>(of + 1); }
};

// Bits above the lowest are not part of a Bool result.
std::uint8_t isEven(Closure* self, std::int32_t value) {
    TestClosure::callsOf(self)++;
    return value % 2 == 0 ? 0xFF : 0xFE;
}

void sumUp(Closure* self, std::int32_t value) { TestClosure::callsOf(self) += value; }

std::uint8_t isPositive(Closure*, double value) { return value > 0; }

Object* intList(const std::string& className, std::initializer_list<std::int32_t> values) {
    Object* list = newCollection(className, "Int", Ints::descriptor());
    for (std::int32_t value : values)
        callNative<bool>("vesk_collections_" + className + "_add", Ints::descriptor(), list,
                         static_cast<const void*>(&value));
    return list;
}

// --- a class of the program that implements Collection<Int>: the numbers 1 to 5

struct Counter : Object {
    std::int32_t at;
};

const ClassRecord* interfaceNamed(const char* name) {
    static std::vector<std::unique_ptr<TestRecord>> made;
    made.push_back(std::make_unique<TestRecord>(name, 0, nullptr));
    made.back()->record.record.kind = RecordKind::Interface;
    return made.back()->get();
}

std::uint8_t counterHasNext(const Counter* self) { return self->at < 5 ? 0xF1 : 0xF0; }

std::int32_t counterNext(Counter* self) { return ++self->at; }

const Object* newCounter(const Object*) {
    static TestRecord record("app.Counter", sizeof(Counter));
    if (record.interfaces.empty())
        record.implement(interfaceNamed("vesk.Iterator<Int>"),
                         {reinterpret_cast<void*>(counterHasNext), reinterpret_cast<void*>(counterNext)});
    return vesk_rt_new(record.get());
}

Object* oneToFive() {
    static TestRecord record("app.OneToFive", 8);
    startMemory();
    if (record.interfaces.empty())
        record.implement(interfaceNamed("vesk.Iterable<Int>"), {reinterpret_cast<void*>(newCounter)});
    return vesk_rt_new(record.get());
}

struct Fixture {
    const char* name;
    Object* collection;
};

std::vector<Fixture> collectionsOfOneToFive() {
    return {{"ArrayList", intList("ArrayList", {1, 2, 3, 4, 5})},
            {"ArrayListSync", intList("ArrayListSync", {1, 2, 3, 4, 5})},
            {"HashSet", intList("HashSet", {1, 2, 3, 4, 5})},
            {"HashSetSync", intList("HashSetSync", {1, 2, 3, 4, 5})},
            {"a class of the program", oneToFive()}};
}

TEST(CollectionMethods, WorkOnEveryCollection) {
    const ClassRecord* t = Ints::descriptor();
    const ClassRecord* listOfInts = collectionRecord("ArrayList", "Int").get();
    for (const Fixture& fixture : collectionsOfOneToFive()) {
        SCOPED_TRACE(fixture.name);
        Object* self = fixture.collection;
        TestClosure even(reinterpret_cast<void*>(isEven)), sum(reinterpret_cast<void*>(sumUp));

        Object* filtered = callNative<Object*>("vesk_collections_Collection_filter", t, listOfInts, self, even.closure);
        EXPECT_EQ(iterated<Ints>(filtered), (std::vector<std::int32_t>{2, 4}));
        EXPECT_EQ(even.calls(), 5);
        callNative<void>("vesk_collections_Collection_forEach", t, self, sum.closure);
        EXPECT_EQ(sum.calls(), 15);
        EXPECT_TRUE(callNative<bool>("vesk_collections_Collection_any", t, self, even.closure));
        EXPECT_EQ(even.calls(), 7);
        EXPECT_FALSE(callNative<bool>("vesk_collections_Collection_all", t, self, even.closure));
        EXPECT_EQ(even.calls(), 8);
        const Object* found = callNative<const Object*>("vesk_collections_Collection_find", t, self, even.closure);
        EXPECT_EQ(viewOf(vesk_rt_text(found)), "2");
        EXPECT_EQ(viewOf(callNative<const String*>("vesk_collections_Collection_joinToString", t, self,
                                                   static_cast<const String*>(makeString("-")))),
                  "1-2-3-4-5");
        for (std::int32_t wanted : {1, 5, 6})
            EXPECT_EQ(
                callNative<bool>("vesk_collections_Collection_contains", t, self, static_cast<const void*>(&wanted)),
                wanted <= 5);
        const ClassRecord* d = Doubles::descriptor();
        Object* doubles = callNative<Object*>("vesk_collections_Collection_castTo", t, d,
                                              collectionRecord("ArrayList", "Double").get(), self);
        EXPECT_EQ(viewOf(vesk_rt_text(doubles)), "[1.0, 2.0, 3.0, 4.0, 5.0]");
        TestClosure positive(reinterpret_cast<void*>(isPositive));
        EXPECT_TRUE(callNative<bool>("vesk_collections_Collection_all", d, doubles, positive.closure));

        Object* list = intList("ArrayList", {0});
        callNative<bool>("vesk_collections_ArrayList_addAll", t, list, static_cast<const Object*>(self));
        EXPECT_EQ(iterated<Ints>(list), (std::vector<std::int32_t>{0, 1, 2, 3, 4, 5}));
    }
}

TEST(CollectionMethods, NothingIsFoundInAnEmptyCollection) {
    const ClassRecord* t = Ints::descriptor();
    Object* empty = intList("ArrayList", {});
    TestClosure even(reinterpret_cast<void*>(isEven));
    EXPECT_FALSE(callNative<bool>("vesk_collections_Collection_any", t, empty, even.closure));
    EXPECT_TRUE(callNative<bool>("vesk_collections_Collection_all", t, empty, even.closure));
    EXPECT_EQ(callNative<const Object*>("vesk_collections_Collection_find", t, empty, even.closure), nullptr);
    EXPECT_EQ(even.calls(), 0);
}

Object* gList = nullptr;

void growList(Closure*, std::int32_t value) {
    callNative<bool>("vesk_collections_ArrayList_add", Ints::descriptor(), gList, static_cast<const void*>(&value));
}

TEST(CollectionMethodsDeathTest, FunctionsThatChangeTheCollectionPanic) {
    gList = intList("ArrayList", {1, 2, 3});
    TestClosure grow(reinterpret_cast<void*>(growList));
    EXPECT_EXIT(callNative<void>("vesk_collections_Collection_forEach", Ints::descriptor(), gList, grow.closure),
                testing::ExitedWithCode(101), "collection changed during iteration");
    EXPECT_EXIT(callNative<void>("vesk_collections_Collection_forEach", Ints::descriptor(), gList,
                                 static_cast<Closure*>(nullptr)),
                testing::ExitedWithCode(101), "null receiver");
    const Object* text = makeString("x");
    EXPECT_EXIT(callNative<bool>("vesk_collections_ArrayList_addAll", Ints::descriptor(), gList, text),
                testing::ExitedWithCode(101), "cannot cast String to vesk.Iterable");
}

// --- conversions

TEST(CastElement, ConvertsLikeAs) {
    struct Row {
        double from;
        std::int32_t toInt;
        std::uint8_t toByte;
        std::int64_t toLong;
    };
    const Row rows[] = {{0, 0, 0, 0},
                        {3.9, 3, 3, 3},
                        {-3.9, -3, 0, -3},
                        {1e20, 2147483647, 255, 9223372036854775807},
                        {-1e20, -2147483647 - 1, 0, -9223372036854775807 - 1},
                        {std::nan(""), 0, 0, 0}};
    for (const Row& row : rows) {
        const ElementType from(&vesk_class_Double.record);
        std::int32_t asInt = -1;
        std::uint8_t asByte = 9;
        std::int64_t asLong = -1;
        castElement(from, &row.from, ElementType(&vesk_class_Int.record), &asInt);
        castElement(from, &row.from, ElementType(&vesk_class_Byte.record), &asByte);
        castElement(from, &row.from, ElementType(&vesk_class_Long.record), &asLong);
        EXPECT_EQ(asInt, row.toInt) << row.from;
        EXPECT_EQ(asByte, row.toByte) << row.from;
        EXPECT_EQ(asLong, row.toLong) << row.from;
    }
    const std::int32_t wide = 300;
    std::uint8_t narrow = 0;
    castElement(ElementType(&vesk_class_Int.record), &wide, ElementType(&vesk_class_Byte.record), &narrow);
    EXPECT_EQ(narrow, 44);
}

TEST(CastElementDeathTest, ChecksReferences) {
    startMemory();
    const ElementType object(&vesk_class_Object.record), string(&vesk_class_String.record);
    const ElementType nullable(nullableRecord(&vesk_class_String.record));
    const Object *text = makeString("x"), *missing = nullptr, *result = nullptr;
    castElement(object, &text, string, &result);
    EXPECT_EQ(result, text);
    castElement(object, &missing, nullable, &result);
    EXPECT_EQ(result, nullptr);
    const Object* box = vesk_rt_box_Int(4);
    EXPECT_EXIT(castElement(object, &missing, string, &result), testing::ExitedWithCode(101),
                "cannot cast null to String");
    EXPECT_EXIT(castElement(object, &box, nullable, &result), testing::ExitedWithCode(101),
                "cannot cast Int to String");
    EXPECT_EXIT(castElement(object, &box, ElementType(&vesk_class_Long.record), &result), testing::ExitedWithCode(101),
                "cannot cast Int to Long");
}

// --- sizes that the compiler asks for

TEST(NativeObjects, SizesByClass) {
    EXPECT_EQ(nativeInstanceSize("vesk.collections.ArrayList"), sizeof(ListObject));
    EXPECT_EQ(nativeInstanceSize("vesk.collections.HashMapSync"), sizeof(Synchronized<HashObject>));
    EXPECT_EQ(nativeInstanceSize("vesk.collections.CollectionIterator"), sizeof(IteratorObject));
    EXPECT_GT(nativeInstanceSize("vesk.math.NDArray"), 0u);
    EXPECT_EQ(nativeInstanceSize("vesk.collections.Generator"), 0u);
    EXPECT_EQ(nativeInstanceSize("vesk.collections.Collection"), 0u);
    EXPECT_EQ(nativeInstanceSize("app.ArrayList"), 0u);
}

TEST(NativeObjects, SubclassesAreRecognised) {
    const ClassRecord* list = collectionRecord("ArrayList", "Int").get();
    TestRecord own("app.Numbers", 64, list);
    ASSERT_NE(nativeClassOf(own.get()), nullptr);
    EXPECT_EQ(nativeClassOf(own.get())->name, "ArrayList");
    EXPECT_EQ(exactNativeClassOf(own.get()), nullptr);
    EXPECT_NE(exactNativeClassOf(list), nullptr);
    EXPECT_EQ(nativeClassOf(&vesk_class_String.record), nullptr);
}

}  // namespace
}  // namespace vesk::runtime
