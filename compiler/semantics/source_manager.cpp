// Source texts, read once and shared by all threads.
// Key: normalized path. Entry: the text and what the system says about the file (device, inode, size, times of change).
// An entry answers as long as the system says the same, and only once the file's last change is so long past that a
// further write would show in the time stamp; until then the file is read again.
#include "host/source_manager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <new>
#include <shared_mutex>

#include "cache/trusted_cache.h"
#include "generics/generic_specializer.h"
#include "host/compiler_sources.h"
#include "host/file_identity.h"
#include "host/source_snapshot.h"
#include "semantics/session_tables.h"

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

// Texts are kept whole, and places in them are counted in Ints; what compilers write is smaller by far. A sparse file costs
// nothing to make.
constexpr std::uint64_t LARGEST_TEXT = std::uint64_t{256} << 20;

std::optional<FileIdentity> identityNow(const Str& path) {
    TrustedCache* cache = cacheHolding(path);
    return cache ? cache->identityOf(path) : identityOfFile(path.c_str());
}

// Without memory nothing can go on; everything else is a fact about the file.
void setReason(UnreadReason& reason, int number, const char* text = nullptr) {
    if (number == ENOMEM) endForLackOfMemory();
    reason = {number, text ? text : std::strerror(number)};
}

// What another can have put into the cache, or what is no file at all, is as good as absent.
UnreadReason reasonOf(const FileProblem& problem) {
    UnreadReason reason;
    const bool isRefusal = problem.kind == FileProblem::Kind::System && problem.number != 0;
    setReason(reason, isRefusal ? problem.number : ENOENT, problem.reason.c_str());
    return reason;
}

// Nothing, and the reason, for what has no text: a folder, a pipe that would never end.
std::optional<FileIdentity> identityOfText(int descriptor, UnreadReason& reason) {
    struct stat about{};
    if (::fstat(descriptor, &about) != 0) {
        setReason(reason, errno);
        return std::nullopt;
    }
    const std::optional<FileIdentity> identity = compiler::identityOf(about);
    if (!identity && S_ISDIR(about.st_mode)) setReason(reason, EISDIR);
    if (!identity && !S_ISDIR(about.st_mode)) setReason(reason, EINVAL, "it is no ordinary file");
    return identity;
}

std::optional<HeldFolder::File> openAny(const Str& path, UnreadReason& reason) {
    if (TrustedCache* cache = cacheHolding(path)) {
        FileProblem problem;
        std::optional<HeldFolder::File> file = cache->open(path, problem);
        if (!file) reason = reasonOf(problem);
        return file;
    }
    HeldFolder::File file;
    do file.descriptor = Descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    while (!file.descriptor.isOpen() && errno == EINTR);
    if (!file.descriptor.isOpen()) {
        setReason(reason, errno);
        return std::nullopt;
    }
    const std::optional<FileIdentity> identity = identityOfText(file.descriptor.number(), reason);
    if (!identity) return std::nullopt;
    file.identity = *identity;
    return file;
}

}  // namespace

std::optional<HeldFolder::File> openSource(const Str& path, UnreadReason& reason) {
    std::optional<HeldFolder::File> file = openAny(path, reason);
    if (!file || file->identity.size <= LARGEST_TEXT) return file;
    // In the cache it is damaged.
    setReason(reason, cacheHolding(path) ? ENOENT : EFBIG, std::strerror(EFBIG));
    return std::nullopt;
}

std::optional<HeldFolder::File> openSource(const Str& path) {
    UnreadReason ignored;
    return openSource(path, ignored);
}

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

namespace {

std::shared_ptr<const Str> readFile(const Str& path, std::filesystem::file_time_type* time, UnreadReason& reason) {
    CachedText fresh;
    fresh.askedAt = currentNanoseconds();
    const std::optional<HeldFolder::File> file = openSource(path, reason);
    if (!file) return nullptr;
    fresh.identity = file->identity;
    if (time) *time = file->identity.writeTime();
    Str text;
    const int descriptor = file->descriptor.number();
    if (!readAll(descriptor, file->identity.size, text)) {
        setReason(reason, errno);
        return nullptr;
    }
    if (identityOfOpenFile(descriptor) != file->identity) fresh.askedAt = 0;  // written meanwhile
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

// A source that people write: what is compiled without it is not what they have written.
bool isWrittenSource(const Str& path) { return path.ends_with(".vk") && !isGeneratedSource(path); }

}  // namespace

ScopedSourceSnapshot::ScopedSourceSnapshot() { gSnapshot.depth++; }

ScopedSourceSnapshot::~ScopedSourceSnapshot() {
    // Clearing would cost as much as the most that has ever been in it.
    if (--gSnapshot.depth == 0 && !gSnapshot.texts.empty()) gSnapshot.texts = {};
}

SourceManager& SourceManager::instance() {
    static SourceManager manager;
    return manager;
}

namespace {

// The text as it was read last, when the system still says the same about the file; else as it is now.
std::shared_ptr<const Str> checkedText(const Str& normal, std::filesystem::file_time_type* time, UnreadReason& reason) {
    CachedText known;
    {
        TextCache& cache = textCache();
        std::shared_lock lock(cache.mutex);
        if (auto found = cache.entries.find(normal); found != cache.entries.end() && found->second.isSettled())
            known = found->second;
    }
    if (known.text && identityNow(normal) == known.identity) {
        if (time) *time = known.identity.writeTime();
        return known.text;
    }
    return readFile(normal, time, reason);
}

// A bundle that cannot be read now may hold what its successor would lack: nothing is written from now on.
void noteUnreadable(const Str& path, const UnreadReason& reason) {
    if (cacheHolding(path))
        Compiler::goesOnAfterCacheTrouble(path + ": " + reason.text);
    else if (isWrittenSource(path))
        CompileSession::current().noteUnreadable(path, reason.text);
}

std::shared_ptr<const Str> currentText(const Str& path, std::filesystem::file_time_type* time, UnreadReason& reason) {
    Str normal = SourceManager::normalizePath(path);
    if (normal.empty()) {
        setReason(reason, ENOENT);
        return nullptr;
    }
    if (auto held = Compiler::virtualSourceContents(normal)) return held;
    const bool isInSnapshot = gSnapshot.depth > 0 && !time && !isGeneratedSource(normal);
    if (isInSnapshot) {
        if (auto seen = gSnapshot.texts.find(normal); seen != gSnapshot.texts.end()) return seen->second;
    }
    std::shared_ptr<const Str> text = checkedText(normal, time, reason);
    if (!text && !reason.isMissing()) noteUnreadable(normal, reason);
    if (isInSnapshot && text) gSnapshot.texts.emplace(std::move(normal), text);
    return text;
}

}  // namespace

void endForLackOfMemory() {
    if (const std::new_handler outOfMemory = std::get_new_handler()) outOfMemory();
    throw std::bad_alloc();
}

bool UnreadReason::isMissing() const { return number == ENOENT || number == ENOTDIR || number == ENAMETOOLONG; }

std::shared_ptr<const Str> SourceManager::contents(const Str& path) {
    UnreadReason ignored;
    return currentText(path, nullptr, ignored);
}

std::shared_ptr<const Str> SourceManager::contents(const Str& path, std::filesystem::file_time_type& time) {
    UnreadReason ignored;
    return currentText(path, &time, ignored);
}

std::shared_ptr<const Str> SourceManager::contents(const Str& path, UnreadReason& reason) {
    return currentText(path, nullptr, reason);
}

FileStatus SourceManager::status(const Str& path) {
    Str normal = normalizePath(path);
    if (normal.empty()) return {true, false};
    if (Compiler::virtualSourceContents(normal)) return {true, true};
    if (TrustedCache* cache = cacheHolding(normal)) return {true, cache->identityOf(normal).has_value()};
    struct stat info{};
    if (::stat(normal.c_str(), &info) == 0) return {true, true};
    return {errno == ENOENT || errno == ENOTDIR, false};
}

bool SourceManager::lastWriteTime(const Str& path, std::filesystem::file_time_type& time) {
    Str normal = normalizePath(path);
    if (normal.empty()) return false;
    if (TrustedCache* cache = cacheHolding(normal)) {
        const std::optional<FileIdentity> identity = cache->identityOf(normal);
        if (identity) time = identity->writeTime();
        return identity.has_value();
    }
    std::error_code error;
    auto found = std::filesystem::last_write_time(normal, error);
    if (error) return false;
    time = found;
    return true;
}

}  // namespace vesk::compiler
