// How the run-time library writes the methods of native generic classes.
// Parameters come in this order:
//     one descriptor per type parameter of the class, one per type argument of the method (a scalar's box record, a
//     class's record, a Nullable record for `T?`);
//     the record of the declared result when that is an instantiated generic class or an array that names a type
//     parameter ("ArrayList<T>"): the method makes the object itself;
//     `void* result` when the declared result is a bare type parameter: the value is written there in its own width;
//     the receiver, unless the method is static;
//     the arguments: those declared with a bare type parameter by address, others in their natural machine type.
// All other results are returned naturally. Symbols are package prefix, class, "_" and mangled method name; overloads
// from the second on end in "__dupN". Static methods get no descriptors of the class's type parameters.
#pragma once

#include <cstdint>
#include <string_view>

#include "runtime/collections/native_objects.h"
#include "runtime/panic.h"

namespace vesk::runtime {

using Descriptor = const ClassRecord*;

template <class State>
State& received(Object* self) {
    if (!self) vesk_rt_panic_null();
    return *static_cast<State*>(self);
}

// Held while a method of a class without lock runs.
struct Unlocked {
    template <class State>
    static Unlocked of(Object*) {
        return {};
    }
};

// Held while a method of a synchronized class runs.
class Locked {
public:
    template <class State>
    static Locked of(Object* self) {
        return Locked(&received<Synchronized<State>>(self).lock);
    }

private:
    explicit Locked(SyncLock* lock) : guard_(lock) {}
    SyncGuard guard_;
};

// One exported method of a class: takes the class's lock and calls the function of the method's name.
#define VESK_EXPORT_METHOD(CLASS, STATE, LOCK, RESULT, NAME, PARAMETERS, ARGUMENTS) \
    RESULT vesk_collections_##CLASS##_##NAME PARAMETERS {                           \
        [[maybe_unused]] auto held = LOCK::of<STATE>(self);                         \
        return NAME ARGUMENTS;                                                      \
    }
// The same for methods that read a second collection: they take one lock after the other, never both.
#define VESK_EXPORT_METHOD_OF_TWO(CLASS, STATE, LOCK, RESULT, NAME, PARAMETERS, ARGUMENTS) \
    RESULT vesk_collections_##CLASS##_##NAME PARAMETERS { return NAME<LOCK> ARGUMENTS; }

}  // namespace vesk::runtime
