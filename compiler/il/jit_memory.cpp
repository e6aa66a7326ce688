// Sections of jitted objects.
#include "il/jit_memory.h"

#include <llvm/ExecutionEngine/SectionMemoryManager.h>

#include <utility>
#include <vector>

#include "runtime/memory.h"

namespace vesk::compiler {
namespace {

class JitMemory final : public llvm::SectionMemoryManager {
public:
    std::uint8_t* allocateDataSection(std::uintptr_t size, unsigned alignment, unsigned section, llvm::StringRef name,
                                      bool isReadOnly) override {
        std::uint8_t* begin = SectionMemoryManager::allocateDataSection(size, alignment, section, name, isReadOnly);
        if (!isReadOnly && begin) writable_.emplace_back(begin, begin + size);
        return begin;
    }
    bool finalizeMemory(std::string* error) override {
        for (auto [begin, end] : writable_) runtime::addRoots(begin, end);
        writable_.clear();
        return SectionMemoryManager::finalizeMemory(error);
    }
    // Nothing unwinds: traces follow frame pointers.
    void registerEHFrames(std::uint8_t*, std::uint64_t, std::size_t) override {}
    void deregisterEHFrames() override {}

private:
    std::vector<std::pair<std::uint8_t*, std::uint8_t*>> writable_;
};

}  // namespace

std::unique_ptr<llvm::RTDyldMemoryManager> makeJitMemory() { return std::make_unique<JitMemory>(); }

}  // namespace vesk::compiler
