// Faults of the file system, each in a process of its own: no rights, no room. What can be healed is, what cannot fails with
// the system's message and leaves what was there as it was.
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "generics/bundles/bundle_program_test.h"

namespace vesk::compiler {
namespace {

constexpr uid_t NOBODY = 65534;

// Runs something in a child process, without the rights of root; what it answers comes back through a file.
class BundleFaults : public Bundles {
protected:
    template <class Action>
    Str inChild(Action action) {
        const Str answer = folder.path() + "/answer";
        std::filesystem::remove(answer);
        writeFile(answer, "");
        chmod(answer.c_str(), 0666);
        const pid_t child = fork();
        if (child == 0) {
            alarm(60);
            if (geteuid() == 0 && (setegid(NOBODY) != 0 || seteuid(NOBODY) != 0)) _exit(2);
            Str text;
            try {
                text = action();
            } catch (const CompilerException& error) {
                text = Str("compiler exception: ") + error.what();
            } catch (const std::exception& error) {
                text = error.what();
            }
            rlimit limit{RLIM_INFINITY, RLIM_INFINITY};
            getrlimit(RLIMIT_FSIZE, &limit);
            limit.rlim_cur = limit.rlim_max;
            setrlimit(RLIMIT_FSIZE, &limit);
            std::ofstream(answer, std::ios::binary) << text;
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
        return readFile(answer);
    }
    // The return type, or what was thrown.
    Str compile(const Str& statement) {
        return inChild([&] { return Compilation(folder.path(), statement).spec.returnType; });
    }
    // The child's own: a cache that others may write is not used.
    void giveToChild() const {
        if (geteuid() != 0) return;
        EXPECT_EQ(chown(folder.path().c_str(), NOBODY, NOBODY), 0);
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path()))
            EXPECT_EQ(lchown(entry.path().c_str(), NOBODY, NOBODY), 0);
    }
    StrVec temporaryFiles() const {
        StrVec found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path() + "/cache")) {
            if (entry.path().string().find(".tmp-") != Str::npos) found.push_back(entry.path().string());
        }
        return found;
    }
    static void leaveRoomFor(rlim_t bytes) {
        signal(SIGXFSZ, SIG_IGN);
        rlimit limit{};
        getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
};

TEST_F(BundleFaults, AnUnreadableBundleIsMadeAgain) {
    { Compilation first(folder.path(), "b.swap(\"x\")"); }
    const Str path = onlyBundle(), good = readFile(path);
    giveToChild();
    chmod(path.c_str(), 0);
    EXPECT_EQ(compile("b.swap(\"x\")"), "String");
    EXPECT_EQ(readFile(path), good);
}

TEST_F(BundleFaults, WhatMayNotBeLockedFailsWithItsPath) {
    { Compilation first(folder.path(), "b.swap(\"x\")"); }
    const Str path = onlyBundle();
    giveToChild();
    const Str locks = folder.path() + "/cache/branches/.artifact-locks";
    // A lock file that may not be opened.
    Str lockFile;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(locks)) {
        if (entry.is_regular_file()) lockFile = entry.path().string();
    }
    chmod(lockFile.c_str(), 0);
    EXPECT_EQ(compile("b.open(\"x\")"), "Unable to lock generic-method cache '" + lockFile + "'");
    // A folder that may not be made.
    std::filesystem::remove_all(locks);
    chmod((folder.path() + "/cache/branches").c_str(), 0555);
    const Str wanted = std::filesystem::path(lockFile).parent_path().string();
    EXPECT_EQ(compile("b.open(\"x\")"),
              "Unable to create generic-method cache lock directory '" + wanted + "': Permission denied");
    // In a cache that is only read nothing is locked.
    EXPECT_EQ(inChild([&] { return Compilation(folder.path(), "b.open(\"x\")", CacheMode::ReadOnly).spec.returnType; }),
              "String");
    EXPECT_EQ(readGenericMethodBundleManifest(path).specs.size(), 1u);
    chmod((folder.path() + "/cache/branches").c_str(), 0700);
    EXPECT_EQ(compile("b.open(\"x\")"), "String");
    EXPECT_EQ(readGenericMethodBundleManifest(path).specs.size(), 2u);
}

TEST_F(BundleFaults, AFolderThatTakesNoFilesKeepsWhatItHas) {
    { Compilation first(folder.path(), "b.swap(\"x\")"); }
    const Str path = onlyBundle(), good = readFile(path);
    giveToChild();
    const Str parent = std::filesystem::path(path).parent_path().string();
    chmod(parent.c_str(), 0555);
    // What is there is used; a block that is added is a rewrite, and fails as one; a new bundle cannot be made.
    EXPECT_EQ(compile("b.swap(\"x\")"), "String");
    EXPECT_TRUE(compile("b.open(\"x\")").starts_with(path + ": ")) << compile("b.open(\"x\")");
    EXPECT_TRUE(
        compile("b.swap(1)").starts_with("compiler exception: Failed to generate generic method bundle for lib.Box"));
    EXPECT_EQ(readFile(path), good);
    chmod(parent.c_str(), 0700);
}

TEST_F(BundleFaults, AFullDiskLeavesNothingHalf) {
    { Compilation first(folder.path(), "b.swap(\"x\")"); }
    const Str path = onlyBundle(), good = readFile(path);
    giveToChild();
    for (const rlim_t room : {rlim_t{0}, rlim_t{1}, rlim_t{100}, static_cast<rlim_t>(good.size())}) {
        const auto compileWith = [&](const Str& statement) {
            return inChild([&] {
                leaveRoomFor(room);
                return Compilation(folder.path(), statement).spec.returnType;
            });
        };
        // The program's own file is written before the disk is full.
        writeFile(folder.path() + "/main.vk", mainWith("b.open(\"x\")"));
        giveToChild();
        const Str rewriting = compileWith("b.open(\"x\")");
        EXPECT_TRUE(rewriting.starts_with(path + ": ")) << rewriting;
        EXPECT_EQ(readFile(path), good);
        EXPECT_EQ(temporaryFiles(), StrVec{});
    }
    EXPECT_EQ(compile("b.open(\"x\")"), "String");
    EXPECT_EQ(readGenericMethodBundleManifest(path).specs.size(), 2u);
}

}  // namespace
}  // namespace vesk::compiler
