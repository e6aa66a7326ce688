// The cache folder of one session. Every access to a file of the cache goes through here.
//
// What compilers leave to each other lies below <cache>/branches and <cache>/apps; it is machine code, or decides what code
// is made. So a file is read only when the whole way to it is ours (held_folder.h says what that is), and anything else is
// as good as absent: the session is told once, and goes on without writing. Folders are held open after the first look, and
// looked at again at each use: one that was removed, exchanged or opened to others meanwhile is not used any more.
#pragma once

#include <functional>
#include <mutex>
#include <unordered_map>

#include "cache/held_folder.h"

namespace vesk::compiler {

class TrustedCache {
public:
    // Called with each thing that is not ours.
    using Complaint = std::function<void(const std::string& what)>;
    // `folder` is absolute, without "." and "..".
    TrustedCache(std::string folder, Complaint complaint);

    const std::string& path() const { return root_; }
    // What is wrong with the folder and the way to it: nothing, also while it is not there yet.
    FileProblem check();
    // Whether a path is one of a file or folder of the cache.
    bool holds(std::string_view path) const;

    // All take paths that the cache holds. One that is not ours is complained about and as good as absent.
    std::shared_ptr<const HeldFolder> folder(const std::string& path, IfAbsent ifAbsent, FileProblem& problem);
    std::optional<HeldFolder::File> open(const std::string& path);
    std::optional<HeldFolder::File> open(const std::string& path, FileProblem& problem);
    std::optional<FileIdentity> identityOf(const std::string& path);
    // Folders that are missing are made; again when somebody removes them meanwhile.
    bool replace(const std::string& path, std::string_view bytes, FileProblem& problem);
    Descriptor openLock(const std::string& path, FileProblem& problem);
    // Removes what killed processes have left in the folders that have been looked at.
    void removeAbandoned();
    // A file, or a folder with what lies in it. What is not ours stays, and so do the folders above; links are removed and
    // not followed. The number of files that are gone.
    std::size_t remove(const std::string& path, FileProblem& problem);

private:
    std::shared_ptr<const HeldFolder> find(const std::string& path, IfAbsent ifAbsent, FileProblem& problem);
    void complainAbout(const FileProblem& problem) const;

    const std::string root_;
    const Complaint complaint_;
    std::mutex mutex_;
    std::unordered_map<std::string, std::shared_ptr<const HeldFolder>> held_;
};

}  // namespace vesk::compiler
