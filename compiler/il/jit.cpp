// ORC with one dynamic library for all modules, the run-time library's symbols behind it, and the debug information of
// every object kept for traces. Compiled without run-time type information, since it derives from classes of LLVM.
#include "il/jit.h"

#include <llvm/DebugInfo/DWARF/DWARFContext.h>
#include <llvm/ExecutionEngine/JITSymbol.h>
#include <llvm/ExecutionEngine/Orc/CompileUtils.h>
#include <llvm/ExecutionEngine/Orc/ExecutorProcessControl.h>
#include <llvm/ExecutionEngine/Orc/LLJIT.h>
#include <llvm/ExecutionEngine/RuntimeDyld.h>
#include <llvm/Object/ObjectFile.h>
#include <llvm/Target/TargetMachine.h>

#include <cmath>
#include <cstring>
#include <mutex>
#include <set>
#include <stdexcept>
#include <utility>

#include "il/dwarf_frames.h"
#include "il/jit_linking.h"
#include "il/jit_memory.h"
#include "il/machine.h"
#include "il/module_state.h"
#include "il/object_linker.h"
#include "runtime/exports.h"
#include "runtime/panic.h"
#include "runtime/program.h"

namespace vesk::compiler {
namespace {

using llvm::orc::ExecutorAddr;

// Functions of the C library that the code generator itself may call.
void* machineFunction(llvm::StringRef name) {
    struct Known {
        const char* name;
        void* address;
    };
    static const Known KNOWN[] = {
        {"memcpy", reinterpret_cast<void*>(&std::memcpy)},
        {"memmove", reinterpret_cast<void*>(&std::memmove)},
        {"memset", reinterpret_cast<void*>(&std::memset)},
        {"memcmp", reinterpret_cast<void*>(&std::memcmp)},
        {"fmod", reinterpret_cast<void*>(static_cast<double (*)(double, double)>(&std::fmod))},
        {"fmodf", reinterpret_cast<void*>(static_cast<float (*)(float, float)>(&std::fmod))},
    };
    for (const Known& known : KNOWN) {
        if (name == known.name) return known.address;
    }
    return nullptr;
}

void* outsideSymbol(std::string_view name) {
    void* address = runtime::exportedSymbol(name);
    return address ? address : machineFunction(llvm::StringRef(name.data(), name.size()));
}

// Linked objects, the run-time library, and what the code generator calls.
class RuntimeSymbols final : public llvm::orc::DefinitionGenerator {
public:
    explicit RuntimeSymbols(const ObjectLinker& linker) : linker_(linker) {}
    llvm::Error tryToGenerate(llvm::orc::LookupState&, llvm::orc::LookupKind, llvm::orc::JITDylib& library,
                              llvm::orc::JITDylibLookupFlags, const llvm::orc::SymbolLookupSet& wanted) override {
        llvm::orc::SymbolMap found;
        for (auto& [name, flags] : wanted) {
            const std::string_view text((*name).data(), (*name).size());
            void* address = linker_.addressOf(text);
            if (!address) address = outsideSymbol(text);
            if (address) found[name] = {ExecutorAddr::fromPtr(address), llvm::JITSymbolFlags::Exported};
        }
        return found.empty() ? llvm::Error::success() : library.define(llvm::orc::absoluteSymbols(std::move(found)));
    }

private:
    const ObjectLinker& linker_;
};

// Where the sections of an object lie: a copy, since the linker forgets it once the object is linked.
class SectionPlaces final : public llvm::LoadedObjectInfoHelper<SectionPlaces> {
public:
    std::uint64_t getSectionLoadAddress(const llvm::object::SectionRef& section) const override {
        auto found = addresses.find(section.getIndex());
        return found == addresses.end() ? 0 : found->second;
    }
    llvm::DenseMap<std::uint64_t, std::uint64_t> addresses;
};

// One object in memory. Its debug information is read when a trace asks for it.
struct LoadedObject {
    SectionPlaces places;
    std::unique_ptr<llvm::MemoryBuffer> bytes;
    std::unique_ptr<llvm::object::ObjectFile> file;
    std::string_view unread;  // bytes of somebody else that are to become `file`
    struct Range {
        std::uint64_t begin, end, section;
    };
    std::vector<Range> code;
    std::unique_ptr<llvm::DWARFContext> debug;

    // The part of the object that an address lies in, null for all others.
    const Range* rangeOf(std::uint64_t address) const {
        for (const Range& range : code) {
            if (address >= range.begin && address < range.end) return &range;
        }
        return nullptr;
    }
    void readFile(llvm::MemoryBufferRef from) {
        auto made = llvm::object::ObjectFile::createObjectFile(from);
        if (made)
            file = std::move(*made);
        else
            llvm::consumeError(made.takeError());
    }
    llvm::DWARFContext* debugContext() {
        if (!file && !unread.empty()) readFile({llvm::StringRef(unread.data(), unread.size()), ""});
        if (!debug && file)
            debug = llvm::DWARFContext::create(
                *file, llvm::DWARFContext::ProcessDebugRelocations::Process, &places, "",
                [](llvm::Error error) { llvm::consumeError(std::move(error)); },
                [](llvm::Error error) { llvm::consumeError(std::move(error)); });
        return debug.get();
    }
};

// Objects of all Jits of the process; there is one program at a time.
std::mutex gObjectsMutex;
std::vector<std::pair<const void*, std::unique_ptr<LoadedObject>>> gObjects;

// Of the Jit that was made last.
SectionPool* gCode = nullptr;

bool symbolize(std::uintptr_t address, std::vector<runtime::TraceFrame>& frames) {
    std::unique_lock lock(gObjectsMutex, std::try_to_lock);
    for (auto& [owner, object] : gObjects) {
        const LoadedObject::Range* range = object->rangeOf(address);
        if (!range) continue;
        llvm::DWARFContext* debug = object->debugContext();
        if (!debug) return false;
        return addFramesAt(*debug, {address, range->section}, frames);
    }
    return false;
}

[[noreturn]] void fail(llvm::Error error) { throw std::runtime_error(llvm::toString(std::move(error))); }

template <class T>
T valueOf(llvm::Expected<T> expected) {
    if (!expected) fail(expected.takeError());
    return std::move(*expected);
}

}  // namespace

struct Jit::State {
    OptimizationLevel level;
    SectionPools pools;
    ObjectLinker linker{outsideSymbol};
    std::set<std::string> preferred;  // symbols of linked objects that the library defines by now
    std::string trouble;              // what went wrong last, behind the fact that a symbol is not there
    JitWork* work = nullptr;          // the session's
    std::unique_ptr<llvm::orc::LLJIT> jit;

    void objectLinked(JitLinkingLayer::Object linked, const llvm::RuntimeDyld::LoadedObjectInfo& info);
};

void Jit::State::objectLinked(JitLinkingLayer::Object linked, const llvm::RuntimeDyld::LoadedObjectInfo& info) {
    auto object = std::make_unique<LoadedObject>();
    for (const llvm::object::SectionRef& section : linked.file->sections()) {
        std::uint64_t begin = info.getSectionLoadAddress(section);
        if (begin == 0) continue;
        object->places.addresses[section.getIndex()] = begin;
        if (section.isText() && section.getSize() > 0)
            object->code.push_back({begin, begin + section.getSize(), section.getIndex()});
    }
    object->file = std::move(linked.file);
    object->bytes = std::move(linked.bytes);
    std::lock_guard lock(gObjectsMutex);
    gObjects.emplace_back(this, std::move(object));
}

Jit::Jit(OptimizationLevel level) : state_(std::make_unique<State>()) {
    state_->level = level;
    startCodeGenerator();
    llvm::orc::JITTargetMachineBuilder machine{llvm::Triple(TARGET_TRIPLE)};
    machine.setRelocationModel(llvm::Reloc::PIC_);
    State* state = state_.get();
    auto work = std::make_unique<JitWork>();
    state->work = work.get();
    auto control = valueOf(llvm::orc::SelfExecutorProcessControl::Create(nullptr, std::move(work)));
    llvm::orc::LLJITBuilder builder;
    builder.setExecutorProcessControl(std::move(control));
    builder.setJITTargetMachineBuilder(machine);
    builder.setDataLayout(llvm::DataLayout(TARGET_LAYOUT));
    builder.setLinkProcessSymbolsByDefault(false);
    // One thread compiles: no module has to be copied into a context of its own first.
    builder.setSupportConcurrentCompilation(false);
    builder.setPlatformSetUp(llvm::orc::setUpInactivePlatform);
    builder.setCompileFunctionCreator([level](llvm::orc::JITTargetMachineBuilder)
                                          -> llvm::Expected<std::unique_ptr<llvm::orc::IRCompileLayer::IRCompiler>> {
        return std::make_unique<llvm::orc::TMOwningSimpleCompiler>(makeTargetMachine(level));
    });
    builder.setObjectLinkingLayerCreator(
        [state](llvm::orc::ExecutionSession& session,
                const llvm::Triple&) -> llvm::Expected<std::unique_ptr<llvm::orc::ObjectLayer>> {
            return std::make_unique<JitLinkingLayer>(
                session, *state->work, [state] { return makeJitMemory(state->pools); },
                [state](JitLinkingLayer::Object object, const llvm::RuntimeDyld::LoadedObjectInfo& info) {
                    state->objectLinked(std::move(object), info);
                });
        });
    state_->jit = valueOf(builder.create());
    state_->jit->getExecutionSession().setErrorReporter(
        [state](llvm::Error error) { state->trouble = llvm::toString(std::move(error)); });
    state_->jit->getMainJITDylib().addGenerator(std::make_unique<RuntimeSymbols>(state->linker));
    runtime::setSymbolizer(symbolize);
    gCode = &state_->pools.code;
    runtime::setGeneratedCode(
        {.contains = [](std::uintptr_t address) { return gCode->contains(reinterpret_cast<const void*>(address)); },
         .setExecutable = [](bool isExecutable) { return gCode->setExecutable(isExecutable); }});
}

Jit::~Jit() {
    if (gCode == &state_->pools.code) runtime::setGeneratedCode({});
    state_->jit.reset();
    std::lock_guard lock(gObjectsMutex);
    std::erase_if(gObjects, [&](const auto& entry) { return entry.first == state_.get(); });
}

bool Jit::link(const std::vector<std::string_view>& objects) {
    if (!state_->linker.link(objects)) return false;
    std::lock_guard lock(gObjectsMutex);
    for (const ObjectLinker::Linked& linked : state_->linker.linked()) {
        auto object = std::make_unique<LoadedObject>();
        object->unread = linked.bytes;
        for (std::size_t i = 0; i < linked.sections.size(); i++) {
            if (linked.sections[i]) object->places.addresses[i] = linked.sections[i];
        }
        for (const auto& code : linked.code) object->code.push_back({code.begin, code.end, code.section});
        gObjects.emplace_back(this->state_.get(), std::move(object));
    }
    return true;
}

void Jit::preferLinked(const std::vector<std::string>& symbols) {
    llvm::orc::SymbolMap found;
    llvm::orc::JITDylib& library = state_->jit->getMainJITDylib();
    for (const std::string& symbol : symbols) {
        void* address = state_->linker.addressOf(symbol);
        if (address && state_->preferred.insert(symbol).second)
            found[state_->jit->mangleAndIntern(symbol)] = {ExecutorAddr::fromPtr(address),
                                                           llvm::JITSymbolFlags::Exported};
    }
    if (found.empty()) return;
    if (llvm::Error error = library.define(llvm::orc::absoluteSymbols(std::move(found)))) fail(std::move(error));
}

// What linked objects define as well is the same there; it has one address only.
static void dropLinked(llvm::Module& module, const ObjectLinker& linker) {
    if (linker.linked().empty()) return;
    for (llvm::GlobalValue& value : module.global_values()) {
        if (value.isDeclaration() || !value.isWeakForLinker()) continue;
        if (!linker.addressOf(std::string_view(value.getName().data(), value.getName().size()))) continue;
        if (auto* function = llvm::dyn_cast<llvm::Function>(&value)) function->deleteBody();
        if (auto* variable = llvm::dyn_cast<llvm::GlobalVariable>(&value)) variable->setInitializer(nullptr);
        value.setLinkage(llvm::GlobalValue::ExternalLinkage);
    }
}

void Jit::add(std::unique_ptr<UnitModule> module) {
    UnitModule::State& own = module->state();
    dropLinked(*own.module, state_->linker);
    llvm::orc::ThreadSafeModule safe(std::move(own.module), std::move(own.context));
    if (llvm::Error error = state_->jit->addIRModule(std::move(safe))) fail(std::move(error));
}

void Jit::addObject(const std::string& name, const std::string& bytes) {
    if (llvm::Error error = state_->jit->addObjectFile(llvm::MemoryBuffer::getMemBufferCopy(bytes, name)))
        fail(std::move(error));
}

void* Jit::lookup(const std::string& symbol) {
    llvm::orc::LLJIT& jit = *state_->jit;
    const llvm::orc::SymbolStringPtr name = jit.mangleAndIntern(symbol);
    void* address = nullptr;
    std::string missing;
    jit.getExecutionSession().lookup(
        llvm::orc::LookupKind::Static,
        llvm::orc::makeJITDylibSearchOrder(&jit.getMainJITDylib(), llvm::orc::JITDylibLookupFlags::MatchAllSymbols),
        llvm::orc::SymbolLookupSet(name), llvm::orc::SymbolState::Ready,
        [&](llvm::Expected<llvm::orc::SymbolMap> found) {
            if (found)
                address = found->begin()->second.getAddress().toPtr<void*>();
            else
                missing = llvm::toString(found.takeError());
        },
        llvm::orc::NoDependenciesToRegister);
    state_->work->run();
    // A symbol may have its address while something that it needs has none.
    const std::string trouble = std::exchange(state_->trouble, "");
    if (missing.empty() && trouble.empty()) return address;
    throw std::runtime_error(missing.empty() ? trouble : trouble.empty() ? missing : missing + " (" + trouble + ")");
}

int Jit::run(const std::vector<std::string>& arguments) {
    auto* start = reinterpret_cast<int (*)()>(lookup("vesk_start"));
    runtime::setProgramArguments(arguments);
    return runtime::runOnProgramStack([](void* code) { return reinterpret_cast<int (*)()>(code)(); },
                                      reinterpret_cast<void*>(start));
}

void Jit::call(void* function) {
    runtime::runOnProgramStack(
        [](void* code) {
            reinterpret_cast<void (*)()>(code)();
            return 0;
        },
        function);
}

void Jit::runSession(const std::function<void()>& session) { runtime::runSession(session); }

bool Jit::callRecoverably(void* function) { return runtime::runRecoverably(reinterpret_cast<void (*)()>(function)); }

}  // namespace vesk::compiler
