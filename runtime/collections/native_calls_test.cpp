// Records of instantiated classes, made once per name. Their three object methods forward to the natives as generated
// code does; the descriptors for that are found by name.
#include "runtime/collections/native_calls_test.h"

#include <map>
#include <memory>
#include <stdexcept>

#include "runtime/math/ndarray.h"

namespace vesk::runtime {
namespace {

const ClassRecord* descriptorNamed(std::string_view name) {
    if (name.ends_with('?')) return nullableRecord(descriptorNamed(name.substr(0, name.size() - 1)));
    if (const char* symbol = recordSymbolOf(name)) return static_cast<const ClassRecord*>(exportedSymbol(symbol));
    std::size_t open = name.find('<');
    constexpr std::string_view PACKAGE = "vesk.collections.";
    if (open == name.npos || !name.starts_with(PACKAGE)) throw std::runtime_error("no type " + std::string(name));
    return collectionRecord(std::string(name.substr(PACKAGE.size(), open - PACKAGE.size())),
                            std::string(name.substr(open + 1, name.size() - open - 2)))
        .get();
}

// "A, B<C, D>" at its commas outside of brackets.
std::vector<std::string> argumentsOf(std::string_view list) {
    std::vector<std::string> parts(1);
    int depth = 0;
    for (char c : list) {
        depth += (c == '<') - (c == '>');
        if (c == ',' && depth == 0)
            parts.emplace_back();
        else if (c != ' ' || !parts.back().empty())
            parts.back() += c;
    }
    return parts;
}

struct Forwarding {
    std::string symbolPrefix;
    std::vector<const ClassRecord*> descriptors;
};

Forwarding forwardingOf(const Object* self) {
    std::string_view name = self->record->name;
    std::size_t open = name.find('<');
    std::string prefix(name.substr(0, open));
    for (char& c : prefix) c = c == '.' ? '_' : c;
    Forwarding forwarding{prefix + "_", {}};
    for (const std::string& argument : argumentsOf(name.substr(open + 1, name.size() - open - 2)))
        forwarding.descriptors.push_back(descriptorNamed(argument));
    return forwarding;
}

template <class R, class... Arguments>
R forward(const char* method, const Object* self, Arguments... arguments) {
    Forwarding to = forwardingOf(self);
    if (to.descriptors.size() == 1)
        return callNative<R>(to.symbolPrefix + method, to.descriptors[0], self, arguments...);
    return callNative<R>(to.symbolPrefix + method, to.descriptors[0], to.descriptors[1], self, arguments...);
}

const String* forwardToString(const Object* self) { return forward<const String*>("toString", self); }

bool forwardEquals(const Object* self, const Object* other) { return forward<bool>("equals", self, other); }

std::int32_t forwardHashCode(const Object* self) { return forward<std::int32_t>("hashCode", self); }

}  // namespace

TestRecord& collectionRecord(const std::string& className, const std::string& arguments) {
    static std::map<std::string, std::unique_ptr<TestRecord>> records;
    const std::string package = className == "NDArray" ? "vesk.math." : "vesk.collections.";
    const std::string name = package + className + "<" + arguments + ">";
    std::unique_ptr<TestRecord>& record = records[name];
    if (!record) {
        record = std::make_unique<TestRecord>(name, nativeInstanceSize(package + className));
        if (exportedSymbol("vesk_collections_" + className + "_toString") || className == "NDArray")
            record->setMethods(reinterpret_cast<void*>(forwardToString), reinterpret_cast<void*>(forwardEquals),
                               reinterpret_cast<void*>(forwardHashCode));
    }
    return *record;
}

const ClassRecord* nullableRecord(const ClassRecord* type) {
    static std::map<const ClassRecord*, std::unique_ptr<TestRecord>> records;
    std::unique_ptr<TestRecord>& record = records[type];
    if (!record) {
        record = std::make_unique<TestRecord>(std::string(type->name) + "?", 0, nullptr);
        record->record.record.kind = RecordKind::Nullable;
        record->record.record.element = type;
    }
    return record->get();
}

}  // namespace vesk::runtime
