#include "server/Utf16.h"

#include <gtest/gtest.h>

namespace varnoth::test {
namespace {

std::string bytes(std::initializer_list<int> values) {
    std::string out;
    for (int value : values) {
        out.push_back(static_cast<char>(value));
    }
    return out;
}

TEST(Utf16Test, EncodesLittleEndianWithoutByteOrderMarkAndWithSurrogatePairs) {
    EXPECT_EQ(utf16::encode("#A"), bytes({0x23, 0x00, 0x41, 0x00}));
    EXPECT_EQ(utf16::encode("ü"), bytes({0xFC, 0x00}));
    EXPECT_EQ(utf16::encode("東"), bytes({0x71, 0x67}));
    EXPECT_EQ(utf16::encode("😀"), bytes({0x3D, 0xD8, 0x00, 0xDE}));
    EXPECT_EQ(utf16::encode(""), "");
}

TEST(Utf16Test, EncodesInvalidUtf8AsReplacementCharacters) {
    EXPECT_EQ(utf16::encode("a\xFF" "b"), bytes({0x61, 0x00, 0xFD, 0xFF, 0x62, 0x00}));
    EXPECT_EQ(utf16::encode("\xE6\x9D"), bytes({0xFD, 0xFF, 0xFD, 0xFF})); // cut sequence
    EXPECT_EQ(utf16::encode("\xC0\xAF"), bytes({0xFD, 0xFF, 0xFD, 0xFF})); // overlong
    EXPECT_EQ(utf16::encode("\xED\xA0\x80"), bytes({0xFD, 0xFF, 0xFD, 0xFF, 0xFD, 0xFF})); // surrogate
}

TEST(Utf16Test, RoundTripsEveryPlane) {
    const std::string text = "Grüße – 東京 – 😀 \x7F \xF4\x8F\xBF\xBF";
    EXPECT_EQ(utf16::decode(utf16::encode(text)), text);
}

TEST(Utf16Test, RoundTripsLongTextsThatAreNotAsciiAtAll) {
    std::string cjk;
    std::string emoji;
    std::string mixed;
    for (int i = 0; i < 10000; ++i) {
        cjk += "東";
        emoji += "😀";
        mixed += i % 3 == 0 ? "ü" : "abcdefgh";
    }
    EXPECT_EQ(utf16::decode(utf16::encode(cjk)), cjk);
    EXPECT_EQ(utf16::decode(utf16::encode(emoji)), emoji);
    EXPECT_EQ(utf16::decode(utf16::encode(mixed)), mixed);
    EXPECT_EQ(utf16::decode(utf16::encode(cjk) + std::string("\x00\xDC", 2)), std::nullopt);
}

TEST(Utf16Test, DecodingDropsOneLeadingByteOrderMarkOnly) {
    EXPECT_EQ(utf16::decode(bytes({0xFF, 0xFE, 0x41, 0x00})), "A");
    EXPECT_EQ(utf16::decode(bytes({0xFF, 0xFE, 0xFF, 0xFE})), "\xEF\xBB\xBF");
    EXPECT_EQ(utf16::decode(bytes({0x41, 0x00, 0xFF, 0xFE})), "A\xEF\xBB\xBF");
}

TEST(Utf16Test, DecodingFailsOnOddByteCountsAndBrokenSurrogatePairs) {
    EXPECT_EQ(utf16::decode(bytes({0x41})), std::nullopt);
    EXPECT_EQ(utf16::decode(bytes({0x41, 0x00, 0x42})), std::nullopt);
    EXPECT_EQ(utf16::decode(bytes({0x3D, 0xD8})), std::nullopt);             // high at the end
    EXPECT_EQ(utf16::decode(bytes({0x3D, 0xD8, 0x41, 0x00})), std::nullopt); // high before a letter
    EXPECT_EQ(utf16::decode(bytes({0x00, 0xDE, 0x41, 0x00})), std::nullopt); // low alone
    EXPECT_EQ(utf16::decode(""), "");
}

TEST(Utf16Test, AsciiEncodingMatchesTheGeneralEncoder) {
    EXPECT_EQ(utf16::encodeAscii("##!! DATA BLOCK END !!##"), utf16::encode("##!! DATA BLOCK END !!##"));
}

} // namespace
} // namespace varnoth::test
