// Panics: their text, their status, and what happens at the end of the program's stack.
#include "runtime/panic.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "runtime/memory.h"
#include "runtime/output.h"
#include "runtime/program.h"
#include "runtime/strings.h"

namespace vesk::runtime {
namespace {

std::vector<TraceFrame> frames(int count) {
    std::vector<TraceFrame> made;
    for (int i = 0; i < count; i++) made.push_back({"f" + std::to_string(i), "/x/a.vk", i + 1});
    return made;
}

TEST(Panic, TextNamesThePlaceAndTheCallers) {
    EXPECT_EQ(renderPanic("boom", {}, 0), "panic: boom\n");
    EXPECT_EQ(renderPanic("boom", frames(1), 1), "/x/a.vk:1: panic: boom\n");
    EXPECT_EQ(renderPanic("boom", frames(3), 3),
              "/x/a.vk:1: panic: boom\n    at f1 (/x/a.vk:2)\n    at f2 (/x/a.vk:3)\n");
}

TEST(Panic, LongTracesAreCut) {
    std::string text = renderPanic("boom", frames(51), 51);
    EXPECT_EQ(text.find("more"), text.npos);
    EXPECT_NE(text.find("    at f50 (/x/a.vk:51)\n"), text.npos);
    text = renderPanic("boom", frames(51), 1000);
    EXPECT_NE(text.find("    at f50 (/x/a.vk:51)\n    ... 949 more\n"), text.npos);
}

TEST(Panic, PathsBelowTheWorkingFolderAreShort) {
    char folder[4096];
    ASSERT_NE(::getcwd(folder, sizeof folder), nullptr);
    EXPECT_EQ(renderPanic("boom", {{"main", std::string(folder) + "/src/a.vk", 3}}, 1), "src/a.vk:3: panic: boom\n");
    EXPECT_EQ(renderPanic("boom", {{"main", std::string(folder) + "er/a.vk", 3}}, 1),
              std::string(folder) + "er/a.vk:3: panic: boom\n");
}

TEST(Panic, StatusAndMessages) {
    startMemory();
    EXPECT_EXIT(vesk_rt_panic_null(), testing::ExitedWithCode(101), "^panic: null receiver\n");
    EXPECT_EXIT(vesk_rt_panic_division(), testing::ExitedWithCode(101), "division by zero");
    EXPECT_EXIT(vesk_rt_panic_index(5, 3), testing::ExitedWithCode(101), "index 5 out of range for length 3");
    EXPECT_EXIT(vesk_rt_panic_null_element(), testing::ExitedWithCode(101), "null element");
    EXPECT_EXIT(vesk_rt_panic_abstract(), testing::ExitedWithCode(101), "abstract method called");
}

int functionOfThisTest(void*) { panic("inside"); }

// With a symbolizer that knows one function, the trace holds that function alone.
TEST(Panic, TraceFollowsTheStack) {
    setSymbolizer([](std::uintptr_t address, std::vector<TraceFrame>& found) {
        auto begin = reinterpret_cast<std::uintptr_t>(&functionOfThisTest);
        if (address < begin || address >= begin + 512) return false;
        found.push_back({"thrower", "a.vk", 7});
        return true;
    });
    EXPECT_EXIT(runOnProgramStack(functionOfThisTest, nullptr), testing::ExitedWithCode(101),
                "a.vk:7: panic: inside\n$");
    setSymbolizer(nullptr);
}

TEST(Program, StatusComesBack) {
    EXPECT_EQ(runOnProgramStack([](void* value) { return *static_cast<int*>(value); }, std::make_unique<int>(42).get()),
              42);
}

int recurse(volatile int* depth) {
    volatile char room[200];
    room[0] = char(*depth);
    *depth = *depth + 1;
    return *depth < 0 ? 0 : recurse(depth) + room[0];
}

TEST(Program, ExhaustedStackIsAPanic) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer does not hand on faults of an exhausted stack";
#endif
    EXPECT_EXIT(runOnProgramStack(
                    [](void*) {
                        volatile int depth = 0;
                        return recurse(&depth);
                    },
                    nullptr),
                testing::ExitedWithCode(101), "panic: stack overflow");
}

TEST(Program, OutputIsFlushedAtAPanic) {
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    EXPECT_EXIT(
        {
            ::dup2(pipe[1], STDOUT_FILENO);
            writeOutput("before\n");
            panic("boom");
        },
        testing::ExitedWithCode(101), "boom");
    ::close(pipe[1]);
    char text[16] = {};
    EXPECT_EQ(::read(pipe[0], text, sizeof text), 7);
    EXPECT_STREQ(text, "before\n");
    ::close(pipe[0]);
}

TEST(Memory, HugeRequestsArePanics) {
    startMemory();
    EXPECT_EXIT(allocateBytes(std::size_t(1) << 46, false), testing::ExitedWithCode(101), "out of memory");
}

// What is reachable stays, whatever else is made.
TEST(Memory, ReachableObjectsSurvive) {
    int status = runOnProgramStack(
        [](void*) {
            String* kept = makeString("kept");
            for (int i = 0; i < 300000; i++) makeString(std::string(100, char('a' + i % 26)));
            return viewOf(kept) == "kept" ? 0 : 1;
        },
        nullptr);
    EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace vesk::runtime
