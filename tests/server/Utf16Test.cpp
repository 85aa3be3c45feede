#include "server/Utf16.h"
#include "tests/support/Golden.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

namespace varnoth::test {
namespace {

// Each line of the input file is "encode" or "decode" and the bytes in hex; the golden file adds what
// came out: encoding is little-endian without byte-order mark, broken UTF-8 becomes U+FFFD (a cut
// sequence, an overlong form, a surrogate); decoding drops one leading byte-order mark and rejects odd
// counts, a high surrogate at the end or before a letter, and a lone low surrogate.
TEST(Utf16Test, EncodesAndDecodesAsTheTableSays) {
    std::ifstream in(std::string(VARNOTH_GOLDEN_DIR) + "/server/utf16-input.txt");
    std::string transcript;
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line.substr(6));
        std::string bytes;
        for (unsigned value; fields >> std::hex >> value;) {
            bytes.push_back(static_cast<char>(value));
        }
        const auto out = line.starts_with("encode") ? utf16::encode(bytes) : utf16::decode(bytes);
        transcript += line + " ->";
        for (const unsigned char byte : out.value_or("")) {
            transcript += " " + std::string(1, "0123456789abcdef"[byte >> 4]) + "0123456789abcdef"[byte & 15];
        }
        transcript += out ? "\n" : " nothing\n";
    }
    expectGolden("server/utf16", transcript);
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
