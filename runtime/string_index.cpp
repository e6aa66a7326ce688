// Filling indexes and looking positions up. Threads may fill the same index at once: they write the same words.
#include "runtime/string_index.h"

#include <atomic>

#include "runtime/strings.h"

namespace vesk::runtime {
namespace {

std::uint32_t* wordsOf(const String* string) {
    char* const object = reinterpret_cast<char*>(const_cast<String*>(string));
    return reinterpret_cast<std::uint32_t*>(object + indexOffset(string->byteLength));
}

// The position of the code point INDEX_STEP * `entry`; the index is filled first where it is not.
std::size_t indexed(const String* string, std::size_t entry) {
    std::uint32_t* const words = wordsOf(string);
    std::atomic_ref<std::uint32_t> isFilled(words[0]);
    if (isFilled.load(std::memory_order_acquire) == 0) {
        const std::vector<std::uint32_t> positions = indexedPositions(viewOf(string), indexEntries(string->codePoints));
        for (std::size_t i = 0; i < positions.size(); i++)
            std::atomic_ref<std::uint32_t>(words[i + 1]).store(positions[i], std::memory_order_relaxed);
        isFilled.store(1, std::memory_order_release);
    }
    return std::atomic_ref<std::uint32_t>(words[entry]).load(std::memory_order_relaxed);
}

}  // namespace

void beginIndex(String* string) {
    if (hasIndex(string->byteLength, string->codePoints)) wordsOf(string)[0] = 0;
}

std::size_t byteOffset(const String* string, std::int64_t index) {
    const std::string_view text = viewOf(string);
    if (string->byteLength == string->codePoints) return std::size_t(index);
    if (index >= string->codePoints) return text.size();
    std::size_t at = 0;
    if (index >= INDEX_STEP && hasIndex(string->byteLength, string->codePoints)) {
        at = indexed(string, std::size_t(index / INDEX_STEP));
        index %= INDEX_STEP;
    }
    for (; index > 0 && at < text.size(); index--) at = nextCodePoint(text, at);
    return at;
}

}  // namespace vesk::runtime
