// Source texts, read once and shared by all threads.
// Key: normalized path. Entry: the text and what the system says about the file (device, inode, size, times of change).
// An entry answers as long as the system says the same, and only once the file's last change is so long past that a
// further write would show in the time stamp; until then the file is read again.
#include "host/source_manager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <mutex>
#include <shared_mutex>

#include "generics/generic_specializer.h"
#include "host/compiler_sources.h"
#include "host/file_identity.h"
#include "host/source_snapshot.h"

namespace vesk::compiler {

namespace {

struct CachedText {
    FileIdentity identity;
    std::int64_t askedAt = 0;
    std::shared_ptr<const Str> text;
    bool isSettled() const { return identity.isSettledAt(askedAt); }
};

struct TextCache {
    std::shared_mutex mutex;
    std::unordered_map<Str, CachedText> entries;
};

TextCache& textCache() {
    static TextCache cache;
    return cache;
}

class OpenFile {
public:
    explicit OpenFile(const Str& path) {
        do descriptor_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        while (descriptor_ < 0 && errno == EINTR);
    }
    ~OpenFile() {
        if (descriptor_ >= 0) ::close(descriptor_);
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    int descriptor() const { return descriptor_; }

private:
    int descriptor_;
};

// A regular file: a read that leaves room has come to its end.
bool readAll(int descriptor, std::size_t expected, Str& out) {
    out.resize(expected + 1);
    std::size_t length = 0;
    for (bool isAtEnd = false; !isAtEnd;) {
        if (length == out.size()) out.resize(out.size() * 2);
        const std::size_t room = out.size() - length;
        ssize_t count = ::read(descriptor, out.data() + length, room);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        length += static_cast<std::size_t>(count);
        isAtEnd = length == expected ? static_cast<std::size_t>(count) < room : count == 0;
    }
    out.resize(length);
    out.shrink_to_fit();
    return true;
}

std::shared_ptr<const Str> readFile(const Str& path, std::filesystem::file_time_type* time) {
    CachedText fresh;
    fresh.askedAt = currentNanoseconds();
    OpenFile file(path);
    if (file.descriptor() < 0) return nullptr;
    // Only regular files: a directory has no text, a pipe would never end.
    const std::optional<FileIdentity> identity = identityOfOpenFile(file.descriptor());
    if (!identity) return nullptr;
    fresh.identity = *identity;
    if (time) *time = identity->writeTime();
    Str text;
    if (!readAll(file.descriptor(), identity->size, text)) return nullptr;
    if (identityOfOpenFile(file.descriptor()) != identity) fresh.askedAt = 0;  // written meanwhile
    TextCache& cache = textCache();
    std::unique_lock lock(cache.mutex);
    CachedText& entry = cache.entries[path];
    // The same text keeps its address, so that what is keyed by it stays valid.
    fresh.text = entry.text && *entry.text == text ? entry.text : std::make_shared<const Str>(std::move(text));
    entry = std::move(fresh);
    return entry.text;
}

// What a piece of work has seen of the sources.
struct Snapshot {
    int depth = 0;
    std::unordered_map<Str, std::shared_ptr<const Str>> texts;
};
thread_local Snapshot gSnapshot;

bool isGeneratedSource(const Str& path) { return isGenericMethodBundlePath(path); }

}  // namespace

ScopedSourceSnapshot::ScopedSourceSnapshot() { gSnapshot.depth++; }

ScopedSourceSnapshot::~ScopedSourceSnapshot() {
    if (--gSnapshot.depth == 0) gSnapshot.texts.clear();
}

SourceManager& SourceManager::instance() {
    static SourceManager manager;
    return manager;
}

namespace {

// The text as it was read last, when the system still says the same about the file; else as it is now.
std::shared_ptr<const Str> checkedText(const Str& normal, std::filesystem::file_time_type* time) {
    CachedText known;
    {
        TextCache& cache = textCache();
        std::shared_lock lock(cache.mutex);
        if (auto found = cache.entries.find(normal); found != cache.entries.end() && found->second.isSettled())
            known = found->second;
    }
    if (known.text && identityOfFile(normal.c_str()) == known.identity) {
        if (time) *time = known.identity.writeTime();
        return known.text;
    }
    return readFile(normal, time);
}

std::shared_ptr<const Str> currentText(const Str& path, std::filesystem::file_time_type* time) {
    Str normal = SourceManager::normalizePath(path);
    if (normal.empty()) return nullptr;
    if (auto held = Compiler::virtualSourceContents(normal)) return held;
    const bool isInSnapshot = gSnapshot.depth > 0 && !time && !isGeneratedSource(normal);
    if (isInSnapshot) {
        if (auto seen = gSnapshot.texts.find(normal); seen != gSnapshot.texts.end()) return seen->second;
    }
    std::shared_ptr<const Str> text = checkedText(normal, time);
    if (isInSnapshot && text) gSnapshot.texts.emplace(std::move(normal), text);
    return text;
}

}  // namespace

std::shared_ptr<const Str> SourceManager::contents(const Str& path) { return currentText(path, nullptr); }

std::shared_ptr<const Str> SourceManager::contents(const Str& path, std::filesystem::file_time_type& time) {
    return currentText(path, &time);
}

FileStatus SourceManager::status(const Str& path) {
    Str normal = normalizePath(path);
    if (normal.empty()) return {true, false};
    if (Compiler::virtualSourceContents(normal)) return {true, true};
    struct stat info{};
    if (::stat(normal.c_str(), &info) == 0) return {true, true};
    return {errno == ENOENT || errno == ENOTDIR, false};
}

bool SourceManager::lastWriteTime(const Str& path, std::filesystem::file_time_type& time) {
    Str normal = normalizePath(path);
    if (normal.empty()) return false;
    std::error_code error;
    auto found = std::filesystem::last_write_time(normal, error);
    if (error) return false;
    time = found;
    return true;
}

}  // namespace vesk::compiler
