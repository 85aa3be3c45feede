#include "server/Utf16.h"
#include "tests/support/Golden.h"

#include <gtest/gtest.h>
#include <sstream>

namespace varnoth::test {
namespace {

// Each case is "encode", "decode" or "wellformed" and bytes in hex, answered with the bytes that came out.
TEST(Utf16Test, EncodesAndDecodesAsTheTableSays) {
    expectTranscript("server/utf16", [](const std::string& way, const std::string& hex) {
        std::istringstream fields(hex);
        std::string bytes, text;
        for (unsigned value; fields >> std::hex >> value;) {
            bytes.push_back(static_cast<char>(value));
        }
        const auto out = way == "decode"   ? utf16::decode(bytes)
                         : way == "encode" ? utf16::encode(bytes)
                                           : utf16::wellFormed(bytes);
        for (const unsigned char byte : out.value_or("")) {
            text += std::string(text.empty() ? "" : " ") + "0123456789abcdef"[byte >> 4] +
                    "0123456789abcdef"[byte & 15];
        }
        return out ? text : "nothing";
    });
    EXPECT_EQ(utf16::encodeAscii("##!! DATA BLOCK END !!##"), utf16::encode("##!! DATA BLOCK END !!##"));
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
