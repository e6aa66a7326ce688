// Folders held open, and the rule that tells whether somebody else can have put something into them.
//
// A folder or a file is *ours* when the effective user or root owns it and nobody else may write it. A folder that is
// reached by its path must be ours, and so must each folder on the way down from "/": whoever may write one of those can
// exchange what lies below. Folders on the way that everybody may write are allowed when they are sticky, as the temporary
// one is: what is ours in there nobody else can rename or remove. Links on the way are followed when they are ours; the
// whole way that they name is looked at as well.
//
// Nothing is looked at by one name and used by another: each step opens the next folder relative to the one that is held,
// and asks the system about the descriptor. What lies in a held folder is opened without following links.
//
// Names may be longer than the system's: files and folders whose name it would refuse have a shorter one there.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/file_identity.h"

struct stat;

namespace vesk::compiler {

// An open descriptor, closed at the end of its life.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    ~Descriptor() { reset(); }

    bool isOpen() const { return number_ >= 0; }
    int number() const { return number_; }
    int release();
    void reset();

private:
    int number_ = -1;
};

// Why something cannot be used.
struct FileProblem {
    enum class Kind {
        None,
        Absent,   // it is not there
        NotOurs,  // it is there, and somebody else may have made it
        System    // the system refuses
    };
    Kind kind = Kind::None;
    std::string path, reason;
    int number = 0;  // the system's, when that is why

    explicit operator bool() const { return kind != Kind::None; }
    std::string text() const { return path + ": " + reason; }
};

enum class IfAbsent { Fail, Make };

class HeldFolder {
public:
    // The folder of an absolute path without "." and "..". Those that are made are for the user alone (0700).
    static std::shared_ptr<const HeldFolder> ours(const std::string& path, IfAbsent ifAbsent, FileProblem& problem);
    // Whoever it belongs to: for files that the user names.
    static std::shared_ptr<const HeldFolder> ofAnybody(const std::string& path, IfAbsent ifAbsent,
                                                       FileProblem& problem);
    // One that lies in this one. It is made as far open to readers as this one is.
    std::shared_ptr<const HeldFolder> sub(const std::string& name, IfAbsent ifAbsent, FileProblem& problem) const;

    const std::string& path() const { return path_; }
    // For the system's calls that take a folder and a name.
    int descriptor() const { return folder_.number(); }
    // Whether this very folder lies at its path, and is as much ours as it was.
    bool isCurrent() const;

    // A regular file, opened for reading. It never waits, whatever lies there.
    struct File {
        Descriptor descriptor;
        FileIdentity identity;
    };
    std::optional<File> open(const std::string& name, FileProblem& problem) const;
    std::optional<FileIdentity> identityOf(const std::string& name, FileProblem& problem) const;
    // A file that is there to be locked; made when it is absent.
    Descriptor openLock(const std::string& name, FileProblem& problem) const;
    // Replaces or makes a file as a whole: a temporary file in the same folder, then a rename. The temporary file is locked
    // while it is written: the first time, those that killed processes have left, which nobody locks, are removed.
    bool replace(const std::string& name, std::string_view bytes, FileProblem& problem) const;

    // Removes temporary files that killed processes have left, which nobody locks; once in the life of this object.
    void removeAbandoned() const;

    // What lies in it, in order of name. Links are what they are, not what they lead to.
    struct Entry {
        enum class Kind { File, Folder, Other };
        std::string name;
        Kind kind = Kind::Other;
        std::uint64_t size = 0;
        std::string whyNotOurs;  // "" = it is ours
    };
    std::vector<Entry> entries() const;
    // The same without a look at each.
    std::vector<std::string> names() const;
    // When something was last made, removed or renamed in it.
    std::optional<std::filesystem::file_time_type> writeTime() const;
    // A file or an empty folder; a link is removed itself.
    bool remove(const Entry& entry, FileProblem& problem) const;

private:
    enum class Rule { Ours, Anybody };
    HeldFolder(Descriptor folder, std::string path, unsigned mode, Rule rule);
    std::string pathOf(const std::string& name) const;
    bool isUsable(const struct stat& about, const std::string& name, FileProblem& problem) const;
    Descriptor makeTemporary(std::string& name) const;
    void explainFailure(int error, const std::string& name, FileProblem& problem) const;
    friend class WayDown;

    Descriptor folder_;
    std::string path_;
    unsigned mode_;
    Rule rule_;
    std::uint64_t device_ = 0, inode_ = 0;
    mutable std::atomic<bool> isTidy_{false};
};

}  // namespace vesk::compiler
