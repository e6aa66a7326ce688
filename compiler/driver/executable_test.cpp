// Files of an executable: what is written, and what is left when it is given up.
#include "driver/executable.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace vesk::compiler {
namespace {

class ExecutableFiles : public testing::Test {
protected:
    void SetUp() override {
        folder = std::filesystem::path(testing::TempDir()) / ("executable." + std::to_string(::getpid()));
        std::filesystem::create_directory(folder);
    }
    void TearDown() override { std::filesystem::remove_all(folder); }

    std::size_t filesThere() const {
        return std::size_t(std::distance(std::filesystem::directory_iterator(folder), {}));
    }
    std::string contentOf(const std::string& path) const {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    std::filesystem::path folder;
};

TEST_F(ExecutableFiles, AppearWhenPublished) {
    const std::string output = folder / "out";
    {
        Executable executable(output);
        executable.append("linked");
        executable.append(" and more");
        EXPECT_FALSE(std::filesystem::exists(output));
        executable.publish();
    }
    EXPECT_EQ(contentOf(output), "linked and more");
    EXPECT_EQ(filesThere(), 1U);
    const mode_t mask = ::umask(0);
    ::umask(mask);
    struct stat about{};
    ASSERT_EQ(::stat(output.c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 0777, 0777 & ~mask);
}

TEST_F(ExecutableFiles, LeaveNothingWhenGivenUp) {
    const std::string output = folder / "out";
    std::ofstream(output) << "older";
    {
        Executable executable(output);
        executable.addObject("no object");
        executable.append("half");
        EXPECT_THROW(executable.link(), LinkFailure);
    }
    EXPECT_EQ(contentOf(output), "older");
    EXPECT_EQ(filesThere(), 1U);
}

TEST_F(ExecutableFiles, MustBePossible) {
    EXPECT_THROW(Executable(folder.native()), ExecutableTrouble);
    EXPECT_THROW(Executable(folder / "none" / "out"), ExecutableTrouble);
    EXPECT_THROW(Executable("/dev/null"), ExecutableTrouble);
    EXPECT_EQ(filesThere(), 0U);
}

}  // namespace
}  // namespace vesk::compiler
