// Objects linked one after another, what they need behind them.
#include "il/jit_linking.h"

#include <llvm/ExecutionEngine/JITSymbol.h>
#include <llvm/ExecutionEngine/Orc/Core.h>

#include <set>
#include <utility>

namespace vesk::compiler {

using llvm::orc::ExecutorAddr;
using llvm::orc::ExecutorSymbolDef;
using llvm::orc::MaterializationResponsibility;

void JitWork::dispatch(std::unique_ptr<llvm::orc::Task> task) { modules_.push_back(std::move(task)); }

void JitWork::dispatchFirst(llvm::unique_function<void()> rest) { halfDone_.push_back(std::move(rest)); }

void JitWork::run() {
    while (true) {
        if (!halfDone_.empty()) {
            auto rest = std::move(halfDone_.front());
            halfDone_.pop_front();
            rest();
        } else if (!modules_.empty()) {
            auto task = std::move(modules_.front());
            modules_.pop_front();
            task->run();
        } else {
            return;
        }
    }
}

void JitWork::shutdown() {
    halfDone_.clear();
    modules_.clear();
}

namespace {

// Answers what one object asks for.
class Symbols final : public llvm::JITSymbolResolver {
public:
    Symbols(JitWork& work, MaterializationResponsibility& responsibility)
        : work_(work), responsibility_(responsibility) {}

    void lookup(const LookupSet& names, OnResolvedFunction resolved) override {
        llvm::orc::ExecutionSession& session = responsibility_.getExecutionSession();
        llvm::orc::SymbolLookupSet wanted;
        for (llvm::StringRef name : names) wanted.add(session.intern(name));
        llvm::orc::JITDylibSearchOrder order;
        responsibility_.getTargetJITDylib().withLinkOrderDo([&](const auto& own) { order = own; });
        auto answer = [&work = work_,
                       resolved = std::move(resolved)](llvm::Expected<llvm::orc::SymbolMap> found) mutable {
            work.dispatchFirst([resolved = std::move(resolved), found = std::move(found)]() mutable {
                resolved(evaluated(std::move(found)));
            });
        };
        session.lookup(llvm::orc::LookupKind::Static, order, std::move(wanted), llvm::orc::SymbolState::Resolved,
                       std::move(answer), llvm::orc::NoDependenciesToRegister);
    }

    // Of weak symbols the session has chosen one definition.
    llvm::Expected<LookupSet> getResponsibilitySet(const LookupSet& names) override {
        LookupSet own;
        for (const auto& [name, flags] : responsibility_.getSymbols())
            if (names.count(*name)) own.insert(*name);
        return own;
    }

private:
    static llvm::Expected<LookupResult> evaluated(llvm::Expected<llvm::orc::SymbolMap> found) {
        if (!found) return found.takeError();
        LookupResult result;
        for (const auto& [name, symbol] : *found) result[*name] = {symbol.getAddress().getValue(), symbol.getFlags()};
        return result;
    }

    JitWork& work_;
    MaterializationResponsibility& responsibility_;
};

// Symbols that only the object itself may use; names may be equal in other objects.
llvm::Expected<std::set<llvm::StringRef>> localNames(const llvm::object::ObjectFile& file) {
    std::set<llvm::StringRef> names;
    for (const llvm::object::SymbolRef& symbol : file.symbols()) {
        auto flags = symbol.getFlags();
        if (!flags) return flags.takeError();
        if (*flags & (llvm::object::BasicSymbolRef::SF_Undefined | llvm::object::BasicSymbolRef::SF_Global)) continue;
        auto name = symbol.getName();
        if (!name) return name.takeError();
        names.insert(*name);
    }
    return names;
}

// Where the object's own symbols lie, for all who wait for one of them.
llvm::Error publish(MaterializationResponsibility& responsibility, const std::set<llvm::StringRef>& local,
                    const std::map<llvm::StringRef, llvm::JITEvaluatedSymbol>& places) {
    llvm::orc::SymbolMap symbols;
    for (const auto& [name, place] : places) {
        if (local.count(name)) continue;
        auto interned = responsibility.getExecutionSession().intern(name);
        llvm::JITSymbolFlags flags = place.getFlags();
        auto promised = responsibility.getSymbols().find(interned);
        if (promised != responsibility.getSymbols().end() && promised->second.isWeak())
            flags |= llvm::JITSymbolFlags::Weak;
        symbols[interned] = ExecutorSymbolDef(ExecutorAddr(place.getAddress()), flags);
    }
    return responsibility.notifyResolved(symbols);
}

}  // namespace

// One object between its loading and its end.
struct JitLinkingLayer::Linking {
    Linking(JitWork& work, std::unique_ptr<MaterializationResponsibility> own,
            std::unique_ptr<llvm::RTDyldMemoryManager> room)
        : responsibility(std::move(own)), memory(std::move(room)), symbols(work, *responsibility) {}
    std::unique_ptr<MaterializationResponsibility> responsibility;
    std::unique_ptr<llvm::RTDyldMemoryManager> memory;
    Symbols symbols;
    std::set<llvm::StringRef> local;
};

char JitLinkingLayer::ID = 0;

JitLinkingLayer::JitLinkingLayer(llvm::orc::ExecutionSession& session, JitWork& work, MakeMemory makeMemory,
                                 Linked linked)
    : RTTIExtends(session), work_(work), makeMemory_(std::move(makeMemory)), linked_(std::move(linked)) {}

void JitLinkingLayer::emit(std::unique_ptr<MaterializationResponsibility> responsibility,
                           std::unique_ptr<llvm::MemoryBuffer> bytes) {
    auto linking = std::make_shared<Linking>(work_, std::move(responsibility), makeMemory_());
    auto file = llvm::object::ObjectFile::createObjectFile(*bytes);
    if (!file) return finish(*linking, {}, nullptr, file.takeError());
    auto local = localNames(**file);
    if (!local) return finish(*linking, {}, nullptr, local.takeError());
    linking->local = std::move(*local);
    llvm::jitLinkForORC(
        llvm::object::OwningBinary<llvm::object::ObjectFile>(std::move(*file), std::move(bytes)), *linking->memory,
        linking->symbols, /*ProcessAllSections=*/false,
        [linking](const llvm::object::ObjectFile&, llvm::RuntimeDyld::LoadedObjectInfo&,
                  const std::map<llvm::StringRef, llvm::JITEvaluatedSymbol>& places) {
            return publish(*linking->responsibility, linking->local, places);
        },
        [this, linking](llvm::object::OwningBinary<llvm::object::ObjectFile> object,
                        std::unique_ptr<llvm::RuntimeDyld::LoadedObjectInfo> info,
                        llvm::Error error) { finish(*linking, std::move(object), std::move(info), std::move(error)); });
}

void JitLinkingLayer::finish(Linking& linking, llvm::object::OwningBinary<llvm::object::ObjectFile> object,
                             std::unique_ptr<llvm::RuntimeDyld::LoadedObjectInfo> info, llvm::Error error) {
    // What the object depends on is in the list of work or done: nobody goes on before it is.
    if (!error) error = linking.responsibility->notifyEmitted({});
    if (error) {
        getExecutionSession().reportError(std::move(error));
        linking.responsibility->failMaterialization();
        return;
    }
    auto [file, bytes] = object.takeBinary();
    linked_({std::move(file), std::move(bytes)}, *info);
    memory_.push_back(std::move(linking.memory));
}

}  // namespace vesk::compiler
