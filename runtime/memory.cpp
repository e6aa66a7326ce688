// Objects, arrays, closures and cells on the collected heap.
#define GC_THREADS
#include "runtime/memory.h"

#include <gc/gc.h>
#include <sys/mman.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "runtime/output.h"
#include "runtime/panic.h"
#include "runtime/program.h"

namespace vesk::runtime {
namespace {

// Addresses kept for the report of a program that has used up its memory: allocators ask the system for tens of
// megabytes at once, for a thread's first allocation too.
constexpr std::size_t REPORT_BYTES = std::size_t(128) << 20;
std::atomic<void*> gReportRoom = nullptr;

[[noreturn]] void panicForLackOfMemory() {
    if (void* room = gReportRoom.exchange(nullptr)) munmap(room, REPORT_BYTES);
    flushOutput();
    panic("out of memory");
}

// What is not on the collected heap may be the compiler's.
[[noreturn]] void outOfMemory() {
    if (isProgramRunning()) panicForLackOfMemory();
    endForLackOf("out of memory");
}

// Where the collector gives up. Without a message it is for lack of memory.
void onCollectorAbort(const char* message) {
    if (!message) outOfMemory();
    endForLackOf("out of memory: ", message);
}

// What the collector has to say goes nowhere: the message is ours to write. Variables of its own that are set stay.
void initializeCollector() {
    constexpr const char* LOG = "GC_LOG_FILE";
    const bool isOurs = !std::getenv(LOG) && ::setenv(LOG, "/dev/null", 0) == 0;
    GC_set_abort_func(onCollectorAbort);
    GC_init();
    if (isOurs) ::unsetenv(LOG);
}

// The collector keeps no frame pointers: the panic starts in our own code, from where the trace can be read.
void* nothing(std::size_t) { return nullptr; }

void* orPanic(void* room) {
    if (!room) panicForLackOfMemory();
    return room;
}

}  // namespace

void startMemory() {
    static const bool started = [] {
        GC_set_markers_count(1);
        initializeCollector();
        GC_set_oom_fn(nothing);
        GC_set_warn_proc(GC_ignore_warn_proc);
        // Texts on their way through the library stand outside of the collected heap.
        std::set_new_handler(outOfMemory);
        void* room = mmap(nullptr, REPORT_BYTES, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        gReportRoom = room == MAP_FAILED ? nullptr : room;
        return true;
    }();
    static_cast<void>(started);
}

namespace {

// Where the system offers large pages for the asking, large tables are looked up with fewer misses.
constexpr std::size_t LARGE_PAGE = std::size_t(2) << 20;
void preferLargePages(void* room, std::size_t size) {
    const auto begin = (reinterpret_cast<std::uintptr_t>(room) + LARGE_PAGE - 1) / LARGE_PAGE * LARGE_PAGE;
    const auto end = (reinterpret_cast<std::uintptr_t>(room) + size) / LARGE_PAGE * LARGE_PAGE;
    if (begin < end) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

}  // namespace

void* allocateBytes(std::size_t size, bool pointerFree) {
    if (!pointerFree) return orPanic(GC_MALLOC(size));
    void* room = orPanic(GC_MALLOC_ATOMIC(size));
    if (size >= 2 * LARGE_PAGE) preferLargePages(room, size);
    return std::memset(room, 0, size);
}

void addRoots(void* begin, void* end) {
    startMemory();
    GC_add_roots(begin, end);
}

unsigned widthOf(ValueKind kind) {
    switch (kind) {
        case ValueKind::Bool:
        case ValueKind::Byte:
        case ValueKind::SByte: return 1;
        case ValueKind::Short:
        case ValueKind::UShort: return 2;
        case ValueKind::Int:
        case ValueKind::UInt:
        case ValueKind::Float: return 4;
        default: return 8;
    }
}

extern "C" {

Object* vesk_rt_new(const ClassRecord* record) {
    Object* object = static_cast<Object*>(allocateBytes(record->instanceSize, record->pointerFree != 0));
    object->record = record;
    return object;
}

Array* vesk_rt_new_array(const ClassRecord* record, std::int32_t length) {
    if (length < 0) panic("negative array length " + std::to_string(length));
    std::size_t bytes = ARRAY_ELEMENTS_OFFSET + std::size_t(length) * widthOf(record->valueKind);
    Array* array = static_cast<Array*>(allocateBytes(bytes, record->pointerFree != 0));
    array->record = record;
    array->length = length;
    return array;
}

Object* vesk_rt_new_closure(const ClassRecord* record, void* code, std::int64_t captureBytes) {
    Closure* closure = static_cast<Closure*>(allocateBytes(CLOSURE_CAPTURES_OFFSET + std::size_t(captureBytes), false));
    closure->record = record;
    closure->code = code;
    return closure;
}

void* vesk_rt_new_cell(bool pointerFree) { return allocateBytes(8, pointerFree); }

}  // extern "C"
}  // namespace vesk::runtime
