// Hashing eight bytes at a time.
#include "generics/typetext/content_hash.h"

#include <cstring>

namespace vesk::compiler {

namespace {

std::uint64_t wordAt(std::string_view bytes, std::size_t at) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes.data() + at, sizeof word);
    return word;
}

}  // namespace

// Eight bytes at a step; the multiplications carry every bit upwards, the shifts bring it down again.
std::uint64_t contentHash(std::string_view bytes, std::uint64_t seed) {
    constexpr std::uint64_t FIRST = 0x9E3779B97F4A7C15U, SECOND = 0xC2B2AE3D27D4EB4FU;
    std::uint64_t hash = FIRST ^ (bytes.size() * SECOND) ^ seed;
    const auto mix = [&](std::uint64_t word) {
        hash = (hash ^ (word * SECOND)) * FIRST;
        hash ^= hash >> 29;
    };
    std::size_t at = 0;
    for (; at + 8 <= bytes.size(); at += 8) mix(wordAt(bytes, at));
    std::uint64_t last = 0;
    if (at < bytes.size()) std::memcpy(&last, bytes.data() + at, bytes.size() - at);
    mix(last);
    hash ^= hash >> 32;
    hash *= SECOND;
    return hash ^ (hash >> 29);
}

}  // namespace vesk::compiler
