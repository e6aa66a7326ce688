// Source text for the specializer: whole texts, and lines kept per thread.
// Texts that the compiler holds in memory come before files on disk. Key of the line cache: the normalized path. An entry
// is read once and then answers for the rest of the thread's life, a missing file as one without lines; references to it
// stay valid as long.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

struct SourceTextCacheEntry {
    StrVec lines;  // without line feeds
    bool loaded = false;
};

// False, with `out` left alone, when there is no such source.
bool readSourceText(const Str& path, Str& out);
const StrVec& readSourceLinesCached(const Str& path);
// The text as it is now, null when there is none.
std::shared_ptr<const Str> sourceTextSnapshot(const Str& path);
// True when both files exist and the first was written strictly later.
bool physicalSourceIsNewer(const Str& path, const Str& than);
// Pieces of a text between line feeds; no empty last piece.
StrVec splitSourceLines(std::string_view text);

}  // namespace vesk::compiler
