// For tests: records as the compiler makes them, and calls of native methods by symbol with the compiler's convention.
#pragma once

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <string>
#include <vector>

#include "runtime/collections/native_objects.h"
#include "runtime/exports.h"
#include "runtime/memory.h"
#include "runtime/numbers.h"
#include "runtime/records.h"
#include "runtime/strings.h"
#include "runtime/text.h"

namespace vesk::runtime {

// Calls a native with the parameters written; ints are Int.
template <class R, class... Arguments>
R callNative(const std::string& symbol, Arguments... arguments) {
    void* address = exportedSymbol(symbol);
    if (!address) throw std::runtime_error("no native " + symbol);
    return reinterpret_cast<R (*)(Arguments...)>(address)(arguments...);
}

// A class record with room for the three methods of every object and some interfaces; lives for ever.
struct TestRecord {
    RecordWithMethods<OBJECT_SLOTS> record{};
    std::string name;
    std::vector<InterfaceEntry> interfaces;
    std::vector<std::vector<void*>> tables;

    TestRecord(std::string typeName, std::uint32_t instanceSize, const ClassRecord* super = &vesk_class_Object.record)
        : name(std::move(typeName)) {
        record = vesk_class_Object;
        record.record.name = name.c_str();
        record.record.super = super;
        record.record.instanceSize = instanceSize;
        record.record.pointerFree = 0;
        interfaces.reserve(8);
        tables.reserve(8);
    }
    TestRecord(const TestRecord&) = delete;
    TestRecord& operator=(const TestRecord&) = delete;

    void implement(const ClassRecord* interface, std::vector<void*> methods) {
        tables.push_back(std::move(methods));
        interfaces.push_back({interface, tables.back().data()});
        record.record.interfaces = interfaces.data();
        record.record.interfaceCount = std::uint32_t(interfaces.size());
    }
    void setMethods(void* toString, void* equals, void* hashCode) {
        record.methods[0] = toString;
        record.methods[1] = equals;
        record.methods[2] = hashCode;
    }
    const ClassRecord* get() const { return &record.record; }
};

// The record of an instantiated collection class.
TestRecord& collectionRecord(const std::string& className, const std::string& arguments);
// The descriptor of `T?`.
const ClassRecord* nullableRecord(const ClassRecord* type);

inline String* text(std::string_view value) {
    startMemory();
    return makeString(value);
}

// How values of the tests' element types are made from numbers, and what stands for them in the standard containers.
template <class T>
struct ScalarElements {
    using Value = T;
    using Model = T;
    static Value make(int seed) { return static_cast<T>(seed); }
    static Model model(int seed) { return make(seed); }
    static Model modelOf(Value value) { return value; }
};
struct Ints : ScalarElements<std::int32_t> {
    static const ClassRecord* descriptor() { return &vesk_class_Int.record; }
    static constexpr const char* NAME = "Int";
};
struct Bytes : ScalarElements<std::uint8_t> {
    static const ClassRecord* descriptor() { return &vesk_class_Byte.record; }
    static constexpr const char* NAME = "Byte";
};
struct Shorts : ScalarElements<std::int16_t> {
    static const ClassRecord* descriptor() { return &vesk_class_Short.record; }
    static constexpr const char* NAME = "Short";
};
struct Doubles : ScalarElements<double> {
    static Value make(int seed) { return seed / 4.0; }
    static Model model(int seed) { return make(seed); }
    static const ClassRecord* descriptor() { return &vesk_class_Double.record; }
    static constexpr const char* NAME = "Double";
};
struct Strings {
    using Value = const Object*;
    using Model = std::string;
    static const ClassRecord* descriptor() { return &vesk_class_String.record; }
    static constexpr const char* NAME = "String";
    static Model model(int seed) { return (seed % 2 ? "a rather long text " : "") + std::to_string(seed); }
    static Value make(int seed) { return makeString(model(seed)); }
    static Model modelOf(Value value) { return std::string(viewOf(static_cast<const String*>(value))); }
};
// Boxed, as elements of type Object are.
struct Boxes {
    using Value = const Object*;
    using Model = std::int64_t;
    static const ClassRecord* descriptor() { return &vesk_class_Object.record; }
    static constexpr const char* NAME = "Object";
    static Model model(int seed) { return seed; }
    static Value make(int seed) { return vesk_rt_box_Long(seed); }
    static Model modelOf(Value value) { return static_cast<const Box<std::int64_t>*>(value)->value; }
};
using ElementKinds = testing::Types<Ints, Bytes, Shorts, Doubles, Strings, Boxes>;

// The text that the language shows for a value.
template <class Elements>
std::string shownText(typename Elements::Value value) {
    if constexpr (std::is_pointer_v<typename Elements::Value>)
        return std::string(viewOf(vesk_rt_text(value)));
    else if constexpr (std::is_floating_point_v<typename Elements::Value>)
        return floatText(value);
    else
        return std::to_string(value);
}

// A new object whose native constructor without further parameters has run.
template <class... Descriptors>
Object* newCollection(const std::string& className, const std::string& arguments, Descriptors... descriptors) {
    startMemory();
    Object* object = vesk_rt_new(collectionRecord(className, arguments).get());
    callNative<void>("vesk_collections_" + className + "_init", descriptors..., object);
    return object;
}

// All elements by the native iterator.
template <class Elements>
std::vector<typename Elements::Model> iterated(Object* collection) {
    const ClassRecord* t = Elements::descriptor();
    Object* iterator = vesk_rt_new(collectionRecord("CollectionIterator", Elements::NAME).get());
    callNative<void>("vesk_collections_CollectionIterator_init", t, iterator, collection);
    std::vector<typename Elements::Model> found;
    while (callNative<bool>("vesk_collections_CollectionIterator_hasNext", t, iterator)) {
        typename Elements::Value value;
        callNative<void>("vesk_collections_CollectionIterator_next", t, static_cast<void*>(&value), iterator);
        found.push_back(Elements::modelOf(value));
    }
    return found;
}

}  // namespace vesk::runtime
