// Who asked for which specialization, from where: one chain for the bodies that the host checks and for those that the
// specializer works on. The notes under an error and the bounds of growth come from it.
#pragma once

#include <memory>

#include "host/model_records.h"

namespace vesk::compiler {

// What a driver is about to make.
struct RequestedSpecialization {
    Str displayName;  // "pick<Int>"
    Str declaration;  // tells one generic declaration from all others
    StrVec typeArgs;  // resolved; the class as instantiated among them
    TokenPtr token;   // the call that asks
};

// While it lives, what this thread asks for is asked for by this specialization, and what this thread registers is this
// specialization. Throws where the chain is longer than 200 requests, and where it grows without end.
class ScopedSpecialization {
public:
    ScopedSpecialization(RequestedSpecialization requested, const ContextPtr& scope);
    ~ScopedSpecialization();
    ScopedSpecialization(const ScopedSpecialization&) = delete;
    ScopedSpecialization& operator=(const ScopedSpecialization&) = delete;

    struct Frame;

private:
    std::unique_ptr<Frame> frame_;
};

// Length of a type's structured text when it is written out whole, without writing it.
std::size_t wholeTypeTextLength(const Str& type, const ContextPtr& scope);

}  // namespace vesk::compiler
