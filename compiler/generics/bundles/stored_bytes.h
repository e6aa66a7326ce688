// Numbers and texts in the cache's own binary files.
// A number is eight bytes in the machine's order, a text its length and its bytes: a cache belongs to one machine.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "generics/typetext/content_hash.h"

namespace vesk::compiler {

void putStoredNumber(std::string& out, std::uint64_t number);
void putStoredText(std::string& out, std::string_view text);
void putStoredTexts(std::string& out, const std::vector<std::string>& texts);
// The eight bytes at a place that there is.
std::uint64_t storedNumberAt(std::string_view bytes, std::size_t at);

// Takes bytes apart. After the first thing that does not fit everything is empty and isSound() false.
class StoredBytesReader {
public:
    explicit StoredBytesReader(std::string_view bytes) : rest_(bytes) {}

    std::uint64_t number();
    std::string_view text();  // lies in the bytes
    std::vector<std::string> texts();
    // Of a list: each element takes eight bytes or more.
    std::uint64_t count();
    // How many bytes are left.
    std::size_t left() const { return rest_.size(); }
    bool isSound() const { return isSound_; }
    bool isAtEnd() const { return isSound_ && rest_.empty(); }

private:
    std::uint64_t fail();

    std::string_view rest_;
    bool isSound_ = true;
};

}  // namespace vesk::compiler
