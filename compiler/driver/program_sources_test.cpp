#include "driver/program_sources.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "driver/dependency_file.h"
#include "driver/time_trace.h"

namespace vesk::compiler {
namespace {

namespace fs = std::filesystem;

class Folder {
public:
    Folder() {
        std::string pattern = (fs::temp_directory_path() / "sources-XXXXXX").string();
        path_ = mkdtemp(pattern.data());
    }
    ~Folder() { fs::remove_all(path_); }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    const std::string& path() const { return path_; }
    std::string write(const std::string& name, const std::string& text) const {
        fs::create_directories(fs::path(*this / name).parent_path());
        std::ofstream(*this / name) << text;
        return *this / name;
    }

private:
    std::string path_;
};

TEST(PackageOfText, ReadsTheFirstCodeLineOnly) {
    const struct {
        const char *text, *package;
    } cases[] = {
        {"package app.shapes\nimport x\n", "app.shapes"},
        {"# first\n\npackage app # more\n", "app"},
        {"import app\npackage late\n", ""},
        {"def main() -> Void:\n    pass\n", ""},
        {"", ""},
        {"\xFF\xFE", ""},
        {"package", ""},
    };
    for (const auto& c : cases) EXPECT_EQ(packageOfText(c.text, "a.vk"), c.package) << c.text;
}

TEST(ProgramSources, RootIsTheFolderLessThePackage) {
    const Folder folder;
    const std::string plain = folder.write("main.vk", "def main() -> Void:\n    pass\n");
    const std::string deep = folder.write("app/shapes/circle.vk", "package app.shapes\n");
    const std::string astray = folder.write("other/x.vk", "package app.shapes\n");
    EXPECT_EQ(findProgramSources({plain}).roots, std::vector<std::string>{folder.path()});
    EXPECT_EQ(findProgramSources({deep}).roots, std::vector<std::string>{folder.path()});
    EXPECT_EQ(findProgramSources({astray}).roots, std::vector<std::string>{folder / "other"});
    EXPECT_EQ(findProgramSources({plain, deep}).roots.size(), 1U);
}

TEST(ProgramSources, FoldersGiveTheirFilesInOrder) {
    const Folder folder;
    folder.write("b.vk", "");
    folder.write("a.vk", "");
    folder.write("notes.txt", "");
    folder.write("sub/c.vk", "");
    const ProgramSources sources = findProgramSources({folder.path(), folder / "a.vk"});
    EXPECT_EQ(sources.files, (std::vector<std::string>{folder / "a.vk", folder / "b.vk"}));
}

TEST(ProgramSources, UnreadableInputsAreNamed) {
    const Folder folder;
    fs::create_directories(folder / "empty");
    for (const std::string& input : {folder / "missing.vk", folder / "empty"}) {
        try {
            findProgramSources({input});
            ADD_FAILURE() << input;
        } catch (const UnreadableInput& error) {
            EXPECT_NE(std::string(error.what()).find(input), std::string::npos) << error.what();
        }
    }
}

TEST(DependencyRule, EscapesWhatMakeWouldRead) {
    EXPECT_EQ(dependencyRule("out", {"a.vk", "my file.vk", "c$d#e.vk"}),
              "out: \\\n  a.vk \\\n  my\\ file.vk \\\n  c$$d\\#e.vk\n");
    EXPECT_EQ(dependencyRule("out", {}), "out:\n");
}

TEST(TimeTrace, EveryStageIsAnEvent) {
    TimeTrace trace;
    { StageTimer timer(trace, "load", "a.vk"); }
    { StageTimer timer(trace, "write"); }
    ASSERT_EQ(trace.stages().size(), 2U);
    EXPECT_EQ(trace.stages()[0].name, "load");
    EXPECT_LE(trace.stages()[0].begin, trace.stages()[0].end);
    const std::string json = trace.json();
    EXPECT_NE(json.find("\"load\""), std::string::npos);
    EXPECT_NE(json.find("\"a.vk\""), std::string::npos);
    EXPECT_FALSE(trace.write("/nowhere/at/all"));
}

}  // namespace
}  // namespace vesk::compiler
