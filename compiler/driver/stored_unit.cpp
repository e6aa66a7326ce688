// Writing and reading stored units.
#include "driver/stored_unit.h"

#include <algorithm>

#include "generics/bundles/stored_bytes.h"

namespace vesk::compiler {
namespace {

constexpr std::string_view MAGIC = "veskobj1";
constexpr std::size_t TRAILER_SIZE = 24;

}  // namespace

bool StoredUnit::definesAll(const std::vector<std::string>& symbols) const {
    return std::all_of(symbols.begin(), symbols.end(), [&](const std::string& symbol) {
        return std::binary_search(defines.begin(), defines.end(), symbol);
    });
}

std::string renderStoredUnit(const StoredUnit& unit) {
    std::string out = unit.object;
    putStoredText(out, unit.name);
    putStoredText(out, unit.environment);
    putStoredNumber(out, unit.source);
    putStoredNumber(out, unit.inputs.size());
    for (const StoredUnit::Input& input : unit.inputs) {
        putStoredText(out, input.path);
        putStoredNumber(out, input.hash);
    }
    putStoredTexts(out, unit.defines);
    putStoredNumber(out, unit.needs.size());
    for (const StoredUnit::Need& need : unit.needs) {
        putStoredNumber(out, std::uint64_t(need.kind));
        putStoredText(out, need.unit);
        putStoredTexts(out, need.symbols);
    }
    putStoredText(out, unit.initializer);
    putStoredNumber(out, unit.object.size());
    putStoredNumber(out, contentHash(out));
    out += MAGIC;
    return out;
}

std::optional<StoredUnit> parseStoredUnit(std::string_view bytes) {
    if (bytes.size() < TRAILER_SIZE || !bytes.ends_with(MAGIC)) return std::nullopt;
    const std::string_view hashed = bytes.substr(0, bytes.size() - 16);
    if (storedNumberAt(bytes, hashed.size()) != contentHash(hashed)) return std::nullopt;
    const std::size_t end = hashed.size() - 8;
    const std::uint64_t objectSize = storedNumberAt(bytes, end);
    if (objectSize > end) return std::nullopt;

    StoredUnit unit;
    unit.object = bytes.substr(0, objectSize);
    StoredBytesReader reader(bytes.substr(objectSize, end - objectSize));
    unit.name = reader.text();
    unit.environment = reader.text();
    unit.source = reader.number();
    for (std::uint64_t left = reader.count(); left > 0 && reader.isSound(); left--) {
        std::string path(reader.text());
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
