// Sources that live in memory, and generated sources on their way to disk.
// A session whose cache is in memory, read-only or off keeps generated texts among its virtual sources; otherwise they
// become files, each replaced as a whole.
#include <fcntl.h>
#include <unistd.h>
#include <atomic>
#include <cerrno>
#include <cstring>

#include "host/compiler_sources.h"
#include "host/source_manager.h"
#include "semantics/session_tables.h"

namespace vesk::compiler {

namespace {

constexpr int MOST_ATTEMPTS = 100;

bool isWritten(const SessionOptions& options) {
    return options.cache == CacheMode::On && !(options.cacheTrouble && options.cacheTrouble->isThere());
}

bool writeWhole(int descriptor, const Str& text) {
    std::size_t written = 0;
    while (written < text.size()) {
        ssize_t count = ::write(descriptor, text.data() + written, text.size() - written);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        written += static_cast<std::size_t>(count);
    }
    return true;
}

// A temporary file that is gone again unless it was renamed.
class TemporaryFile {
public:
    explicit TemporaryFile(const Str& target) {
        static std::atomic<unsigned> counter{0};
        path_ = target + ".tmp-" + std::to_string(::getpid()) + "-" + std::to_string(counter++);
        descriptor_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    }
    ~TemporaryFile() {
        if (descriptor_ >= 0) ::close(descriptor_);
        if (wasMade_ && !path_.empty()) ::unlink(path_.c_str());
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    bool isOpen() const { return descriptor_ >= 0; }
    bool replace(const Str& target, const Str& text) {
        wasMade_ = true;
        if (!writeWhole(descriptor_, text)) return false;
        int descriptor = descriptor_;
        descriptor_ = -1;
        if (::close(descriptor) != 0) return false;
        if (::rename(path_.c_str(), target.c_str()) != 0) return false;
        path_.clear();
        return true;
    }

private:
    Str path_;
    int descriptor_ = -1;
    bool wasMade_ = false;
};

}  // namespace

std::shared_ptr<const Str> Compiler::virtualSourceContents(const Str& path) {
    CompileSession::State& state = CompileSession::current().state();
    std::lock_guard lock(state.sourceMutex);
    if (state.virtualSources.empty()) return nullptr;
    auto found = state.virtualSources.find(SourceManager::normalizePath(path));
    return found == state.virtualSources.end() ? nullptr : found->second;
}

bool Compiler::tryGetVirtualSource(const Str& path, Str& out) {
    auto text = virtualSourceContents(path);
    if (!text) return false;
    out = *text;
    return true;
}

bool Compiler::keepsGeneratedSourcesInMemory() { return !isWritten(CompileSession::current().options()); }

bool Compiler::storeGeneratedSourceInMemory(const Str& path, const Str& text) {
    CompileSession::State& state = CompileSession::current().state();
    if (isWritten(state.options)) return false;
    Str normal = SourceManager::normalizePath(path);
    std::lock_guard lock(state.sourceMutex);
    auto& held = state.virtualSources[normal];
    if (!held || *held != text) held = std::make_shared<const Str>(text);
    return true;
}

bool Compiler::goesOnAfterCacheTrouble(const Str& what) {
    const std::shared_ptr<CacheTrouble> trouble = CompileSession::current().options().cacheTrouble;
    if (trouble) trouble->note(what);
    return trouble != nullptr;
}

bool Compiler::replaceFile(const Str& path, const Str& text, Str& error) {
    if (CompileSession::current().options().cache == CacheMode::ReadOnly) {
        error = path + ": the cache is read-only";
        return false;
    }
    // Somebody may clear the cache meanwhile: then the folder is made again.
    for (int attempt = 0; attempt < MOST_ATTEMPTS; attempt++) {
        std::error_code failure;
        std::filesystem::path folder = std::filesystem::path(path).parent_path();
        if (!folder.empty()) std::filesystem::create_directories(folder, failure);
        if (failure && failure != std::errc::no_such_file_or_directory) {
            error = folder.native() + ": " + failure.message();
            return false;
        }
        TemporaryFile file(path);
        if (file.isOpen() && file.replace(path, text)) return true;
        error = path + ": " + std::strerror(errno);
        if (errno != ENOENT) return false;
    }
    return false;
}

bool Compiler::writeGeneratedSourceAtomically(const Str& path, const Str& text, Str& error) {
    if (replaceFile(path, text, error)) return true;
    // The text is not lost with the disk.
    return goesOnAfterCacheTrouble(error) && storeGeneratedSourceInMemory(path, text);
}

}  // namespace vesk::compiler
