// Compiling a program's units to a fixed point.
#include "driver/build_graph.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <utility>

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
    if (const auto known = units_.find(file.path); known != units_.end() && known->second.compiler) return;
    UnitRequest request{.name = file.path, .file = &file};
    request.places = places();
    addUnit(file.path, Kind::File).compiler = std::make_unique<UnitCompiler>(session_, std::move(request));
}

// A unit with nothing in it, in the place of the one that stood for this path.
BuildGraph::Unit& BuildGraph::addUnit(const std::string& path, Kind kind) {
    Unit& unit = units_[path];
    unit = {};
    unit.kind = kind;
    toCompile_.insert(path);
    if (const auto used = bundlesOf_.find(path); used != bundlesOf_.end()) {
        for (const std::string& bundle : used->second) usersOf_[bundle].insert(path);
        grownBundles_.insert(used->second.begin(), used->second.end());
    }
    return unit;
}

bool BuildGraph::compile() {
    for (bool changed = true; changed;) {
        changed = compileUnits();
        session_.checkLoadedDeclarations();
        changed |= openBundles();
        if (reach_ == Reach::GivenFiles) continue;
        changed |= openNeeds();
        if (!changed) changed = compileIncompleteFiles();
    }
    if (session_.hasErrors()) return false;
    if (checked_) {
        for (const auto& [bundle, symbols] : bundleSymbols_) checked_->add(bundle, symbols);
        checked_->keep();
    }
    return true;
}

// Notes whom it concerns what has been registered and recorded since the last look.
void BuildGraph::takeNews() {
    const CompileSession::RegistryNews news = session_.takeRegistryNews();
    for (const std::string& unit : news.units) {
        const auto bundle = bundlesByUnitName_.find(unit);
        const std::string& path = bundle == bundlesByUnitName_.end() ? unit : bundle->second;
        if (units_.contains(path)) toCompile_.insert(path);
    }
    for (const auto& [unit, path] : news.dependencies) addDependency(unit, path);
    for (const std::string& symbol : news.symbols) {
        const std::string source = ClassLoader::sourceFileForSymbol(symbol);
        if (usersOf_.contains(source)) grownBundles_.insert(source);
    }
}

void BuildGraph::addDependency(const std::string& unit, const std::string& path) {
    if (!isKeptGenericMethodBundle(path)) return;
    bundlesOf_[unit].push_back(path);
    if (!units_.contains(unit)) return;
    usersOf_[path].insert(unit);
    grownBundles_.insert(path);
}

// One round, in order of path. A unit that gets something from one behind it waits for the next round.
bool BuildGraph::compileUnits() {
    bool changed = false;
    takeNews();
    for (auto next = toCompile_.begin(); next != toCompile_.end();) {
        const std::string path = *next;
        toCompile_.erase(next);
        changed |= compileUnit(path);
        takeNews();
        next = toCompile_.upper_bound(path);
    }
    return changed;
}

bool BuildGraph::compileUnit(const std::string& path) {
    Unit& unit = units_.at(path);
    if (!unit.compiler) return false;
    toSupply_.insert(path);
    StageTimer timer(trace_, "compile unit", path);
    // What the members of an instantiation ask for belongs to its unit: other programs find it there.
    std::optional<ScopedSpecializationUnit> receiver;
    if (unit.kind == Kind::Instantiation) receiver.emplace(path);
    return unit.compiler->compile();
}

// --------------------------------------------------------------------------------- files and instantiations

bool BuildGraph::openNeeds() {
    bool changed = false;
    for (const std::string& path : std::exchange(toSupply_, {})) changed |= openNeedsOf(path);
    return changed;
}

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
    Unit& unit = addUnit(name, Kind::Instantiation);
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
    addUnit(path, kind).stored = stored;
    if (kind == Kind::Instantiation) storedMembers_.insert(stored->defines.begin(), stored->defines.end());
    openNeedsOf(*stored);
    return true;
}

bool BuildGraph::openNeedsOf(const StoredUnit& stored) {
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

// The bundles that units depend on become units, of those specializations that this program asks for; those of the first
// unit first.
bool BuildGraph::openBundles() {
    takeNews();
    std::vector<std::pair<std::string, std::string>> order;  // the first user, the bundle
    for (const std::string& bundle : std::exchange(grownBundles_, {})) {
        const auto users = usersOf_.find(bundle);
        if (users != usersOf_.end()) order.emplace_back(*users->second.begin(), bundle);
    }
    std::sort(order.begin(), order.end());
    bool changed = false;
    for (const auto& [user, bundle] : order) {
        if (!isChecked(bundle)) changed |= registerBundle(bundle);
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
    const auto opened = units_.find(path);
    const bool isOpen = opened != units_.end() && opened->second.compiler;
    if (objects_ && !isOpen) {
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
    bundlesByUnitName_[unitName] = path;
    if (isOpen) return true;
    UnitRequest request{.name = path, .registrationUnit = unitName, .furtherUnit = path};
    request.places = places();
    addUnit(path, Kind::Bundle).compiler = std::make_unique<UnitCompiler>(session_, std::move(request));
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
    // Two that take the same are told when declarations are checked.
    const auto takesTheSame = [&](FunctionDeclaration* other) {
        return !found[0]->generic && !other->generic &&
               session.instanceOf(*found[0])->parameterTypes == session.instanceOf(*other)->parameterTypes;
    };
    if (found.size() > 1 && !takesTheSame(found[1]))
        throw compileError(placeOf(*found[1]), "the function 'main' is declared twice");
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
