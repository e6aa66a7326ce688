// How calls of generic functions and methods were resolved, for people who ask. Recording is off unless a
// ScopedResolutionRecording lives on the thread; then every call that reaches a driver leaves one report, and costs are
// measured. Counts are kept always.
#pragma once

#include <atomic>
#include <chrono>
#include <optional>

#include "host/model_records.h"

namespace vesk::compiler {

enum class ResolutionOrigin {
    CurrentUnit,   // emitted into the unit under way by this call
    NewBundle,     // added to a bundle by this call
    Native,        // a forwarder to the run-time library
    Unit,          // the unit under way had it already
    SessionCache,  // found in this thread's caches
    StoredBundle,  // found in a bundle that was there before
};

struct ResolutionReport {
    struct Candidate {
        GenericMethodInfo declaration;
        Str droppedBecause;  // "" for candidates that accept the call
        int score = 0;
        StrVec typeArgs, paramTypes;
        bool isTied = false, isChosen = false;
        bool isRanked = true;                    // false: an error ended the call before it came to ranking
        std::vector<std::size_t> betterAt = {};  // argument positions at which it is narrower than one it ties with
    };
    struct TypeArgument {
        Str parameter, type;
        Str origin;  // "written at the call", "argument for parameter 'x'", "its default"
    };
    Str owner, method;  // no owner: a function
    bool isStatic = false;
    TokenPtr token;
    StrVec argumentTypes;
    std::vector<Candidate> candidates;
    std::vector<TypeArgument> typeArguments;
    Str symbol, returnType;
    ResolutionOrigin origin = ResolutionOrigin::SessionCache;
    Str sourcePath;  // the unit or the bundle, "" for native methods
    long long nanoseconds = 0;
    bool failed = true;
    Str error;  // why it failed
};

// Collects the reports of this thread's calls, in order of their end, for its own lifetime; scopes nest, the inner one
// gets the reports.
class ScopedResolutionRecording {
public:
    explicit ScopedResolutionRecording(std::vector<ResolutionReport>& reports);
    ~ScopedResolutionRecording();
    ScopedResolutionRecording(const ScopedResolutionRecording&) = delete;
    ScopedResolutionRecording& operator=(const ScopedResolutionRecording&) = delete;

    // Null while nothing is recorded.
    static std::vector<ResolutionReport>* current();

private:
    std::vector<ResolutionReport>* previous_;
};

// One call's report while it is made. Bodies re-enter the drivers and record calls of their own: this call works on a list
// of its own until it ends. Does nothing where nobody records.
class ReportedResolution {
public:
    ReportedResolution(const Str& owner, const Str& method, bool isStatic, const TokenPtr& token);
    ~ReportedResolution();
    ReportedResolution(const ReportedResolution&) = delete;
    ReportedResolution& operator=(const ReportedResolution&) = delete;

    void fail(const Str& error);
    // The report of the call under way on this thread, null while nothing is recorded.
    static ResolutionReport* current();

private:
    std::vector<ResolutionReport>* outer_;
    std::vector<ResolutionReport> own_;
    std::optional<ScopedResolutionRecording> recording_;
    std::chrono::steady_clock::time_point start_;
};

// The calls that this process has resolved, by what answered them.
struct SpecializationCounts {
    std::atomic<std::size_t> methodsSpecialized, methodsFromBundles, methodsFromUnits, methodsFromCaches, nativeMethods;
    std::atomic<std::size_t> functionsSpecialized, functionsFound;
};
SpecializationCounts& specializationCounts();
void countMethod(ResolutionOrigin origin);

// A function's declaration in the form that reports and diagnostics describe.
GenericMethodInfo describableFunction(const GenericFunctionInfo& info);

// "the unit", "bundle /path", ... as a report prints it.
Str describeResolutionOrigin(const ResolutionReport& report);
// The whole report as text, one fact a line.
Str formatResolutionReport(const ResolutionReport& report);

}  // namespace vesk::compiler
