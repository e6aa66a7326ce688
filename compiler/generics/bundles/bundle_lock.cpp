// Taking and releasing bundle locks.
#include "generics/bundles/bundle_lock.h"

#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "generics/session_state.h"
#include "generics/typetext/symbol_mangling.h"
#include "host/cache_files.h"
#include "host/compiler_sources.h"
#include "host/runtime.h"
#include "host/source_manager.h"

namespace vesk::compiler {

namespace {

constexpr std::size_t STRIPES = 64;

struct Stripes {
    pthread_mutex_t mutexes[STRIPES];
    Stripes() {
        for (pthread_mutex_t& mutex : mutexes) mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
    }
};

// Sixteen digits, zeros kept: the names of lock files differ from those of bundles in that.
Str paddedHash(const Str& key) {
    const Str digits = fnv1a64Hex(key);
    return Str(16 - digits.size(), '0') + digits;
}

Str lockKey(const Str& path) {
    Str key = SourceManager::instance().normalizePath(path);
    if (!key.empty()) return key;
    std::error_code error;
    std::filesystem::path absolute = std::filesystem::absolute(path, error);
    if (error) absolute = path;
    return absolute.lexically_normal().generic_string();
}

}  // namespace

pthread_mutex_t& genericMethodBundleMutex(const Str& key) {
    static Stripes stripes;
    return stripes.mutexes[std::hash<Str>{}(key) % STRIPES];
}

std::filesystem::path genericMethodBundleLockDirectory() {
    std::filesystem::path branch = Runtime::getInstance().getCacheBranchPath();
    if (branch.empty()) return ".artifact-locks";
    if (!branch.has_filename()) branch = branch.parent_path();  // a separator at the end
    return branch.parent_path() / ".artifact-locks" / branch.filename();
}

namespace {

// The folder of the branch in use, taken apart once: a lock is taken for each bundle that is read.
const Str& knownLockDirectory() {
    thread_local Str knownBranch, directory;
    Str branch = Runtime::getInstance().getCacheBranchPath();
    if (directory.empty() || branch != knownBranch) {
        directory = genericMethodBundleLockDirectory().string();
        knownBranch = std::move(branch);
    }
    return directory;
}

}  // namespace

GenericMethodBundleProcessLock::GenericMethodBundleProcessLock(const Str& key) {
    const Str& directory = knownLockDirectory();
    path_ = directory + "/generic-method-" + paddedHash(key) + ".lock";
    const Str failure = "Unable to lock generic-method cache '" + path_.string() + "'";
    CacheFiles::LockFailure trouble;
    fd_ = CacheFiles::openLock(path_.string(), trouble);
    if (fd_ < 0) {
        if (!trouble.isOfFolder) throw std::runtime_error(failure);
        throw std::runtime_error("Unable to create generic-method cache lock directory '" + directory +
                                 "': " + trouble.reason);
    }
    int result = 0;
    do {
        result = flock(fd_, LOCK_EX);
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        close(fd_);
        fd_ = -1;
        throw std::runtime_error(failure);
    }
}

GenericMethodBundleProcessLock::~GenericMethodBundleProcessLock() {
    if (fd_ < 0) return;
    while (flock(fd_, LOCK_UN) != 0 && errno == EINTR) {}
    close(fd_);
}

// Holds the stripe, and at the outermost level the lock file. Where bundles stay in memory no other process sees them.
struct GenericMethodBundleArtifactLock::State {
    explicit State(const Str& path) : key(lockKey(path)), mutex(&genericMethodBundleMutex(key)) {
        if (const int error = pthread_mutex_lock(mutex)) {
            throw std::system_error(error, std::generic_category(), "generic-method cache mutex");
        }
        ownsMutex = true;
        try {
            if (gGenericMethodBundleLockDepth[key]++ == 0 && !Compiler::keepsGeneratedSourcesInMemory()) {
                takeProcessLock();
            }
        } catch (...) {
            gGenericMethodBundleLockDepth.erase(key);
            pthread_mutex_unlock(mutex);
            throw;
        }
    }

    ~State() {
        if (const auto depth = gGenericMethodBundleLockDepth.find(key); depth != gGenericMethodBundleLockDepth.end()) {
            if (--depth->second == 0) {
                processLock.reset();
                gGenericMethodBundleLockDepth.erase(depth);
            }
        }
        processLock.reset();
        if (ownsMutex) pthread_mutex_unlock(mutex);
    }

    State(const State&) = delete;
    State& operator=(const State&) = delete;

    void takeProcessLock() {
        try {
            processLock = std::make_unique<GenericMethodBundleProcessLock>(key);
        } catch (const std::runtime_error& trouble) {
            // A host that goes on in memory shares nothing with other processes.
            if (!Compiler::goesOnAfterCacheTrouble(trouble.what())) throw;
        }
    }

    Str key;
    pthread_mutex_t* mutex = nullptr;
    bool ownsMutex = false;
    std::unique_ptr<GenericMethodBundleProcessLock> processLock;
};

GenericMethodBundleArtifactLock::GenericMethodBundleArtifactLock(const Str& path)
    : state_(std::make_unique<State>(path)) {}

GenericMethodBundleArtifactLock::~GenericMethodBundleArtifactLock() = default;

}  // namespace vesk::compiler
