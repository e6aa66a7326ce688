// Reads source files, once each, for all threads.
#pragma once

#include <filesystem>

#include "host/model_records.h"

namespace vesk::compiler {

// The system has no memory for a question: the same as an allocation that fails.
[[noreturn]] void endForLackOfMemory();

// Why a text cannot be read.
struct UnreadReason {
    int number = 0;  // the system's; 0: it has been read
    Str text;        // in the system's words
    // Nothing lies there: no file, or no folder that could hold one.
    bool isMissing() const;
};

class SourceManager {
public:
    static SourceManager& instance();

    // The file's current text, null when it cannot be read. Fresh after any write, by any process; the
    // text itself is shared.
    static std::shared_ptr<const Str> contents(const Str& path);
    // The same, with the time when the file was last written; `time` is left alone for texts that lie in no file.
    static std::shared_ptr<const Str> contents(const Str& path, std::filesystem::file_time_type& time);
    // The same; when the answer is null, `reason` says why.
    static std::shared_ptr<const Str> contents(const Str& path, UnreadReason& reason);
    static FileStatus status(const Str& path);
    // False when the time is unknown; `time` is then left alone.
    static bool lastWriteTime(const Str& path, std::filesystem::file_time_type& time);

    // The absolute spelling of a path without "." and "..", used in every key. Idempotent; works for files
    // that do not exist; the empty path stays empty.
    static Str normalizePath(const Str& path);
    static Str normalizePath(const std::filesystem::path& path);
    static Str normalizePath(const char* path);
};

}  // namespace vesk::compiler
