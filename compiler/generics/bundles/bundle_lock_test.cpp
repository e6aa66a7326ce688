// Locks within a thread, between threads, and between processes.
#include "generics/bundles/bundle_lock.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <set>
#include <thread>

#include "generics/method_program_test.h"
#include "generics/typetext/symbol_mangling.h"

namespace vesk::compiler {
namespace {

using Lock = GenericMethodBundleArtifactLock;

Str paddedHash(const Str& key) {
    const Str digits = fnv1a64Hex(key);
    return Str(16 - digits.size(), '0') + digits;
}

Str lockFile(const Str& key) {
    return (genericMethodBundleLockDirectory() / ("generic-method-" + paddedHash(key) + ".lock")).string();
}

int openDescriptors() {
    int count = 0;
    DIR* folder = opendir("/proc/self/fd");
    while (readdir(folder)) count++;
    closedir(folder);
    return count;
}

// Whether somebody holds the lock file.
bool isHeld(const Str& key) {
    const int fd = open(lockFile(key).c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) return false;
    const bool held = flock(fd, LOCK_EX | LOCK_NB) != 0;
    close(fd);
    return held;
}

TEST(BundleLock, FilesCarrySixteenDigits) {
    EXPECT_EQ(paddedHash("/c/g/Box__GM_19.vk"), "0497ff718dd0b597");
    EXPECT_EQ(paddedHash("/g/a/b/Box.vk"), "ef2334b12858578f");
}

TEST(BundleLock, DirectoryLiesBesideTheBranch) {
    TemporaryFolder folder;
    MethodProgram program(folder.path());
    const std::filesystem::path branch = Runtime::getCacheBranchPath();
    EXPECT_EQ(genericMethodBundleLockDirectory(), branch.parent_path() / ".artifact-locks" / branch.filename());
}

TEST(BundleLock, NestsWithinAThread) {
    TemporaryFolder folder;
    MethodProgram program(folder.path());
    const Str key = folder.path() + "/Box__GM_1.vk";
    {
        const Lock outer(key);
        EXPECT_EQ(gGenericMethodBundleLockDepth.at(key), 1u);
        EXPECT_TRUE(isHeld(key));
        const int descriptors = openDescriptors();
        {
            const Lock inner(folder.path() + "/./x/../Box__GM_1.vk");  // the same file in another spelling
            EXPECT_EQ(gGenericMethodBundleLockDepth.at(key), 2u);
            EXPECT_EQ(openDescriptors(), descriptors);
        }
        EXPECT_TRUE(isHeld(key));
        EXPECT_EQ(gGenericMethodBundleLockDepth.at(key), 1u);
    }
    EXPECT_FALSE(isHeld(key));
    EXPECT_TRUE(gGenericMethodBundleLockDepth.empty());
    EXPECT_TRUE(std::filesystem::exists(lockFile(key)));  // the file stays
    struct stat info{};
    ASSERT_EQ(stat(lockFile(key).c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
}

TEST(BundleLock, InnerMayOutliveOuter) {
    TemporaryFolder folder;
    MethodProgram program(folder.path());
    const Str key = folder.path() + "/Box__GM_1.vk";
    auto outer = std::make_unique<Lock>(key);
    const Lock inner(key);
    outer.reset();
    EXPECT_EQ(gGenericMethodBundleLockDepth.at(key), 1u);
}

TEST(BundleLock, FailuresLeaveNothingBehind) {
    TemporaryFolder folder;
    MethodProgram program(folder.path());
    const Str key = folder.path() + "/Box__GM_1.vk";
    const Str directory = genericMethodBundleLockDirectory().string();
    const auto failure = [&] {
        try {
            const Lock lock(key);
        } catch (const std::runtime_error& error) {
            EXPECT_TRUE(gGenericMethodBundleLockDepth.empty());
            return Str(error.what());
        }
        return Str();
    };
    writeFile(folder.path() + "/cache/branches/.artifact-locks", "in the way");
    EXPECT_EQ(failure(), "Unable to create generic-method cache lock directory '" + directory + "': Not a directory");
    std::filesystem::remove(folder.path() + "/cache/branches/.artifact-locks");
    std::filesystem::create_directories(lockFile(key));
    EXPECT_EQ(failure(), "Unable to lock generic-method cache '" + lockFile(key) + "'");
    std::filesystem::remove(lockFile(key));
    // A link is not followed.
    std::filesystem::create_symlink(folder.path() + "/elsewhere", lockFile(key));
    EXPECT_EQ(failure(), "Unable to lock generic-method cache '" + lockFile(key) + "'");
    EXPECT_FALSE(std::filesystem::exists(folder.path() + "/elsewhere"));
    std::filesystem::remove(lockFile(key));
    EXPECT_EQ(failure(), "");
}

TEST(BundleLock, StripesAreRecursiveAndSixtyFour) {
    std::set<pthread_mutex_t*> stripes;
    for (int i = 0; i < 5000; i++) stripes.insert(&genericMethodBundleMutex("key" + std::to_string(i)));
    EXPECT_EQ(stripes.size(), 64u);
    EXPECT_EQ(&genericMethodBundleMutex("a"), &genericMethodBundleMutex("a"));
}

TEST(BundleLock, ThreadsExcludeEachOther) {
    TemporaryFolder folder;
    MethodProgram program(folder.path());
    const Str key = folder.path() + "/Box__GM_1.vk";
    int inside = 0, most = 0, total = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++) {
        threads.emplace_back([&] {
            const ScopedCompileSession session(program.session());
            for (int i = 0; i < 200; i++) {
                const Lock lock(key);
                most = std::max(most, ++inside);
                total++;
                inside--;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(most, 1);
    EXPECT_EQ(total, 800);
}

TEST(BundleLock, ProcessesExcludeEachOther) {
    TemporaryFolder folder;
    MethodProgram program(folder.path());
    const Str key = folder.path() + "/Box__GM_1.vk";
    const Str counter = writeFile(folder.path() + "/counter", "0");
    std::vector<pid_t> children;
    for (int p = 0; p < 3; p++) {
        const pid_t child = fork();
        if (child == 0) {
            for (int i = 0; i < 100; i++) {
                const Lock lock(key);
                const int value = std::stoi(readFile(counter));
                writeFile(counter, std::to_string(value + 1));
            }
            _exit(0);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(readFile(counter), "300");
}

TEST(BundleLock, AKilledProcessLetsGo) {
    TemporaryFolder folder;
    MethodProgram program(folder.path());
    const Str key = folder.path() + "/Box__GM_1.vk";
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    if (child == 0) {
        const Lock lock(key);
        (void)!write(ready[1], "x", 1);
        pause();
        _exit(0);
    }
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    EXPECT_TRUE(isHeld(key));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    const Lock lock(key);
    EXPECT_EQ(gGenericMethodBundleLockDepth.at(key), 1u);
    close(ready[0]);
    close(ready[1]);
}

}  // namespace
}  // namespace vesk::compiler
