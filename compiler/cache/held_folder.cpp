// Stepping down to folders, and working in them.
#include "cache/held_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <deque>

#include "generics/typetext/symbol_mangling.h"

namespace vesk::compiler {

namespace {

constexpr unsigned OTHERS_MAY_WRITE = S_IWGRP | S_IWOTH;
constexpr unsigned PRIVATE_FOLDER = 0700, PRIVATE_FILE = 0600;
constexpr unsigned FOLDER_READERS = 0055, FILE_READERS = 0044;
constexpr int MOST_LINKS = 40, MOST_TEMPORARY_NAMES = 100;
constexpr std::string_view TEMPORARY_MARK = ".tmp-";
constexpr std::size_t LONGEST_NAME = 255, KEPT_OF_LONG_NAME = 200, LONGEST_EXTENSION = 8;

// Repeats a call that a signal has interrupted.
template <class Call>
auto untilDone(const Call& call) {
    auto result = call();
    while (result < 0 && errno == EINTR) result = call();
    return result;
}

Descriptor openIn(int folder, const char* name, int flags, unsigned mode = 0) {
    return Descriptor(untilDone([&] { return ::openat(folder, name, flags | O_CLOEXEC | O_NOFOLLOW, mode); }));
}

FileProblem problemOf(int error, std::string path) {
    const auto kind = error == ENOENT ? FileProblem::Kind::Absent : FileProblem::Kind::System;
    return {kind, std::move(path), std::strerror(error), error};
}

// The name under which the system knows a file: bundles are named after classes, which may have any length.
std::string shortened(const std::string& name) {
    if (name.size() <= LONGEST_NAME) return name;
    const std::size_t dot = std::max(name.rfind('.'), name.size() - std::min(name.size(), LONGEST_EXTENSION));
    return name.substr(0, KEPT_OF_LONG_NAME) + "~" + fnv1a64Hex(name) + (name[dot] == '.' ? name.substr(dot) : "");
}

enum class Place { OnTheWay, Inside };

// POSIX access lists count as well: what they grant at most shows in the mode's bits for the group.
std::string whyNotOurs(const struct stat& about, Place place) {
    if (about.st_uid != ::geteuid() && about.st_uid != 0)
        return "belongs to another user (" + std::to_string(about.st_uid) + ")";
    if (S_ISLNK(about.st_mode) || !(about.st_mode & OTHERS_MAY_WRITE)) return {};
    if (place == Place::OnTheWay && S_ISDIR(about.st_mode) && (about.st_mode & S_ISVTX)) return {};
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", about.st_mode & 07777u);
    return std::string("others may write it (mode ") + mode + ")";
}

bool writeWhole(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = untilDone([&] { return ::write(descriptor, bytes.data(), bytes.size()); });
        if (count < 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

}  // namespace

// ------------------------------------------------------------------------------------------------- descriptors

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    if (this != &other) {
        reset();
        number_ = other.release();
    }
    return *this;
}

int Descriptor::release() {
    const int number = number_;
    number_ = -1;
    return number;
}

void Descriptor::reset() {
    if (number_ >= 0) ::close(number_);
    number_ = -1;
}

// ------------------------------------------------------------------------------------------------- the way down

// From "/" to a folder, one name at a time.
class WayDown {
public:
    WayDown(const std::string& path, IfAbsent ifAbsent, FileProblem& problem) : ifAbsent_(ifAbsent), problem_(problem) {
        addNames(path);
    }

    std::shared_ptr<const HeldFolder> walk() {
        if (!start()) return nullptr;
        while (!ahead_.empty()) {
            const std::string name = std::move(ahead_.front());
            ahead_.pop_front();
            if (!step(name)) return nullptr;
        }
        return std::shared_ptr<const HeldFolder>(
            new HeldFolder(std::move(here_), path_.empty() ? "/" : path_, mode_, HeldFolder::Rule::Ours));
    }

private:
    // In front of the names that are left.
    void addNames(std::string_view path) {
        std::vector<std::string> names;
        while (!path.empty()) {
            const std::size_t end = std::min(path.find('/'), path.size());
            if (end > 0 && path.substr(0, end) != ".") names.emplace_back(path.substr(0, end));
            path.remove_prefix(std::min(end + 1, path.size()));
        }
        ahead_.insert(ahead_.begin(), std::make_move_iterator(names.begin()), std::make_move_iterator(names.end()));
    }

    bool fail(FileProblem problem) {
        problem_ = std::move(problem);
        return false;
    }

    bool start() {
        path_.clear();
        here_ = openIn(AT_FDCWD, "/", O_PATH | O_DIRECTORY);
        return here_.isOpen() ? enter("/") : fail(problemOf(errno, "/"));
    }

    bool step(const std::string& name) {
        if (name == "..") return stepBack();
        const std::string path = path_ + "/" + name;
        Descriptor next = openIn(here_.number(), name.c_str(), O_PATH);
        if (!next.isOpen() && errno == ENOENT && ifAbsent_ == IfAbsent::Make) {
            if (::mkdirat(here_.number(), name.c_str(), PRIVATE_FOLDER) != 0 && errno != EEXIST)
                return fail(problemOf(errno, path));
            next = openIn(here_.number(), name.c_str(), O_PATH);
        }
        if (!next.isOpen()) return fail(problemOf(errno, path));
        std::swap(here_, next);  // `next` is the folder in which the name lies
        if (!enter(path)) return false;
        if (!isLink_) {
            path_ = path;
            return true;
        }
        return follow(path, std::move(next));
    }

    // Looks at what has just been opened.
    bool enter(const std::string& path) {
        struct stat about{};
        if (::fstat(here_.number(), &about) != 0) return fail(problemOf(errno, path));
        const Place place = ahead_.empty() ? Place::Inside : Place::OnTheWay;
        if (std::string reason = whyNotOurs(about, place); !reason.empty())
            return fail({FileProblem::Kind::NotOurs, path, std::move(reason)});
        isLink_ = S_ISLNK(about.st_mode);
        if (!isLink_ && !S_ISDIR(about.st_mode)) return fail(problemOf(ENOTDIR, path));
        mode_ = about.st_mode;
        return true;
    }

    // The link itself is open. Nobody else can change it: it is ours, and so is the folder or its place in it.
    bool follow(const std::string& path, Descriptor folder) {
        if (++links_ > MOST_LINKS) return fail(problemOf(ELOOP, path));
        char target[4096];
        const ssize_t length = ::readlinkat(here_.number(), "", target, sizeof target);
        if (length <= 0 || length == sizeof target) return fail(problemOf(length < 0 ? errno : ENAMETOOLONG, path));
        addNames({target, static_cast<std::size_t>(length)});
        if (target[0] == '/') return start();
        here_ = std::move(folder);
        return true;
    }

    // Behind links: down again to the folder above.
    bool stepBack() {
        addNames(std::string_view(path_).substr(0, path_.empty() ? 0 : path_.rfind('/')));
        return start();
    }

    const IfAbsent ifAbsent_;
    FileProblem& problem_;
    std::deque<std::string> ahead_;
    Descriptor here_;
    std::string path_;  // of `here_`, without links; "" at the root
    unsigned mode_ = 0;
    bool isLink_ = false;
    int links_ = 0;
};

// ------------------------------------------------------------------------------------------------- folders

HeldFolder::HeldFolder(Descriptor folder, std::string path, unsigned mode, Rule rule)
    : folder_(std::move(folder)), path_(std::move(path)), mode_(mode), rule_(rule) {
    struct stat about{};
    if (::fstat(folder_.number(), &about) != 0) return;
    device_ = about.st_dev;
    inode_ = about.st_ino;
}

std::shared_ptr<const HeldFolder> HeldFolder::ours(const std::string& path, IfAbsent ifAbsent, FileProblem& problem) {
    return WayDown(path, ifAbsent, problem).walk();
}

std::shared_ptr<const HeldFolder> HeldFolder::ofAnybody(const std::string& path, IfAbsent ifAbsent,
                                                        FileProblem& problem) {
    std::error_code error;
    if (ifAbsent == IfAbsent::Make) std::filesystem::create_directories(path, error);
    Descriptor folder(untilDone([&] { return ::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC); }));
    if (!folder.isOpen()) {
        problem = error ? FileProblem{FileProblem::Kind::System, path, error.message()} : problemOf(errno, path);
        return nullptr;
    }
    return std::shared_ptr<const HeldFolder>(new HeldFolder(std::move(folder), path, 0777, Rule::Anybody));
}

std::shared_ptr<const HeldFolder> HeldFolder::sub(const std::string& name, IfAbsent ifAbsent,
                                                  FileProblem& problem) const {
    const std::string known = shortened(name);
    Descriptor folder = openIn(descriptor(), known.c_str(), O_PATH);
    if (!folder.isOpen() && errno == ENOENT && ifAbsent == IfAbsent::Make) {
        if (::mkdirat(descriptor(), known.c_str(), PRIVATE_FOLDER | (mode_ & FOLDER_READERS)) != 0 && errno != EEXIST) {
            problem = problemOf(errno, pathOf(name));
            return nullptr;
        }
        folder = openIn(descriptor(), known.c_str(), O_PATH);
    }
    struct stat about{};
    if (!folder.isOpen() || ::fstat(folder.number(), &about) != 0) {
        problem = problemOf(errno, pathOf(name));
        return nullptr;
    }
    if (rule_ == Rule::Ours && !isUsable(about, name, problem)) return nullptr;
    if (!S_ISDIR(about.st_mode)) {
        problem = problemOf(ENOTDIR, pathOf(name));
        return nullptr;
    }
    return std::shared_ptr<const HeldFolder>(new HeldFolder(std::move(folder), pathOf(known), about.st_mode, rule_));
}

std::string HeldFolder::pathOf(const std::string& name) const { return path_ == "/" ? "/" + name : path_ + "/" + name; }

bool HeldFolder::isUsable(const struct stat& about, const std::string& name, FileProblem& problem) const {
    if (rule_ == Rule::Anybody) return true;
    std::string reason = whyNotOurs(about, Place::Inside);
    if (reason.empty() && S_ISLNK(about.st_mode)) reason = "is a link, and links in a cache are not followed";
    if (reason.empty()) return true;
    problem = {FileProblem::Kind::NotOurs, pathOf(name), std::move(reason)};
    return false;
}

// What cannot be opened may be there because somebody else has put it there.
void HeldFolder::explainFailure(int error, const std::string& name, FileProblem& problem) const {
    struct stat about{};
    if (error != ENOENT && ::fstatat(descriptor(), shortened(name).c_str(), &about, AT_SYMLINK_NOFOLLOW) == 0 &&
        !isUsable(about, name, problem))
        return;
    problem = problemOf(error, pathOf(name));
}

bool HeldFolder::isCurrent() const {
    struct stat about{};
    if (::stat(path_.c_str(), &about) != 0 || about.st_dev != device_ || about.st_ino != inode_) return false;
    return rule_ == Rule::Anybody || whyNotOurs(about, Place::Inside).empty();
}

// ------------------------------------------------------------------------------------------------- files

std::optional<HeldFolder::File> HeldFolder::open(const std::string& name, FileProblem& problem) const {
    File file{openIn(descriptor(), shortened(name).c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY), {}};
    struct stat about{};
    if (!file.descriptor.isOpen() || ::fstat(file.descriptor.number(), &about) != 0) {
        explainFailure(errno, name, problem);
        return std::nullopt;
    }
    if (!isUsable(about, name, problem)) return std::nullopt;
    const std::optional<FileIdentity> identity = compiler::identityOf(about);
    if (!identity) {
        problem = {FileProblem::Kind::System, pathOf(name), "is no regular file"};
        return std::nullopt;
    }
    file.identity = *identity;
    return file;
}

std::optional<FileIdentity> HeldFolder::identityOf(const std::string& name, FileProblem& problem) const {
    struct stat about{};
    if (::fstatat(descriptor(), shortened(name).c_str(), &about, AT_SYMLINK_NOFOLLOW) != 0) {
        problem = problemOf(errno, pathOf(name));
        return std::nullopt;
    }
    if (!isUsable(about, name, problem)) return std::nullopt;
    const std::optional<FileIdentity> identity = compiler::identityOf(about);
    if (!identity) problem = {FileProblem::Kind::System, pathOf(name), "is no regular file"};
    return identity;
}

Descriptor HeldFolder::openLock(const std::string& name, FileProblem& problem) const {
    Descriptor file =
        openIn(descriptor(), shortened(name).c_str(), O_RDWR | O_CREAT | O_NONBLOCK | O_NOCTTY, PRIVATE_FILE);
    struct stat about{};
    if (!file.isOpen() || ::fstat(file.number(), &about) != 0) {
        explainFailure(errno, name, problem);
        return {};
    }
    if (!isUsable(about, name, problem)) return {};
    if (S_ISREG(about.st_mode)) return file;
    problem = {FileProblem::Kind::System, pathOf(name), "is no regular file"};
    return {};
}

// Some locks are impossible everywhere: such files are not taken for abandoned either.
static bool isLockedByOther(int file) {
    return untilDone([&] { return ::flock(file, LOCK_EX | LOCK_NB); }) != 0 && errno == EWOULDBLOCK;
}

void HeldFolder::removeAbandoned() const {
    if (isTidy_.exchange(true)) return;
    for (const std::string& name : names()) {
        if (name.find(TEMPORARY_MARK) == std::string::npos) continue;
        const Descriptor file = openIn(descriptor(), name.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY);
        struct stat about{};
        FileProblem ignored;
        if (!file.isOpen() || ::fstat(file.number(), &about) != 0 || !S_ISREG(about.st_mode)) continue;
        if (!isUsable(about, name, ignored)) continue;
        if (untilDone([&] { return ::flock(file.number(), LOCK_EX | LOCK_NB); }) != 0) continue;
        ::unlinkat(descriptor(), name.c_str(), 0);
    }
}

// A new file that this process locks; not open, with errno set, when there can be none.
Descriptor HeldFolder::makeTemporary(std::string& name) const {
    static std::atomic<unsigned> counter{0};
    // A process of another name space may have this one's number, and one that looks for abandoned files may be quicker.
    for (int attempt = 0; attempt < MOST_TEMPORARY_NAMES; attempt++) {
        name = std::string(TEMPORARY_MARK) + std::to_string(::getpid()) + "-" + std::to_string(counter++);
        Descriptor file =
            openIn(descriptor(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL, PRIVATE_FILE | (mode_ & FILE_READERS));
        if (file.isOpen() ? !isLockedByOther(file.number()) : errno != EEXIST) return file;
    }
    errno = EEXIST;
    return {};
}

// Interrupted, it is closed all the same.
static bool isClosed(int file) { return ::close(file) == 0 || errno == EINTR; }

bool HeldFolder::replace(const std::string& name, std::string_view bytes, FileProblem& problem) const {
    removeAbandoned();
    std::string temporary;
    Descriptor file = makeTemporary(temporary);
    const bool isMade = file.isOpen();
    if (isMade && writeWhole(file.number(), bytes) && isClosed(file.release()) &&
        ::renameat(descriptor(), temporary.c_str(), descriptor(), shortened(name).c_str()) == 0)
        return true;
    problem = problemOf(errno, pathOf(name));
    if (isMade) ::unlinkat(descriptor(), temporary.c_str(), 0);
    return false;
}

// ------------------------------------------------------------------------------------------------- listing

std::vector<std::string> HeldFolder::names() const {
    std::vector<std::string> names;
    const int listed = untilDone([&] { return ::openat(descriptor(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
    DIR* entries = listed < 0 ? nullptr : ::fdopendir(listed);
    if (!entries) {
        if (listed >= 0) ::close(listed);
        return names;
    }
    while (const dirent* entry = ::readdir(entries)) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names.emplace_back(name);
    }
    ::closedir(entries);
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<HeldFolder::Entry> HeldFolder::entries() const {
    std::vector<Entry> entries;
    for (std::string& name : names()) {
        struct stat about{};
        if (::fstatat(descriptor(), name.c_str(), &about, AT_SYMLINK_NOFOLLOW) != 0) continue;  // vanished
        const auto kind = S_ISREG(about.st_mode)   ? Entry::Kind::File
                          : S_ISDIR(about.st_mode) ? Entry::Kind::Folder
                                                   : Entry::Kind::Other;
        entries.push_back({std::move(name), kind, static_cast<std::uint64_t>(about.st_size),
                           rule_ == Rule::Ours ? whyNotOurs(about, Place::Inside) : ""});
    }
    return entries;
}

std::optional<std::filesystem::file_time_type> HeldFolder::writeTime() const {
    struct stat about{};
    if (::fstat(descriptor(), &about) != 0) return std::nullopt;
    return FileIdentity{.modified = about.st_mtim.tv_sec * std::int64_t{1'000'000'000} + about.st_mtim.tv_nsec}
        .writeTime();
}

bool HeldFolder::remove(const Entry& entry, FileProblem& problem) const {
    if (!entry.whyNotOurs.empty()) {
        problem = {FileProblem::Kind::NotOurs, pathOf(entry.name), entry.whyNotOurs};
        return false;
    }
    const int flags = entry.kind == Entry::Kind::Folder ? AT_REMOVEDIR : 0;
    if (::unlinkat(descriptor(), entry.name.c_str(), flags) == 0 || errno == ENOENT) return true;
    problem = problemOf(errno, pathOf(entry.name));
    return false;
}

}  // namespace vesk::compiler
