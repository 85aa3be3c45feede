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

TEST(Utf16Test, EncodesLittleEndianWithoutByteOrderMarkAndBrokenUtf8AsReplacements) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"", ""},
        {"#A", bytes({0x23, 0x00, 0x41, 0x00})},
        {"ü東", bytes({0xFC, 0x00, 0x71, 0x67})},
        {"😀", bytes({0x3D, 0xD8, 0x00, 0xDE})},
        {"a\xFF\x62", bytes({0x61, 0x00, 0xFD, 0xFF, 0x62, 0x00})},
        {"\xE6\x9D", bytes({0xFD, 0xFF, 0xFD, 0xFF})},                 // cut sequence
        {"\xC0\xAF", bytes({0xFD, 0xFF, 0xFD, 0xFF})},                 // overlong
        {"\xED\xA0\x80", bytes({0xFD, 0xFF, 0xFD, 0xFF, 0xFD, 0xFF})}, // surrogate
    };
    for (const auto& [text, expected] : cases) {
        SCOPED_TRACE(text);
        EXPECT_EQ(utf16::encode(text), expected);
    }
    EXPECT_EQ(utf16::encodeAscii("##!! DATA BLOCK END !!##"), utf16::encode("##!! DATA BLOCK END !!##"));
}

TEST(Utf16Test, DecodingDropsOneLeadingByteOrderMarkAndRejectsOddCountsAndBrokenPairs) {
    EXPECT_EQ(utf16::decode(""), "");
    EXPECT_EQ(utf16::decode(bytes({0xFF, 0xFE, 0x41, 0x00})), "A");
    EXPECT_EQ(utf16::decode(bytes({0xFF, 0xFE, 0xFF, 0xFE})), "\xEF\xBB\xBF");
    EXPECT_EQ(utf16::decode(bytes({0x41, 0x00, 0xFF, 0xFE})), "A\xEF\xBB\xBF");
    // Odd counts; a high surrogate at the end or before a letter; a low surrogate alone.
    for (const std::string& broken : {bytes({0x41}), bytes({0x41, 0x00, 0x42}), bytes({0x3D, 0xD8}),
                                      bytes({0x3D, 0xD8, 0x41, 0x00}), bytes({0x00, 0xDE, 0x41, 0x00})}) {
        EXPECT_EQ(utf16::decode(broken), std::nullopt) << broken.size();
    }
}

TEST(Utf16Test, RoundTripsEveryPlaneAndLongTextsWithoutAscii) {
    std::string cjk, emoji, mixed;
    for (int i = 0; i < 10000; ++i) {
        cjk += "東";
        emoji += "😀";
        mixed += i % 3 == 0 ? "ü" : "abcdefgh";
    }
    for (const std::string& text :
         {std::string("Grüße – 東京 – 😀 \x7F \xF4\x8F\xBF\xBF"), cjk, emoji, mixed}) {
        EXPECT_TRUE(utf16::decode(utf16::encode(text)) == text) << text.substr(0, 40);
    }
    EXPECT_EQ(utf16::decode(utf16::encode(cjk) + std::string("\x00\xDC", 2)), std::nullopt);
}

} // namespace
} // namespace varnoth::test
