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
#include <unordered_set>
#include <vector>

#include "il/unit_module.h"

namespace vesk::compiler {

class CompileSession;
struct FileDeclaration;
struct FunctionInstance;
struct Type;

// Says which instantiations of generic classes have units of their own. A unit only refers to their members; of all
// others it holds what it uses itself.
class InstantiationPlaces {
public:
    virtual ~InstantiationPlaces() = default;
    virtual bool isElsewhere(const Type* instantiation) = 0;
};

// Whether a type is made of the standard library's and built-in types alone, so that its code is the same for all
// programs.
bool isLibraryType(const Type* type);

struct UnitRequest {
    // Name of the module; for source files their path.
    std::string name;
    // The file whose declarations are defined here; null: specializations only.
    FileDeclaration* file = nullptr;
    // The unit whose registered specializations are defined here; "" = `name`.
    std::string registrationUnit;
    // A further unit whose registered specializations are defined here (what a bundle's bodies ask for), "" = none.
    std::string furtherUnit;
    // An instantiation of a generic class all of whose members are defined here.
    const Type* instantiation = nullptr;
    // Null: this unit holds what it uses of all instantiations.
    InstantiationPlaces* places = nullptr;
    // Statements of an interactive chunk, to define beside the declarations of `file`.
    FunctionInstance* chunk = nullptr;
    // Symbols that modules made before define: of what exists on demand, these are only referred to. May be null.
    const std::unordered_set<std::string>* provided = nullptr;
    // How many registrations of the unit, and of the further one, earlier modules hold.
    std::size_t registrationsDone = 0, furtherDone = 0;
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
    // Members of instantiations that lie elsewhere, in the order they came up. Grows during compile().
    struct NeededMember {
        const Type* instantiation;
        std::string symbol;
    };
    const std::vector<NeededMember>& neededMembers() const;
    // Symbols of the functions and data that are defined so far, private ones not among them.
    std::vector<std::string> definedMembers() const;
    bool failed() const;
    // Counts of the registrations that are defined, those of earlier modules included.
    std::size_t registrationsDone() const;
    std::size_t furtherDone() const;
    // The module; null when some body had mistakes. The compiler is used up by it.
    std::unique_ptr<UnitModule> finish();

private:
    struct State;
    std::unique_ptr<State> state_;
};

// Whether the run-time library defines this function.
bool hasNativeSymbol(const std::string& symbol);

}  // namespace vesk::compiler
