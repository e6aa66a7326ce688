// Memory of jitted objects.
// A file of its own: it derives from a class of LLVM and so is compiled without run-time type information.
#pragma once

#include <memory>

namespace llvm {
class RTDyldMemoryManager;
}

namespace vesk::compiler {

// Writable sections become roots of the collector when the object is ready.
std::unique_ptr<llvm::RTDyldMemoryManager> makeJitMemory();

}  // namespace vesk::compiler
