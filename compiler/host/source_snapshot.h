// One look at each source file for the time of a piece of work.
#pragma once

namespace vesk::compiler {

// While one lives on a thread, SourceManager::contents() answers there with the text that it first saw, without asking the
// system again; the outermost one decides. Files that compilers write are not meant: those may be another process's.
class ScopedSourceSnapshot {
public:
    ScopedSourceSnapshot();
    ~ScopedSourceSnapshot();
    ScopedSourceSnapshot(const ScopedSourceSnapshot&) = delete;
    ScopedSourceSnapshot& operator=(const ScopedSourceSnapshot&) = delete;
};

}  // namespace vesk::compiler
