// The units of one program, compiled together.
// Compiling one unit may ask for another file's unit, for a bundle of generic methods, and may register a specialization
// in any of them, so all are compiled round by round until none has anything left. A bundle is a unit that consists of
// registrations only. Units stand in order of path, the same in every run.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "driver/time_trace.h"
#include "il/unit_compiler.h"
#include "semantics/compile_session.h"

namespace vesk::compiler {

class BuildGraph {
public:
    // Units that the given ones refer to: compiled as well, or left alone (to look for mistakes only).
    enum class Reach { Program, GivenFiles };

    BuildGraph(CompileSession& session, TimeTrace& trace, Reach reach);
    ~BuildGraph();
    BuildGraph(const BuildGraph&) = delete;
    BuildGraph& operator=(const BuildGraph&) = delete;

    // Adds the unit of a loaded file.
    void open(FileDeclaration& file);
    // Compiles all units to the fixed point. Mistakes go to the session's diagnostics; false when there were some.
    bool compile();

    struct CompiledUnit {
        std::string path;
        std::unique_ptr<UnitModule> module;
    };
    // The modules, in order of path, after a compile() without mistakes.
    std::vector<CompiledUnit> finish();
    std::vector<std::string> unitPaths() const;

private:
    bool openBundlesOf(const std::string& unit);
    bool registerBundle(const std::string& path);
    std::vector<std::string> wantedSymbols(const std::string& bundle) const;

    CompileSession& session_;
    TimeTrace& trace_;
    Reach reach_;
    std::map<std::string, std::vector<std::string>> bundleSymbols_;  // registered so far, by bundle
    std::map<std::string, std::unique_ptr<UnitCompiler>> units_;
};

// The start of a program whose main file is `mainFile`: its main function, and the initializers of all units in order,
// the main file's last. Throws CompilerException when there is no main function or it has another signature than
// `main() -> Void|Int`, optionally with one List<String>.
ProgramStart programStart(CompileSession& session, FileDeclaration& mainFile,
                          const std::vector<BuildGraph::CompiledUnit>& units);
// The main function of a file, with its signature checked; throws as above.
FunctionInstance* mainFunctionOf(CompileSession& session, FileDeclaration& file);

}  // namespace vesk::compiler
