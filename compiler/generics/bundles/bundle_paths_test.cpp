// Names, places and keys of bundles, callers, and the queries of the host build.
#include "generics/bundles/bundle_paths.h"

#include "generics/bundles/bundle_manifest.h"
#include "generics/method_program_test.h"
#include "generics/typetext/symbol_mangling.h"

namespace vesk::compiler {
namespace {

TEST(BundlePaths, IdentityTextsGiveTheFileNames) {
    const struct {
        Str owner;
        StrVec args, params;
        Str caller, file;
    } cases[] = {
        {"vesk.collections.ArrayList", {"Int"}, {}, "", "ArrayList__GM_6aee7ca7ad83e77f.vk"},
        {"Box", {"Int"}, {}, "", "Box__GM_54867ff39ff81963.vk"},
        {"Box", {"Int"}, {}, "/src/app/main.vk", "Box__GM_1f070e33d0adb28e.vk"},
        {"a.b.Box", {"Int"}, {}, "", "Box__GM_8029d18690cdd052.vk"},
        {"a.b.Box", {"Int", "String"}, {"Long"}, "", "Box__GM_84ecb24ad69515d3.vk"},
    };
    for (const auto& each : cases) {
        const Str identity = genericMethodBundleIdentity(each.owner, each.args, each.params, each.caller);
        EXPECT_EQ(shortTypeNameLocal(each.owner) + "__GM_" + fnv1a64Hex(identity) + ".vk", each.file) << identity;
    }
    EXPECT_EQ(genericMethodBundleIdentity("vesk.collections.ArrayList", {"Int"}, {}, ""),
              "vesk.collections.ArrayList<gm:Int|params:>");
}

TEST(BundlePaths, KeysArePlainText) {
    EXPECT_EQ(genericMethodBundleCacheKey("Box", "map", false, {"Int", "List<Int>"}, {}, ""),
              "Box|map|0|Int,List<Int>");
    EXPECT_EQ(genericMethodBundleCacheKey("Point", "of", true, {}, {"String"}, "/src/app/main.vk"),
              "Point|of|1||<String>|caller:/src/app/main.vk");
    EXPECT_EQ(genericMethodBundleCacheKey("Box", "m", false, {}, {}, ""), "Box|m|0|");
}

TEST(BundlePaths, BundlesAreKnownByTheirNames) {
    for (const Str path : {"/x/Box__gm_0123.vk", "Box__GM_x.txt", "/a/b__GM_.vk"})
        EXPECT_TRUE(isGenericMethodBundlePath(path)) << path;
    for (const Str path : {"Box_GM_1.vk", "d__GM_/y.vk", "", "Box.vk", "Box.__GM_"})
        EXPECT_FALSE(isGenericMethodBundlePath(path)) << path;
}

TEST(BundlePaths, OwnersAreNames) {
    for (const Str name : {"Box", "a.b.Box", "_a1._", "vesk.collections.List__T_Int"})
        EXPECT_TRUE(isClassName(name)) << name;
    for (const Str name : {"", ".", "a.", ".a", "a..b", "a/b", "..", "a.../../etc", "a b", "1a", "Box<T>", "a\nb"}) {
        EXPECT_FALSE(isClassName(name)) << name;
    }
}

TEST(BundlePaths, LieUnderTheRootOfTheirOwner) {
    TemporaryFolder folder;
    MethodProgram program(folder.path());
    const ContextPtr main = program.load("main.vk", "class Box:\n    def m<T>(x: T) -> T:\n        return x\n");
    program.load("a/b/box.vk", "package a.b\nclass Box:\n    def m<T>(x: T) -> T:\n        return x\n");
    Str caller = "unset";
    const Str app = Runtime::getAppGenericsPath();
    const Str own = genericMethodBundleSourcePath("Box", {"Int"}, {}, main, nullptr, &caller);
    EXPECT_EQ(caller, program.pathOf("main.vk"));
    EXPECT_EQ(own, app + "/Box__GM_" + fnv1a64Hex("Box<gm:Int|params:|caller:" + caller + ">") + ".vk");
    EXPECT_EQ(std::filesystem::path(genericMethodBundleSourcePath("a.b.Box", {"Int"}, {}, main, nullptr, nullptr))
                  .parent_path()
                  .string(),
              app + "/a/b");
    // What comes from the standard library alone is shared by all callers.
    const Str shared =
        genericMethodBundleSourcePath("vesk.collections.Collection", {"Int"}, {}, main, nullptr, &caller);
    EXPECT_EQ(caller, "");
    EXPECT_EQ(shared, Runtime::getGenericsPath() + "/vesk/collections/Collection__GM_" +
                          fnv1a64Hex("vesk.collections.Collection<gm:Int|params:>") + ".vk");
    genericMethodBundleSourcePath("vesk.collections.Collection", {"Box"}, {}, main, nullptr, &caller);
    EXPECT_EQ(caller, program.pathOf("main.vk"));
    // An owner that is no name gets no path.
    EXPECT_EQ(genericMethodBundleSourcePath("../../x", {"Int"}, {}, main, nullptr, nullptr), "");
}

TEST(BundlePaths, CallersAreFollowed) {
    TemporaryFolder folder;
    MethodProgram program(folder.path());
    const auto callerOf = [&](const Str& file) {
        auto scope = std::make_shared<Context>(nullptr);
        scope->setCompileUnitFile(file);
        return genericMethodCallerSourceUnit(scope, nullptr);
    };
    const Str line = "# @vesk-generic-caller-source-unit ";
    const Str generated = Runtime::getAppGenericsPath();
    const Str user =
        writeFile(folder.path() + "/user.vk", "package a\n\n# x\nimport b\nclass X:\n" + line + "/nowhere\n");
    const Str first = writeFile(generated + "/g1.vk", "  " + line + "  " + user + "  \n");
    const Str second =
        writeFile(Runtime::getGenericsPath() + "/g2.vk", "# other\n\npackage p\nimport q\n" + line + first + "\n");
    const Str self = generated + "/self.vk";
    writeFile(self, line + self + "\n");
    const Str a = generated + "/a.vk", b = generated + "/b.vk";
    writeFile(a, line + b + "\n");
    writeFile(b, line + a + "\n");
    EXPECT_EQ(callerOf(user), user);
    EXPECT_EQ(callerOf(first), user);
    EXPECT_EQ(callerOf(second), user);
    EXPECT_EQ(callerOf(self), self);
    EXPECT_EQ(callerOf(folder.path() + "/missing.vk"), folder.path() + "/missing.vk");
    EXPECT_EQ(callerOf(a), a);  // a circle ends where it closes

    auto token = std::make_shared<Token>(nullptr, TokenType::Identifier, "x", 1, 1);
    token->setFilename(second);
    EXPECT_EQ(genericMethodCallerSourceUnit(nullptr, token), user);
    EXPECT_EQ(genericMethodCallerSourceUnit(nullptr, nullptr), "");
    // A header that changes is seen.
    writeFile(first, line + a + "\n");
    EXPECT_EQ(callerOf(first), a);
}

// In the files of people the line is a comment, whatever they are called.
TEST(BundlePaths, OrdinaryFilesAreTheirOwnCallers) {
    TemporaryFolder folder;
    MethodProgram program(folder.path());
    const Str line = "# @vesk-generic-caller-source-unit ";
    const Str manifest = renderGenericMethodBundleManifestContent("Box", {"Int"}, {}, "/some/path", nullptr);
    for (const Str name : {"main.vk", "g1.vk", "Box__GM_1.vk", "Box__gm_1.vk", "repl_chunk_1"}) {
        for (const Str& text : {line + "/some/path\n", line + folder.path() + "/" + name + "\n", manifest}) {
            const Str file = writeFile(folder.path() + "/" + name, text);
            auto scope = std::make_shared<Context>(nullptr);
            scope->setCompileUnitFile(file);
            EXPECT_EQ(genericMethodCallerSourceUnit(scope, nullptr), file) << text;
            EXPECT_FALSE(isKeptGenericMethodBundle(file));
            EXPECT_EQ(isGenericMethodBundleSource(file), text == manifest) << "the queries answer for any path";
        }
    }
    for (const Str& root : {Runtime::getGenericsPath(), Runtime::getAppGenericsPath()}) {
        EXPECT_TRUE(isKeptGenericMethodBundle(root + "/a/Box__GM_1.vk"));
        EXPECT_TRUE(isKeptGenericMethodBundle(root + "/a/../Box__GM_1.vk"));
        EXPECT_FALSE(isKeptGenericMethodBundle(root + "/../Box__GM_1.vk"));
        EXPECT_FALSE(isKeptGenericMethodBundle(root));
    }
    program.session().addVirtualSource("/memory/Box__GM_1.vk", manifest);
    program.session().addVirtualSource("/memory/repl_chunk_1", manifest);
    EXPECT_TRUE(isKeptGenericMethodBundle("/memory/Box__GM_1.vk"));
    EXPECT_FALSE(isKeptGenericMethodBundle("/memory/repl_chunk_1"));
}

TEST(BundlePaths, SameUnits) {
    EXPECT_TRUE(isSameSourceUnit("", ""));
    EXPECT_TRUE(isSameSourceUnit("/a/./b.vk", "/a/b.vk"));
    EXPECT_TRUE(isSameSourceUnit(" /a/b.vk ", "/a/b.vk"));
    EXPECT_FALSE(isSameSourceUnit("/a/b.vk", ""));
    EXPECT_FALSE(isSameSourceUnit("/a/b.vk", "/a/c.vk"));
}

TEST(BundlePaths, ObjectsAreRebuiltWhenOlder) {
    TemporaryFolder folder;
    MethodProgram program(folder.path());
    program.load("main.vk", "class Box:\n    def m<T>(x: T) -> T:\n        return x\n");
    const Str caller = writeFile(folder.path() + "/caller.vk", "");
    const Str bundle = writeFile(folder.path() + "/Box__GM_1.vk",
                                 renderGenericMethodBundleManifestContent("Box", {"Int"}, {}, caller, nullptr));
    const Str object = folder.path() + "/Box.o";
    EXPECT_FALSE(genericMethodBundleObjectNeedsRebuild(program.pathOf("main.vk"), object));  // no bundle
    EXPECT_TRUE(genericMethodBundleObjectNeedsRebuild(bundle, object));                      // no object
    writeFile(object, "o");
    const auto now = std::filesystem::file_time_type::clock::now();
    const auto setAge = [&](const Str& path, int minutes) {
        std::filesystem::last_write_time(path, now - std::chrono::minutes(minutes));
    };
    setAge(object, 10);
    setAge(caller, 20);
    setAge(program.pathOf("main.vk"), 20);
    EXPECT_FALSE(genericMethodBundleObjectNeedsRebuild(bundle, object));
    setAge(caller, 5);
    EXPECT_TRUE(genericMethodBundleObjectNeedsRebuild(bundle, object));
    setAge(caller, 10);
    EXPECT_FALSE(genericMethodBundleObjectNeedsRebuild(bundle, object));  // the same time is not newer
    setAge(program.pathOf("main.vk"), 5);
    EXPECT_TRUE(genericMethodBundleObjectNeedsRebuild(bundle, object));
    setAge(program.pathOf("main.vk"), 20);
    std::filesystem::remove(caller);
    EXPECT_FALSE(genericMethodBundleObjectNeedsRebuild(bundle, object));  // gone is not newer
}

TEST(BundlePaths, DeclaredSymbolsAreSorted) {
    TemporaryFolder folder;
    MethodProgram program(folder.path());
    std::vector<BundleMethodSpecialization> specs(4);
    for (std::size_t i = 0; i < 4; i++) {
        specs[i].info.name = "m";
        specs[i].symbol = StrVec{"b", "a", "b", "C"}[i];
    }
    const Str bundle = writeFile(folder.path() + "/Box__GM_1.vk",
                                 renderGenericMethodBundleManifestContent("Box", {"Int"}, {}, "", &specs));
    EXPECT_EQ(genericMethodBundleDeclaredSymbols(bundle), (StrVec{"C", "a", "b"}));
    EXPECT_TRUE(genericMethodBundleDeclaredSymbols(writeFile(folder.path() + "/x__GM_.vk", "class X:\n")).empty());
}

}  // namespace
}  // namespace vesk::compiler
