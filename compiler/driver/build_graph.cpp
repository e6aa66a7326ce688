// Compiling a program's units to a fixed point.
#include "driver/build_graph.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "driver/bundle_registration.h"
#include "generics/generic_specializer.h"
#include "host/class_loader.h"
#include "host/diagnostics.h"
#include "host/tokens.h"
#include "semantics/name_lookup.h"

namespace vesk::compiler {

using Kind = StoredUnit::Need::Kind;

namespace {

TokenPtr firstPlaceOf(const FileDeclaration& file) {
    auto token = std::make_shared<Token>(nullptr, TokenType::Identifier, "main", 1, 1);
    token->setFilename(file.path);
    return token;
}

// Whether a type stands among the type arguments of another, at any depth.
bool isWithin(const Type* part, const Type* whole) {
    std::vector<const Type*> order{whole};
    std::unordered_set<const Type*> seen{whole};
    const auto add = [&](const Type* each) {
        if (each->wholeLength >= part->wholeLength && seen.insert(each).second) order.push_back(each);
    };
    for (std::size_t i = 0; i < order.size(); i++) {
        if (order[i] == part) return true;
        for (const Type* each : order[i]->arguments) add(each);
        if (order[i]->result) add(order[i]->result);
    }
    return false;
}

bool isListOfStrings(const Type* type) { return type->structured == "vesk.collections.List<String>"; }

}  // namespace

BuildGraph::BuildGraph(CompileSession& session, TimeTrace& trace, Reach reach, ObjectCache* objects)
    : session_(session), trace_(trace), reach_(reach), objects_(objects) {}

BuildGraph::BuildGraph(CompileSession& session, TimeTrace& trace, Reach reach, CheckedMethods& checked)
    : BuildGraph(session, trace, reach) {
    checked_ = &checked;
}

BuildGraph::~BuildGraph() = default;

void BuildGraph::open(FileDeclaration& file) {
    Unit& unit = units_[file.path];
    if (unit.compiler) return;
    unit = {};
    UnitRequest request{.name = file.path, .file = &file};
    request.places = places();
    unit.compiler = std::make_unique<UnitCompiler>(session_, std::move(request));
}

bool BuildGraph::compile() {
    for (bool changed = true; changed;) {
        changed = false;
        for (const std::string& path : unitPaths()) changed |= compileUnit(path);
        session_.checkLoadedDeclarations();
        for (const std::string& path : unitPaths()) changed |= openBundlesOf(path);
        if (reach_ == Reach::GivenFiles) continue;
        for (const std::string& path : unitPaths()) changed |= openNeedsOf(path);
        if (!changed) changed = compileIncompleteFiles();
    }
    if (session_.hasErrors()) return false;
    if (checked_) {
        for (const auto& [bundle, symbols] : bundleSymbols_) checked_->add(bundle, symbols);
        checked_->keep();
    }
    return true;
}

bool BuildGraph::compileUnit(const std::string& path) {
    Unit& unit = units_.at(path);
    if (!unit.compiler) return false;
    StageTimer timer(trace_, "compile unit", path);
    // What the members of an instantiation ask for belongs to its unit: other programs find it there.
    std::optional<ScopedSpecializationUnit> receiver;
    if (unit.kind == Kind::Instantiation) receiver.emplace(path);
    return unit.compiler->compile();
}

// --------------------------------------------------------------------------------- files and instantiations

bool BuildGraph::openNeedsOf(const std::string& path) {
    bool changed = false;
    // Opening a unit may compile it at once, and that may add to what others need.
    while (units_.at(path).compiler && units_.at(path).filesDone < units_.at(path).compiler->neededFiles().size()) {
        Unit& unit = units_.at(path);
        const std::string file = unit.compiler->neededFiles()[unit.filesDone++];
        changed |= openFile(file, {});
    }
    while (units_.at(path).compiler && units_.at(path).membersDone < units_.at(path).compiler->neededMembers().size()) {
        Unit& unit = units_.at(path);
        const UnitCompiler::NeededMember member = unit.compiler->neededMembers()[unit.membersDone++];
        changed |= openInstantiation(member.instantiation, member.instantiation->structured, {member.symbol});
    }
    return changed;
}

bool BuildGraph::openFile(const std::string& path, const std::vector<std::string>& symbols) {
    const auto known = units_.find(path);
    if (known != units_.end() && (known->second.compiler || known->second.stored->definesAll(symbols))) return false;
    FileDeclaration* file = session_.loadFile(path);
    if (!file) throw std::runtime_error("cannot read '" + path + "', which the program needs");
    // The library knows nothing of the application.
    if (reach_ == Reach::Application && file->isStandardLibrary) return false;
    if (objects_ && file->isStandardLibrary && known == units_.end()) {
        auto stored = objects_->ofLibraryFile(path);
        if (stored && stored->definesAll(symbols)) return useStored(path, Kind::File, std::move(stored));
    }
    open(*file);
    return true;
}

bool BuildGraph::isElsewhere(const Type* instantiation) {
    if (!isLibraryType(instantiation)) return false;
    return objects_->keepsInstantiations() || objects_->ofInstantiation(instantiation->structured);
}

InstantiationPlaces* BuildGraph::places() { return objects_ && objects_->usesInstantiations() ? this : nullptr; }

bool BuildGraph::NestedInstantiations::isElsewhere(const Type* instantiation) {
    return instantiation != outermost_ && isWithin(instantiation, outermost_) && graph_.isElsewhere(instantiation);
}

// `type` may be null: then it is found by its text.
bool BuildGraph::openInstantiation(const Type* type, const std::string& structured,
                                   const std::vector<std::string>& symbols) {
    const auto isThere = [&](const std::string& symbol) { return storedMembers_.contains(symbol); };
    if (std::all_of(symbols.begin(), symbols.end(), isThere)) return false;
    const std::string name = instantiationUnitName(structured);
    if (const auto known = units_.find(name); known != units_.end() && known->second.compiler) return false;
    auto stored = units_.contains(name) ? nullptr : objects_->ofInstantiation(structured);
    if (stored && stored->definesAll(symbols)) return useStored(name, Kind::Instantiation, std::move(stored));

    if (!type) type = resolveType(structured, session_.rootContext());
    if (type->kind != TypeKind::Class || !type->isConcrete)
        throw std::runtime_error("cannot find the class '" + structured + "', which the program needs");
    Unit& unit = units_[name];
    unit = {};
    unit.kind = Kind::Instantiation;
    UnitRequest request{.name = name};
    request.instantiation = type;
    request.places = nestedPlaces_.emplace_back(std::make_unique<NestedInstantiations>(*this, type)).get();
    unit.compiler = std::make_unique<UnitCompiler>(session_, std::move(request));
    compileUnit(name);
    // It holds whatever it uses of other instantiations: these need no units of their own. Only what its type arguments
    // are made of stands by itself, or each level of a nested type would hold all those within it again.
    for (std::string& symbol : unit.compiler->definedMembers()) storedMembers_.insert(std::move(symbol));
    return true;
}

bool BuildGraph::useStored(const std::string& path, StoredUnit::Need::Kind kind,
                           std::shared_ptr<const StoredUnit> stored) {
    Unit& unit = units_[path];
    unit = {};
    unit.kind = kind;
    unit.stored = stored;
    if (kind == Kind::Instantiation) storedMembers_.insert(stored->defines.begin(), stored->defines.end());
    openNeeds(*stored);
    return true;
}

bool BuildGraph::openNeeds(const StoredUnit& stored) {
    bool changed = false;
    for (const StoredUnit::Need& need : stored.needs) {
        switch (need.kind) {
            case Kind::File: changed |= openFile(need.unit, need.symbols); break;
            case Kind::Instantiation: changed |= openInstantiation(nullptr, need.unit, need.symbols); break;
            case Kind::Bundle:
                storedWishes_[need.unit].insert(need.symbols.begin(), need.symbols.end());
                changed |= registerBundle(need.unit);
        }
    }
    return changed;
}

// A library file's object may lack what this program has specialized for it.
bool BuildGraph::compileIncompleteFiles() {
    bool changed = false;
    for (const std::string& path : unitPaths()) {
        const std::shared_ptr<const StoredUnit> stored = units_.at(path).stored;
        if (!stored || units_.at(path).kind != Kind::File) continue;
        for (const CompileSession::Registration& registration : session_.registrationsOf(path)) {
            const bool isInUnit = registration.instance && registration.instance->linkage == InstanceLinkage::Unit;
            if (!isInUnit || stored->definesAll({registration.symbol})) continue;
            open(*session_.loadFile(path));
            changed = true;
            break;
        }
    }
    return changed;
}

// ------------------------------------------------------------------------------------------------- bundles

// The bundles that a unit depends on become units, of those specializations that this program asks for.
bool BuildGraph::openBundlesOf(const std::string& unit) {
    bool changed = false;
    for (const std::string& path : session_.dependenciesOf(unit)) {
        if (isKeptGenericMethodBundle(path) && !isChecked(path)) changed |= registerBundle(path);
    }
    return changed;
}

// Whether there is nothing to find out about what this program calls of a bundle.
bool BuildGraph::isChecked(const std::string& bundle) {
    if (!checked_ || bundleSymbols_.contains(bundle)) return false;
    for (std::string& symbol : session_.externalMethods(externalsDone_)) {
        externalsDone_++;
        externals_[ClassLoader::sourceFileForSymbol(symbol)].push_back(std::move(symbol));
    }
    const auto called = externals_.find(bundle);
    return called != externals_.end() &&
           std::all_of(called->second.begin(), called->second.end(),
                       [&](const std::string& symbol) { return checked_->contains(bundle, symbol); });
}

bool BuildGraph::registerBundle(const std::string& path) {
    std::vector<std::string> symbols = wantedSymbols(path);
    std::vector<std::string>& known = bundleSymbols_[path];
    if (symbols.empty() || std::includes(known.begin(), known.end(), symbols.begin(), symbols.end())) return false;
    StageTimer timer(trace_, "register bundle", path);
    if (objects_ && !units_[path].compiler) {
        const ObjectCache::BundleObject object = objects_->ofBundle(path);
        if (object.fits && object.unit->definesAll(symbols)) {
            known = std::move(symbols);
            return useStored(path, Kind::Bundle, object.unit);
        }
        // What it had is compiled again with the new, so that programs in turn do not drive each other out.
        if (object.unit) addDefined(symbols, *object.unit, path);
    }
    std::string unitName;
    try {
        unitName = registerBundleOrAnew(session_, path, symbols, [&] { return wantedSymbols(path); });
    } catch (const CompilerException& error) {
        session_.report(error);  // the other units have their own
    }
    bundleSymbols_[path] = std::move(symbols);
    if (unitName.empty()) return false;
    Unit& unit = units_[path];
    if (unit.compiler) return true;
    unit = {};
    unit.kind = Kind::Bundle;
    UnitRequest request{.name = path, .registrationUnit = unitName, .furtherUnit = path};
    request.places = places();
    unit.compiler = std::make_unique<UnitCompiler>(session_, std::move(request));
    return true;
}

// Those of a bundle's methods that its object held before; the bundle may have lost some since.
void BuildGraph::addDefined(std::vector<std::string>& symbols, const StoredUnit& object, const std::string& bundle) {
    for (const std::string& symbol : genericMethodBundleDeclaredSymbols(bundle)) {
        if (object.definesAll({symbol})) symbols.push_back(symbol);
    }
    std::sort(symbols.begin(), symbols.end());
    symbols.erase(std::unique(symbols.begin(), symbols.end()), symbols.end());
}

std::vector<std::string> BuildGraph::wantedSymbols(const std::string& bundle) const {
    std::vector<std::string> symbols = genericMethodBundleDeclaredSymbols(bundle);
    const auto wishes = storedWishes_.find(bundle);
    std::erase_if(symbols, [&](const std::string& symbol) {
        const bool isWish = wishes != storedWishes_.end() && wishes->second.contains(symbol);
        return !isWish && !session_.specializedInstance(symbol);
    });
    return symbols;
}

std::vector<CompiledUnit> BuildGraph::finish() {
    std::vector<CompiledUnit> compiled;
    for (auto& [path, unit] : units_) {
        CompiledUnit made{path, unit.kind, nullptr, unit.stored};
        if (unit.compiler) {
            made.module = unit.compiler->finish();
            if (!made.module) throw std::logic_error("no module for '" + path + "', but no mistake was reported");
            // Whoever calls a bundle's methods, or an instantiation's, lies in another module.
            if (unit.kind == Kind::Bundle) keepFunctions(*made.module, bundleSymbols_.at(path));
            if (unit.kind == Kind::Instantiation) keepDefinitions(*made.module);
        }
        compiled.push_back(std::move(made));
    }
    units_.clear();
    return compiled;
}

std::vector<std::string> BuildGraph::unitPaths() const {
    std::vector<std::string> paths;
    for (const auto& entry : units_) paths.push_back(entry.first);
    return paths;
}

FunctionInstance* mainFunctionOf(CompileSession& session, FileDeclaration& file) {
    std::vector<FunctionDeclaration*> found;
    for (FunctionDeclaration* function : file.functions) {
        if (function->name == "main") found.push_back(function);
    }
    if (found.empty()) throw compileError(firstPlaceOf(file), "the main file declares no function 'main'");
    const auto placeOf = [](const FunctionDeclaration& function) {
        return function.node->nameToken() ? function.node->nameToken() : function.node->token();
    };
    if (found.size() > 1) throw compileError(placeOf(*found[1]), "the function 'main' is declared twice");
    const TokenPtr place = placeOf(*found[0]);
    if (found[0]->generic) throw compileError(place, "the function 'main' cannot be generic");
    FunctionInstance* instance = session.instanceOf(*found[0]);
    const auto& parameters = instance->parameterTypes;
    if (parameters.size() > 1 || (parameters.size() == 1 && !isListOfStrings(parameters[0]))) {
        throw compileError(place, "the function 'main' takes no parameter, or one of type List<String>");
    }
    const Type* result = session.returnTypeOf(*instance);
    // A result that could not be found out has its own message.
    if (!result->isVoid() && result->kind != TypeKind::Int && result->kind != TypeKind::Unknown) {
        throw compileError(place, "the function 'main' returns Void or Int, not " + result->structured);
    }
    return instance;
}

ProgramStart programStart(CompileSession& session, FileDeclaration& mainFile, const std::vector<CompiledUnit>& units) {
    FunctionInstance* main = mainFunctionOf(session, mainFile);
    ProgramStart start;
    std::string last;
    for (const auto& unit : units) {
        const std::string& initializer = unit.initializerSymbol();
        if (initializer.empty()) continue;
        if (unit.path == mainFile.path)
            last = initializer;
        else
            start.initializers.push_back(initializer);
    }
    if (!last.empty()) start.initializers.push_back(last);
    start.mainSymbol = main->symbol;
    start.returnsVoid = session.returnTypeOf(*main)->isVoid();
    start.passArguments = !main->parameterTypes.empty();
    return start;
}

}  // namespace vesk::compiler
