// Sources that the compiler itself holds or writes: virtual files and generated files.
#pragma once

#include "host/model_records.h"

namespace vesk::compiler {

struct Compiler {
    // True, and the text, when a source is held in memory under that path.
    static bool tryGetVirtualSource(const Str& path, Str& out);
    // The same text shared, null when there is none.
    static std::shared_ptr<const Str> virtualSourceContents(const Str& path);
    // Whether generated sources stay in this process: then nothing is written, and no other process can be in the way.
    static bool keepsGeneratedSourcesInMemory();
    // Keeps a generated text in memory; false when generated sources go to disk, and then nothing happens.
    static bool storeGeneratedSourceInMemory(const Str& path, const Str& text);
    // Tells the host of trouble with the disk cache. True: it goes on in memory, and so shall the caller.
    static bool goesOnAfterCacheTrouble(const Str& what);
    // Replaces a generated source as replaceFile() does. When that fails and the host goes on in memory, the text is
    // kept there and the answer is true.
    static bool writeGeneratedSourceAtomically(const Str& path, const Str& text, Str& error);
    // Replaces a file as a whole (temporary file in the same folder, then rename). False, and a message, on failure.
    static bool replaceFile(const Str& path, const Str& bytes, Str& error);
};

}  // namespace vesk::compiler
