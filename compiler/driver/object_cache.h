// Compiled objects on disk, so that later compilations link what earlier ones compiled:
//
//   <cache>/branches/<id>/objects/instantiations/<hash>.O0.o   a library class with library type arguments
//   <cache>/branches/<id>/objects/library/<path>.O0.o          a file of the standard library
//   <cache>/branches/<id>/objects/bundles/<path>.O0.o          a shared bundle
//   <cache>/apps/<hash>/objects/<path>-<hash>.O0.o             a bundle of the application
//
// Those of a branch depend on the branch and the options only; a shared bundle's also on its text. An application's
// bundle depends on the sources that were loaded with it: their hashes are in its object, and the files of the command
// are in its name. An object dies when one of these changes, or when it is older than the source of the bundle's owner
// or caller; whatever is damaged or does not fit is made anew. Writing goes through a temporary file.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "driver/application_inputs.h"
#include "driver/stored_unit.h"
#include "il/unit_module.h"
#include "semantics/compile_session.h"

namespace vesk::compiler {

// One unit of a program after compilation: a module, or an object that stands for it.
struct CompiledUnit {
    std::string path;
    StoredUnit::Need::Kind kind = StoredUnit::Need::Kind::File;
    std::unique_ptr<UnitModule> module;
    std::shared_ptr<const StoredUnit> stored;  // null: `module` is there

    const std::string& initializerSymbol() const { return stored ? stored->initializer : module->initializerSymbol(); }
};

class SymbolProviders;

class ObjectCache {
public:
    // `givenFiles` are those of the command, in order.
    ObjectCache(CompileSession& session, OptimizationLevel level, const std::vector<std::string>& givenFiles);

    // The objects that can stand for a unit of the standard library, null when there is none.
    std::shared_ptr<const StoredUnit> ofInstantiation(const std::string& structured);
    std::shared_ptr<const StoredUnit> ofLibraryFile(const std::string& path);
    // A bundle's object. One that was made when the bundle listed other methods does not fit, but tells what it defines.
    struct BundleObject {
        std::shared_ptr<const StoredUnit> unit;  // null when there is none
        bool fits = false;
    };
    BundleObject ofBundle(const std::string& path);

    // Whether instantiations of library classes may have units of their own, which every program finds compiled. Code
    // that is optimized is better off with copies of its own.
    bool usesInstantiations() const { return level_ == OptimizationLevel::O0; }
    // Whether those that are not there yet are made.
    bool keepsInstantiations() const { return usesInstantiations() && mayWrite(); }
    // Compiles the modules that later compilations can use and keeps their objects. Trouble goes to the session's
    // CacheTrouble.
    void keepObjects(std::vector<CompiledUnit>& units);

    int foundCount() const { return found_; }
    int madeCount() const { return made_; }

private:
    std::string objectPath(StoredUnit::Need::Kind kind, const std::string& unit) const;
    std::shared_ptr<const StoredUnit> read(StoredUnit::Need::Kind kind, const std::string& unit);
    bool areInputsCurrent(const StoredUnit& unit);
    bool areNeedsThere(const StoredUnit& unit) const;
    bool isApplicationBundle(const std::string& path) const;
    bool mayWrite() const;
    bool keepObject(CompiledUnit& unit, const SymbolProviders& providers);
    bool addNeeds(StoredUnit& made, const UnitModule& module, const SymbolProviders& providers) const;

    CompileSession& session_;
    OptimizationLevel level_;
    std::string branch_, application_, library_, environment_;
    ApplicationInputs inputs_;
    std::map<std::string, std::shared_ptr<const StoredUnit>> instantiations_;
    int found_ = 0, made_ = 0;
};

// Units of instantiations have names that look like paths, so that nothing takes them for files of the program.
std::string instantiationUnitName(const std::string& structured);

}  // namespace vesk::compiler
