// The two halves of a bundle's lock: a stripe of in-process mutexes, and a lock file that other processes see.
// Order: the stripe first, then, at the outermost level of this thread, the file; release in reverse. Nothing that could
// ask for another bundle runs while a lock is held.
#pragma once

#include <pthread.h>

#include <cstdint>
#include <filesystem>

#include "generics/generic_specializer.h"
#include "host/model_records.h"

namespace vesk::compiler {

// An exclusive lock on the file that stands for a key. The files are never deleted.
class GenericMethodBundleProcessLock {
public:
    explicit GenericMethodBundleProcessLock(const Str& key);
    ~GenericMethodBundleProcessLock();
    GenericMethodBundleProcessLock(const GenericMethodBundleProcessLock&) = delete;
    GenericMethodBundleProcessLock& operator=(const GenericMethodBundleProcessLock&) = delete;

private:
    std::filesystem::path path_;
    std::int32_t fd_ = -1;
};

// The stripe of a key: one of 64 recursive mutexes.
pthread_mutex_t& genericMethodBundleMutex(const Str& key);
// The folder of the lock files of the active cache branch.
std::filesystem::path genericMethodBundleLockDirectory();

}  // namespace vesk::compiler
