// Reading, asking and writing indexes.
#include "generics/bundles/bundle_index.h"

#include "generics/bundles/stored_bytes.h"
#include "host/compiler_sources.h"

namespace vesk::compiler {

namespace {

constexpr std::string_view MAGIC = "veskbix1";
constexpr std::size_t HEAD_SIZE = 16;
// An index is written when so many bundles had to be read, and they are more than this part of all.
constexpr std::size_t FEWEST_ADDED = 32, LEAST_PART = 8;

std::optional<BundleIndex::Entry> takeEntry(StoredBytesReader& reader) {
    BundleIndex::Entry entry;
    entry.name = reader.text();
    entry.identity.device = reader.number();
    entry.identity.inode = reader.number();
    entry.identity.size = reader.number();
    entry.identity.modified = static_cast<std::int64_t>(reader.number());
    entry.identity.changed = static_cast<std::int64_t>(reader.number());
    entry.text = reader.text();
    return reader.isSound() ? std::optional(entry) : std::nullopt;
}

Str render(const BundleIndex::Entry& entry) {
    Str out;
    out.reserve(entry.name.size() + entry.text.size() + 64);
    putStoredText(out, entry.name);
    putStoredNumber(out, entry.identity.device);
    putStoredNumber(out, entry.identity.inode);
    putStoredNumber(out, entry.identity.size);
    putStoredNumber(out, static_cast<std::uint64_t>(entry.identity.modified));
    putStoredNumber(out, static_cast<std::uint64_t>(entry.identity.changed));
    putStoredText(out, entry.text);
    return out;
}

}  // namespace

BundleIndex::BundleIndex(const Str& folder, Str path)
    : path_(std::move(path)), openedAt_(currentNanoseconds()), folder_(folder) {
    if (!folder_.isThere()) return;
    read();
    advance();
}

void BundleIndex::read() {
    std::optional<Str> found = CacheFiles::read(path_);
    if (!found || found->size() < HEAD_SIZE) return;
    bytes_ = std::move(*found);
    const std::string_view bytes = bytes_, entries = bytes.substr(HEAD_SIZE);
    if (bytes.starts_with(MAGIC) && storedNumberAt(bytes, MAGIC.size()) == contentHash(entries)) rest_ = entries;
}

void BundleIndex::advance() {
    StoredBytesReader reader(rest_);
    next_ = takeEntry(reader);
    nextBytes_ = next_ ? rest_.substr(0, rest_.size() - reader.left()) : std::string_view();
    rest_.remove_prefix(next_ ? nextBytes_.size() : rest_.size());
}

std::optional<FileIdentity> BundleIndex::identityNow(const Str& name) const { return folder_.identityOf(name); }

const BundleIndex::Entry* BundleIndex::find(const Str& name) {
    while (next_ && next_->name < name) advance();
    if (!next_ || next_->name != name || identityNow(name) != next_->identity) return nullptr;
    current_.push_back(nextBytes_);
    return &*next_;
}

void BundleIndex::add(const Str& name, const FileIdentity& identity, std::string_view text) {
    if (!identity.isSettledAt(openedAt_) || identity.size != text.size()) return;
    added_.push_back(render({name, identity, text}));
    current_.push_back(added_.back());
}

void BundleIndex::keep() const {
    if (added_.size() < FEWEST_ADDED || added_.size() * LEAST_PART < current_.size()) return;
    if (Compiler::keepsGeneratedSourcesInMemory()) return;
    Str entries;
    for (const std::string_view entry : current_) entries += entry;
    Str bytes(MAGIC);
    putStoredNumber(bytes, contentHash(entries));
    bytes += entries;
    Str error;
    Compiler::replaceFile(path_, bytes, error);
}

}  // namespace vesk::compiler
