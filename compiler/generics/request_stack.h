// The specializations that are being made on this thread, outermost first. It finds a body that asks for the very
// specialization it belongs to, bounds the depth at which the drivers call themselves through type inference, and puts
// one note per request under an error that comes out of a specialization.
#pragma once

#include "host/diagnostics.h"
#include "host/model_records.h"

namespace vesk::compiler {

// One request for as long as it lives. The constructor throws when the requests are nested too deeply.
class SpecializationRequest {
public:
    // `key` names the specialization: two requests with the same key are for the same one.
    SpecializationRequest(Str key, const TokenPtr& token);
    ~SpecializationRequest();
    SpecializationRequest(const SpecializationRequest&) = delete;
    SpecializationRequest& operator=(const SpecializationRequest&) = delete;

    // True when a specialization with this key is being made further out on this thread.
    static bool isUnderWay(const Str& key);

private:
    const Str key_;
};

}  // namespace vesk::compiler
