// Compiling a program's units to a fixed point.
#include "driver/build_graph.h"

#include <stdexcept>

#include "generics/generic_specializer.h"
#include "host/diagnostics.h"
#include "host/tokens.h"

namespace vesk::compiler {
namespace {

TokenPtr firstPlaceOf(const FileDeclaration& file) {
    auto token = std::make_shared<Token>(nullptr, TokenType::Identifier, "main", 1, 1);
    token->setFilename(file.path);
    return token;
}

bool isListOfStrings(const Type* type) { return type->structured == "vesk.collections.List<String>"; }

}  // namespace

BuildGraph::BuildGraph(CompileSession& session, TimeTrace& trace, Reach reach)
    : session_(session), trace_(trace), reach_(reach) {}

BuildGraph::~BuildGraph() = default;

void BuildGraph::open(FileDeclaration& file) {
    auto& unit = units_[file.path];
    if (!unit) unit = std::make_unique<UnitCompiler>(session_, UnitRequest{.name = file.path, .file = &file});
}

bool BuildGraph::compile() {
    for (bool changed = true; changed;) {
        changed = false;
        std::vector<std::string> needed;
        for (auto& [path, unit] : units_) {
            StageTimer timer(trace_, "compile unit", path);
            changed |= unit->compile();
            needed.insert(needed.end(), unit->neededFiles().begin(), unit->neededFiles().end());
        }
        for (const std::string& path : unitPaths()) changed |= openBundlesOf(path);
        if (reach_ == Reach::GivenFiles) continue;
        for (const std::string& path : needed) {
            if (units_.contains(path)) continue;
            FileDeclaration* file = session_.loadFile(path);
            if (!file) throw std::runtime_error("cannot read '" + path + "', which the program needs");
            open(*file);
            changed = true;
        }
    }
    return !session_.hasErrors();
}

// The bundles that a unit depends on become units, of those specializations that this program asks for.
bool BuildGraph::openBundlesOf(const std::string& unit) {
    bool changed = false;
    for (const std::string& path : session_.dependenciesOf(unit)) {
        if (isGenericMethodBundlePath(path)) changed |= registerBundle(path);
    }
    return changed;
}

bool BuildGraph::registerBundle(const std::string& path) {
    const auto known = bundleSymbols_.find(path);
    std::vector<std::string> symbols = wantedSymbols(path);
    if (symbols.empty() || (known != bundleSymbols_.end() && known->second == symbols)) return false;
    StageTimer timer(trace_, "register bundle", path);
    std::string unitName;
    try {
        unitName = registerGenericMethodBundle(path, session_.rootContext(), symbols);
    } catch (const CompilerException&) {
        throw;
    } catch (const std::runtime_error&) {
        // Damaged, or older than its sources: what this compilation asked for is put there anew.
        if (!regenerateGenericMethodBundle(path, session_.rootContext())) throw;
        symbols = wantedSymbols(path);
        unitName = registerGenericMethodBundle(path, session_.rootContext(), symbols);
    }
    bundleSymbols_[path] = std::move(symbols);
    auto& compiler = units_[path];
    if (!compiler) {
        compiler = std::make_unique<UnitCompiler>(
            session_, UnitRequest{.name = path, .registrationUnit = unitName, .furtherUnit = path});
    }
    return true;
}

std::vector<std::string> BuildGraph::wantedSymbols(const std::string& bundle) const {
    std::vector<std::string> symbols = genericMethodBundleDeclaredSymbols(bundle);
    std::erase_if(symbols, [&](const std::string& symbol) { return !session_.specializedInstance(symbol); });
    return symbols;
}

std::vector<BuildGraph::CompiledUnit> BuildGraph::finish() {
    std::vector<CompiledUnit> modules;
    for (auto& [path, unit] : units_) {
        auto module = unit->finish();
        if (!module) throw std::logic_error("no module for '" + path + "', but no mistake was reported");
        // Whoever calls a bundle's methods lies in another module.
        if (const auto bundle = bundleSymbols_.find(path); bundle != bundleSymbols_.end())
            keepFunctions(*module, bundle->second);
        modules.push_back({path, std::move(module)});
    }
    units_.clear();
    return modules;
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
    if (!result->isVoid() && result->kind != TypeKind::Int) {
        throw compileError(place, "the function 'main' returns Void or Int, not " + result->structured);
    }
    return instance;
}

ProgramStart programStart(CompileSession& session, FileDeclaration& mainFile,
                          const std::vector<BuildGraph::CompiledUnit>& units) {
    FunctionInstance* main = mainFunctionOf(session, mainFile);
    ProgramStart start;
    std::string last;
    for (const auto& unit : units) {
        const std::string& initializer = unit.module->initializerSymbol();
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
