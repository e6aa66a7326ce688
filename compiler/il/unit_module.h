// One LLVM module, seen from outside: made by UnitCompiler or read back from text, then printed, written as machine
// code or handed to the Jit. Nothing of LLVM shows here, so that only this folder depends on it.
#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace vesk::compiler {

enum class OptimizationLevel : int { O0 = 0, O1, O2, O3 };

class UnitModule {
public:
    struct State;
    explicit UnitModule(std::unique_ptr<State> state);
    ~UnitModule();
    UnitModule(const UnitModule&) = delete;
    UnitModule& operator=(const UnitModule&) = delete;

    const std::string& name() const;
    // Of the function that initializes the unit's static fields, "" when there is none.
    const std::string& initializerSymbol() const;
    State& state() { return *state_; }
    const State& state() const { return *state_; }

private:
    std::unique_ptr<State> state_;
};

// The whole module as IL text.
void printIL(const UnitModule& module, std::ostream& out);
std::string printIL(const UnitModule& module);
// Reads IL text back; throws std::runtime_error with the place and the reason when it is not a module.
std::unique_ptr<UnitModule> parseIL(const std::string& text, const std::string& name);
// Empty when the module is well formed, else what is wrong with it (an error of this compiler).
std::string verifyModule(const UnitModule& module);
// Runs the optimizer's pipeline of that level (nothing at O0).
void optimizeModule(UnitModule& module, OptimizationLevel level);
// Symbols of functions and data that the module defines for others, or expects from them; sorted.
std::vector<std::string> definedSymbols(const UnitModule& module);
std::vector<std::string> declaredSymbols(const UnitModule& module);
void dropDebugLines(UnitModule& module);
// Keeps mergeable functions in the module although nothing in it uses them.
void keepFunctions(UnitModule& module, const std::vector<std::string>& symbols);
// Keeps everything that can be merged with other modules' definitions, whoever uses it.
void keepDefinitions(UnitModule& module);
// Lets several modules define the same functions: all become mergeable.
void makeLinkOnce(UnitModule& module);
// Machine code of the module for the machine this runs on. Optimize first.
std::string emitObject(UnitModule& module, OptimizationLevel level);
std::string emitAssembly(UnitModule& module, OptimizationLevel level);

// A module with the one function `vesk_start`, () -> Int: runs the initializers in the order given, then main.
// `mainSymbol` belongs to a function without parameters or, with `passArguments`, with one parameter of type
// List<String>, which its unit makes; it returns Int or, with `returnsVoid`, nothing.
struct ProgramStart {
    std::vector<std::string> initializers;
    std::string mainSymbol;
    bool returnsVoid = true;
    bool passArguments = false;
};
std::unique_ptr<UnitModule> makeStartModule(const ProgramStart& start);

}  // namespace vesk::compiler
