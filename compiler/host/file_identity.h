// What the system says about a file: while it says the same, the file's text is the same, provided that the last change was
// so long past that a further one would show in the time stamps.
#pragma once

#include <compare>
#include <cstdint>
#include <filesystem>
#include <optional>

struct stat;

namespace vesk::compiler {

struct FileIdentity {
    std::uint64_t device = 0, inode = 0, size = 0;
    std::int64_t modified = 0, changed = 0;  // nanoseconds since 1970
    bool operator==(const FileIdentity&) const = default;

    // Whether a change after this moment would show.
    bool isSettledAt(std::int64_t time) const;
    std::filesystem::file_time_type writeTime() const;
};

// The clock that file systems stamp with.
std::int64_t currentNanoseconds();
// Nothing for what is not there, or is no regular file.
std::optional<FileIdentity> identityOfFile(const char* path);
std::optional<FileIdentity> identityOfOpenFile(int descriptor);
// Of what the system has said already.
std::optional<FileIdentity> identityOf(const struct stat& about);

}  // namespace vesk::compiler
