// The order in which a unit's parts are defined, until nothing that was asked for is missing.
#include "il/unit_compiler.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "host/il_gen_context.h"
#include "host/source_snapshot.h"
#include "il/function_lowering.h"
#include "il/interruption.h"
#include "il/module_state.h"
#include "runtime/exports.h"
#include "semantics/interactive_session.h"
#include "syntax/scope_building.h"

namespace vesk::compiler {

struct UnitCompiler::State {
    State(CompileSession& ownSession, UnitRequest ownRequest)
        : session(ownSession),
          request(std::move(ownRequest)),
          unit(request.registrationUnit.empty() ? request.name : request.registrationUnit),
          module(makeModuleState()),
          builder(session, *module->context, *module->module, unit),
          lowering(builder),
          registrationsDone(request.registrationsDone),
          furtherDone(request.furtherDone) {
        builder.places = request.places;
        builder.provided = request.provided;
    }

    std::unique_ptr<UnitModule::State> makeModuleState() {
        auto made = std::make_unique<UnitModule::State>();
        made->context = makeContext();
        made->module = makeModule(*made->context, request.name);
        made->name = request.name;
        return made;
    }

    void defineChunk();
    void defineFile(FileDeclaration& file);
    void defineClass(ClassDeclaration& declaration);
    void defineInstantiation(const Type* type);
    bool defineRegistrations();
    bool definePending();
    void define(FunctionInstance* instance);
    bool defineGrown();
    void askForMistakesBehind(const FunctionInstance& instance);
    void defineDefaultValues(FunctionInstance& instance);
    template <class Step>
    void guarded(Step step);

    CompileSession& session;
    UnitRequest request;
    std::string unit;
    std::unique_ptr<UnitModule::State> module;
    ModuleBuilder builder;
    FunctionLowering lowering;
    std::unordered_set<const FunctionInstance*> defined;
    std::vector<std::pair<FunctionInstance*, std::unique_ptr<TypedBody>>> growing;  // checked, without code yet
    std::size_t registrationsDone = 0, furtherDone = 0;
    bool fileIsDefined = false;
};

// A mistake found outside of bodies (a missing type in a signature) ends that step alone.
template <class Step>
void UnitCompiler::State::guarded(Step step) {
    try {
        step();
    } catch (const CompilerException& error) {
        builder.failed = true;
        session.report(error);
    }
}

// Checks one body and makes its code; the typed tree lives no longer than that. Between two bodies a compilation can be
// given up.
void UnitCompiler::State::define(FunctionInstance* instance) {
    stopIfInterrupted();
    if (!instance || instance->linkage == InstanceLinkage::Native || !defined.insert(instance).second) return;
    guarded([&] {
        std::unique_ptr<TypedBody> body = session.bodyOf(*instance);
        if (session.hasEndedGrowth()) {
            builder.failed = true;
            return;
        }
        if (body && instance->isGrowing) {
            growing.emplace_back(instance, std::move(body));
            return;
        }
        FunctionInstance* previous = std::exchange(builder.current, instance);
        if (body)
            lowering.lower(*body, *builder.function(*instance));
        else
            askForMistakesBehind(*instance);
        builder.current = previous;
    });
    defineDefaultValues(*instance);
}

// Whether growth ends by itself shows when all that grows has been checked: code is made behind that, or not at all.
bool UnitCompiler::State::defineGrown() {
    const auto bodies = std::exchange(growing, {});
    if (session.hasEndedGrowth()) return false;
    for (const auto& [instance, body] : bodies) {
        guarded([&, grown = instance, code = body.get()] {
            FunctionInstance* previous = std::exchange(builder.current, grown);
            lowering.lower(*code, *builder.function(*grown));
            builder.current = previous;
        });
    }
    return !bodies.empty();
}

// A mistaken body has no code, but what it calls may be mistaken as well.
void UnitCompiler::State::askForMistakesBehind(const FunctionInstance& instance) {
    builder.failed = true;
    for (FunctionInstance* called : session.requestsOfMistaken(instance))
        if (called->requestDepth <= MAX_REQUEST_DEPTH) guarded([&] { builder.function(*called); });
}

// Defaults are functions of their own, called from any unit: they stand beside the function they belong to.
void UnitCompiler::State::defineDefaultValues(FunctionInstance& instance) {
    if (instance.linkage != InstanceLinkage::Unit || !instance.node || instance.kind == InstanceKind::DefaultValue)
        return;
    const auto& parameters = instance.node->getParams();
    for (std::size_t i = 0; i < parameters.size(); i++) {
        if (parameters[i].hasDefault) guarded([&] { define(session.defaultValueOf(instance, i)); });
    }
}

// The statements come first: checking them tells the variables that the chunk's functions may use.
void UnitCompiler::State::defineChunk() {
    session.checkDeclarations(*request.file);
    define(request.chunk);
    for (const ChunkVariable* variable : variablesOf(session, *request.file))
        builder.defineStaticField(variable->field);
}

void UnitCompiler::State::defineFile(FileDeclaration& file) {
    // Told before, or by an earlier chunk: lines are missing here.
    for (const CompilerException& refusal : file.refusals) session.report(refusal);
    builder.failed |= !file.refusals.empty();
    if (!file.isStandardLibrary) session.checkDeclarations(file);
    for (FunctionDeclaration* function : file.functions) {
        if (!function->generic && !function->isNative()) guarded([&] { define(session.instanceOf(*function)); });
        bool takesArguments = function->name == "main" && !function->generic && function->node->getParams().size() == 1;
        if (takesArguments && !file.isStandardLibrary)
            guarded([&] { builder.defineArgumentsOf(*session.instanceOf(*function)); });
    }
    for (ClassDeclaration* declaration : file.classes) defineClass(*declaration);
    guarded([&] {
        if (FunctionInstance* initializer = session.unitInitializerOf(file)) {
            define(initializer);
            module->initializerSymbol = initializer->symbol;
        }
    });
}

// Static members belong to the class itself, so a generic class has them here; all else of it exists on demand.
void UnitCompiler::State::defineClass(ClassDeclaration& declaration) {
    guarded([&] {
        const Type* type = declaration.isGeneric() ? nullptr : session.types().classType(&declaration, {});
        for (auto& field : declaration.fields) {
            if (field->isStatic) builder.defineStaticField(*field);
        }
        for (auto& method : declaration.methods) {
            if (method->isNative || method->isAbstract || method->isGeneric() || (!type && !method->isStatic)) continue;
            guarded([&] {
                FunctionInstance* instance = session.instanceOf(*method, type);
                if (instance && instance->linkage == InstanceLinkage::Unit) define(instance);
            });
        }
        if (!type) return;
        if (!declaration.isInterface) {
            FunctionInstance* initializer = session.fieldInitializerOf(type);
            if (initializer && initializer->linkage == InstanceLinkage::Unit) define(initializer);
        }
        builder.defineRecord(type);
    });
    for (ClassDeclaration* nested : declaration.nested) defineClass(*nested);
}

// Whatever another unit may refer to.
void UnitCompiler::State::defineInstantiation(const Type* type) {
    for (auto& method : type->declaration->methods) {
        if (method->isStatic || method->isAbstract || method->isGeneric()) continue;
        guarded([&] {
            FunctionInstance* instance = session.instanceOf(*method, type);
            builder.function(*instance);
            if (instance->linkage != InstanceLinkage::OnDemand) return;
            const auto& parameters = instance->node->getParams();
            for (std::size_t i = 0; i < parameters.size(); i++) {
                if (parameters[i].hasDefault) builder.function(*session.defaultValueOf(*instance, i));
            }
        });
    }
    guarded([&] {
        FunctionInstance* initializer = type->declaration->isInterface ? nullptr : session.fieldInitializerOf(type);
        if (initializer) builder.function(*initializer);
        builder.record(type);
    });
}

bool UnitCompiler::State::defineRegistrations() {
    bool any = false;
    auto defineUpTo = [&](std::size_t end, const std::string& from, std::size_t& done) {
        while (done < end) {
            any = true;
            const CompileSession::Registration registration = session.registrationAt(from, done++);
            define(registration.instance);
            // A specialized function of a file's unit has one body, there; thousands of them need not stand in memory
            // together. One that a bundle asked for is made in every unit that uses it.
            if (registration.instance && registration.instance->linkage == InstanceLinkage::Unit && registration.node &&
                registration.node->getKind() == NodeKind::Function) {
                registration.node->releaseBody();
                releaseScopeVariables(registration.node->context());
            }
        }
    };
    const std::size_t end = session.registrationCount(unit);
    const std::size_t furtherEnd = request.furtherUnit.empty() ? 0 : session.registrationCount(request.furtherUnit);
    defineUpTo(end, unit, registrationsDone);
    defineUpTo(furtherEnd, request.furtherUnit, furtherDone);
    return any;
}

bool UnitCompiler::State::definePending() {
    bool any = !builder.pending.empty();
    while (!builder.pending.empty()) {
        FunctionInstance* next = builder.pending.front();
        builder.pending.pop_front();
        define(next);
    }
    return any;
}

UnitCompiler::UnitCompiler(CompileSession& session, UnitRequest request)
    : state_(std::make_unique<State>(session, std::move(request))) {}

UnitCompiler::~UnitCompiler() = default;

bool UnitCompiler::compile() {
    State& state = *state_;
    ScopedCompileSession session(state.session);
    ScopedILGenContext generating(state.request.name);
    const ScopedSourceSnapshot sources;
    bool any = false;
    if (!std::exchange(state.fileIsDefined, true)) {
        any = true;
        if (state.request.chunk) state.defineChunk();
        if (state.request.file) state.defineFile(*state.request.file);
        if (state.request.instantiation) state.defineInstantiation(state.request.instantiation);
    }
    for (bool more = true; more;) {
        more = state.definePending();
        more |= state.defineRegistrations();
        if (!more) more = state.defineGrown();
        any |= more;
    }
    return any;
}

const std::vector<std::string>& UnitCompiler::neededFiles() const { return state_->builder.neededFiles; }

const std::vector<UnitCompiler::NeededMember>& UnitCompiler::neededMembers() const {
    return state_->builder.neededMembers;
}

std::vector<std::string> UnitCompiler::definedMembers() const {
    std::vector<std::string> symbols;
    for (const llvm::GlobalValue& value : state_->module->module->global_values()) {
        if (!value.isDeclaration() && !value.hasLocalLinkage()) symbols.push_back(value.getName().str());
    }
    return symbols;
}

bool UnitCompiler::failed() const { return state_->builder.failed; }

std::size_t UnitCompiler::registrationsDone() const { return state_->registrationsDone; }

std::size_t UnitCompiler::furtherDone() const { return state_->furtherDone; }

std::unique_ptr<UnitModule> UnitCompiler::finish() {
    if (state_->builder.failed) return nullptr;
    auto module = std::make_unique<UnitModule>(std::move(state_->module));
    // Looking through a module costs as much as making it, so that is left to tests and to the hunt for mistakes.
    if (std::getenv("VESK_VERIFY")) {
        if (std::string wrong = verifyModule(*module); !wrong.empty())
            throw std::logic_error(module->name() + ": " + wrong);
    }
    return module;
}

bool isLibraryType(const Type* type) {
    const auto isOwn = [](const Type* each) {
        return !each->isConcrete ||
               (each->kind == TypeKind::Class && (!each->declaration || !each->declaration->file->isStandardLibrary));
    };
    if (isOwn(type)) return false;
    if (type->arguments.empty() && !type->result) return true;
    // A type may hold one part very often.
    std::vector<const Type*> order{type};
    std::unordered_set<const Type*> seen{type};
    for (std::size_t i = 0; i < order.size(); i++) {
        const Type* each = order[i];
        if (isOwn(each)) return false;
        for (const Type* part : each->arguments)
            if (seen.insert(part).second) order.push_back(part);
        if (each->result && seen.insert(each->result).second) order.push_back(each->result);
    }
    return true;
}

bool hasNativeSymbol(const std::string& symbol) { return runtime::exportedSymbol(symbol) != nullptr; }

}  // namespace vesk::compiler
