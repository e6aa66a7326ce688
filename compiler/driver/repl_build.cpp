// One chunk's way from text to effect, and back when it has mistakes.
#include "driver/repl_build.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "driver/bundle_registration.h"
#include "generics/generic_specializer.h"
#include "generics/session_state.h"
#include "host/class_loader.h"
#include "host/il_gen_context.h"
#include "syntax/interactive_chunk.h"

namespace vesk::compiler {

// A unit that is compiled for one chunk.
struct ChunkBuild::RoundUnit {
    std::unique_ptr<UnitCompiler> compiler;
    Counts before;
    std::string registrationUnit;  // of bundles
    std::size_t filesDone = 0;     // needed files that were looked at
};

struct ChunkBuild::Round {
    InteractiveChunk chunk;
    std::map<std::string, RoundUnit> units;
    // What the next look is at: units that are new or got registrations, those that may depend on further bundles, and
    // bundles that may have got wanted symbols.
    std::set<std::string> toCompile, toSupply;
    std::set<std::string> grownBundles;
    std::map<std::string, std::vector<std::string>> bundleSymbols;
    std::map<std::string, std::string> bundleUnits;
};

namespace {

// "pick<Int>(Int, Int) -> Int"
std::string signatureOf(CompileSession& session, FunctionInstance& function) {
    std::string text = function.shownName() + "(";
    for (std::size_t i = 0; i < function.parameterTypes.size(); i++)
        text += (i ? ", " : "") + function.parameterTypes[i]->structured;
    return withoutChunkPackages(session, text + ") -> " + session.returnTypeOf(function)->structured);
}

}  // namespace

ChunkBuild::ChunkBuild(CompileSession& session, TimeTrace& trace, OptimizationLevel level)
    : session_(session), trace_(trace), level_(level), jit_(level) {}

ChunkBuild::~ChunkBuild() = default;

InteractiveChunk ChunkBuild::declare(const std::string& text, const std::string& folder) {
    const std::string name = "repl_chunk_" + std::to_string(++chunks_);
    return declareChunk(session_, folder.empty() ? name : folder + "/" + name, text);
}

ChunkBuild::Outcome ChunkBuild::enter(const std::string& text, const std::string& folder) {
    Round round;
    try {
        StageTimer timer(trace_, "compile chunk");
        round.chunk = declare(text, folder);
        if (session_.hasErrors() || !compile(round)) {
            takeBack(round.chunk);
            return Outcome::Mistaken;
        }
    } catch (const CompilerException& error) {
        session_.report(error);
        takeBack(round.chunk);
        return Outcome::Mistaken;
    } catch (...) {
        takeBack(round.chunk);
        throw;
    }
    if (!run(link(round))) return Outcome::Panicked;
    publishChunk(session_, round.chunk);
    return Outcome::Done;
}

const Type* ChunkBuild::typeOf(const std::string& expression) {
    const InteractiveChunk chunk = declare(expression, "");
    const Type* type = nullptr;
    try {
        const FileDeclaration* file = chunk.file;
        if (!session_.hasErrors() && chunk.statements) {
            const NodeVec& body = chunk.statements->node->getBody();
            if (!file->functions.empty() || !file->classes.empty() || body.size() != 1 ||
                body[0]->getKind() < NodeKind::Value)
                throw compileError(chunk.statements->node->token(), "expected an expression");
            ScopedILGenContext generating(file->path);
            type = session_.returnTypeOf(*chunk.statements);
        }
    } catch (const CompilerException& error) {
        session_.report(error);
    }
    takeBack(chunk);
    return session_.hasErrors() ? nullptr : type;
}

// A chunk with mistakes leaves nothing that a later one could come upon.
void ChunkBuild::takeBack(const InteractiveChunk& chunk) {
    forgetSpecializations(dropRegistrations(session_, chunk));
    takeRepeatedSymbols(session_);
}

// ---------------------------------------------------------------------------------------------------- compiling

bool ChunkBuild::compile(Round& round) {
    FileDeclaration& file = *round.chunk.file;
    FunctionInstance* statements = round.chunk.statements;
    if (statements && statements->node->getBody().empty()) statements = nullptr;
    open(round, file.path, {.name = file.path, .file = &file, .chunk = statements, .provided = &provided_});
    for (bool changed = true; changed;) {
        changed = false;
        takeNews(round);
        const std::set<std::string> compiled = std::exchange(round.toCompile, {});
        for (const std::string& path : compiled) changed |= round.units.at(path).compiler->compile();
        takeNews(round);
        session_.checkLoadedDeclarations();
        if (session_.hasErrors()) return false;
        round.toSupply.insert(compiled.begin(), compiled.end());
        for (const std::string& path : std::exchange(round.toSupply, {})) changed |= openBundlesOf(round, path);
        for (const std::string& bundle : std::exchange(round.grownBundles, {}))
            changed |= registerBundle(round, bundle);
        for (const std::string& path : compiled) changed |= openNeededOf(round, path);
        changed |= openGrown(round);
    }
    return !session_.hasErrors();
}

ChunkBuild::RoundUnit& ChunkBuild::open(Round& round, const std::string& path, UnitRequest request) {
    RoundUnit& unit = round.units[path];
    unit.compiler = std::make_unique<UnitCompiler>(session_, std::move(request));
    round.toCompile.insert(path);
    return unit;
}

// Notes which units of the round have got registrations or bundles since the last look.
void ChunkBuild::takeNews(Round& round) {
    const CompileSession::RegistryNews news = session_.takeRegistryNews();
    const auto bundleOf = [&](const std::string& unit) -> const std::string* {
        if (const auto own = round.bundleUnits.find(unit); own != round.bundleUnits.end()) return &own->second;
        const auto earlier = bundleUnits_.find(unit);
        return earlier == bundleUnits_.end() ? nullptr : &earlier->second;
    };
    for (const std::string& unit : news.units) {
        const std::string* bundle = bundleOf(unit);
        const std::string& path = bundle ? *bundle : unit;
        if (round.units.contains(path)) round.toCompile.insert(path);
    }
    for (const auto& [unit, path] : news.dependencies)
        if (round.units.contains(unit)) round.toSupply.insert(unit);
    for (const std::string& symbol : news.symbols) {
        std::string source = ClassLoader::sourceFileForSymbol(symbol);
        if (round.bundleSymbols.contains(source) || bundleSymbols_.contains(source))
            round.grownBundles.insert(std::move(source));
    }
}

// Files that a unit needs and whose unit this session has not compiled yet.
bool ChunkBuild::openNeededOf(Round& round, const std::string& path) {
    bool changed = false;
    RoundUnit& unit = round.units.at(path);
    while (unit.filesDone < unit.compiler->neededFiles().size())
        changed |= openNeeded(round, std::string(unit.compiler->neededFiles()[unit.filesDone++]));
    return changed;
}

bool ChunkBuild::openNeeded(Round& round, const std::string& path) {
    if (round.units.contains(path) || linked_.contains(path)) return false;
    FileDeclaration* file = session_.loadFile(path);
    if (!file) throw std::runtime_error("cannot read '" + path + "', which the chunk needs");
    open(round, path, {.name = path, .file = file, .provided = &provided_});
    return true;
}

// Units that stand already and have got further specializations.
bool ChunkBuild::openGrown(Round& round) {
    bool changed = false;
    for (const std::string& unit : unitsRegisteredSince(session_, round.chunk)) {
        if (round.units.contains(unit)) continue;
        if (const auto bundle = bundleUnits_.find(unit); bundle != bundleUnits_.end()) {
            changed |= registerBundle(round, bundle->second);
            continue;
        }
        const auto linked = linked_.find(unit);
        if (linked == linked_.end()) {
            if (session_.loadedFile(unit) && !isKeptGenericMethodBundle(unit)) changed |= openNeeded(round, unit);
            continue;
        }
        UnitRequest request{.name = unit, .provided = &provided_};
        request.registrationsDone = linked->second.registrations;
        request.furtherDone = linked->second.further;
        if (const auto name = bundleSymbols_.find(unit); name != bundleSymbols_.end()) {
            // What the bodies of a bundle ask for.
            const auto known = std::find_if(bundleUnits_.begin(), bundleUnits_.end(),
                                            [&](const auto& entry) { return entry.second == unit; });
            request.registrationUnit = known->first;
            request.furtherUnit = unit;
        }
        open(round, unit, std::move(request)).before = linked->second;
        changed = true;
    }
    return changed;
}

bool ChunkBuild::openBundlesOf(Round& round, const std::string& unit) {
    bool changed = false;
    for (const std::string& path : session_.dependenciesOf(unit)) {
        if (isKeptGenericMethodBundle(path)) changed |= registerBundle(round, path);
    }
    return changed;
}

bool ChunkBuild::registerBundle(Round& round, const std::string& path) {
    std::vector<std::string> symbols = wantedSymbols(path);
    const auto inRound = round.bundleSymbols.find(path);
    const auto earlier = bundleSymbols_.find(path);
    const std::vector<std::string>* known = inRound != round.bundleSymbols.end() ? &inRound->second
                                            : earlier != bundleSymbols_.end()    ? &earlier->second
                                                                                 : nullptr;
    if (symbols.empty() || (known && *known == symbols)) return false;
    const std::string unitName = registerBundleOrAnew(session_, path, symbols, [&] { return wantedSymbols(path); });
    round.bundleSymbols[path] = std::move(symbols);
    round.bundleUnits[unitName] = path;
    RoundUnit& unit = round.units[path];
    if (unit.compiler) {
        round.toCompile.insert(path);
        return true;
    }
    if (const auto linked = linked_.find(path); linked != linked_.end()) unit.before = linked->second;
    unit.registrationUnit = unitName;
    UnitRequest request{.name = path, .registrationUnit = unitName, .furtherUnit = path, .provided = &provided_};
    request.registrationsDone = unit.before.registrations;
    request.furtherDone = unit.before.further;
    open(round, path, std::move(request));
    return true;
}

std::vector<std::string> ChunkBuild::wantedSymbols(const std::string& bundle) const {
    std::vector<std::string> symbols = genericMethodBundleDeclaredSymbols(bundle);
    std::erase_if(symbols, [&](const std::string& symbol) { return !session_.specializedInstance(symbol); });
    return symbols;
}

// ------------------------------------------------------------------------------------------- linking and running

// Hands the modules to the JIT; answers what is to be called, in order: initializers, the chunk's last, then its
// statements.
std::vector<ChunkBuild::Start> ChunkBuild::link(Round& round) {
    StageTimer timer(trace_, "link chunk");
    const std::string& own = round.chunk.file->path;
    std::string ownInitializer;
    recordSpecializations(round);
    for (auto& [path, unit] : round.units) {
        auto module = unit.compiler->finish();
        if (!module) throw std::logic_error("no module for '" + path + "', but no mistake was reported");
        linked_[path] = {unit.compiler->registrationsDone(), unit.compiler->furtherDone()};
        neededFiles_[path].insert(unit.compiler->neededFiles().begin(), unit.compiler->neededFiles().end());
        unit.compiler.reset();  // before the JIT takes the module apart
        // Whoever calls a bundle's methods lies in another module.
        if (const auto bundle = round.bundleSymbols.find(path); bundle != round.bundleSymbols.end())
            keepFunctions(*module, bundle->second);
        optimizeModule(*module, level_);
        if (!module->initializerSymbol().empty())
            (path == own ? ownInitializer : initializers_[path]) = module->initializerSymbol();
        for (std::string& symbol : definedSymbols(*module)) provided_.insert(std::move(symbol));
        jit_.add(std::move(module));
    }
    for (auto& [path, symbols] : round.bundleSymbols) bundleSymbols_[path] = std::move(symbols);
    for (auto& [name, path] : round.bundleUnits) bundleUnits_[name] = path;
    std::vector<Start> starts = initializersFor(round);
    if (!ownInitializer.empty()) starts.push_back({own, ownInitializer});
    const FunctionInstance* statements = round.chunk.statements;
    if (statements && !statements->node->getBody().empty()) starts.push_back({own, statements->symbol});
    return starts;
}

// Of the units that the chunk's code may come to, those that are not initialized yet: units that this chunk is the first
// to need, and units whose initializer had panicked or was interrupted in an earlier chunk.
std::vector<ChunkBuild::Start> ChunkBuild::initializersFor(const Round& round) const {
    std::vector<Start> starts;
    if (initializers_.empty()) return starts;
    std::set<std::string> reached;
    std::vector<std::string> next;
    for (const auto& [path, unit] : round.units) next.push_back(path);
    while (!next.empty()) {
        const std::string path = std::move(next.back());
        next.pop_back();
        if (!reached.insert(path).second) continue;
        if (const auto needed = neededFiles_.find(path); needed != neededFiles_.end())
            next.insert(next.end(), needed->second.begin(), needed->second.end());
    }
    for (const auto& [path, symbol] : initializers_)
        if (reached.contains(path)) starts.push_back({path, symbol});
    return starts;
}

bool ChunkBuild::run(const std::vector<Start>& starts) {
    std::vector<void*> code;
    {
        StageTimer timer(trace_, "generate code");
        for (const Start& start : starts) code.push_back(jit_.lookup(start.symbol));
    }
    StageTimer timer(trace_, "run chunk");
    for (std::size_t i = 0; i < starts.size(); i++) {
        if (!jit_.callRecoverably(code[i])) return false;
        initializers_.erase(starts[i].unit);
    }
    return true;
}

void ChunkBuild::recordSpecializations(const Round& round) {
    const std::string chunk(interactiveChunkName(round.chunk.file->path));
    for (const auto& [path, unit] : round.units) {
        const std::string& name = unit.registrationUnit.empty() ? path : unit.registrationUnit;
        for (const auto& registration : session_.registrationsOf(name, unit.before.registrations)) {
            if (!registration.instance || specializationPlaces_.contains(registration.symbol)) continue;
            specializationPlaces_[registration.symbol] = specializations_.size();
            specializations_.push_back({signatureOf(session_, *registration.instance), chunk, {}});
        }
    }
    for (const std::string& symbol : takeRepeatedSymbols(session_)) {
        const auto found = specializationPlaces_.find(symbol);
        if (found == specializationPlaces_.end()) continue;
        Specialization& known = specializations_[found->second];
        if (known.chunk != chunk && (known.again.empty() || known.again.back() != chunk)) known.again.push_back(chunk);
    }
}

}  // namespace vesk::compiler
