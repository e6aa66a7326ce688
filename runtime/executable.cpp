// Programs that are files of their own: what `main` of a built executable calls.
// Where a panic's trace comes from here is the table behind the executable's own file (trace_table.h).
#include "runtime/executable.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <optional>

#include "runtime/panic.h"
#include "runtime/program.h"
#include "runtime/trace_table.h"

namespace vesk::runtime {
namespace {

constexpr std::uintptr_t PAGE = 4096;

char* gCodeBegin = nullptr;
char* gCodeEnd = nullptr;

bool isGeneratedCode(std::uintptr_t address) {
    return address >= reinterpret_cast<std::uintptr_t>(gCodeBegin) &&
           address < reinterpret_cast<std::uintptr_t>(gCodeEnd);
}

bool setExecutable(bool isExecutable) {
    const int protection = isExecutable ? PROT_READ | PROT_EXEC : PROT_READ;
    return mprotect(gCodeBegin, std::size_t(gCodeEnd - gCodeBegin), protection) == 0;
}

std::optional<TraceTable> readOwnTable() {
    const int file = ::open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
    if (file < 0) return std::nullopt;
    std::optional<TraceTable> table = TraceTable::read(file);
    ::close(file);
    return table;
}

bool symbolize(std::uintptr_t address, std::vector<TraceFrame>& frames) {
    if (!isGeneratedCode(address)) return false;
    static const std::optional<TraceTable> table = readOwnTable();
    return table && table->framesAt(address - reinterpret_cast<std::uintptr_t>(gCodeBegin), frames);
}

bool isAtPage(const char* address) { return reinterpret_cast<std::uintptr_t>(address) % PAGE == 0; }

}  // namespace

extern "C" int vesk_rt_run_program(int count, char** words, int (*start)(), char* codeBegin, char* codeEnd) {
    // A linker that orders code its own way leaves a program without traces, but with everything else.
    if (codeBegin < codeEnd) {
        gCodeBegin = codeBegin;
        gCodeEnd = codeEnd;
        setSymbolizer(symbolize);
        if (isAtPage(codeBegin) && isAtPage(codeEnd))
            setGeneratedCode({.contains = isGeneratedCode, .setExecutable = setExecutable});
    }
    if (count > 0) setProgramArguments({words + 1, words + count});
    return runOnProgramStack([](void* code) { return reinterpret_cast<int (*)()>(code)(); },
                             reinterpret_cast<void*>(start));
}

}  // namespace vesk::runtime
