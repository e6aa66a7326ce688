// Making, locking and removing.
#include "driver/temporary_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <string_view>
#include <system_error>
#include <vector>

namespace vesk::compiler {
namespace {

constexpr std::string_view PREFIX = ".vesk-build-";
constexpr std::string_view UNIQUE_PART = "XXXXXX";
constexpr int MOST_ATTEMPTS = 100;

// An open folder, -1 for what is none, or is another's.
int openFolder(const std::string& path) {
    int folder = -1;
    do folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    while (folder < 0 && errno == EINTR);
    return folder;
}

enum class Lock { Taken, AnothersNow, Impossible };

Lock lock(int folder) {
    while (::flock(folder, LOCK_EX | LOCK_NB) != 0) {
        if (errno == EINTR) continue;
        return errno == EWOULDBLOCK ? Lock::AnothersNow : Lock::Impossible;
    }
    return Lock::Taken;
}

bool isAt(const std::string& path, int folder) {
    struct stat named{}, open{};
    return ::lstat(path.c_str(), &named) == 0 && ::fstat(folder, &open) == 0 && named.st_dev == open.st_dev &&
           named.st_ino == open.st_ino;
}

// With all that it holds; folders are not to be in it.
void removeFolder(const std::string& path) {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

void removeIfAbandoned(const std::string& path) {
    const int folder = openFolder(path);
    if (folder < 0) return;
    struct stat about{};
    if (::fstat(folder, &about) == 0 && about.st_uid == ::geteuid() && lock(folder) == Lock::Taken &&
        isAt(path, folder))
        removeFolder(path);
    ::close(folder);
}

void removeAbandonedIn(const std::string& parent) {
    std::vector<std::string> found;
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(::opendir(parent.c_str()), ::closedir);
    while (const dirent* entry = entries ? ::readdir(entries.get()) : nullptr) {
        const std::string_view name = entry->d_name;
        if (name.starts_with(PREFIX) && name.size() == PREFIX.size() + UNIQUE_PART.size()) found.emplace_back(name);
    }
    for (const std::string& name : found) removeIfAbandoned(parent + "/" + name);
}

}  // namespace

TemporaryFolder::TemporaryFolder(const std::string& parent) {
    removeAbandonedIn(parent);
    // One that is not locked yet may be taken for abandoned.
    for (int attempt = 0; attempt < MOST_ATTEMPTS; attempt++) {
        path_ = parent + "/" + std::string(PREFIX) + std::string(UNIQUE_PART);
        if (!::mkdtemp(path_.data())) throw std::system_error(errno, std::generic_category());
        lock_ = openFolder(path_);
        if (lock_ >= 0) errno = 0;
        if (lock_ >= 0 && lock(lock_) != Lock::AnothersNow && isAt(path_, lock_)) return;
        const int reason = errno;
        if (lock_ >= 0) ::close(lock_);
        removeFolder(path_);
        if (reason && reason != ENOENT && reason != EWOULDBLOCK)
            throw std::system_error(reason, std::generic_category());
    }
    throw std::system_error(EBUSY, std::generic_category());
}

TemporaryFolder::~TemporaryFolder() {
    removeFolder(path_);
    ::close(lock_);
}

}  // namespace vesk::compiler
