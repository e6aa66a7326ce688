// Finding, checking and keeping compiled objects.
#include "driver/object_cache.h"

#include <algorithm>
#include <filesystem>
#include <unordered_map>

#include "generics/bundles/stored_bytes.h"
#include "generics/generic_specializer.h"
#include "generics/typetext/symbol_mangling.h"
#include "host/compiler_sources.h"
#include "host/runtime.h"
#include "host/source_manager.h"
#include "il/unit_compiler.h"

namespace vesk::compiler {

using Kind = StoredUnit::Need::Kind;

namespace {

constexpr std::string_view INSTANTIATION_UNITS = "/vesk instantiations/";

std::string parentOf(const std::string& path) { return std::filesystem::path(path).parent_path().native(); }

std::string withoutExtension(const std::string& path) {
    return path.ends_with(".vk") ? path.substr(0, path.size() - 3) : path;
}

std::string below(const std::string& root, const std::string& path) {
    return path.starts_with(root + "/") ? path.substr(root.size() + 1) : fnv1a64Hex(path);
}

// Symbols that only exist because some program asked for them.
bool isSpecialized(const std::string& symbol) { return symbol.starts_with("__vesk_"); }

}  // namespace

// Which unit defines a symbol.
class SymbolProviders {
public:
    explicit SymbolProviders(const std::vector<CompiledUnit>& units) {
        for (const CompiledUnit& unit : units) {
            const std::vector<std::string> symbols = unit.stored ? unit.stored->defines : definedSymbols(*unit.module);
            for (const std::string& symbol : symbols) providers_.try_emplace(symbol, &unit);
        }
    }
    const CompiledUnit* of(const std::string& symbol) const {
        const auto found = providers_.find(symbol);
        return found == providers_.end() ? nullptr : found->second;
    }

private:
    std::unordered_map<std::string, const CompiledUnit*> providers_;
};

std::string instantiationUnitName(const std::string& structured) {
    return std::string(INSTANTIATION_UNITS) + structured;
}

ObjectCache::ObjectCache(CompileSession& session, OptimizationLevel level, const std::vector<std::string>& givenFiles)
    : session_(session), level_(level), inputs_(session, givenFiles) {
    const ScopedCompileSession scope(session);
    branch_ = Runtime::getInstance().getCacheBranchPath();
    application_ = parentOf(Runtime::getInstance().getAppGenericsPath());
    library_ = session.standardLibrary();
    environment_ =
        std::filesystem::path(branch_).filename().native() + "\n" + library_ + "\nO" + std::to_string(int(level));
}

std::string ObjectCache::objectPath(Kind kind, const std::string& unit) const {
    const std::string end = ".O" + std::to_string(int(level_)) + ".o";
    const std::string objects = branch_ + "/objects/";
    if (kind == Kind::Instantiation) return objects + "instantiations/" + fnv1a64Hex(unit) + end;
    if (kind == Kind::File) return objects + "library/" + withoutExtension(below(library_, unit)) + end;
    if (!isApplicationBundle(unit))
        return objects + "bundles/" + withoutExtension(below(branch_ + "/generics", unit)) + end;
    return application_ + "/objects/" + withoutExtension(below(application_ + "/generics", unit)) + "-" +
           inputs_.commandHash() + end;
}

bool ObjectCache::isApplicationBundle(const std::string& path) const { return !path.starts_with(branch_ + "/"); }

// ------------------------------------------------------------------------------------------------- finding

std::shared_ptr<const StoredUnit> ObjectCache::read(Kind kind, const std::string& unit) {
    const std::shared_ptr<const Str> bytes = SourceManager::instance().contents(objectPath(kind, unit));
    if (!bytes) return nullptr;
    std::optional<StoredUnit> found = parseStoredUnit(*bytes);
    if (!found || found->name != unit || found->environment != environment_) return nullptr;
    return std::make_shared<const StoredUnit>(std::move(*found));
}

std::shared_ptr<const StoredUnit> ObjectCache::ofInstantiation(const std::string& structured) {
    const auto [known, isNew] = instantiations_.try_emplace(structured);
    if (!isNew) return known->second;
    std::shared_ptr<const StoredUnit> found = read(Kind::Instantiation, structured);
    if (!found || !areNeedsThere(*found)) return nullptr;
    found_++;
    return known->second = std::move(found);
}

std::shared_ptr<const StoredUnit> ObjectCache::ofLibraryFile(const std::string& path) {
    std::shared_ptr<const StoredUnit> found = read(Kind::File, path);
    if (!found || !areNeedsThere(*found)) return nullptr;
    found_++;
    return found;
}

ObjectCache::BundleObject ObjectCache::ofBundle(const std::string& path) {
    BundleObject answer{read(Kind::Bundle, path)};
    const std::shared_ptr<const Str> text = SourceManager::instance().contents(path);
    if (!answer.unit || !text || genericMethodBundleObjectNeedsRebuild(path, objectPath(Kind::Bundle, path)) ||
        !areInputsCurrent(*answer.unit) || !areNeedsThere(*answer.unit))
        return {};
    answer.fits = answer.unit->source == contentHash(*text);
    if (answer.fits) found_++;
    return answer;
}

bool ObjectCache::areInputsCurrent(const StoredUnit& unit) {
    return !isApplicationBundle(unit.name) || inputs_.areCurrent(unit.inputs);
}

// Other parts of the cache may have been deleted.
bool ObjectCache::areNeedsThere(const StoredUnit& unit) const {
    for (const StoredUnit::Need& need : unit.needs) {
        if (need.kind != Kind::Bundle) continue;
        const std::vector<std::string> declared = genericMethodBundleDeclaredSymbols(need.unit);
        for (const std::string& symbol : need.symbols) {
            if (!std::binary_search(declared.begin(), declared.end(), symbol)) return false;
        }
    }
    return true;
}

// ------------------------------------------------------------------------------------------------- keeping

bool ObjectCache::mayWrite() const { return session_.writesCache(); }

void ObjectCache::keepObjects(std::vector<CompiledUnit>& units) {
    const auto isKept = [&](const CompiledUnit& unit) {
        return unit.module && (unit.kind != Kind::File || unit.path.starts_with(library_ + "/"));
    };
    if (!mayWrite() || std::none_of(units.begin(), units.end(), isKept)) return;
    const SymbolProviders providers(units);
    for (CompiledUnit& unit : units) {
        if (isKept(unit) && mayWrite() && keepObject(unit, providers)) made_++;
    }
}

// What the module expects from others, by unit. False when some of it is not there for every program: then the module is
// good for this one only.
bool ObjectCache::addNeeds(StoredUnit& made, const UnitModule& module, const SymbolProviders& providers) const {
    const bool isApplications = !made.inputs.empty();
    std::map<std::pair<Kind, std::string>, std::vector<std::string>> needs;
    for (std::string& symbol : declaredSymbols(module)) {
        if (hasNativeSymbol(symbol)) continue;
        const CompiledUnit* provider = providers.of(symbol);
        if (!provider) return false;
        std::string unit = provider->path;
        if (provider->kind == Kind::Instantiation) unit.erase(0, INSTANTIATION_UNITS.size());
        if (provider->kind == Kind::File) {
            if (isSpecialized(symbol)) return false;
            if (!isApplications && !unit.starts_with(library_ + "/")) return false;
        }
        if (provider->kind == Kind::Bundle && !isApplications && isApplicationBundle(unit)) return false;
        needs[{provider->kind, std::move(unit)}].push_back(std::move(symbol));
    }
    for (auto& [unit, symbols] : needs) made.needs.push_back({unit.first, unit.second, std::move(symbols)});
    return true;
}

bool ObjectCache::keepObject(CompiledUnit& unit, const SymbolProviders& providers) {
    StoredUnit made;
    made.name = unit.kind == Kind::Instantiation ? unit.path.substr(INSTANTIATION_UNITS.size()) : unit.path;
    made.environment = environment_;
    if (unit.kind == Kind::Bundle) {
        const std::shared_ptr<const Str> text = SourceManager::instance().contents(unit.path);
        if (!text) return false;
        made.source = contentHash(*text);
        if (isApplicationBundle(unit.path)) {
            auto inputs = inputs_.collect();
            if (!inputs) return false;
            made.inputs = std::move(*inputs);
        }
    }
    made.initializer = unit.module->initializerSymbol();
    made.defines = definedSymbols(*unit.module);
    const bool isForOthers = addNeeds(made, *unit.module, providers);
    if (!isForOthers) return false;
    made.object = emitObject(*unit.module, level_);
    Str error;
    const bool isWritten = Compiler::replaceFile(objectPath(unit.kind, made.name), renderStoredUnit(made), error);
    if (!isWritten) Compiler::goesOnAfterCacheTrouble(error);
    unit.module.reset();
    unit.stored = std::make_shared<const StoredUnit>(std::move(made));
    return isWritten;
}

}  // namespace vesk::compiler
