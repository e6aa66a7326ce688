// Keeping and printing reports.
#include "generics/resolution_report.h"

#include <algorithm>
#include <iterator>

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

bool recordsResolutions() { return gReports != nullptr; }

ReportedResolution::ReportedResolution(const Str& owner, const Str& method, bool isStatic, const TokenPtr& token)
    : outer_(gReports) {
    if (!outer_) return;
    ResolutionReport& report = own_.emplace_back();
    report.owner = owner;
    report.method = method;
    report.isStatic = isStatic;
    report.token = token;
    recording_.emplace(own_);
    start_ = std::chrono::steady_clock::now();
}

ReportedResolution::~ReportedResolution() {
    if (!outer_) return;
    own_.front().nanoseconds =
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - start_).count();
    recording_.reset();
    std::move(own_.begin(), own_.end(), std::back_inserter(*outer_));
}

void ReportedResolution::fail(const Str& error) {
    if (outer_) own_.front().error = error;
}

ResolutionReport* ReportedResolution::current() {
    return gReports && !gReports->empty() ? &gReports->front() : nullptr;
}

SpecializationCounts& specializationCounts() {
    static SpecializationCounts counts{};
    return counts;
}

void countMethod(ResolutionOrigin origin) {
    SpecializationCounts& counts = specializationCounts();
    const auto counter = [&]() -> std::atomic<std::size_t>& {
        switch (origin) {
            case ResolutionOrigin::CurrentUnit:
            case ResolutionOrigin::NewBundle: return counts.methodsSpecialized;
            case ResolutionOrigin::Native: return counts.nativeMethods;
            case ResolutionOrigin::Unit: return counts.methodsFromUnits;
            case ResolutionOrigin::StoredBundle: return counts.methodsFromBundles;
            default: return counts.methodsFromCaches;
        }
    };
    counter().fetch_add(1, std::memory_order_relaxed);
}

GenericMethodInfo describableFunction(const GenericFunctionInfo& info) {
    GenericMethodInfo method;
    method.name = info.name;
    method.sourceFile = info.sourceFile;
    method.declarationLine = info.declarationLine;
    for (const GenericTypeParam& param : info.typeParams)
        method.typeParams.push_back({param.name, param.constraint, param.defaultType});
    method.paramCount = info.paramCount;
    method.paramNames = info.paramNames;
    method.paramTypes = info.paramTypes;
    method.returnType = info.returnType;
    method.isVariadic = info.isVariadic;
    method.variadicIndex = info.variadicIndex;
    method.isNamedVariadic = info.isNamedVariadic;
    method.namedVariadicIndex = info.namedVariadicIndex;
    return method;
}

Str describeResolutionOrigin(const ResolutionReport& report) {
    switch (report.origin) {
        case ResolutionOrigin::CurrentUnit: return "made in unit " + report.sourcePath;
        case ResolutionOrigin::NewBundle: return "made in bundle " + report.sourcePath;
        case ResolutionOrigin::Native: return "a native method of the run-time library";
        case ResolutionOrigin::Unit: return "in unit " + report.sourcePath + " already";
        case ResolutionOrigin::SessionCache: return "known from an earlier call of this compilation";
        case ResolutionOrigin::StoredBundle: return "found in bundle " + report.sourcePath;
    }
    return {};
}

Str formatResolutionReport(const ResolutionReport& report) {
    Str text = "call of ";
    if (!report.owner.empty()) text += structuredTypeText(report.owner) + ".";
    text += report.method + "(" + listOf(report.argumentTypes) + ")\n";
    for (const ResolutionReport::Candidate& candidate : report.candidates) {
        text += "  candidate " + describeGenericMethod(candidate.declaration) + " at " +
                candidate.declaration.sourceFile + ":" + std::to_string(candidate.declaration.declarationLine) + "\n";
        if (!candidate.droppedBecause.empty()) {
            text += "    dropped: " + candidate.droppedBecause + "\n";
            continue;
        }
        if (!candidate.isRanked) continue;
        text += "    as (" + listOf(candidate.paramTypes) + "), score " + std::to_string(candidate.score);
        if (candidate.isChosen)
            text += candidate.isTied ? ", chosen as the most specific" : ", chosen";
        else if (candidate.isTied)
            text += ", tied";
        for (std::size_t n = 0; n < candidate.betterAt.size(); n++)
            text += (n == 0 ? ", narrower for argument " : ", ") + std::to_string(candidate.betterAt[n] + 1);
        text += "\n";
    }
    for (const ResolutionReport::TypeArgument& argument : report.typeArguments) {
        text += "  " + argument.parameter + " = " + structuredTypeText(argument.type) + " (" + argument.origin + ")\n";
    }
    if (report.failed) {
        return text + "  no specialization" + (report.error.empty() ? "" : ": " + report.error) + "\n";
    }
    text += "  returns " + structuredTypeText(report.returnType) + "\n";
    text += "  symbol " + report.symbol + "\n";
    text += "  " + describeResolutionOrigin(report) + "\n";
    return text;
}

}  // namespace vesk::compiler
