// The lock inside a synchronized collection: recursive, since equals(), hashCode() and toString() of elements may come
// back to the collection. It is part of the object, needs no construction (zeros are an open lock) and no destruction.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

namespace vesk::runtime {

class SyncLock {
public:
    void lock() {
        const std::uintptr_t self = thisThread();
        if (owner_.load(std::memory_order_relaxed) != self) {
            pthread_mutex_lock(&mutex_);
            owner_.store(self, std::memory_order_relaxed);
        }
        depth_++;
    }
    void unlock() {
        if (--depth_ > 0) return;
        owner_.store(0, std::memory_order_relaxed);
        pthread_mutex_unlock(&mutex_);
    }

private:
    // The address of a variable of the thread; never 0.
    static std::uintptr_t thisThread() {
        static thread_local char gMark;
        return reinterpret_cast<std::uintptr_t>(&gMark);
    }

    pthread_mutex_t mutex_;
    std::atomic<std::uintptr_t> owner_;
    std::int64_t depth_;  // belongs to the owner
};

// Holds a lock, or nothing when there is none.
class SyncGuard {
public:
    explicit SyncGuard(SyncLock* lock) : lock_(lock) {
        if (lock_) lock_->lock();
    }
    ~SyncGuard() {
        if (lock_) lock_->unlock();
    }
    SyncGuard(const SyncGuard&) = delete;
    SyncGuard& operator=(const SyncGuard&) = delete;

private:
    SyncLock* lock_;
};

}  // namespace vesk::runtime
