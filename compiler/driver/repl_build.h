// Compiles the chunks of an interactive session, links them to what stands already, and runs them.
// One JIT lives as long as the session. A chunk's unit refers to the code of earlier chunks, of the library and of
// packages by symbol; units that it needs for the first time are compiled with it, and of units that stand already only
// the specializations that have come since.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "driver/time_trace.h"
#include "il/jit.h"
#include "il/unit_compiler.h"
#include "semantics/interactive_session.h"

namespace vesk::compiler {

class ChunkBuild {
public:
    ChunkBuild(CompileSession& session, TimeTrace& trace, OptimizationLevel level);
    ~ChunkBuild();
    ChunkBuild(const ChunkBuild&) = delete;
    ChunkBuild& operator=(const ChunkBuild&) = delete;

    // Mistaken: the session's diagnostics say why. Panicked: the program has told it. Neither leaves any names behind, nor
    // does an interruption: Interrupted is thrown while the chunk is compiled, and a panic when it runs.
    enum class Outcome { Done, Mistaken, Panicked };
    // Compiles and runs a text as the next chunk. `folder` stands before the chunk's name, "" = the working folder.
    Outcome enter(const std::string& text, const std::string& folder);
    // The type of an expression, which is not evaluated; null when it has mistakes.
    const Type* typeOf(const std::string& expression);
    std::size_t chunkCount() const { return chunks_; }

    struct Specialization {
        std::string text;                // "pick<Int>(Int, Int) -> Int"
        std::string chunk;               // that asked for it
        std::vector<std::string> again;  // chunks that found it there
    };
    const std::vector<Specialization>& specializations() const { return specializations_; }

private:
    struct Counts {
        std::size_t registrations = 0, further = 0;
    };
    struct Round;
    struct RoundUnit;

    InteractiveChunk declare(const std::string& text, const std::string& folder);
    bool compile(Round& round);
    RoundUnit& open(Round& round, const std::string& path, UnitRequest request);
    void takeNews(Round& round);
    bool openNeededOf(Round& round, const std::string& path);
    bool openNeeded(Round& round, const std::string& path);
    bool openGrown(Round& round);
    bool openBundlesOf(Round& round, const std::string& unit);
    bool registerBundle(Round& round, const std::string& path);
    std::vector<std::string> wantedSymbols(const std::string& bundle) const;
    // What is called for a chunk, in this order; `unit` is the one that the function initializes.
    struct Start {
        std::string unit, symbol;
    };
    std::vector<Start> link(Round& round);
    std::vector<Start> initializersFor(const Round& round) const;
    bool run(const std::vector<Start>& starts);
    void takeBack(const InteractiveChunk& chunk);
    void recordSpecializations(const Round& round);

    CompileSession& session_;
    TimeTrace& trace_;
    OptimizationLevel level_;
    Jit jit_;
    std::size_t chunks_ = 0;
    std::unordered_map<std::string, Counts> linked_;                 // by unit
    std::map<std::string, std::vector<std::string>> bundleSymbols_;  // registered so far, by bundle
    std::map<std::string, std::string> bundleUnits_;                 // names that bundles are registered under
    std::unordered_set<std::string> provided_;                       // symbols of linked modules
    std::map<std::string, std::set<std::string>> neededFiles_;       // by linked unit
    std::map<std::string, std::string> initializers_;  // of linked units, until they have come to their end
    std::vector<Specialization> specializations_;
    std::unordered_map<std::string, std::size_t> specializationPlaces_;  // by symbol
};

}  // namespace vesk::compiler
