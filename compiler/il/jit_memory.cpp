// Sections of jitted objects.
#include "il/jit_memory.h"

#include <llvm/ExecutionEngine/RTDyldMemoryManager.h>
#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "runtime/memory.h"
#include "runtime/program.h"

namespace vesk::compiler {
namespace {

// The collector looks through all of a piece of data.
constexpr std::size_t PIECE = std::size_t(256) << 10;
constexpr std::size_t PAGE = 4096;

std::uintptr_t addressOf(const unsigned char* place) { return reinterpret_cast<std::uintptr_t>(place); }

std::size_t roundUp(std::size_t size, std::size_t unit) { return (size + unit - 1) / unit * unit; }

// Whole pages.
struct Pages {
    unsigned char *begin, *end;
    bool isEmpty() const { return begin >= end; }
};

Pages pagesOf(unsigned char* begin, unsigned char* end) {
    return {begin - addressOf(begin) % PAGE, end + (roundUp(addressOf(end), PAGE) - addressOf(end))};
}

bool isProtected(const Pages& pages, int protection) {
    return pages.isEmpty() || mprotect(pages.begin, std::size_t(pages.end - pages.begin), protection) == 0;
}

// Who links cannot be told, or would leave symbols behind that never come: there is nothing to go on with.
void protect(const Pages& pages, int protection) {
    if (!isProtected(pages, protection))
        runtime::endForLackOf("out of memory: the memory of generated code cannot be protected: ",
                              std::strerror(errno));
}

// Takes pages that are still written out of those that are to be sealed.
void exclude(std::vector<Pages>& sealed, const Pages& written) {
    std::vector<Pages> rest;
    for (const Pages& pages : sealed) {
        const Pages before{pages.begin, std::min(pages.end, written.begin)};
        const Pages behind{std::max(pages.begin, written.end), pages.end};
        if (!before.isEmpty()) rest.push_back(before);
        if (!behind.isEmpty()) rest.push_back(behind);
    }
    sealed = std::move(rest);
}

class JitMemory final : public llvm::RTDyldMemoryManager {
public:
    explicit JitMemory(SectionPools& pools) : pools_(pools) {}
    // An object that could not be linked is in nobody's way.
    ~JitMemory() override { seal(); }
    JitMemory(const JitMemory&) = delete;
    JitMemory& operator=(const JitMemory&) = delete;

    std::uint8_t* allocateCodeSection(std::uintptr_t size, unsigned alignment, unsigned, llvm::StringRef) override {
        return pools_.code.allocate(this, size, alignment);
    }
    std::uint8_t* allocateDataSection(std::uintptr_t size, unsigned alignment, unsigned, llvm::StringRef,
                                      bool isReadOnly) override {
        return (isReadOnly ? pools_.constants : pools_.data).allocate(this, size, alignment);
    }
    bool finalizeMemory(std::string*) override {
        seal();
        return false;
    }
    // Nothing unwinds: traces follow frame pointers.
    void registerEHFrames(std::uint8_t*, std::uint64_t, std::size_t) override {}
    void deregisterEHFrames() override {}

private:
    void seal() {
        pools_.code.seal(this);
        pools_.constants.seal(this);
        pools_.data.seal(this);
    }

    SectionPools& pools_;
};

}  // namespace

bool SectionPool::addPiece(std::size_t size) {
    size = roundUp(std::max(size, PIECE), PAGE);
    void* room = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (room == MAP_FAILED) return false;
    next_ = static_cast<unsigned char*>(room);
    end_ = next_ + size;
    pieces_.push_back({next_, end_, nullptr});
    // The unused rest is zero: it refers to nothing.
    if (kind_ == Kind::Data) runtime::addRoots(next_, end_);
    return true;
}

unsigned char* SectionPool::allocate(const void* object, std::size_t size, std::size_t alignment) {
    alignment = std::max<std::size_t>(alignment, 1);
    size = std::max<std::size_t>(size, 1);
    auto padding = [&] { return roundUp(addressOf(next_), alignment) - addressOf(next_); };
    if (next_ == nullptr || padding() + size > std::size_t(end_ - next_)) {
        if (!addPiece(size + alignment)) return nullptr;
    }
    unsigned char* begin = next_ + padding();
    next_ = begin + size;
    // An earlier object may have sealed the page that this one begins in.
    if (kind_ == Kind::Data) return begin;
    protect(pagesOf(begin, next_), PROT_READ | PROT_WRITE);
    open_.push_back({begin, next_, object});
    return begin;
}

// A page that is still written is left alone, never sealed and opened again.
void SectionPool::seal(const void* object) {
    std::vector<Pages> sealed;
    for (const Range& range : open_)
        if (range.object == object) sealed.push_back(pagesOf(range.begin, range.end));
    std::erase_if(open_, [object](const Range& range) { return range.object == object; });
    for (const Range& range : open_) exclude(sealed, pagesOf(range.begin, range.end));
    for (const Pages& pages : sealed) protect(pages, kind_ == Kind::Code ? PROT_READ | PROT_EXEC : PROT_READ);
}

bool SectionPool::contains(const void* address) const {
    for (const Range& piece : pieces_)
        if (address >= piece.begin && address < piece.end) return true;
    return false;
}

bool SectionPool::setExecutable(bool isExecutable) {
    bool isDone = true;
    for (const Range& piece : pieces_)
        isDone &= isProtected({piece.begin, piece.end}, isExecutable ? PROT_READ | PROT_EXEC : PROT_READ);
    return isDone;
}

std::unique_ptr<llvm::RTDyldMemoryManager> makeJitMemory(SectionPools& pools) {
    return std::make_unique<JitMemory>(pools);
}

}  // namespace vesk::compiler
