// The host's side of the cache: every path below the session's cache folder goes to that folder, all others to the system.
#include "host/cache_files.h"

#include <unistd.h>

#include <cerrno>

#include "cache/trusted_cache.h"
#include "semantics/session_tables.h"

namespace vesk::compiler {

namespace {

std::shared_ptr<const HeldFolder> openFolder(const Str& path, IfAbsent ifAbsent, FileProblem& problem) {
    if (TrustedCache* cache = cacheHolding(path)) return cache->folder(path, ifAbsent, problem);
    return HeldFolder::ofAnybody(path, ifAbsent, problem);
}

Str withoutEnd(Str path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

Descriptor openLockFile(const Str& path, FileProblem& problem) {
    if (TrustedCache* cache = cacheHolding(path)) return cache->openLock(path, problem);
    const std::filesystem::path parts = path;
    const Str within = parts.parent_path().string();
    const auto folder = HeldFolder::ofAnybody(within.empty() ? "." : within, IfAbsent::Make, problem);
    return folder ? folder->openLock(parts.filename().string(), problem) : Descriptor();
}

}  // namespace

CacheFolder::CacheFolder(const Str& path) {
    FileProblem problem;
    folder_ = openFolder(withoutEnd(path), IfAbsent::Fail, problem);
}

StrVec CacheFolder::names() const { return folder_ ? folder_->names() : StrVec(); }

std::optional<std::filesystem::file_time_type> CacheFolder::writeTime() const {
    return folder_ ? folder_->writeTime() : std::nullopt;
}

std::optional<FileIdentity> CacheFolder::identityOf(const Str& name) const {
    FileProblem problem;
    return folder_ ? folder_->identityOf(name, problem) : std::nullopt;
}

std::optional<Str> CacheFiles::read(const Str& path) {
    const std::optional<HeldFolder::File> file = openSource(path);
    Str bytes;
    if (!file || !readAll(file->descriptor.number(), file->identity.size, bytes)) return std::nullopt;
    return bytes;
}

int CacheFiles::openLock(const Str& path, LockFailure& failure) {
    FileProblem problem;
    Descriptor lock = openLockFile(path, problem);
    if (!lock.isOpen()) {
        const bool isOfFile = std::filesystem::path(problem.path).filename() == std::filesystem::path(path).filename();
        failure = {problem.reason, !isOfFile};
    }
    return lock.release();
}

}  // namespace vesk::compiler
