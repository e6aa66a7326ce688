// Reading, appending and shortening the file. Every access opens it anew: another session may have replaced it.
#include "driver/line_history.h"

#define LIBBSD_NETBSD_VIS  // which of two forms other functions of this header have
#include <bsd/vis.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

namespace vesk::compiler {
namespace {

constexpr const char* FILE_NAME = ".veskc-history";
// How files began that the line editor's own functions wrote; their lines have escapes.
constexpr std::string_view FORMER_HEADER = "_HiStOrY_V2_\n";
constexpr int LOCK_ATTEMPTS = 100, PAUSE_MICROSECONDS = 10'000;
constexpr mode_t OTHERS = S_IRWXG | S_IRWXO;

class OpenFile {
public:
    explicit OpenFile(int descriptor = -1) : descriptor_(descriptor) {}
    OpenFile(OpenFile&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    OpenFile& operator=(OpenFile&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~OpenFile() {
        if (isOpen()) ::close(descriptor_);
    }
    bool isOpen() const { return descriptor_ >= 0; }
    int descriptor() const { return descriptor_; }

private:
    int descriptor_;
};

std::string systemReason(int error) { return error == ELOOP ? "it is a symbolic link" : std::strerror(error); }

// Never waits and never follows a link; the reason when the file is none to be used.
OpenFile open(const std::string& path, int flags, std::string& reason) {
    OpenFile file(::open(path.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, S_IRUSR | S_IWUSR));
    struct stat status{};
    if (!file.isOpen() || ::fstat(file.descriptor(), &status) != 0) {
        reason = systemReason(errno);
        return OpenFile();
    }
    if (!S_ISREG(status.st_mode))
        reason = "it is no regular file";
    else if (status.st_uid != ::geteuid())
        reason = "it belongs to another user";
    else if ((status.st_mode & OTHERS) != 0 && ::fchmod(file.descriptor(), status.st_mode & S_IRWXU) != 0)
        reason = systemReason(errno);
    else
        return file;
    return OpenFile();
}

bool isStill(int file, const std::string& path) {
    struct stat own{}, named{};
    return ::fstat(file, &own) == 0 && ::lstat(path.c_str(), &named) == 0 && own.st_ino == named.st_ino &&
           own.st_dev == named.st_dev;
}

// Writable, and nobody else's until it is closed.
OpenFile openLocked(const std::string& path, std::string& reason) {
    for (int attempt = 0; attempt < LOCK_ATTEMPTS; attempt++) {
        OpenFile file = open(path, O_RDWR | O_APPEND | O_CREAT, reason);
        if (!file.isOpen()) return file;
        if (::flock(file.descriptor(), LOCK_EX | LOCK_NB) == 0) {
            if (isStill(file.descriptor(), path)) return file;
        } else if (errno != EWOULDBLOCK && errno != EINTR) {
            reason = systemReason(errno);
            return OpenFile();
        } else {
            ::usleep(PAUSE_MICROSECONDS);
        }
    }
    reason = "another process holds it locked";
    return OpenFile();
}

std::size_t sizeOf(int file) {
    struct stat status{};
    return ::fstat(file, &status) == 0 ? static_cast<std::size_t>(status.st_size) : 0;
}

// The bytes from `begin` on, as many as there are.
std::string bytesOf(int file, std::size_t begin, std::size_t size) {
    std::string bytes(size, '\0');
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count = ::pread(file, &bytes[done], size - done, static_cast<off_t>(begin + done));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        done += static_cast<std::size_t>(count);
    }
    bytes.resize(done);
    return bytes;
}

bool writeAll(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(file, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

// The last lines of a file, whole ones, in no more than so many bytes.
std::string tailOf(int file, std::size_t most) {
    const std::size_t size = sizeOf(file);
    if (size <= most) return bytesOf(file, 0, size);
    std::string tail = bytesOf(file, size - most, most);
    return tail.substr(std::min(tail.find('\n'), tail.size() - 1) + 1);
}

bool isFormer(int file) { return bytesOf(file, 0, FORMER_HEADER.size()) == FORMER_HEADER; }

std::string withoutEscapes(const std::string& line) {
    std::string text(line.size() + 1, '\0');
    const int size = ::strunvis(text.data(), line.c_str());
    if (size < 0) return line;
    text.resize(static_cast<std::size_t>(size));
    return text;
}

// What is no line of typed text is damage.
bool isText(const std::string& line) {
    return !line.empty() && std::none_of(line.begin(), line.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte < 0x20 && c != '\t') || byte == 0x7F;
    });
}

std::vector<std::string> linesOf(std::string_view text, bool hasEscapes) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string line(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        if (hasEscapes) line = withoutEscapes(line);
        if (isText(line)) lines.push_back(std::move(line));
    }
    return lines;
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return text;
}

std::vector<std::string> linesOfFile(int file, std::size_t most) {
    if (!isFormer(file)) return linesOf(tailOf(file, most), false);
    std::vector<std::string> lines = linesOf(tailOf(file, most), true);
    if (!lines.empty() && lines.front() + "\n" == FORMER_HEADER) lines.erase(lines.begin());
    return lines;
}

std::string homeFolder() {
    if (const char* home = std::getenv("HOME"); home && *home) return home;
    const passwd* user = ::getpwuid(::geteuid());
    return user && user->pw_dir ? user->pw_dir : "";
}

}  // namespace

LineHistory LineHistory::ofUser() {
    const std::string home = homeFolder();
    if (home.starts_with('/')) return LineHistory(home + "/" + FILE_NAME);
    LineHistory none("");
    none.fail("there is no home folder with an absolute path");
    return none;
}

void LineHistory::fail(const std::string& reason) {
    if (hasFailed_) return;
    hasFailed_ = true;
    trouble_ = (path_.empty() ? "" : "'" + path_ + "': ") + reason;
}

std::string LineHistory::takeTrouble() { return std::exchange(trouble_, ""); }

std::vector<std::string> LineHistory::load() {
    if (path_.empty()) return {};
    std::string reason;
    OpenFile file = open(path_, O_RDWR | O_CREAT, reason);
    if (!file.isOpen()) {
        fail(reason);
        // What cannot be written may still be read.
        file = open(path_, O_RDONLY, reason);
    }
    return file.isOpen() ? linesOfFile(file.descriptor(), limits_.fileBytes) : std::vector<std::string>{};
}

void LineHistory::add(const std::string& line) {
    if (path_.empty() || hasFailed_ || !isText(line) || line.size() > limits_.lineBytes) return;
    std::string reason;
    const OpenFile file = openLocked(path_, reason);
    if (!file.isOpen()) return fail(reason);
    if (isFormer(file.descriptor())) {
        std::vector<std::string> lines = linesOfFile(file.descriptor(), limits_.keptBytes);
        lines.push_back(line);
        if (!replace(joined(lines))) fail(systemReason(errno));
        return;
    }
    if (!append(file.descriptor(), line)) return fail(systemReason(errno));
    if (sizeOf(file.descriptor()) <= limits_.fileBytes) return;
    if (!replace(tailOf(file.descriptor(), limits_.keptBytes))) fail(systemReason(errno));
}

// Whole or not at all. A session that was killed may have left half a line, which then stands by itself.
bool LineHistory::append(int file, const std::string& line) {
    const std::size_t size = sizeOf(file);
    const bool endsInside = size > 0 && bytesOf(file, size - 1, 1) != "\n";
    if (writeAll(file, (endsInside ? "\n" : "") + line + "\n")) return true;
    const int error = errno;
    if (::ftruncate(file, static_cast<off_t>(size)) != 0) errno = error;
    errno = error;
    return false;
}

// Under the lock of the old file, so the new one's name is ours; what stands there is of a session that was killed.
bool LineHistory::replace(const std::string& text) {
    const std::string name = path_ + ".new";
    ::unlink(name.c_str());
    const OpenFile file(::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file.isOpen()) return false;
    const bool isDone = writeAll(file.descriptor(), text) && ::fsync(file.descriptor()) == 0 &&
                        ::rename(name.c_str(), path_.c_str()) == 0;
    const int error = errno;
    if (!isDone) ::unlink(name.c_str());
    errno = error;
    return isDone;
}

}  // namespace vesk::compiler
