// What the user asked for: the words of the command line as one record.
// parseCommandLine() is the only place that knows how they are spelled.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "driver/explain.h"
#include "semantics/compile_session.h"

namespace vesk::compiler {

enum class Command { Run, Build, Check, Emit, Explain, Repl, Cache };
enum class EmitKind { IL, Assembly, Object, Tokens, Tree };
enum class ColorMode { Auto, Always, Never };
enum class DiagnosticForm { Text, Json };
enum class SpecializationList { None, Text, Json };

struct CommandLine {
    Command command = Command::Run;
    std::vector<std::string> inputs;            // files and folders as written
    std::vector<std::string> programArguments;  // what follows `--`
    std::string output;                         // -o, "" = none
    EmitKind emit = EmitKind::IL;
    std::string cacheVerb;  // of `cache`
    SourcePlace place;      // of `explain`

    std::vector<std::string> sourcePaths;
    std::string cacheDirectory;
    CacheMode cache = CacheMode::On;
    unsigned jobs = 1;
    int optimization = 0;
    bool writeDependencies = false;
    std::string dependencyFile;
    ColorMode color = ColorMode::Auto;
    DiagnosticForm diagnostics = DiagnosticForm::Text;
    bool allNotes = false;  // also those of the middle of a long chain of requests
    std::string timeTrace;
    bool stats = false;
    SpecializationList specializations = SpecializationList::None;
};

// A parsed command, or the text to print and the status to end with: help and version (0), wrong use (2).
struct CommandLineResult {
    std::optional<CommandLine> command;
    std::string text;
    int status = 0;
};

CommandLineResult parseCommandLine(const std::vector<std::string>& words);

}  // namespace vesk::compiler
