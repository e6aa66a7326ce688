// Where the code points of a long text lie.
//
// A text that is not ASCII and has more than INDEX_STEP code points is followed, behind its NUL and at the next multiple of
// four bytes from the object's beginning, by an index: one word that is 0 until the index is there, then the byte position of
// every INDEX_STEP-th code point. "ä" 130 times: positions 128 and 256, of the code points 64 and 128. The first look-up of a
// position fills it; generated constants come with theirs. So a position costs INDEX_STEP steps at most, and an index is a
// word for at least 64 bytes of text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>
#include <vector>

#include "runtime/object_layout.h"

namespace vesk::runtime {

inline constexpr std::int64_t INDEX_STEP = 64;

constexpr bool isContinuationByte(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

constexpr bool hasIndex(std::int64_t byteLength, std::int64_t codePoints) {
    return codePoints != byteLength && codePoints > INDEX_STEP &&
           byteLength <= std::numeric_limits<std::uint32_t>::max();
}

// From the object's beginning.
constexpr std::size_t indexOffset(std::int64_t byteLength) {
    return (STRING_BYTES_OFFSET + std::size_t(byteLength) + 1 + 3) / 4 * 4;
}

// Positions that an index holds.
constexpr std::size_t indexEntries(std::int64_t codePoints) { return std::size_t((codePoints - 1) / INDEX_STEP); }

// Bytes of a whole string object.
constexpr std::size_t stringObjectSize(std::int64_t byteLength, std::int64_t codePoints) {
    if (!hasIndex(byteLength, codePoints)) return STRING_BYTES_OFFSET + std::size_t(byteLength) + 1;
    return indexOffset(byteLength) + (1 + indexEntries(codePoints)) * sizeof(std::uint32_t);
}

// Behind the code point that begins at `at`.
inline std::size_t nextCodePoint(std::string_view text, std::size_t at) {
    at++;
    while (at < text.size() && isContinuationByte(text[at])) at++;
    return at;
}

// The positions that the index of a text holds; `entries` many, those past the end are its length.
inline std::vector<std::uint32_t> indexedPositions(std::string_view text, std::size_t entries) {
    std::vector<std::uint32_t> positions(entries, std::uint32_t(text.size()));
    std::size_t at = 0;
    for (std::uint32_t& position : positions) {
        for (std::int64_t step = 0; step < INDEX_STEP && at < text.size(); step++) at = nextCodePoint(text, at);
        position = std::uint32_t(at);
    }
    return positions;
}

// A fresh object's index, not filled yet; nothing where the text has none.
void beginIndex(String* string);
// Byte position of the code point `index`, which may be the one behind the last.
std::size_t byteOffset(const String* string, std::int64_t index);

}  // namespace vesk::runtime
