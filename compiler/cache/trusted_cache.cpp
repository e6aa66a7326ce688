// Finding the folders of the cache and working in them.
#include "cache/trusted_cache.h"

#include <algorithm>

namespace vesk::compiler {

namespace {

// Others may clear the cache meanwhile: then folders are made again.
constexpr int MOST_ATTEMPTS = 100;
constexpr std::size_t MOST_HELD = 64;
constexpr int DEEPEST = 100;

std::string folderOf(const std::string& path) { return path.substr(0, path.rfind('/')); }
std::string nameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

// Removes what lies in a folder, as far as it is ours.
class Removal {
public:
    Removal(FileProblem& problem) : problem_(problem) {}

    void remove(const HeldFolder& folder, const HeldFolder::Entry& entry, int depth) {
        if (entry.kind == HeldFolder::Entry::Kind::Folder && entry.whyNotOurs.empty()) empty(folder, entry, depth);
        FileProblem problem;
        if (!folder.remove(entry, problem)) return note(std::move(problem));
        if (entry.kind != HeldFolder::Entry::Kind::Folder) count_++;
    }
    std::size_t count() const { return count_; }

private:
    void empty(const HeldFolder& folder, const HeldFolder::Entry& entry, int depth) {
        FileProblem problem;
        const std::shared_ptr<const HeldFolder> inner =
            depth < DEEPEST ? folder.sub(entry.name, IfAbsent::Fail, problem) : nullptr;
        if (!inner) return note(std::move(problem));
        for (const HeldFolder::Entry& each : inner->entries()) remove(*inner, each, depth + 1);
    }
    // The first one tells why those above stay.
    void note(FileProblem problem) {
        if (!problem_ && problem && problem.kind != FileProblem::Kind::Absent) problem_ = std::move(problem);
    }

    FileProblem& problem_;
    std::size_t count_ = 0;
};

}  // namespace

TrustedCache::TrustedCache(std::string folder, Complaint complaint)
    : root_(std::move(folder)), complaint_(std::move(complaint)) {}

FileProblem TrustedCache::check() {
    FileProblem problem;
    find(root_, IfAbsent::Fail, problem);
    return problem.kind == FileProblem::Kind::NotOurs ? problem : FileProblem{};
}

bool TrustedCache::holds(std::string_view path) const {
    if (!path.starts_with(root_)) return false;
    path.remove_prefix(root_.size());
    for (const std::string_view part : {"/branches", "/apps"}) {
        if (path.starts_with(part) && (path.size() == part.size() || path[part.size()] == '/')) return true;
    }
    return false;
}

void TrustedCache::complainAbout(const FileProblem& problem) const {
    if (problem.kind == FileProblem::Kind::NotOurs && complaint_) complaint_(problem.text());
}

std::shared_ptr<const HeldFolder> TrustedCache::folder(const std::string& path, IfAbsent ifAbsent,
                                                       FileProblem& problem) {
    std::shared_ptr<const HeldFolder> found = find(path, ifAbsent, problem);
    if (!found) complainAbout(problem);
    return found;
}

std::shared_ptr<const HeldFolder> TrustedCache::find(const std::string& path, IfAbsent ifAbsent, FileProblem& problem) {
    {
        const std::lock_guard lock(mutex_);
        const auto known = held_.find(path);
        if (known != held_.end()) {
            if (known->second->isCurrent()) return known->second;
            held_.erase(known);
        }
    }
    std::shared_ptr<const HeldFolder> found;
    if (path.size() <= root_.size()) {
        found = HeldFolder::ours(root_, ifAbsent, problem);
    } else if (const auto parent = find(folderOf(path), ifAbsent, problem)) {
        found = parent->sub(nameOf(path), ifAbsent, problem);
    }
    if (!found) return nullptr;
    const std::lock_guard lock(mutex_);
    if (held_.size() >= MOST_HELD) held_.clear();
    held_.insert_or_assign(path, found);
    return found;
}

std::optional<HeldFolder::File> TrustedCache::open(const std::string& path) {
    FileProblem ignored;
    return open(path, ignored);
}

std::optional<HeldFolder::File> TrustedCache::open(const std::string& path, FileProblem& problem) {
    const std::shared_ptr<const HeldFolder> within = folder(folderOf(path), IfAbsent::Fail, problem);
    if (!within) return std::nullopt;
    std::optional<HeldFolder::File> file = within->open(nameOf(path), problem);
    complainAbout(problem);
    return file;
}

std::optional<FileIdentity> TrustedCache::identityOf(const std::string& path) {
    FileProblem problem;
    const std::shared_ptr<const HeldFolder> within = folder(folderOf(path), IfAbsent::Fail, problem);
    if (!within) return std::nullopt;
    const std::optional<FileIdentity> identity = within->identityOf(nameOf(path), problem);
    complainAbout(problem);
    return identity;
}

bool TrustedCache::replace(const std::string& path, std::string_view bytes, FileProblem& problem) {
    for (int attempt = 0; attempt < MOST_ATTEMPTS; attempt++) {
        problem = {};
        const std::shared_ptr<const HeldFolder> within = folder(folderOf(path), IfAbsent::Make, problem);
        if (within && within->replace(nameOf(path), bytes, problem)) return true;
        if (problem.kind != FileProblem::Kind::Absent) return false;
    }
    return false;
}

Descriptor TrustedCache::openLock(const std::string& path, FileProblem& problem) {
    Descriptor lock;
    for (int attempt = 0; attempt < MOST_ATTEMPTS && !lock.isOpen(); attempt++) {
        problem = {};
        const std::shared_ptr<const HeldFolder> within = folder(folderOf(path), IfAbsent::Make, problem);
        if (within) lock = within->openLock(nameOf(path), problem);
        if (problem && problem.kind != FileProblem::Kind::Absent) break;
    }
    complainAbout(problem);
    return lock;
}

void TrustedCache::removeAbandoned() {
    const std::lock_guard lock(mutex_);
    for (const auto& [path, folder] : held_) folder->removeAbandoned();
}

std::size_t TrustedCache::remove(const std::string& path, FileProblem& problem) {
    const std::shared_ptr<const HeldFolder> within = find(folderOf(path), IfAbsent::Fail, problem);
    if (!within) {
        if (problem.kind == FileProblem::Kind::Absent) problem = {};
        return 0;
    }
    Removal removal(problem);
    const std::vector<HeldFolder::Entry> entries = within->entries();
    const std::string name = nameOf(path);
    const auto entry =
        std::find_if(entries.begin(), entries.end(), [&](const auto& each) { return each.name == name; });
    if (entry != entries.end()) removal.remove(*within, *entry, 0);
    return removal.count();
}

}  // namespace vesk::compiler
