// Paths, freshness of source texts, generated sources in memory and on disk, bad files.
#include "host/source_manager.h"

#include <sys/stat.h>
#include <unistd.h>
#include <fstream>
#include <thread>

#include "host/source_snapshot.h"
#include "semantics/model_session_test.h"

namespace vesk::compiler {

namespace {

namespace fs = std::filesystem;

struct SourceTest : testing::Test {
    fs::path folder = fs::temp_directory_path() / ("vesk-sources-" + std::to_string(::getpid()));
    SourceTest() { fs::create_directories(folder); }
    ~SourceTest() override { fs::remove_all(folder); }

    Str write(const Str& name, const Str& text) {
        Str path = (folder / name).native();
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }
};

TEST_F(SourceTest, NormalPaths) {
    Str here = fs::current_path().native();
    struct Case {
        Str path, normal;
    };
    for (const Case& each : std::vector<Case>{{"", ""},
                                              {"/", "/"},
                                              {"//", "/"},
                                              {"/a", "/a"},
                                              {"/a/", "/a"},
                                              {"/a//b", "/a/b"},
                                              {"/a/./b", "/a/b"},
                                              {"/a/../b", "/b"},
                                              {"/../a", "/a"},
                                              {"/a/..", "/"},
                                              {"/a/.", "/a"},
                                              {"/a/.b", "/a/.b"},
                                              {"/a/..b", "/a/..b"},
                                              {"/a/b..", "/a/b.."},
                                              {"x", here + "/x"},
                                              {"./x/../y.vk", here + "/y.vk"},
                                              {".", here},
                                              {"/ a /b ", "/ a /b "},
                                              {"/\xff\x01", "/\xff\x01"}}) {
        EXPECT_EQ(SourceManager::normalizePath(each.path), each.normal) << each.path;
        EXPECT_EQ(SourceManager::normalizePath(each.normal), each.normal) << each.path;
        EXPECT_EQ(SourceManager::normalizePath(fs::path(each.path)), each.normal) << each.path;
        EXPECT_EQ(SourceManager::instance().normalizePath(each.path.c_str()), each.normal) << each.path;
    }
    EXPECT_EQ(SourceManager::normalizePath(static_cast<const char*>(nullptr)), "");
}

TEST_F(SourceTest, ASnapshotKeepsWhatItFirstSawOfASourceButNotOfGeneratedFiles) {
    const Str source = write("a.vk", "old"), generated = write("Box__GM_1.vk", "old");
    const auto texts = [&] { return *SourceManager::contents(source) + " " + *SourceManager::contents(generated); };
    {
        const ScopedSourceSnapshot outer;
        EXPECT_EQ(texts(), "old old");
        write("a.vk", "newer");
        write("Box__GM_1.vk", "newer");
        EXPECT_EQ(texts(), "old newer");
        { const ScopedSourceSnapshot inner; }
        EXPECT_EQ(texts(), "old newer");
        std::thread other([&] { EXPECT_EQ(texts(), "newer newer"); });
        other.join();
        std::filesystem::file_time_type time;
        EXPECT_EQ(*SourceManager::contents(source, time),
                  "newer");  // whoever asks for the time means the file as it is
        EXPECT_EQ(SourceManager::contents((folder / "later.vk").native()), nullptr);
        const Str later = write("later.vk", "there");
        EXPECT_EQ(*SourceManager::contents(later), "there");
    }
    EXPECT_EQ(texts(), "newer newer");
}

TEST_F(SourceTest, ContentsAreFreshAfterEveryWrite) {
    // Same name, same length, quickly one after another: time stamps alone would not tell.
    for (int i = 0; i < 50; i++) {
        Str text = "text " + std::to_string(1000 + i);
        Str path = write("fresh.vk", text);
        auto read = SourceManager::contents(path);
        ASSERT_NE(read, nullptr);
        ASSERT_EQ(*read, text);
    }
    // A rename over it, and a write through another name of the file.
    Str path = (folder / "fresh.vk").native();
    fs::rename(write("other.vk", "text 2000"), path);
    EXPECT_EQ(*SourceManager::contents(path), "text 2000");
    fs::create_hard_link(path, folder / "link.vk");
    write("link.vk", "text 3000");
    EXPECT_EQ(*SourceManager::contents(path), "text 3000");
    // A write that sets the time back.
    auto time = fs::last_write_time(path);
    write("fresh.vk", "text 4000");
    fs::last_write_time(path, time);
    EXPECT_EQ(*SourceManager::contents(path), "text 4000");
    fs::remove(path);
    EXPECT_EQ(SourceManager::contents(path), nullptr);
}

TEST_F(SourceTest, UnchangedTextIsShared) {
    Str path = write("same.vk", "same");
    auto first = SourceManager::contents(path);
    EXPECT_EQ(SourceManager::contents(path), first);
    write("same.vk", "same");
    EXPECT_EQ(SourceManager::contents(path), first);
    write("same.vk", "more");
    EXPECT_NE(SourceManager::contents(path), first);
    EXPECT_EQ(*first, "same");
}

TEST_F(SourceTest, StatusAndTimes) {
    Str path = write("a.vk", "a");
    EXPECT_TRUE(SourceManager::status(path).exists);
    EXPECT_FALSE(SourceManager::status(path + "x").exists);
    EXPECT_TRUE(SourceManager::status(path + "x").queried);
    EXPECT_FALSE(SourceManager::status(path + "/below").exists);
    fs::file_time_type time{}, kept{};
    EXPECT_TRUE(SourceManager::lastWriteTime(path, time));
    EXPECT_EQ(time, fs::last_write_time(path));
    EXPECT_FALSE(SourceManager::lastWriteTime(path + "x", kept));
    EXPECT_EQ(kept, fs::file_time_type{});
}

TEST_F(SourceTest, WhatIsNoFileHasNoText) {
    EXPECT_EQ(SourceManager::contents(""), nullptr);
    EXPECT_EQ(SourceManager::contents(folder.native()), nullptr);
    Str pipe = (folder / "pipe").native();
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(SourceManager::contents(pipe), nullptr);
    EXPECT_EQ(*SourceManager::contents(write("empty.vk", "")), "");
}

TEST_F(SourceTest, VirtualSourcesComeFirst) {
    ModelSession session;
    Str path = write("v.vk", "on disk");
    EXPECT_EQ(*SourceManager::contents(path), "on disk");
    session->addVirtualSource(path, "in memory");
    EXPECT_EQ(*SourceManager::contents(path), "in memory");
    Str text;
    EXPECT_TRUE(Compiler::tryGetVirtualSource(path, text));
    EXPECT_EQ(text, "in memory");
    EXPECT_FALSE(Compiler::tryGetVirtualSource(path + "x", text));
    EXPECT_EQ(Compiler::virtualSourceContents(path + "x"), nullptr);
    EXPECT_TRUE(SourceManager::status(path).exists);
}

TEST_F(SourceTest, GeneratedSourcesInMemory) {
    Str path = (folder / "g/Box__GM_1.vk").native();
    for (CacheMode mode : {CacheMode::On, CacheMode::Memory, CacheMode::ReadOnly, CacheMode::Off}) {
        SessionOptions options = ModelSession::memoryOptions();
        options.cache = mode;
        ModelSession session(options);
        bool inMemory = mode != CacheMode::On;
        EXPECT_EQ(Compiler::storeGeneratedSourceInMemory(path, "text"), inMemory);
        EXPECT_EQ(Compiler::virtualSourceContents(path) != nullptr, inMemory);
        auto before = Compiler::virtualSourceContents(path);
        Compiler::storeGeneratedSourceInMemory(path, "text");
        EXPECT_EQ(Compiler::virtualSourceContents(path), before);
    }
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(SourceTest, GeneratedSourcesOnDisk) {
    SessionOptions options = ModelSession::memoryOptions();
    options.cache = CacheMode::On;
    ModelSession session(options);
    Str path = (folder / "deep/er/Box__GM_1.vk").native(), error;
    ASSERT_TRUE(Compiler::writeGeneratedSourceAtomically(path, "one", error)) << error;
    ASSERT_TRUE(Compiler::writeGeneratedSourceAtomically(path, "two", error)) << error;
    EXPECT_EQ(*SourceManager::contents(path), "two");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder / "deep/er"), fs::directory_iterator()), 1);
    // A folder in the way of the file, and a file in the way of the folder.
    fs::create_directories(folder / "taken");
    EXPECT_FALSE(Compiler::writeGeneratedSourceAtomically((folder / "taken").native(), "x", error));
    EXPECT_NE(error, "");
    error.clear();
    EXPECT_FALSE(Compiler::writeGeneratedSourceAtomically(path + "/below.vk", "x", error));
    EXPECT_NE(error, "");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 2);
    EXPECT_EQ(*SourceManager::contents(path), "two");
}

TEST_F(SourceTest, WhatCannotBeReadHasAReason) {
    ASSERT_EQ(::mkfifo((folder / "pipe.vk").c_str(), 0600), 0);
    fs::resize_file(write("huge.vk", ""), std::uintmax_t{20} << 30);
    fs::create_symlink("loop.vk", folder / "loop.vk");
    fs::create_directory(folder / "folder.vk");
    struct Case {
        Str name, reason;
        bool isMissing;
    };
    for (const Case& each : std::vector<Case>{{"none.vk", "No such file or directory", true},
                                              {"none/none.vk", "No such file or directory", true},
                                              {"huge.vk/none.vk", "Not a directory", true},
                                              {Str(300, 'n'), "File name too long", true},
                                              {"pipe.vk", "it is no ordinary file", false},
                                              {"huge.vk", "File too large", false},
                                              {"loop.vk", "Too many levels of symbolic links", false},
                                              {"folder.vk", "Is a directory", false}}) {
        ModelSession session(ModelSession::memoryOptions());
        UnreadReason reason;
        const Str path = (folder / each.name).native();
        EXPECT_EQ(SourceManager::contents(path, reason), nullptr) << each.name;
        EXPECT_EQ(reason.text, each.reason) << each.name;
        EXPECT_EQ(reason.isMissing(), each.isMissing) << each.name;
        const auto noted = CompileSession::current().unreadable();
        EXPECT_EQ(noted ? noted->path : "", each.isMissing ? "" : path) << each.name;
        EXPECT_EQ(noted ? noted->reason : each.reason, each.reason) << each.name;
    }
    UnreadReason reason;
    EXPECT_NE(SourceManager::contents(write("there.vk", "text"), reason), nullptr);
    EXPECT_EQ(reason.number, 0);
}

TEST_F(SourceTest, BadFilesAreReported) {
    struct Case {
        Str path, mistake;
    };
    Str longLine = "def f() -> Int:\n    return " + Str(10'000'000, '1') + "\n";
    for (const Case& each :
         std::vector<Case>{{(folder / "missing.vk").native(), "missing.vk:1: cannot read the file"},
                           {folder.native(), fs::path(folder).filename().native() + ":1: cannot read the file"}}) {
        ModelSession session;
        EXPECT_EQ(session->loadFile(each.path), nullptr);
        EXPECT_EQ(session->loadFile(each.path), nullptr);
        EXPECT_EQ(session.mistakes(), StrVec{each.mistake});
    }
    for (const Str& text : {Str("def f() -> Int:\n    return \xff\xfe\n"), Str("\xc3"), Str("\"open"), Str("/* open"),
                            Str(200000, '(')}) {
        ModelSession session;
        EXPECT_NE(session->loadFile(write("bad.vk", text)), nullptr);
        EXPECT_FALSE(session.mistakes().empty()) << text.substr(0, 20);
    }
    ModelSession session;
    EXPECT_NE(session->loadFile(write("long.vk", longLine)), nullptr);
    EXPECT_NE(session->loadFile(write("empty.vk", "")), nullptr);
}

TEST_F(SourceTest, PackagesAreFolders) {
    fs::create_directories(folder / "first/a/b");
    fs::create_directories(folder / "second/a/b");
    fs::create_directories(folder / "second/c");
    write("first/a/b/other.vk", "package elsewhere\nclass Wrong:\n    x: Int\n");
    write("second/a/b/one.vk", "package a.b\nimport c\nclass One:\n    x: Two\n    y: Three\n");
    write("second/a/b/two.vk", "package a.b\nclass Two:\n    x: One\n");
    write("second/c/three.vk", "package c\nimport a.b\nclass Three:\n    x: One\n");
    SessionOptions options = ModelSession::memoryOptions();
    options.sourceRoots = {(folder / "first").native(), (folder / "second").native()};
    ModelSession session(options);
    ContextPtr scope = session.load("/app/main.vk", "import a.b\n");
    EXPECT_EQ(session.resolve("One", scope), "a.b.One");
    EXPECT_EQ(session.resolve("c.Three", scope), "c.Three");
    EXPECT_EQ(session.resolve("Wrong", scope), "Wrong");
    EXPECT_EQ(session->filesOfPackage("a.b").size(), 2u);
    for (FileDeclaration* file : session->allFiles())
        if (!file->isStandardLibrary) session->checkDeclarations(*file);
    EXPECT_EQ(session.mistakes(), StrVec{});
}

}  // namespace

}  // namespace vesk::compiler
