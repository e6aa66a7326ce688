// Folders and locks of the cache, for those who write bundles; texts come from SourceManager and go through Compiler.
// Below the cache folder nothing is used that somebody else can have put there: it is as good as absent.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "host/file_identity.h"
#include "host/model_records.h"

namespace vesk::compiler {

class HeldFolder;

// One folder, held open: what is asked of it afterwards is asked of the same.
class CacheFolder {
public:
    explicit CacheFolder(const Str& path);

    bool isThere() const { return folder_ != nullptr; }
    // What lies in it, in order.
    StrVec names() const;
    // When something was last made, removed or renamed in it.
    std::optional<std::filesystem::file_time_type> writeTime() const;
    // Nothing for what is no regular file.
    std::optional<FileIdentity> identityOf(const Str& name) const;

private:
    std::shared_ptr<const HeldFolder> folder_;
};

struct CacheFiles {
    // The bytes of a file as they are now; nothing when it cannot be read.
    static std::optional<Str> read(const Str& path);
    // Opens a file that is there to be locked; it and its folder are made when they are missing. The descriptor is the
    // caller's. -1, with the reason, on failure; `isOfFolder` tells that already the folder could not be had.
    struct LockFailure {
        Str reason;
        bool isOfFolder = false;
    };
    static int openLock(const Str& path, LockFailure& failure);
};

}  // namespace vesk::compiler
