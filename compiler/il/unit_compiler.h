// Turns one compile unit into a module.
// A unit holds the plain functions, classes and static fields of its file and every specialization that was
// registered for it. Specializing goes on while other units are compiled (a generic class of this file, compiled for
// another unit, may register a function here), so a driver opens all units it needs and calls compile() on each, round
// by round, until none has anything left; then it finishes them:
//
//     units = {main}; do { changed = false; for (u : units) { changed |= u.compile(); open what u.neededFiles() adds } }
//     while (changed); for (u : units) modules.push_back(u.finish());
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "il/unit_module.h"

namespace vesk::compiler {

class CompileSession;
struct FileDeclaration;
struct FunctionInstance;

struct UnitRequest {
    // Name of the module; for source files their path.
    std::string name;
    // The file whose declarations are defined here; null: specializations only.
    FileDeclaration* file = nullptr;
    // The unit whose registered specializations are defined here; "" = `name`.
    std::string registrationUnit;
    // A further unit whose registered specializations are defined here (what a bundle's bodies ask for), "" = none.
    std::string furtherUnit;
    // Interactive chunk to define beside the file's declarations.
    FunctionInstance* chunk = nullptr;
};

class UnitCompiler {
public:
    UnitCompiler(CompileSession& session, UnitRequest request);
    ~UnitCompiler();
    UnitCompiler(const UnitCompiler&) = delete;
    UnitCompiler& operator=(const UnitCompiler&) = delete;

    // Defines whatever is not defined yet and returns whether there was something. Mistakes in the program go to the
    // session's diagnostics; compiling goes on behind them.
    bool compile();
    // Paths of the other files whose units this module refers to, in the order they came up. Grows during compile().
    const std::vector<std::string>& neededFiles() const;
    bool failed() const;
    // The module; null when some body had mistakes. The compiler is used up by it.
    std::unique_ptr<UnitModule> finish();

private:
    struct State;
    std::unique_ptr<State> state_;
};

// Whether the run-time library defines this function.
bool hasNativeSymbol(const std::string& symbol);

}  // namespace vesk::compiler
