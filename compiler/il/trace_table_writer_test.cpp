// Tables of traces, written and read back.
#include "il/trace_table_writer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

namespace vesk::compiler {
namespace {

using runtime::TraceTable;

std::string sampleTable() {
    TraceTableWriter writer;
    writer.addRange(0x10, {{"main", "/p/main.vk", 7}});
    writer.addRange(0x20, {{"pick<Int>", "/p/pick.vk", 3}, {"main", "/p/main.vk", 8}});
    writer.addRange(0x28, {{"pick<Int>", "/p/pick.vk", 3}, {"main", "/p/main.vk", 8}});
    writer.addRange(0x30, {});
    writer.addRange(0x40, {{"ä", "/p/main.vk", 2000000000}});
    return writer.finish();
}

std::string framesText(const TraceTable& table, std::uint64_t offset) {
    std::vector<runtime::TraceFrame> frames;
    const bool any = table.framesAt(offset, frames);
    EXPECT_EQ(any, !frames.empty());
    std::string text;
    for (const auto& frame : frames)
        text += (text.empty() ? "" : " < ") + frame.name + " " + frame.path + ":" + std::to_string(frame.line);
    return text;
}

TEST(TraceTable, KnowsTheFramesOfEachPlace) {
    struct Case {
        std::uint64_t offset;
        const char* frames;
    };
    const Case cases[] = {
        {0, ""},
        {0xf, ""},
        {0x10, "main /p/main.vk:7"},
        {0x1f, "main /p/main.vk:7"},
        {0x20, "pick<Int> /p/pick.vk:3 < main /p/main.vk:8"},
        {0x2f, "pick<Int> /p/pick.vk:3 < main /p/main.vk:8"},
        {0x30, ""},
        {0x3f, ""},
        {0x40, "ä /p/main.vk:2000000000"},
        {0xffffffffff, "ä /p/main.vk:2000000000"},
    };
    const std::optional<TraceTable> table = TraceTable::parse("what stands before it" + sampleTable());
    ASSERT_TRUE(table);
    for (const Case& each : cases) EXPECT_EQ(framesText(*table, each.offset), each.frames) << each.offset;
}

TEST(TraceTable, IsReadFromTheEndOfAFile) {
    std::FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    std::fputs("an executable", file);
    const std::string bytes = sampleTable();
    std::fwrite(bytes.data(), 1, bytes.size(), file);
    std::fflush(file);
    const std::optional<TraceTable> table = TraceTable::read(fileno(file));
    ASSERT_TRUE(table);
    EXPECT_EQ(framesText(*table, 0x10), "main /p/main.vk:7");
    std::fputs(".", file);
    std::fflush(file);
    EXPECT_FALSE(TraceTable::read(fileno(file)));
    // A trailer that promises more than the file has.
    ASSERT_EQ(ftruncate(fileno(file), 0), 0);
    std::rewind(file);
    std::fwrite(bytes.data() + bytes.size() - runtime::TRAILER_BYTES, 1, runtime::TRAILER_BYTES, file);
    std::fflush(file);
    EXPECT_FALSE(TraceTable::read(fileno(file)));
    std::fclose(file);
}

TEST(TraceTable, EmptyOneKnowsNothing) {
    const std::optional<TraceTable> table = TraceTable::parse(TraceTableWriter().finish());
    ASSERT_TRUE(table);
    EXPECT_EQ(framesText(*table, 0), "");
}

TEST(TraceTable, DamagedIsNone) {
    const std::string whole = sampleTable();
    for (std::size_t size = 0; size < whole.size(); size++) {
        EXPECT_FALSE(TraceTable::parse(whole.substr(0, size))) << size;
        EXPECT_FALSE(TraceTable::parse(whole.substr(whole.size() - size))) << size;
    }
    for (std::size_t place = 0; place < whole.size(); place++) {
        for (const int bit : {0, 3, 7}) {
            std::string changed = whole;
            changed[place] = char(changed[place] ^ 1 << bit);
            EXPECT_FALSE(TraceTable::parse(changed)) << place;
        }
    }
}

}  // namespace
}  // namespace vesk::compiler
