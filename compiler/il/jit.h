// Runs modules in this process.
// Modules are compiled to machine code, whole, when one of their symbols is needed for the first time. The Jit keeps
// the debug information of what it compiled, from which a panic takes the names and lines of its trace.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "il/unit_module.h"

namespace vesk::compiler {

class Jit {
public:
    // How well machine code is made; modules are optimized before they come here.
    explicit Jit(OptimizationLevel level);
    ~Jit();
    Jit(const Jit&) = delete;
    Jit& operator=(const Jit&) = delete;

    // Throws std::runtime_error when a symbol is defined twice.
    void add(std::unique_ptr<UnitModule> module);
    // Machine code written by emitObject().
    void addObject(const std::string& name, const std::string& bytes);
    // Address of a symbol, compiling what it needs; throws std::runtime_error that names missing symbols.
    void* lookup(const std::string& symbol);
    // Calls `vesk_start` (see makeStartModule) on the program's own stack and returns its status. A panic ends the
    // process with 101.
    int run(const std::vector<std::string>& arguments);
    // Links objects that expect nothing but each other and the run-time library; the bytes stay in use. False: nothing
    // is linked, addObject() has to take them. Once, and before anything is added that uses them.
    bool link(const std::vector<std::string_view>& objects);
    // Lets those of the symbols that linked objects define stand for definitions in objects that are added later.
    void preferLinked(const std::vector<std::string>& symbols);
    // Calls a function without parameters and result on the program's own stack.
    void call(void* function);
    // The same, but a panic ends the call alone, once it is reported: false then.
    bool callRecoverably(void* function);

    // Runs a session on the program's stack: what it calls recoverably then runs on the same thread.
    static void runSession(const std::function<void()>& session);

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace vesk::compiler
