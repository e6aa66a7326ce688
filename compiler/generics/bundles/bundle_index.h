// The texts of an owner's bundles side by side in one file, so that a process that looks through many of them opens one.
//
// An index is a copy and never believed on its own: a text counts only while the system says of the bundle's file what it
// said when the text was read (device, inode, size, times of change in nanoseconds). A bundle that somebody has changed,
// touched, replaced or removed is not found here, and neither is one so new that a further change might not show in its
// times. Whoever had to read many bundles one by one writes the index anew, as a whole. The file is
//
//     8 bytes   "veskbix1"; the digit counts up when the form changes
//     8 bytes   hash of everything behind it
//     ...       for each bundle, in order of name: its file's name, the five numbers, its text
//
// One that was cut off or changed is as good as none. Bundles hold everything that counts: indexes may be deleted at any
// time.
#pragma once

#include <deque>
#include <string_view>

#include "host/cache_files.h"
#include "host/file_identity.h"
#include "host/model_records.h"

namespace vesk::compiler {

class BundleIndex {
public:
    // Of bundles in `folder`; `path` is the index's own.
    BundleIndex(const Str& folder, Str path);
    BundleIndex(const BundleIndex&) = delete;
    BundleIndex& operator=(const BundleIndex&) = delete;

    struct Entry {
        std::string_view name;
        FileIdentity identity;
        std::string_view text;  // lies in the index
    };
    // The bundle as it is now; null where the index does not have that. Names are asked for in ascending order.
    const Entry* find(const Str& name);
    // To be asked before a bundle that was not found is read, for adding it.
    std::optional<FileIdentity> identityNow(const Str& name) const;
    // One that is too new is left out.
    void add(const Str& name, const FileIdentity& identity, std::string_view text);
    // Writes the index when enough was added. Trouble with that is none: the next process reads bundles one by one again.
    void keep() const;

private:
    void read();
    void advance();

    const Str path_;
    const std::int64_t openedAt_;
    const CacheFolder folder_;
    Str bytes_;
    std::string_view rest_;                  // of the bytes, behind `next_`
    std::optional<Entry> next_;              // the first one whose name is not less than those asked for
    std::string_view nextBytes_;             // the same as it stands there
    std::vector<std::string_view> current_;  // what the index is to consist of
    std::deque<Str> added_;                  // what of it is new
};

}  // namespace vesk::compiler
