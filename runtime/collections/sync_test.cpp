// Synchronized collections under several threads. Run under the thread sanitizer these tests show races; by themselves
// they show lost updates and deadlocks.
#define GC_THREADS
#include <gc/gc.h>

#include <numeric>
#include <thread>

#include "runtime/collections/native_calls_test.h"

namespace vesk::runtime {
namespace {

constexpr int THREADS = 4, STEPS = 2000;

// Runs work(number of the thread) in threads that the collector knows.
template <class Work>
void inThreads(Work work) {
    GC_allow_register_threads();
    std::vector<std::thread> threads;
    for (int number = 0; number < THREADS; number++) {
        threads.emplace_back([=] {
            GC_stack_base base;
            GC_get_stack_base(&base);
            GC_register_my_thread(&base);
            work(number);
            GC_unregister_my_thread();
        });
    }
    for (std::thread& thread : threads) thread.join();
}

TEST(Sync, NoAdditionIsLostInAList) {
    const ClassRecord* t = Ints::descriptor();
    Object* list = newCollection("ArrayListSync", "Int", t);
    inThreads([=](int number) {
        for (int i = 0; i < STEPS; i++) {
            const std::int32_t value = number * STEPS + i;
            callNative<bool>("vesk_collections_ArrayListSync_add", t, list, static_cast<const void*>(&value));
        }
    });
    std::vector<std::int32_t> found = iterated<Ints>(list), expected(THREADS * STEPS);
    std::sort(found.begin(), found.end());
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(found, expected);
}

TEST(Sync, AddingAndRemovingBalance) {
    const ClassRecord* t = Strings::descriptor();
    Object* list = newCollection("ArrayListSync", "String", t);
    inThreads([=](int number) {
        for (int i = 0; i < STEPS; i++) {
            const Object* value = makeString(std::to_string(number) + "/" + std::to_string(i));
            callNative<bool>("vesk_collections_ArrayListSync_add", t, list, static_cast<const void*>(&value));
            const Object* removed = nullptr;
            callNative<void>("vesk_collections_ArrayListSync_removeFirst", t, static_cast<void*>(&removed), list);
            if (!removed) std::abort();
            callNative<const String*>("vesk_collections_ArrayListSync_toString", t, list);
        }
    });
    EXPECT_EQ(callNative<std::int32_t>("vesk_collections_ArrayListSync_size", t, list), 0);
}

TEST(Sync, MapsAndSets) {
    const ClassRecord* t = Ints::descriptor();
    for (const std::string className : {"HashMapSync", "SortedMapSync"}) {
        Object* map = newCollection(className, "Int, Int", t, t);
        inThreads([=](int number) {
            for (int i = 0; i < STEPS; i++) {
                const std::int32_t key = i * THREADS + number, value = -key;
                callNative<void>("vesk_collections_" + className + "_put", t, t, map, static_cast<const void*>(&key),
                                 static_cast<const void*>(&value));
                if (i % 2)
                    callNative<bool>("vesk_collections_" + className + "_remove", t, t, map,
                                     static_cast<const void*>(&key));
            }
        });
        EXPECT_EQ(callNative<std::int32_t>("vesk_collections_" + className + "_size", t, t, map), THREADS * STEPS / 2);
    }
    Object* set = newCollection("HashSetSync", "Int", t);
    inThreads([=](int) {
        for (std::int32_t i = 0; i < STEPS; i++)
            callNative<bool>("vesk_collections_HashSetSync_add", t, set, static_cast<const void*>(&i));
    });
    EXPECT_EQ(callNative<std::int32_t>("vesk_collections_HashSetSync_size", t, set), STEPS);
}

// Two collections that read each other must not wait for each other.
TEST(Sync, TwoCollectionsInBothDirections) {
    const ClassRecord* t = Ints::descriptor();
    Object* first = newCollection("ArrayListSync", "Int", t);
    Object* second = newCollection("ArrayListSync", "Int", t);
    Object *set = newCollection("HashSetSync", "Int", t), *otherSet = newCollection("HashSetSync", "Int", t);
    const std::int32_t one = 1;
    for (Object* list : {first, second})
        callNative<bool>("vesk_collections_ArrayListSync_add", t, list, static_cast<const void*>(&one));
    inThreads([=](int number) {
        const bool isEven = number % 2 == 0;
        for (int i = 0; i < STEPS; i++) {
            callNative<bool>("vesk_collections_ArrayListSync_equals", t, isEven ? first : second,
                             static_cast<const Object*>(isEven ? second : first));
            callNative<bool>("vesk_collections_HashSetSync_addAll", t, isEven ? set : otherSet,
                             static_cast<const Object*>(isEven ? otherSet : set));
            callNative<bool>("vesk_collections_HashSetSync_equals", t, isEven ? otherSet : set,
                             static_cast<const Object*>(isEven ? set : otherSet));
        }
    });
    EXPECT_TRUE(vesk_rt_equals(first, second));
}

// The lock is recursive: a list that contains itself takes it again.
TEST(Sync, AListInItself) {
    const ClassRecord* object = &vesk_class_Object.record;
    Object* list = newCollection("ArrayListSync", "Object", object);
    const Object* self = list;
    callNative<bool>("vesk_collections_ArrayListSync_add", object, list, static_cast<const void*>(&self));
    EXPECT_EQ(viewOf(vesk_rt_text(list)), "[...]");
    EXPECT_EQ(callNative<std::int32_t>("vesk_collections_ArrayListSync_indexOf", object, list,
                                       static_cast<const void*>(&self)),
              0);
}

TEST(SyncLock, IsRecursiveAndExclusive) {
    static SyncLock lock;
    std::int64_t counter = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; i++) {
        threads.emplace_back([&counter] {
            for (int step = 0; step < STEPS; step++) {
                SyncGuard outer(&lock), inner(&lock);
                counter++;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(counter, THREADS * STEPS);
}

}  // namespace
}  // namespace vesk::runtime
