// The units of one program, compiled together.
// Compiling one unit may ask for another file's unit, for a bundle of generic methods, and may register a specialization
// in any of them, so all are compiled round by round until none has anything left. A round looks only at units and bundles
// that something has come for since the round before: a chain of imports has as many rounds as files. A bundle is a unit
// that consists of registrations only. With a cache of objects an instantiation of a library class is a unit, too. Units
// stand in order of path, the same in every run.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "driver/checked_methods.h"
#include "driver/object_cache.h"
#include "driver/time_trace.h"
#include "il/unit_compiler.h"
#include "semantics/compile_session.h"

namespace vesk::compiler {

class BuildGraph : private InstantiationPlaces {
public:
    // Which units are compiled beside those of the given files: all that a program is made of; what may have mistakes or
    // add to a unit of the given files, that is other files of the application and bundles; or bundles alone.
    enum class Reach { Program, Application, GivenFiles };

    // Units that `objects` (may be null) has compiled are not compiled again.
    BuildGraph(CompileSession& session, TimeTrace& trace, Reach reach, ObjectCache* objects = nullptr);
    // For those who need no bundle's unit: bundles whose methods are among the checked ones are left alone, and those that
    // are compiled without a mistake are added.
    BuildGraph(CompileSession& session, TimeTrace& trace, Reach reach, CheckedMethods& checked);
    ~BuildGraph() override;
    BuildGraph(const BuildGraph&) = delete;
    BuildGraph& operator=(const BuildGraph&) = delete;

    // Adds the unit of a loaded file.
    void open(FileDeclaration& file);
    // Compiles all units to the fixed point. Mistakes go to the session's diagnostics; false when there were some.
    bool compile();

    using CompiledUnit = compiler::CompiledUnit;
    // The units, in order of path, after a compile() without mistakes.
    std::vector<CompiledUnit> finish();
    std::vector<std::string> unitPaths() const;

private:
    struct Unit {
        StoredUnit::Need::Kind kind = StoredUnit::Need::Kind::File;
        std::unique_ptr<UnitCompiler> compiler;  // null: `stored` stands for it
        std::shared_ptr<const StoredUnit> stored;
        std::size_t filesDone = 0, membersDone = 0;  // of what the compiler needs
    };

    // What the unit of one instantiation leaves to others.
    class NestedInstantiations : public InstantiationPlaces {
    public:
        NestedInstantiations(BuildGraph& graph, const Type* outermost) : graph_(graph), outermost_(outermost) {}
        bool isElsewhere(const Type* instantiation) override;

    private:
        BuildGraph& graph_;
        const Type* outermost_;
    };

    bool isElsewhere(const Type* instantiation) override;
    InstantiationPlaces* places();
    Unit& addUnit(const std::string& path, StoredUnit::Need::Kind kind);
    void takeNews();
    void addDependency(const std::string& unit, const std::string& path);
    bool compileUnits();
    bool compileUnit(const std::string& path);
    bool openNeeds();
    bool openNeedsOf(const std::string& path);
    bool openFile(const std::string& path, const std::vector<std::string>& symbols);
    bool openInstantiation(const Type* type, const std::string& structured, const std::vector<std::string>& symbols);
    bool openNeedsOf(const StoredUnit& stored);
    bool useStored(const std::string& path, StoredUnit::Need::Kind kind, std::shared_ptr<const StoredUnit> stored);
    bool compileIncompleteFiles();
    bool openBundles();
    bool registerBundle(const std::string& path);
    static void addDefined(std::vector<std::string>& symbols, const StoredUnit& object, const std::string& bundle);
    std::vector<std::string> wantedSymbols(const std::string& bundle) const;
    bool isChecked(const std::string& bundle);

    CompileSession& session_;
    TimeTrace& trace_;
    Reach reach_;
    ObjectCache* objects_;
    CheckedMethods* checked_ = nullptr;
    std::map<std::string, std::vector<std::string>> bundleSymbols_;        // registered so far, by bundle
    std::unordered_map<std::string, std::vector<std::string>> externals_;  // called so far, by bundle
    std::size_t externalsDone_ = 0;                                        // of the session's
    std::map<std::string, std::set<std::string>> storedWishes_;            // what stored units expect of bundles
    std::unordered_set<std::string> storedMembers_;                        // what stored instantiations define
    std::vector<std::unique_ptr<NestedInstantiations>> nestedPlaces_;
    std::map<std::string, Unit> units_;
    // What the next round is to look at.
    std::set<std::string> toCompile_;     // units that are new or got registrations
    std::set<std::string> toSupply_;      // units that were compiled, so that they may need others
    std::set<std::string> grownBundles_;  // bundles that may have got wanted symbols
    std::unordered_map<std::string, std::string> bundlesByUnitName_;       // as the bundle's methods are registered
    std::unordered_map<std::string, std::vector<std::string>> bundlesOf_;  // by depending unit, open or not
    std::unordered_map<std::string, std::set<std::string>> usersOf_;       // open units, by bundle they depend on
};

// The start of a program whose main file is `mainFile`: its main function, and the initializers of all units in order,
// the main file's last. Throws CompilerException when there is no main function or it has another signature than
// `main() -> Void|Int`, optionally with one List<String>.
ProgramStart programStart(CompileSession& session, FileDeclaration& mainFile, const std::vector<CompiledUnit>& units);
// The main function of a file, with its signature checked; throws as above.
FunctionInstance* mainFunctionOf(CompileSession& session, FileDeclaration& file);

}  // namespace vesk::compiler
