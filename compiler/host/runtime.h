// Where generated sources and the cache lie.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

class Runtime {
public:
    static Runtime& getInstance();

    // Shared bundles of the active cache branch.
    static Str getGenericsPath();
    // The application's own bundles.
    static Str getAppGenericsPath();
    // The active cache branch; its lock files lie in a folder beside it.
    static Str getCacheBranchPath();
};

}  // namespace vesk::compiler
