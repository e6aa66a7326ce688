// The command veskc: everything it does is in compiler/driver.
#include <cstdio>
#include <cstdlib>

#include "driver/commands.h"
#include "driver/last_resort.h"

#ifdef VESK_MIMALLOC
#include <mimalloc.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstdint>
#include <new>

namespace {

// A compilation touches nearly all that it allocates: one large page is one interruption where small ones are 512. The
// allocator asks for its memory in pieces; the first, a third of which is enough for most commands, is there since before main().
void preferLargePages() {
    constexpr std::uintptr_t MEBIBYTE = std::uintptr_t{1} << 20, PIECE = 32 * MEBIBYTE, LARGE = 12 * MEBIBYTE;
    mi_option_set(mi_option_decommit_delay, 10'000);  // parts of a page that are given back break it up
    void* const room = mi_malloc(1);
    madvise(reinterpret_cast<void*>(reinterpret_cast<std::uintptr_t>(room) / PIECE * PIECE), LARGE, MADV_HUGEPAGE);
    mi_free(room);
}

// What asks for memory by malloc() is lost without it, as what asks by `new` is: the C library ends by a signal where the
// destructor of a thread's object finds no room.
void watchAllocator() {
    // A thread's first piece is writable as a whole from the start. Where the system refuses to make more of it writable,
    // the allocator would ask for one piece after the other, and try the first again.
    mi_option_set(mi_option_eager_commit_delay, 0);
    mi_register_error(
        [](int error, void*) {
            if (error != ENOMEM) return;
            if (const std::new_handler outOfMemory = std::get_new_handler()) outOfMemory();
        },
        nullptr);
}

}  // namespace
#else
namespace {
void preferLargePages() {}
void watchAllocator() {}
}  // namespace
#endif

namespace {

// Before the constructors of static objects, which ask for memory as well.
[[gnu::constructor(101)]] void start() {
    vesk::compiler::installLastResort();
    watchAllocator();
}

}  // namespace

int main(int argc, char** argv) {
    preferLargePages();
    const int status = vesk::compiler::runCommandLine({argv + 1, argv + argc});
#ifdef VESK_COVERAGE
    std::exit(status);  // writes the counters
#else
    // The system takes back what the command holds in less time than taking it apart would.
    std::fflush(nullptr);
    std::_Exit(status);
#endif
}
