// `--print-specializations[=json]` and the counts of `--stats`: what a compilation has specialized, for whom, at what cost,
// and where each specialization came from.
#pragma once

#include <string>
#include <vector>

#include "driver/diagnostic_renderer.h"
#include "generics/resolution_report.h"
#include "semantics/compile_session.h"

namespace vesk::compiler {

struct SpecializationEntry {
    std::string name;  // "pick<Int>", "Box.map<String>"
    std::string symbol;
    std::string owner;  // structured; "" for functions
    std::string signature;
    std::string origin;      // "unit", "bundle", "new bundle", "native", "cache"
    std::string sourcePath;  // the unit or the bundle
    std::string requester;   // the specialization that asked first, "" for a plain function
    std::string requestFile;
    int requestLine = 0, requestColumn = 0;
    std::size_t requests = 0;
    long long nanoseconds = 0;  // of the first request, with what it asked for itself
};

// One entry for each symbol, in order of name and symbol.
std::vector<SpecializationEntry> specializationsOf(CompileSession& session,
                                                   const std::vector<ResolutionReport>& reports);
std::string specializationsAsText(const std::vector<SpecializationEntry>& entries, const DiagnosticRenderer& renderer);
// One JSON array.
std::string specializationsAsJson(const std::vector<SpecializationEntry>& entries, const DiagnosticRenderer& renderer);
// Lines "generic methods specialized: 3" for `--stats`.
std::string specializationCountLines();

}  // namespace vesk::compiler
