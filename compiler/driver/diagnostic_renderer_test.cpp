#include "driver/diagnostic_renderer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "host/tokens.h"

namespace vesk::compiler {
namespace {

// A source file in a folder of its own that counts as the working folder.
class Source {
public:
    explicit Source(const std::string& text) {
        std::string pattern = (std::filesystem::temp_directory_path() / "renderer-XXXXXX").string();
        folder_ = mkdtemp(pattern.data());
        std::ofstream(path()) << text;
    }
    ~Source() { std::filesystem::remove_all(folder_); }

    std::string path() const { return folder_ + "/a.vk"; }
    const std::string& folder() const { return folder_; }
    TokenPtr token(int line, int column) const {
        auto token = std::make_shared<Token>(nullptr, TokenType::Identifier, "x", line, column);
        token->setFilename(path());
        return token;
    }
    std::string render(const CompilerException& error, bool color = false) const {
        return DiagnosticRenderer({.color = color, .workingFolder = folder_}).text(error);
    }

private:
    std::string folder_;
};

TEST(DiagnosticRenderer, PlaceMessageLineAndCaret) {
    const Source source("def main() -> Void:\n    pritn(1)\n");
    EXPECT_EQ(source.render(compileError(source.token(2, 5), "unknown name")),
              "a.vk:2:5: error: unknown name\n"
              "        pritn(1)\n"
              "        ^\n");
}

TEST(DiagnosticRenderer, NotesStandBelowInTheSameForm) {
    const Source source("one\ntwo\n");
    CompilerException error = compileError(source.token(1, 2), "first");
    error.addNote({"in specialization of pick<Int> requested here", source.token(2, 3)});
    error.addNote({"without a place", nullptr});
    EXPECT_EQ(source.render(error),
              "a.vk:1:2: error: first\n    one\n     ^\n"
              "a.vk:2:3: note: in specialization of pick<Int> requested here\n    two\n      ^\n"
              "veskc: note: without a place\n");
}

TEST(DiagnosticRenderer, OfLongChainsOfRequestsTheEndsAreShown) {
    const auto chainOf = [](int length) {
        CompilerException error = compileError(nullptr, "deep");
        error.addNote({"what grows", nullptr});
        for (int i = 1; i <= length; i++) error.addNote({"request " + std::to_string(i), nullptr, true});
        return error;
    };
    const auto lines = [](const std::string& text) { return std::count(text.begin(), text.end(), '\n'); };
    const DiagnosticRenderer ends({}), all({.allNotes = true});
    EXPECT_EQ(lines(ends.text(chainOf(7))), 9);
    EXPECT_EQ(ends.text(chainOf(10)),
              "veskc: error: deep\nveskc: note: what grows\nveskc: note: request 1\nveskc: note: request 2\n"
              "veskc: note: request 3\nveskc: note: request 4\nveskc: note: request 5\n"
              "veskc: note: 3 requests in between left out (--all-notes shows all)\n"
              "veskc: note: request 9\nveskc: note: request 10\n");
    EXPECT_NE(ends.json(chainOf(8)).find("1 request in between left out"), std::string::npos);
    EXPECT_EQ(lines(all.text(chainOf(10))), 12);
    EXPECT_EQ(all.json(chainOf(10)).find("left out"), std::string::npos);
}

TEST(DiagnosticRenderer, PathsOutsideTheWorkingFolderStayWhole) {
    const DiagnosticRenderer renderer({.workingFolder = "/home/me/app"});
    EXPECT_EQ(renderer.displayPath("/home/me/app/src/a.vk"), "src/a.vk");
    EXPECT_EQ(renderer.displayPath("/home/me/application/a.vk"), "/home/me/application/a.vk");
    EXPECT_EQ(renderer.displayPath("/etc/a.vk"), "/etc/a.vk");
    EXPECT_EQ(DiagnosticRenderer({.workingFolder = "/"}).displayPath("/etc/a.vk"), "etc/a.vk");
}

TEST(DiagnosticRenderer, PlacesOutsideTheFileShowNoLine) {
    const Source source("one\n");
    EXPECT_EQ(source.render(compileError(source.token(9, 1), "far")), "a.vk:9:1: error: far\n");
    EXPECT_EQ(source.render(compileError(nullptr, "nowhere")), "veskc: error: nowhere\n");
}

TEST(DiagnosticRenderer, ColorsSurroundTheWordsOnly) {
    const Source source("one\n");
    const std::string text = source.render(compileError(source.token(1, 1), "first"), true);
    EXPECT_NE(text.find("\033[1;31merror: "), std::string::npos) << text;
    EXPECT_NE(text.find("\033[1;32m^\033[0m\n"), std::string::npos) << text;
}

TEST(MarkedSourceLine, TabsAndWideCharactersKeepTheCaretBelowItsPlace) {
    EXPECT_EQ(markedSourceLine("\tx = y", 6), "    \tx = y\n    \t    ^\n");
    EXPECT_EQ(markedSourceLine("\xC3\xA4\xC3\xB6 = y", 8), "    \xC3\xA4\xC3\xB6 = y\n         ^\n");
    EXPECT_EQ(markedSourceLine("x", 40), "    x\n     ^\n");
    EXPECT_EQ(markedSourceLine("x", 0), "    x\n    ^\n");
}

TEST(MarkedSourceLine, LongLinesAreCutToAWindow) {
    std::string line(10000, 'a');
    line[5000] = 'X';
    const std::string marked = markedSourceLine(line, 5001);
    EXPECT_LT(marked.size(), 500U);
    const std::size_t end = marked.find('\n');
    EXPECT_EQ(marked.find('X'), marked.find('^') - end - 1);
    EXPECT_EQ(marked.substr(0, 7), "    ...");
    EXPECT_EQ(marked.substr(end - 3, 3), "...");
}

TEST(MarkedSourceLine, ControlBytesDoNotReachTheTerminal) {
    EXPECT_EQ(markedSourceLine("a\x1B[2Jb", 1), "    a?[2Jb\n    ^\n");
}

TEST(DiagnosticRenderer, JsonIsOneObjectALine) {
    const Source source("one\n");
    CompilerException error = compileError(source.token(1, 2), "say \"no\"\n\xFF");
    error.addNote({"here", source.token(1, 3)});
    const std::string text = DiagnosticRenderer({.workingFolder = source.folder()}).json(error);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
    const auto entry = nlohmann::json::parse(text);
    EXPECT_EQ(entry["severity"], "error");
    EXPECT_EQ(entry["file"], "a.vk");
    EXPECT_EQ(entry["line"], 1);
    EXPECT_EQ(entry["column"], 2);
    EXPECT_EQ(entry["notes"][0]["message"], "here");
    EXPECT_EQ(entry["notes"][0]["column"], 3);
}

}  // namespace
}  // namespace vesk::compiler
