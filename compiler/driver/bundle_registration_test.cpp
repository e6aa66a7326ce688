// What a build compiles of a bundle is what the specializer's text of it says.
#include "driver/bundle_registration.h"

#include <map>

#include "driver/build_graph.h"
#include "generics/method_program_test.h"

namespace vesk::compiler {
namespace {

constexpr const char* LIBRARY = R"(package lib

class Box<T>:
    value: T
    def init(value: T):
        self.value = value
    def with<U>(other: U, f: (T, U) -> T) -> T:
        self.value = f(self.value, other)
        return self.value
    def twice<U>(other: U):
        return [other, other]
    static def same<U>(x: U) -> U:
        return x
)";

constexpr const char* MAIN = R"(import lib

def main() -> Void:
    b: Box<Int> = Box<Int>(1)
    print(b.with("x", (a: Int, s: String) => a + s.length()))
    print(b.twice(2.5).size())
    print(Box<String>.same(b.value))
)";

// The functions a module defines, without their debug lines and what says whether others may leave them out, by name.
std::map<Str, Str> functionsOf(UnitModule& module) {
    dropDebugLines(module);
    const Str text = printIL(module);
    std::map<Str, Str> functions;
    const StrVec lines = splitSourceLines(text);
    for (std::size_t i = 0; i < lines.size(); i++) {
        if (!lines[i].starts_with("define ")) continue;
        const std::size_t name = lines[i].find('@') + 1;
        const bool isQuoted = lines[i][name] == '"';
        const std::size_t end = isQuoted ? lines[i].find('"', name + 1) + 1 : lines[i].find('(', name);
        Str& function = functions[lines[i].substr(name, end - name)];
        for (; i < lines.size() && lines[i] != "}"; i++) {
            const bool isHeader = function.empty();
            Str line = lines[i];
            if (const std::size_t group = line.rfind(" #"); group != Str::npos) line.resize(group);
            for (const Str linkage : {"define linkonce_odr ", "define weak_odr "})
                if (isHeader && line.starts_with(linkage)) line = "define " + line.substr(linkage.size());
            function += line + "\n";
        }
    }
    return functions;
}

TEST(BundleRegistration, WhatIsCompiledIsTheTextOfTheBundle) {
    const TemporaryFolder folder;
    std::map<Str, std::map<Str, Str>> compiled;  // by bundle
    {
        MethodProgram program(folder.path());
        program.write("lib/box.vk", LIBRARY);
        program.load("main.vk", MAIN);
        TimeTrace trace;
        BuildGraph graph(program.session(), trace, BuildGraph::Reach::Program);
        graph.open(*program.session().loadedFile(program.pathOf("main.vk")));
        ASSERT_TRUE(graph.compile()) << program.messages().at(0);
        for (const CompiledUnit& unit : graph.finish()) {
            if (isGenericMethodBundlePath(unit.path)) compiled[unit.path] = functionsOf(*unit.module);
        }
    }
    ASSERT_EQ(compiled.size(), bundleFilesBelow(folder.path()).size());
    ASSERT_GE(compiled.size(), 3u);
    for (const auto& [path, functions] : compiled) {
        MethodProgram program(folder.path());
        program.load("main.vk");
        const Str il = buildGenericMethodBundleIL(path, program.root());
        EXPECT_EQ(program.messages(), StrVec{});
        EXPECT_FALSE(functions.empty());
        EXPECT_EQ(functionsOf(*parseIL(il, path)), functions) << path;
    }
}

}  // namespace
}  // namespace vesk::compiler
