// Reading sources.
#include "generics/source/source_text_cache.h"

#include <gtest/gtest.h>

#include <thread>

#include "generics/sample_program_test.h"
#include "generics/session_state.h"

namespace vesk::compiler {
namespace {

TEST(SourceText, SplitsLines) {
    const std::vector<std::pair<Str, StrVec>> cases = {
        {"x\ny\n", {"x", "y"}}, {"x\ny", {"x", "y"}}, {"", {}},
        {"\n", {""}},           {"a\r\n", {"a\r"}},   {"\n\nx", {"", "", "x"}},
    };
    SampleProgram program;
    int count = 0;
    for (const auto& [text, lines] : cases) {
        EXPECT_EQ(splitSourceLines(text), lines);
        EXPECT_EQ(readSourceLinesCached(program.write("lines" + std::to_string(count++) + ".vk", text)), lines);
    }
}

TEST(SourceText, KeepsLinesPerThread) {
    SampleProgram program;
    const Str path = program.write("a/kept.vk", "old\n");
    const StrVec& lines = readSourceLinesCached(path);
    EXPECT_EQ(lines, StrVec{"old"});
    EXPECT_EQ(&readSourceLinesCached(program.root() + "/a/./kept.vk"), &lines);
    program.write("a/kept.vk", "new\n");
    resetGenericSpecializerSession();
    EXPECT_EQ(&readSourceLinesCached(path), &lines);
    EXPECT_EQ(lines, StrVec{"old"});
    EXPECT_EQ(*sourceTextSnapshot(path), "new\n");
    std::thread([&] { EXPECT_EQ(readSourceLinesCached(path), StrVec{"new"}); }).join();
}

TEST(SourceText, RemembersMissingFiles) {
    SampleProgram program;
    const Str path = program.pathOf("missing.vk");
    EXPECT_TRUE(readSourceLinesCached(path).empty());
    EXPECT_TRUE(gSourceTextCache.at(path).loaded);
    program.write("missing.vk", "late\n");
    EXPECT_TRUE(readSourceLinesCached(path).empty());
    Str text = "as before";
    EXPECT_FALSE(readSourceText(program.pathOf("other.vk"), text));
    EXPECT_EQ(text, "as before");
    EXPECT_EQ(sourceTextSnapshot(program.pathOf("other.vk")), nullptr);
}

TEST(SourceText, VirtualSourcesComeFirst) {
    SampleProgram program;
    const Str path = program.write("shadowed.vk", "disk\n");
    program.session().addVirtualSource(path, "memory\n");
    Str text;
    EXPECT_TRUE(readSourceText(path, text));
    EXPECT_EQ(text, "memory\n");
    EXPECT_EQ(readSourceLinesCached(path), StrVec{"memory"});
    EXPECT_EQ(*sourceTextSnapshot(path), "memory\n");
}

TEST(SourceText, ComparesAges) {
    SampleProgram program;
    const Str older = program.write("older.vk", "x"), newer = program.write("newer.vk", "x");
    const auto time = std::filesystem::last_write_time(older);
    std::filesystem::last_write_time(newer, time + std::chrono::seconds(5));
    EXPECT_TRUE(physicalSourceIsNewer(newer, older));
    EXPECT_FALSE(physicalSourceIsNewer(older, newer));
    EXPECT_FALSE(physicalSourceIsNewer(older, older));
    EXPECT_FALSE(physicalSourceIsNewer(newer, program.pathOf("none.vk")));
    EXPECT_FALSE(physicalSourceIsNewer(program.pathOf("none.vk"), older));
    EXPECT_FALSE(physicalSourceIsNewer("", older));
    EXPECT_FALSE(physicalSourceIsNewer(newer, ""));
}

}  // namespace
}  // namespace vesk::compiler
