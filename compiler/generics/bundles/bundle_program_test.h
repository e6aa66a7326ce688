// Programs whose calls make bundles, for tests: a library class in a file of its own, and compilations of one call each that
// follow each other on one folder like compiler processes.
#pragma once

#include <chrono>

#include "generics/bundles/bundle_generation.h"
#include "generics/bundles/bundle_il.h"
#include "generics/candidate_cache.h"
#include "generics/method_program_test.h"
#include "generics/method_symbols.h"

namespace vesk::compiler {

inline const Str LIBRARY = R"(package lib
class Box<T>:
    private value: T
    def init(value: T):
        self.value = value
    def get() -> T:
        return self.value
    def swap<U>(other: U) -> U:
        return other
    def pair<A, B>(a: A, b: B) -> A:
        return a
    def open<U>(other: U):
        return other
    static def make<U>(x: U) -> U:
        return x
    def outer<U>(x: U) -> U:
        return self.swap<U>(x)
)";

inline Str mainWith(const Str& statements) {
    return "import lib\n\nclass Own:\n    pass\n\ndef run(b: Box<Int>, s: Box<String>) -> Void:\n    " + statements +
           "\n";
}

// The compilation of one call.
struct Compilation {
    explicit Compilation(const Str& root, const Str& statement, CacheMode cache = CacheMode::On)
        : program(root, cache) {
        if (!std::filesystem::exists(program.pathOf("lib/box.vk"))) writeFile(program.pathOf("lib/box.vk"), LIBRARY);
        const Str text = mainWith(statement), path = program.pathOf("main.vk");
        if (readFile(path) != text) writeFile(path, text);
        program.load("main.vk");
        unit.emplace(program.pathOf("main.vk"));
        spec = program.specialize("main.vk", "run");
    }
    MethodProgram program;
    std::optional<ScopedSpecializationUnit> unit;
    GenericMethodSpec spec;
};

// A program with many classes, for bundles of Box<Int>.swap with each of them.
struct ManyBundles {
    explicit ManyBundles(const Str& root, CacheMode cache = CacheMode::On) : program(root, cache) {
        if (!std::filesystem::exists(program.pathOf("lib/box.vk"))) {
            writeFile(program.pathOf("lib/box.vk"), LIBRARY);
            Str classes = "package app\n";
            for (std::size_t i = 0; i < CLASSES; i++) classes += "class C" + std::to_string(i) + ":\n    pass\n";
            writeFile(program.pathOf("app/classes.vk"), classes);
            writeFile(program.pathOf("main.vk"), "import app\n" + mainWith("b.swap(1)"));
            const auto longAgo = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
            for (const char* file : {"main.vk", "lib/box.vk"})
                std::filesystem::last_write_time(program.pathOf(file), longAgo);
        }
        scope = program.load("main.vk");
        owner = canonicalOwnerClassName(scope, nullptr, "lib.Box<Int>");
    }
    // Makes the bundles of some of the classes.
    void make(std::size_t from, std::size_t to) const {
        BundleMethodSpecialization spec;
        spec.info = scope->getGenericMethods(owner, "swap").at(0);
        for (std::size_t i = from; i < to; i++) {
            spec.typeArgs = {"app.C" + std::to_string(i)};
            spec.paramTypes = spec.typeArgs;
            spec.returnType = spec.typeArgs[0];
            spec.symbol = genericMethodBundleSymbol(scope, owner, "swap", 1, spec.typeArgs, nullptr);
            ensureGenericMethodBundle(scope, owner, spec.typeArgs, {}, "swap", false, {"#:" + spec.typeArgs[0]}, {},
                                      nullptr, &spec);
        }
    }
    void preload() const {
        resetGenericSpecializerSession();
        preloadGenericMethodManifestsForOwner(scope, owner, nullptr);
    }

    static constexpr std::size_t CLASSES = 1000;
    MethodProgram program;
    ContextPtr scope;
    Str owner;
};

class Bundles : public testing::Test {
protected:
    StrVec bundles() const { return bundleFilesBelow(folder.path() + "/cache"); }
    // Compiles one call and answers the bundle that it leaves behind.
    Str bundleLeftBy(const Str& statement) {
        const Compilation compilation(folder.path(), statement);
        return onlyBundle();
    }
    Str onlyBundle() const {
        const StrVec all = bundles();
        EXPECT_EQ(all.size(), 1u);
        return all.empty() ? "" : all[0];
    }
    TemporaryFolder folder;
};

}  // namespace vesk::compiler
