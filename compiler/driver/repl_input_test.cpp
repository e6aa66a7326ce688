// Where chunks end, at a terminal and elsewhere.
#include "driver/repl_input.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

namespace vesk::compiler {
namespace {

std::vector<std::string> chunksOf(const std::string& input, bool isTerminal) {
    auto lines = std::make_shared<std::istringstream>(input);
    ChunkReader reader(
        [lines](bool) -> std::optional<std::string> {
            std::string line;
            if (!std::getline(*lines, line)) return std::nullopt;
            return line;
        },
        isTerminal);
    std::vector<std::string> chunks;
    while (std::optional<std::string> chunk = reader.next()) chunks.push_back(*chunk);
    return chunks;
}

struct Case {
    const char* input;
    std::vector<std::string> chunks;
};

TEST(ChunkReaderTest, ChunksEverywhere) {
    const Case cases[] = {
        {"", {}},
        {"\n\n  \n", {}},
        {"1\n2\n", {"1", "2"}},
        {"1\r\n2\r\n", {"1", "2"}},
        {"\n1", {"1"}},
        {":type 1\n:quit\n", {":type 1", ":quit"}},
        {"f(1,\n\n  2)\n3", {"f(1,\n\n  2)", "3"}},
        {"[1,\n:quit\n]", {"[1,\n:quit\n]"}},
        {"/* a\n\nb */ 1\n2", {"/* a\n\nb */ 1", "2"}},
        {"\"( [ { /* # :\"\n2", {"\"( [ { /* # :\"", "2"}},
        {"\"a\\\"(\"\n2", {"\"a\\\"(\"", "2"}},
        {"1 # (\n2", {"1 # (", "2"}},
        {"var m: Map<String,\n  Int> = x\n2", {"var m: Map<String,\n  Int> = x", "2"}},
        {"if a:\n  b\n\nc", {"if a:\n  b\n", "c"}},
        {"if a:\n  b\nc", {"if a:\n  b", "c"}},
        {"if a:\n  b\nelif c:\n  d\nelse:\n  e\nf", {"if a:\n  b\nelif c:\n  d\nelse:\n  e", "f"}},
        {"if a:\n  b\nelsewhere()", {"if a:\n  b", "elsewhere()"}},
        {"if a:\n# note\n  b\n\nc", {"if a:\n# note\n  b\n", "c"}},
        {"if a: # note\n  b\n\nc", {"if a: # note\n  b\n", "c"}},
        {"@A\n@B(1)\ndef f():\n  1\n\ng", {"@A\n@B(1)\ndef f():\n  1\n", "g"}},
        {"def f(a: Int,\n      b: Int):\n  1\n\ng", {"def f(a: Int,\n      b: Int):\n  1\n", "g"}},
        {"def f():\n  g(\n  1)", {"def f():\n  g(\n  1)"}},
        {")))\n1", {")))", "1"}},
    };
    for (const Case& each : cases) {
        std::vector<std::string> piped = chunksOf(each.input, false), typed = chunksOf(each.input, true);
        // The empty line that ended a block may stand at its end.
        for (auto* chunks : {&piped, &typed})
            for (std::string& chunk : *chunks) chunk.erase(chunk.find_last_not_of('\n') + 1);
        std::vector<std::string> wanted = each.chunks;
        for (std::string& chunk : wanted) chunk.erase(chunk.find_last_not_of('\n') + 1);
        EXPECT_EQ(piped, wanted) << each.input;
        EXPECT_EQ(typed, wanted) << each.input;
    }
}

TEST(ChunkReaderTest, AnEmptyLineEndsABlockAtATerminalOnly) {
    const std::string block = "class A:\n  x: Int\n\n  y: Int\n\nA()";
    EXPECT_EQ(chunksOf(block, false), (std::vector<std::string>{"class A:\n  x: Int\n\n  y: Int\n", "A()"}));
    EXPECT_EQ(chunksOf(block, true).front(), "class A:\n  x: Int");
    // Two of them end what was opened by mistake.
    EXPECT_EQ(chunksOf("f(1\n\n\n2", true), (std::vector<std::string>{"f(1\n", "2"}));
}

TEST(ChunkReaderTest, AnEmptyLineThatIsPastedEndsNoBlock) {
    std::vector<std::string> lines = {"class A:", "  x: Int", "", "  y: Int", "", "A()"};
    std::size_t next = 0, pasted = 4;
    ChunkReader reader([&](bool) { return next < lines.size() ? std::optional(lines[next++]) : std::nullopt; },
                       [&] { return next > pasted; });
    EXPECT_EQ(reader.next(), "class A:\n  x: Int\n\n  y: Int");
    EXPECT_EQ(reader.next(), "A()");
}

TEST(ChunkReaderTest, DroppedLinesLeaveNothingBehind) {
    int calls = 0;
    ChunkReader reader(
        [&](bool isFirst) -> std::optional<std::string> {
            switch (++calls) {
                case 1: return "f(1,";
                case 2: throw LinesDropped();
                default: EXPECT_TRUE(isFirst); return "2";
            }
        },
        true);
    EXPECT_THROW(reader.next(), LinesDropped);
    EXPECT_EQ(reader.next(), "2");
}

}  // namespace
}  // namespace vesk::compiler
