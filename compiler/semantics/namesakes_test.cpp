// The names that classes without a package may share with something else.
#include "semantics/namesakes.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace vesk::compiler {
namespace {

TEST(Namesakes, TheListOfTheLibrarysTypeParametersIsComplete) {
    CompileSession session({.cache = CacheMode::Memory});
    const ScopedCompileSession scope(session);
    ASSERT_FALSE(session.standardLibrary().empty());
    for (const auto& [package, listed] : libraryTypeParameters()) {
        std::string folder = package;
        for (char& c : folder)
            if (c == '.') c = '/';
        std::set<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(session.standardLibrary() + "/" + folder)) {
            if (entry.path().extension() != ".vk") continue;
            const FileDeclaration* file = session.loadFile(entry.path().native());
            ASSERT_TRUE(file) << entry.path();
            found.merge(declaredTypeParameters(*file));
        }
        EXPECT_EQ(found, listed) << package;
    }
}

TEST(Namesakes, AreLookedForWhereGenericCodeMayComeFrom) {
    const struct {
        const char* text;
        bool has;
    } cases[] = {
        {"class Box:\n    pass\n", false},
        {"class A:\n    pass\n", false},
        {"import vesk.collections\n\nclass A:\n    pass\n", true},
        {"import vesk.collections\n\nclass Tuple:\n    pass\n", true},
        {"class Tuple:\n    pass\n", false},
        {"class Iterator:\n    pass\n", true},
        {"package app\n\nimport vesk.collections\n\nclass A:\n    pass\n", false},
        {"class A:\n    pass\n\ndef f<A>(x: A) -> A:\n    return x\n", true},
        {"class C:\n    def f<D>(x: D) -> D:\n        return x\n\nclass D:\n    pass\n", true},
    };
    for (const auto& each : cases) {
        CompileSession session({.cache = CacheMode::Memory});
        const ScopedCompileSession scope(session);
        session.addVirtualSource("/virtual/app/main.vk", each.text);
        FileDeclaration* file = session.loadFile("/virtual/app/main.vk");
        ASSERT_TRUE(file) << each.text;
        EXPECT_EQ(hasNamesakes(session, {file}), each.has) << each.text;
    }
}

TEST(Namesakes, TheStandInIsNotShown) {
    SessionOptions options{.cache = CacheMode::Memory};
    options.defaultPackage = STAND_IN_PACKAGE;
    const CompileSession session(options);
    EXPECT_EQ(withoutStandInPackage(session, "expected __program.Box<__program.A>, got Int"),
              "expected Box<A>, got Int");
    EXPECT_EQ(withoutStandInPackage(CompileSession({.cache = CacheMode::Memory}), "__program.A"), "__program.A");
}

}  // namespace
}  // namespace vesk::compiler
