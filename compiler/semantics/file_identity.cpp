// Asking the system.
#include "host/file_identity.h"

#include <sys/stat.h>

#include <chrono>
#include <ctime>

namespace vesk::compiler {

namespace {

// Coarser than the clock ticks that file systems stamp with.
constexpr std::int64_t SETTLING_TIME = 100'000'000;

std::int64_t nanoseconds(const timespec& time) { return time.tv_sec * std::int64_t{1'000'000'000} + time.tv_nsec; }

}  // namespace

std::optional<FileIdentity> identityOf(const struct stat& info) {
    if (!S_ISREG(info.st_mode)) return std::nullopt;
    return FileIdentity{info.st_dev, info.st_ino, static_cast<std::uint64_t>(info.st_size), nanoseconds(info.st_mtim),
                        nanoseconds(info.st_ctim)};
}

bool FileIdentity::isSettledAt(std::int64_t time) const {
    return changed + SETTLING_TIME < time && modified + SETTLING_TIME < time;
}

std::filesystem::file_time_type FileIdentity::writeTime() const {
    return std::chrono::file_clock::from_sys(
        std::chrono::sys_time<std::chrono::nanoseconds>(std::chrono::nanoseconds(modified)));
}

std::int64_t currentNanoseconds() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return nanoseconds(time);
}

std::optional<FileIdentity> identityOfFile(const char* path) {
    struct stat info{};
    return stat(path, &info) == 0 ? identityOf(info) : std::nullopt;
}

std::optional<FileIdentity> identityOfOpenFile(int descriptor) {
    struct stat info{};
    return fstat(descriptor, &info) == 0 ? identityOf(info) : std::nullopt;
}

}  // namespace vesk::compiler
