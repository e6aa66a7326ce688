// How calls of generic methods were resolved, for people who ask. Recording is off unless a ScopedResolutionRecording lives
// on the thread; then every call that reaches the driver leaves one report, and costs are measured.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

enum class ResolutionOrigin {
    CurrentUnit,   // emitted into the unit under way by this call
    NewBundle,     // added to a bundle by this call
    Native,        // a forwarder to the run-time library
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
    };
    struct TypeArgument {
        Str parameter, type;
        Str origin;  // "given", "argument 2", "default of the parameter"
    };
    Str owner, method;
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

// "the unit", "bundle /path", ... as a report prints it.
Str describeResolutionOrigin(const ResolutionReport& report);
// The whole report as text, one fact a line.
Str formatResolutionReport(const ResolutionReport& report);

}  // namespace vesk::compiler
