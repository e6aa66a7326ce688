// Several compilations at once, and compilations that are killed: bundles stay whole, and the next one is right.
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <map>
#include <thread>

#include "generics/bundles/bundle_program_test.h"

// The system calls by which a compilation changes the file system, counted in a child process that a test has set a limit
// for: it kills itself at the n-th of them. This program's definitions come before those of the C library. ThreadSanitizer
// has its own, without which it takes descriptors that are used again for races.
#ifndef __SANITIZE_THREAD__
namespace {
std::atomic<long> gCallsUntilDeath{-1};

bool isLastCall() { return gCallsUntilDeath >= 0 && gCallsUntilDeath-- == 0; }
[[noreturn]] void die() {
    kill(getpid(), SIGKILL);
    for (;;) pause();
}
}  // namespace

extern "C" ssize_t write(int descriptor, const void* bytes, size_t count) {
    if (gCallsUntilDeath >= 0 && descriptor > 2) {
        // Half of it gets through.
        if (isLastCall()) {
            syscall(SYS_write, descriptor, bytes, count / 2);
            die();
        }
    }
    return syscall(SYS_write, descriptor, bytes, count);
}
extern "C" int rename(const char* from, const char* to) noexcept {
    if (isLastCall()) die();
    return static_cast<int>(syscall(SYS_rename, from, to));
}
extern "C" int mkdir(const char* path, mode_t mode) noexcept {
    if (isLastCall()) die();
    return static_cast<int>(syscall(SYS_mkdir, path, mode));
}
extern "C" int flock(int descriptor, int operation) noexcept {
    if (isLastCall()) die();
    return static_cast<int>(syscall(SYS_flock, descriptor, operation));
}
extern "C" int close(int descriptor) {
    if (isLastCall()) die();
    return static_cast<int>(syscall(SYS_close, descriptor));
}
#endif

namespace vesk::compiler {
namespace {

constexpr std::string_view BLOCK_BEGIN = "# @vesk-generic-method-spec-begin\n";

// A bundle's text with its blocks in order: they stand in the order in which somebody asked for them.
Str withSortedBlocks(Str text) {
    const std::size_t first = text.find(BLOCK_BEGIN);
    if (first == Str::npos || !text.ends_with("\n\n")) return text;
    StrVec blocks;
    for (std::size_t at = first; at != Str::npos;) {
        const std::size_t next = text.find(BLOCK_BEGIN, at + 1);
        blocks.push_back(text.substr(at, std::min(next, text.size() - 1) - at));
        at = next;
    }
    std::sort(blocks.begin(), blocks.end());
    text.resize(first);
    for (const Str& block : blocks) text += block;
    return text + '\n';
}

// The bundles that a set of calls leads to when one process makes them alone.
std::map<Str, Str> bundleTexts(const Str& root) {
    std::map<Str, Str> texts;
    for (const Str& path : bundleFilesBelow(root + "/cache")) texts[path] = withSortedBlocks(readFile(path));
    return texts;
}

const StrVec CALLS{"b.swap(1)",    "b.open(1)", "b.outer(1)", "b.swap(true)",
                   "b.open(true)", "s.swap(1)", "s.outer(1)", "b.pair(1, true)"};

Str functionsWith(const StrVec& calls) {
    Str text = "import lib\n\n";
    for (std::size_t i = 0; i < calls.size(); i++) {
        text += "def run" + std::to_string(i) + "(b: Box<Int>, s: Box<String>) -> Void:\n    " + calls[i] + "\n\n";
    }
    return text;
}

void specializeAll(const Str& root, std::size_t first) {
    MethodProgram program(root);
    program.load("main.vk");
    const ScopedSpecializationUnit unit(program.pathOf("main.vk"));
    for (std::size_t i = 0; i < CALLS.size(); i++) {
        program.specialize("main.vk", "run" + std::to_string((first + i * 3) % CALLS.size()));
    }
    for (const Str& path : bundleFilesBelow(root + "/cache")) {
        try {
            buildGenericMethodBundleIL(path, program.root());
        } catch (const std::runtime_error&) {
            // A bundle that another process has only begun: nothing listed yet.
        }
    }
}

class SeveralAtOnce : public Bundles {
protected:
    void SetUp() override {
        writeFile(folder.path() + "/lib/box.vk", LIBRARY);
        writeFile(folder.path() + "/main.vk", functionsWith(CALLS));
        specializeAll(folder.path(), 0);
        alone = bundleTexts(folder.path());
        ASSERT_GT(alone.size(), 3u);
    }
    std::map<Str, Str> alone;
};

TEST_F(SeveralAtOnce, ProcessesAndThreadsMakeTheSameBytesAsOneAlone) {
    for (int round = 0; round < 5; round++) {
        std::filesystem::remove_all(folder.path() + "/cache");
        std::vector<pid_t> children;
        for (std::size_t p = 0; p < 2; p++) {
            const pid_t child = fork();
            if (child == 0) {
                std::vector<std::thread> threads;
                for (std::size_t t = 0; t < 4; t++)
                    threads.emplace_back([&, t] { specializeAll(folder.path(), p * 4 + t); });
                for (std::thread& thread : threads) thread.join();
                _exit(0);
            }
            children.push_back(child);
        }
        for (const pid_t child : children) {
            int status = 0;
            waitpid(child, &status, 0);
            EXPECT_EQ(status, 0);
        }
        EXPECT_EQ(bundleTexts(folder.path()), alone);
    }
}

TEST_F(SeveralAtOnce, AProcessKilledAtAnyTimeHarmsNobody) {
    for (int delay = 0; delay < 40; delay++) {
        std::filesystem::remove_all(folder.path() + "/cache");
        const pid_t child = fork();
        if (child == 0) {
            for (;;) {
                specializeAll(folder.path(), 1);
                std::filesystem::remove_all(folder.path() + "/cache/apps");
            }
        }
        usleep(static_cast<useconds_t>(500 * delay));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        for (const auto& entry : bundleTexts(folder.path())) {
            EXPECT_TRUE(parseGenericMethodBundleManifestText(entry.first, entry.second).valid) << entry.second;
        }
        specializeAll(folder.path(), 0);
        EXPECT_EQ(bundleTexts(folder.path()), alone);
    }
}

TEST_F(SeveralAtOnce, DeletingTheCacheWhileCompilingCostsTimeOnly) {
    std::atomic<bool> done = false;
    std::thread deleting([&] {
        while (!done) {
            std::error_code ignored;
            std::filesystem::remove_all(folder.path() + "/cache/apps", ignored);
            usleep(300);
        }
    });
    for (std::size_t i = 0; i < 30; i++) EXPECT_NO_THROW(specializeAll(folder.path(), i));
    done = true;
    deleting.join();
    specializeAll(folder.path(), 0);
    // A method that another one asked for may lie in a bundle of its own besides: its asker's had just been deleted.
    const auto texts = bundleTexts(folder.path());
    for (const auto& [path, text] : alone) {
        ASSERT_TRUE(texts.contains(path)) << path;
        EXPECT_EQ(texts.at(path), text);
    }
    for (const auto& [path, text] : texts) EXPECT_TRUE(parseGenericMethodBundleManifestText(path, text).valid) << text;
}

// Waits for a child; how it ended.
int statusOf(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {}
    return status;
}

#ifndef __SANITIZE_THREAD__
// A compilation that dies at each of its writes in turn: whatever it leaves behind, the next one has the right answer and
// makes the bytes that it would have made alone.
TEST_F(Bundles, ACompilationKilledAtAnyWriteHarmsNobody) {
    Str type = "Box<Int>";
    for (int i = 0; i < 40; i++) type = "Box<" + type + ">";
    writeFile(folder.path() + "/lib/box.vk", LIBRARY + "    def far<U>(x: U):\n        return null as " + type + "?\n");
    const Str statements[] = {"b.swap(\"x\")", "b.far(\"x\")"};  // the second adds to the bundle of the first
    const auto compileAll = [&] {
        for (const Str& statement : statements) Compilation compilation(folder.path(), statement);
    };
    compileAll();
    const std::map<Str, Str> alone = bundleTexts(folder.path());
    ASSERT_EQ(alone.size(), 1u);

    int deaths = 0;
    for (bool isDone = false; !isDone; deaths++) {
        ASSERT_LT(deaths, 500);
        std::filesystem::remove_all(folder.path() + "/cache");
        const pid_t child = fork();
        if (child == 0) {
            gCallsUntilDeath = deaths;
            compileAll();
            _exit(0);
        }
        const int status = statusOf(child);
        isDone = WIFEXITED(status);
        if (!isDone) {
            ASSERT_EQ(WTERMSIG(status), SIGKILL);
        }
        compileAll();
        EXPECT_EQ(bundleTexts(folder.path()), alone) << "killed at call " << deaths;
    }
    EXPECT_GT(deaths, 15);
}

// A compilation that dies while it writes an index: the next one finds what it should, and leaves a whole index.
TEST_F(Bundles, AnIndexKilledAtAnyWriteHarmsNobody) {
    constexpr std::size_t COUNT = 40;
    ManyBundles(folder.path()).make(0, COUNT);
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    const auto indexes = [&] {
        std::map<Str, Str> texts;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path() + "/cache")) {
            if (entry.path().extension() == ".index") texts[entry.path()] = readFile(entry.path());
        }
        return texts;
    };
    const auto preload = [&] {
        const ManyBundles many(folder.path());
        many.preload();
        return gGenericMethodSpecCache.size();
    };
    EXPECT_EQ(preload(), 2 * COUNT);
    const auto alone = indexes();
    ASSERT_EQ(alone.size(), 1u);
    int deaths = 0;
    for (bool isDone = false; !isDone; deaths++) {
        ASSERT_LT(deaths, 500);
        std::filesystem::remove_all(std::filesystem::path(alone.begin()->first).parent_path().parent_path());
        const pid_t child = fork();
        if (child == 0) {
            gCallsUntilDeath = deaths;
            preload();
            _exit(0);
        }
        const int status = statusOf(child);
        isDone = WIFEXITED(status);
        if (!isDone) {
            ASSERT_EQ(WTERMSIG(status), SIGKILL);
        }
        EXPECT_EQ(preload(), 2 * COUNT);
        EXPECT_EQ(indexes(), alone) << "killed at call " << deaths;
    }
    EXPECT_GT(deaths, 3 * static_cast<int>(COUNT) + 3);  // three for each lock, and those for the index
}
#endif

// Two classes in two files whose generic methods ask for each other's, with return types that only the bodies tell: making a
// bundle of one needs the other's. A lock that is held while a body is looked at would end in a deadlock here.
TEST_F(Bundles, CrossingBundlesNeitherBlockNorLoseAnything) {
    writeFile(folder.path() + "/left/left.vk",
              "package left\nimport right\nclass Left:\n"
              "    def ask<T>(x: T, n: Int):\n        return Right().answer(x)\n"
              "    def plain<T>(x: T):\n        return x\n");
    writeFile(folder.path() + "/right/right.vk",
              "package right\nimport left\nclass Right:\n"
              "    def ask<T>(x: T, n: Int):\n        return Left().plain(x)\n"
              "    def answer<T>(x: T):\n        return Left().plain(x)\n");
    const StrVec arguments{"1", "true", "\"x\"", "2.5", "3L"};
    Str text = "import left\nimport right\n\n";
    std::size_t count = 0;
    for (const Str& argument : arguments) {
        for (const char* owner : {"l", "r"}) {
            text += "def run" + std::to_string(count++) + "(l: Left, r: Right) -> Void:\n    " + owner + ".ask(" +
                    argument + ", 1)\n\n";
        }
    }
    writeFile(folder.path() + "/main.vk", text);
    const auto compileAll = [&](std::size_t first) {
        MethodProgram program(folder.path());
        program.load("main.vk");
        const ScopedSpecializationUnit unit(program.pathOf("main.vk"));
        for (std::size_t i = 0; i < count; i++) {
            const GenericMethodSpec spec =
                program.specialize("main.vk", "run" + std::to_string((first + i * 3) % count));
            if (spec.returnType != spec.paramTypes[0]) throw std::runtime_error("wrong return type " + spec.returnType);
        }
        for (const Str& path : bundleFilesBelow(folder.path() + "/cache"))
            buildGenericMethodBundleIL(path, program.root());
    };
    compileAll(0);
    compileAll(0);  // what bodies ask for is made while bundles are compiled
    const std::map<Str, Str> alone = bundleTexts(folder.path());
    ASSERT_GT(alone.size(), 5u);

    const char* wanted = std::getenv("VESK_CROSSING_SECONDS");
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(wanted ? std::atoi(wanted) : 1);
    do {
        std::filesystem::remove_all(folder.path() + "/cache");
        std::vector<pid_t> children;
        for (std::size_t p = 0; p < 2; p++) {
            children.push_back(fork());
            if (children.back() != 0) continue;
            alarm(120);  // a deadlock ends the process
            std::atomic<int> failures = 0;
            std::vector<std::thread> threads;
            for (std::size_t t = 0; t < 4; t++) {
                threads.emplace_back([&, t] {
                    try {
                        compileAll(p * 4 + t);
                        compileAll(t);
                    } catch (const std::exception& error) {
                        std::fprintf(stderr, "%s\n", error.what());
                        failures++;
                    }
                });
            }
            for (std::thread& thread : threads) thread.join();
            _exit(failures == 0 ? 0 : 1);
        }
        for (const pid_t child : children) EXPECT_EQ(statusOf(child), 0);
        EXPECT_EQ(bundleTexts(folder.path()), alone);
    } while (std::chrono::steady_clock::now() < end && !HasFailure());
}

}  // namespace
}  // namespace vesk::compiler
