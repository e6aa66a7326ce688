// Who removes a temporary folder, and when.
#include "driver/temporary_folder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <system_error>

namespace vesk::compiler {
namespace {

class TemporaryFolders : public testing::Test {
protected:
    void SetUp() override {
        parent = std::filesystem::path(testing::TempDir()) / ("temporary." + std::to_string(::getpid()));
        std::filesystem::create_directory(parent);
    }
    void TearDown() override { std::filesystem::remove_all(parent); }
    std::size_t entries() const { return std::size_t(std::distance(std::filesystem::directory_iterator(parent), {})); }

    std::filesystem::path parent;
};

TEST_F(TemporaryFolders, VanishWithTheirOwner) {
    {
        const TemporaryFolder folder(parent.native());
        std::ofstream(folder.path() + "/file") << "text";
        EXPECT_EQ(std::filesystem::path(folder.path()).parent_path(), parent);
        EXPECT_EQ(entries(), 1U);
    }
    EXPECT_EQ(entries(), 0U);
}

TEST_F(TemporaryFolders, OfKilledProcessesVanishWithTheNextOne) {
    const pid_t child = ::fork();
    if (child == 0) {
        new TemporaryFolder(parent.native());  // nobody takes it apart
        ::_exit(0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_EQ(entries(), 1U);
    { const TemporaryFolder folder(parent.native()); }
    EXPECT_EQ(entries(), 0U);
}

TEST_F(TemporaryFolders, OfOthersAtWorkStay) {
    const TemporaryFolder first(parent.native());
    const TemporaryFolder second(parent.native());
    EXPECT_TRUE(std::filesystem::exists(first.path()));
    EXPECT_NE(first.path(), second.path());
}

TEST_F(TemporaryFolders, NothingElseIsRemoved) {
    for (const char* name : {".vesk-build-", ".vesk-build-1234567", "vesk-build-123456", ".vesk-build"})
        std::filesystem::create_directory(parent / name);
    std::ofstream(parent / ".vesk-build-abcdef") << "a file of that name";
    std::filesystem::create_directory(parent / "other");
    std::filesystem::create_directory_symlink(parent / "other", parent / ".vesk-build-ghijkl");
    { const TemporaryFolder folder(parent.native()); }
    EXPECT_EQ(entries(), 7U);
}

TEST_F(TemporaryFolders, FailWithTheSystemsReason) {
    try {
        const TemporaryFolder folder((parent / "none").native());
        ADD_FAILURE();
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), ENOENT);
    }
}

}  // namespace
}  // namespace vesk::compiler
