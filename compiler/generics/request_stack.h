// The specializations that are being made on this thread, outermost first. It finds a body that asks for the very
// specialization it belongs to. Each is a link of the chain of requests, which the host keeps for the bodies that it
// checks as well (host/requested_specialization.h): its bounds and its notes are the same in both.
#pragma once

#include "host/diagnostics.h"
#include "host/model_records.h"
#include "host/requested_specialization.h"

namespace vesk::compiler {

// One request for as long as it lives. The constructor throws where the chain has become too long or grows without end.
class SpecializationRequest {
public:
    // `key` names the specialization: two requests with the same key are for the same one.
    SpecializationRequest(Str key, RequestedSpecialization requested, const ContextPtr& context);
    ~SpecializationRequest();
    SpecializationRequest(const SpecializationRequest&) = delete;
    SpecializationRequest& operator=(const SpecializationRequest&) = delete;

    // True when a specialization with this key is being made further out on this thread.
    static bool isUnderWay(const Str& key);

private:
    const ScopedSpecialization link_;
    const Str key_;
};

// Tells one generic declaration from all others, in chains.
Str genericDeclarationKey(const Str& sourceFile, int declarationLine, const Str& name);

}  // namespace vesk::compiler
