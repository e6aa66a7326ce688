// Writing and reading them.
#include "generics/bundles/stored_bytes.h"

#include <cstring>

namespace vesk::compiler {

void putStoredNumber(std::string& out, std::uint64_t number) {
    char bytes[8];
    std::memcpy(bytes, &number, sizeof bytes);
    out.append(bytes, sizeof bytes);
}

void putStoredText(std::string& out, std::string_view text) {
    putStoredNumber(out, text.size());
    out += text;
}

void putStoredTexts(std::string& out, const std::vector<std::string>& texts) {
    putStoredNumber(out, texts.size());
    for (const std::string& text : texts) putStoredText(out, text);
}

std::uint64_t storedNumberAt(std::string_view bytes, std::size_t at) {
    std::uint64_t number = 0;
    std::memcpy(&number, bytes.data() + at, sizeof number);
    return number;
}

std::uint64_t StoredBytesReader::number() {
    if (rest_.size() < 8) return fail();
    const std::uint64_t number = storedNumberAt(rest_, 0);
    rest_.remove_prefix(8);
    return number;
}

std::string_view StoredBytesReader::text() {
    const std::uint64_t size = number();
    if (size > rest_.size()) {
        fail();
        return {};
    }
    const std::string_view text = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return text;
}

std::vector<std::string> StoredBytesReader::texts() {
    std::vector<std::string> all;
    for (std::uint64_t left = count(); left > 0 && isSound_; left--) all.emplace_back(text());
    return all;
}

std::uint64_t StoredBytesReader::count() {
    const std::uint64_t count = number();
    return count > rest_.size() / 8 ? fail() : count;
}

std::uint64_t StoredBytesReader::fail() {
    isSound_ = false;
    rest_ = {};
    return 0;
}

}  // namespace vesk::compiler
