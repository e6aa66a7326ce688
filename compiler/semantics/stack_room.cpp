// Asking the system for the bounds of the stack, once for each thread.
#include "semantics/stack_room.h"

#include <pthread.h>

#include <algorithm>
#include <cstdint>

namespace vesk::compiler {
namespace {

// Of a stack of the usual eight mebibytes, of which the system takes some for itself; the rest is for what does not look
// at it.
constexpr std::uintptr_t USABLE = std::uintptr_t{7} << 20;
constexpr std::uintptr_t RESERVE = std::uintptr_t{384} << 10;

void (*gStackHandler)() = nullptr;

struct StackLimit {
    std::uintptr_t lowest = 0;
    bool isOfTheProgram = true;  // as opposed to the stack's own
};

StackLimit limitOfThread() {
    pthread_attr_t attributes;
    void* lowest = nullptr;
    std::size_t size = 0;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) return {};
    pthread_attr_getstack(&attributes, &lowest, &size);
    pthread_attr_destroy(&attributes);
    const auto begin = reinterpret_cast<std::uintptr_t>(lowest);
    // The main thread's stack grows on demand, up to a size that may be unlimited.
    if (size >= USABLE + RESERVE) return {begin + size - USABLE, true};
    return {begin + std::min<std::uintptr_t>(RESERVE, size / 2), false};
}

}  // namespace

void setStackHandler(void (*handler)()) { gStackHandler = handler; }

bool isStackUsedUp() {
    thread_local const StackLimit limit = limitOfThread();
    if (reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)) >= limit.lowest) return false;
    if (limit.isOfTheProgram) return true;
    if (gStackHandler) gStackHandler();
    throw StackExhausted();
}

}  // namespace vesk::compiler
