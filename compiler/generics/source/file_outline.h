// What a thread knows of a source file beside its lines: where its functions begin, and its header. Built once per thread
// and file from the line cache, and as long-lived as that.
#pragma once

#include <string_view>

#include "generics/source/declaration_blocks.h"

namespace vesk::compiler {

struct FileOutline {
    const StrVec* lines = nullptr;
    // The first header line of each function name, found as isFunctionHeaderForName would find it.
    std::unordered_map<std::string_view, int> functionHeaders;
    SourceModuleHeader header;
    // Tokens of the prelude where it says more than `header` (package lines below a block comment), else none.
    TokenVec preludeTokens;
    // False where the prelude's lines end inside of something: then no declaration can be put behind them.
    bool isPreludeWhole = true;

    // Index of the first header line for a name, -1 when there is none.
    int functionHeader(const Str& name) const;
};

const FileOutline& fileOutline(const Str& path);

}  // namespace vesk::compiler
