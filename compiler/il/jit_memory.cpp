// Sections of jitted objects.
#include "il/jit_memory.h"

#include <llvm/ExecutionEngine/RTDyldMemoryManager.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdint>

#include "runtime/memory.h"

namespace vesk::compiler {
namespace {

// The collector looks through all of a piece of data.
constexpr std::size_t PIECE = std::size_t(256) << 10;
constexpr std::size_t PAGE = 4096;

std::uintptr_t addressOf(const unsigned char* place) { return reinterpret_cast<std::uintptr_t>(place); }

std::size_t roundUp(std::size_t size, std::size_t unit) { return (size + unit - 1) / unit * unit; }

bool protect(unsigned char* begin, unsigned char* end, int protection) {
    const std::uintptr_t first = addressOf(begin) / PAGE * PAGE;
    return mprotect(begin - (addressOf(begin) - first), roundUp(addressOf(end) - first, PAGE), protection) == 0;
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
    bool finalizeMemory(std::string* error) override {
        if (seal()) return false;
        if (error) *error = "the system refuses to protect the memory of generated code";
        return true;
    }
    // Nothing unwinds: traces follow frame pointers.
    void registerEHFrames(std::uint8_t*, std::uint64_t, std::size_t) override {}
    void deregisterEHFrames() override {}

private:
    bool seal() {
        bool isDone = pools_.code.seal(this);
        isDone &= pools_.constants.seal(this);
        return pools_.data.seal(this) && isDone;
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
    if (!protect(begin, next_, PROT_READ | PROT_WRITE)) return nullptr;
    open_.push_back({begin, next_, object});
    return begin;
}

bool SectionPool::seal(const void* object) {
    const int protection = kind_ == Kind::Code ? PROT_READ | PROT_EXEC : PROT_READ;
    bool isDone = true;
    for (const Range& range : open_)
        if (range.object == object) isDone &= protect(range.begin, range.end, protection);
    std::erase_if(open_, [object](const Range& range) { return range.object == object; });
    for (const Range& range : open_) isDone &= protect(range.begin, range.end, PROT_READ | PROT_WRITE);
    return isDone;
}

bool SectionPool::contains(const void* address) const {
    for (const Range& piece : pieces_)
        if (address >= piece.begin && address < piece.end) return true;
    return false;
}

void SectionPool::setExecutable(bool isExecutable) {
    for (const Range& piece : pieces_)
        protect(piece.begin, piece.end, isExecutable ? PROT_READ | PROT_EXEC : PROT_READ);
}

std::unique_ptr<llvm::RTDyldMemoryManager> makeJitMemory(SectionPools& pools) {
    return std::make_unique<JitMemory>(pools);
}

}  // namespace vesk::compiler
