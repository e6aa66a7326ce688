// The code generation under way on each thread.
#include "host/il_gen_context.h"

#include <stdexcept>

namespace vesk::compiler {

namespace {
thread_local ILGenContext* gCurrentContext = nullptr;
}

ILGenContext& ILGenContext::get() {
    if (!gCurrentContext) throw std::logic_error("no code is being generated on this thread");
    return *gCurrentContext;
}

ILGenContext* ILGenContext::current() { return gCurrentContext; }

ScopedILGenContext::ScopedILGenContext(const Str& unitName) : context_{unitName}, previous_(gCurrentContext) {
    gCurrentContext = &context_;
}

ScopedILGenContext::~ScopedILGenContext() { gCurrentContext = previous_; }

}  // namespace vesk::compiler
