// Memory of jitted objects.
// Objects share large pieces of memory, one run of pieces for code, one for constants, one for data: a session of ten
// thousand chunks has as many objects, and the collector and the system allow only so many ranges of memory.
// A file of its own: it derives from a class of LLVM and so is compiled without run-time type information.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

namespace llvm {
class RTDyldMemoryManager;
}

namespace vesk::compiler {

// Pieces of memory of one kind, handed out from the front to objects. While one object is linked, another that it needs
// may be linked from start to end; the two may share a page. Not safe for several threads: the Jit links on one. Pieces
// live as long as the process, since the program may hold pointers into them.
class SectionPool {
public:
    enum class Kind { Code, Constants, Data };
    explicit SectionPool(Kind kind) : kind_(kind) {}
    SectionPool(const SectionPool&) = delete;
    SectionPool& operator=(const SectionPool&) = delete;

    // Null when the system has no memory left. The room is writable until seal().
    unsigned char* allocate(const void* object, std::size_t size, std::size_t alignment);
    // Gives the rooms of an object their final protection, as far as they share no page with an object that is still
    // being linked. Ends the process when the system refuses, as allocate() does.
    void seal(const void* object);
    bool contains(const void* address) const;
    // For all of it, when nothing is being linked. Of code only. False when the system refuses.
    bool setExecutable(bool isExecutable);

private:
    struct Range {
        unsigned char *begin, *end;
        const void* object;
    };
    bool addPiece(std::size_t size);

    Kind kind_;
    unsigned char* next_ = nullptr;
    unsigned char* end_ = nullptr;
    std::vector<Range> open_, pieces_;
};

struct SectionPools {
    SectionPool code{SectionPool::Kind::Code}, constants{SectionPool::Kind::Constants}, data{SectionPool::Kind::Data};
};

// The memory of one object.
std::unique_ptr<llvm::RTDyldMemoryManager> makeJitMemory(SectionPools& pools);

}  // namespace vesk::compiler
