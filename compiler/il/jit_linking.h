// Links the objects of a Jit, each when the first of its symbols is needed.
// ORC's own linking layer calls itself for what an object needs, and notes for each object everything that it depends
// on, however far away: a chain of modules takes stack in proportion to its length and time to the square of it. Here
// all work waits in one list, nothing is called from within something else, and no dependence is noted, since whoever
// looks a symbol up works until the list is empty.
// A file of its own: it derives from classes of LLVM and so is compiled without run-time type information.
#pragma once

#include <llvm/ExecutionEngine/Orc/Layer.h>
#include <llvm/ExecutionEngine/Orc/TaskDispatch.h>
#include <llvm/ExecutionEngine/RTDyldMemoryManager.h>
#include <llvm/ExecutionEngine/RuntimeDyld.h>
#include <llvm/Object/ObjectFile.h>

#include <deque>
#include <functional>
#include <memory>

namespace vesk::compiler {

// What is still to be compiled and linked. One thread fills it and works it off.
class JitWork final : public llvm::orc::TaskDispatcher {
public:
    // A further module. Runs after all that is half done.
    void dispatch(std::unique_ptr<llvm::orc::Task> task) override;
    // The rest of something half done: it holds memory that is still written.
    void dispatchFirst(llvm::unique_function<void()> rest);
    // Until nothing is left.
    void run();
    void shutdown() override;

private:
    std::deque<llvm::unique_function<void()>> halfDone_;
    std::deque<std::unique_ptr<llvm::orc::Task>> modules_;
};

class JitLinkingLayer final : public llvm::RTTIExtends<JitLinkingLayer, llvm::orc::ObjectLayer> {
public:
    static char ID;
    struct Object {
        std::unique_ptr<llvm::object::ObjectFile> file;
        std::unique_ptr<llvm::MemoryBuffer> bytes;
    };
    using MakeMemory = std::function<std::unique_ptr<llvm::RTDyldMemoryManager>()>;
    // Is told of each object once it can be executed.
    using Linked = std::function<void(Object, const llvm::RuntimeDyld::LoadedObjectInfo&)>;

    JitLinkingLayer(llvm::orc::ExecutionSession& session, JitWork& work, MakeMemory makeMemory, Linked linked);
    // What goes wrong is reported to the session.
    void emit(std::unique_ptr<llvm::orc::MaterializationResponsibility> responsibility,
              std::unique_ptr<llvm::MemoryBuffer> bytes) override;

private:
    struct Linking;
    void finish(Linking& linking, llvm::object::OwningBinary<llvm::object::ObjectFile> object,
                std::unique_ptr<llvm::RuntimeDyld::LoadedObjectInfo> info, llvm::Error error);

    JitWork& work_;
    MakeMemory makeMemory_;
    Linked linked_;
    // The memory of everything that was linked.
    std::vector<std::unique_ptr<llvm::RTDyldMemoryManager>> memory_;
};

}  // namespace vesk::compiler
