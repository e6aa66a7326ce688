// Keeping and printing reports.
#include "generics/resolution_report.h"

#include "generics/generic_specializer.h"
#include "generics/method_diagnostics.h"
#include "generics/typetext/type_text.h"

namespace vesk::compiler {

namespace {

thread_local std::vector<ResolutionReport>* gReports = nullptr;

Str listOf(const StrVec& types) {
    Str text;
    for (const Str& type : types) {
        if (!text.empty()) text += ", ";
        text += type.empty() ? "?" : structuredTypeText(type);
    }
    return text;
}

}  // namespace

ScopedResolutionRecording::ScopedResolutionRecording(std::vector<ResolutionReport>& reports) : previous_(gReports) {
    gReports = &reports;
}

ScopedResolutionRecording::~ScopedResolutionRecording() { gReports = previous_; }

std::vector<ResolutionReport>* ScopedResolutionRecording::current() { return gReports; }

Str describeResolutionOrigin(const ResolutionReport& report) {
    switch (report.origin) {
        case ResolutionOrigin::CurrentUnit: return "made in unit " + report.sourcePath;
        case ResolutionOrigin::NewBundle: return "made in bundle " + report.sourcePath;
        case ResolutionOrigin::Native: return "a native method of the run-time library";
        case ResolutionOrigin::SessionCache: return "known from an earlier call of this compilation";
        case ResolutionOrigin::StoredBundle: return "found in bundle " + report.sourcePath;
    }
    return {};
}

Str formatResolutionReport(const ResolutionReport& report) {
    Str text = "call of " + structuredTypeText(report.owner) + "." + report.method + "(" +
               listOf(report.argumentTypes) + ")\n";
    for (const ResolutionReport::Candidate& candidate : report.candidates) {
        text += "  candidate " + describeGenericMethod(candidate.declaration) + " at " +
                candidate.declaration.sourceFile + ":" + std::to_string(candidate.declaration.declarationLine) + "\n";
        if (!candidate.droppedBecause.empty()) {
            text += "    dropped: " + candidate.droppedBecause + "\n";
            continue;
        }
        text += "    as (" + listOf(candidate.paramTypes) + "), score " + std::to_string(candidate.score);
        text += candidate.isChosen ? candidate.isTied ? ", chosen as the most specific\n" : ", chosen\n"
                : candidate.isTied ? ", tied\n"
                                   : "\n";
    }
    for (const ResolutionReport::TypeArgument& argument : report.typeArguments) {
        text += "  " + argument.parameter + " = " + structuredTypeText(argument.type) + " (" + argument.origin + ")\n";
    }
    if (report.failed) return text + "  no specialization\n";
    text += "  returns " + structuredTypeText(report.returnType) + "\n";
    text += "  symbol " + report.symbol + "\n";
    text += "  " + describeResolutionOrigin(report) + "\n";
    return text;
}

}  // namespace vesk::compiler
