// Writing and reading stored units.
#include "driver/stored_unit.h"

#include <algorithm>
#include <cstring>

namespace vesk::compiler {
namespace {

constexpr std::string_view MAGIC = "veskobj1";
constexpr std::size_t TRAILER_SIZE = 24;

void putNumber(std::string& out, std::uint64_t number) {
    char bytes[8];
    std::memcpy(bytes, &number, sizeof bytes);
    out.append(bytes, sizeof bytes);
}

std::uint64_t numberAt(std::string_view bytes, std::size_t at) {
    std::uint64_t number = 0;
    std::memcpy(&number, bytes.data() + at, sizeof number);
    return number;
}

void putText(std::string& out, std::string_view text) {
    putNumber(out, text.size());
    out += text;
}

void putTexts(std::string& out, const std::vector<std::string>& texts) {
    putNumber(out, texts.size());
    for (const std::string& text : texts) putText(out, text);
}

// Takes a description apart. After the first thing that does not fit everything is empty and isSound() false.
class Reader {
public:
    explicit Reader(std::string_view bytes) : rest_(bytes) {}

    std::uint64_t number() {
        if (rest_.size() < 8) return fail();
        const std::uint64_t number = numberAt(rest_, 0);
        rest_.remove_prefix(8);
        return number;
    }
    std::string text() {
        const std::uint64_t size = number();
        if (size > rest_.size()) {
            fail();
            return {};
        }
        std::string text(rest_.substr(0, size));
        rest_.remove_prefix(size);
        return text;
    }
    std::vector<std::string> texts() {
        std::vector<std::string> all;
        for (std::uint64_t left = count(); left > 0 && isSound_; left--) all.push_back(text());
        return all;
    }
    // Of a list: each element takes eight bytes or more.
    std::uint64_t count() {
        const std::uint64_t count = number();
        return count > rest_.size() / 8 ? fail() : count;
    }
    bool isSound() const { return isSound_; }
    bool isAtEnd() const { return isSound_ && rest_.empty(); }

private:
    std::uint64_t fail() {
        isSound_ = false;
        rest_ = {};
        return 0;
    }

    std::string_view rest_;
    bool isSound_ = true;
};

}  // namespace

bool StoredUnit::definesAll(const std::vector<std::string>& symbols) const {
    return std::all_of(symbols.begin(), symbols.end(), [&](const std::string& symbol) {
        return std::binary_search(defines.begin(), defines.end(), symbol);
    });
}

// Eight bytes at a step; the multiplications carry every bit upwards, the shifts bring it down again.
std::uint64_t contentHash(std::string_view bytes) {
    constexpr std::uint64_t FIRST = 0x9E3779B97F4A7C15U, SECOND = 0xC2B2AE3D27D4EB4FU;
    std::uint64_t hash = FIRST ^ (bytes.size() * SECOND);
    const auto mix = [&](std::uint64_t word) {
        hash = (hash ^ (word * SECOND)) * FIRST;
        hash ^= hash >> 29;
    };
    std::size_t at = 0;
    for (; at + 8 <= bytes.size(); at += 8) mix(numberAt(bytes, at));
    std::uint64_t last = 0;
    if (at < bytes.size()) std::memcpy(&last, bytes.data() + at, bytes.size() - at);
    mix(last);
    hash ^= hash >> 32;
    hash *= SECOND;
    return hash ^ (hash >> 29);
}

std::string renderStoredUnit(const StoredUnit& unit) {
    std::string out = unit.object;
    putText(out, unit.name);
    putText(out, unit.environment);
    putNumber(out, unit.source);
    putNumber(out, unit.inputs.size());
    for (const StoredUnit::Input& input : unit.inputs) {
        putText(out, input.path);
        putNumber(out, input.hash);
    }
    putTexts(out, unit.defines);
    putNumber(out, unit.needs.size());
    for (const StoredUnit::Need& need : unit.needs) {
        putNumber(out, std::uint64_t(need.kind));
        putText(out, need.unit);
        putTexts(out, need.symbols);
    }
    putText(out, unit.initializer);
    putNumber(out, unit.object.size());
    putNumber(out, contentHash(out));
    out += MAGIC;
    return out;
}

std::optional<StoredUnit> parseStoredUnit(std::string_view bytes) {
    if (bytes.size() < TRAILER_SIZE || !bytes.ends_with(MAGIC)) return std::nullopt;
    const std::string_view hashed = bytes.substr(0, bytes.size() - 16);
    if (numberAt(bytes, hashed.size()) != contentHash(hashed)) return std::nullopt;
    const std::size_t end = hashed.size() - 8;
    const std::uint64_t objectSize = numberAt(bytes, end);
    if (objectSize > end) return std::nullopt;

    StoredUnit unit;
    unit.object = bytes.substr(0, objectSize);
    Reader reader(bytes.substr(objectSize, end - objectSize));
    unit.name = reader.text();
    unit.environment = reader.text();
    unit.source = reader.number();
    for (std::uint64_t left = reader.count(); left > 0 && reader.isSound(); left--) {
        std::string path = reader.text();
        unit.inputs.push_back({std::move(path), reader.number()});
    }
    unit.defines = reader.texts();
    for (std::uint64_t left = reader.count(); left > 0 && reader.isSound(); left--) {
        StoredUnit::Need need;
        const std::uint64_t kind = reader.number();
        if (kind > std::uint64_t(StoredUnit::Need::Kind::Instantiation)) return std::nullopt;
        need.kind = StoredUnit::Need::Kind(kind);
        need.unit = reader.text();
        need.symbols = reader.texts();
        unit.needs.push_back(std::move(need));
    }
    unit.initializer = reader.text();
    if (!reader.isAtEnd()) return std::nullopt;
    return unit;
}

}  // namespace vesk::compiler
