// The code generation that is under way on this thread.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

class ILGenContext {
public:
    // Throws std::logic_error when no code is being generated on this thread.
    static ILGenContext& get();
    // Null when there is none.
    static ILGenContext* current();

    // Name of the module that is being generated.
    Str unitName;
};

// Makes a context current for its own lifetime; scopes nest.
class ScopedILGenContext {
public:
    explicit ScopedILGenContext(const Str& unitName);
    ~ScopedILGenContext();
    ScopedILGenContext(const ScopedILGenContext&) = delete;
    ScopedILGenContext& operator=(const ScopedILGenContext&) = delete;

private:
    ILGenContext context_;
    ILGenContext* previous_;
};

}  // namespace vesk::compiler
