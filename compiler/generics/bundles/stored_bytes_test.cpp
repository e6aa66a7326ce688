// Bytes that come back, and bytes that do not fit.
#include "generics/bundles/stored_bytes.h"

#include <gtest/gtest.h>

namespace vesk::compiler {
namespace {

TEST(StoredBytes, ComeBackInOrder) {
    std::string bytes;
    putStoredNumber(bytes, ~std::uint64_t{0});
    putStoredText(bytes, "a\nb");
    putStoredTexts(bytes, {"", "c"});
    StoredBytesReader reader(bytes);
    EXPECT_EQ(reader.number(), ~std::uint64_t{0});
    EXPECT_EQ(reader.text(), "a\nb");
    EXPECT_FALSE(reader.isAtEnd());
    EXPECT_EQ(reader.texts(), (std::vector<std::string>{"", "c"}));
    EXPECT_TRUE(reader.isAtEnd());
    EXPECT_EQ(reader.number(), 0u);
    EXPECT_FALSE(reader.isSound());
}

TEST(StoredBytes, LengthsBeyondTheEndAreUnsound) {
    std::string bytes;
    putStoredText(bytes, "abc");
    for (std::size_t size = 0; size < bytes.size(); size++) {
        StoredBytesReader text(std::string_view(bytes).substr(0, size));
        EXPECT_EQ(text.text(), "") << size;
        EXPECT_FALSE(text.isSound());
    }
    std::string many;
    putStoredNumber(many, ~std::uint64_t{0});
    StoredBytesReader list(many);
    EXPECT_TRUE(list.texts().empty());
    EXPECT_FALSE(list.isAtEnd());
}

TEST(ContentHash, TellsLengthsAndPlacesApart) {
    EXPECT_NE(contentHash(""), contentHash(std::string_view("\0", 1)));
    EXPECT_NE(contentHash("12345678abc"), contentHash("12345678acb"));
    EXPECT_NE(contentHash("12345678ABCDEFGH"), contentHash("ABCDEFGH12345678"));
    EXPECT_EQ(contentHash("12345678abc"), contentHash("12345678abc"));
}

}  // namespace
}  // namespace vesk::compiler
