#include "base/TextValues.h"

#include <cmath>
#include <gtest/gtest.h>

namespace varnoth::text {
namespace {

TEST(TextValuesTest, IntegersAreWholeDecimalsWithAnOptionalSign) {
    for (const auto& [text, value] : {std::pair{"6000", 6000}, {"+7", 7}, {"-7", -7}}) {
        EXPECT_EQ(parseInteger<int>(text), value) << text;
    }
    EXPECT_EQ(parseInteger<std::int32_t>("60000000000"), std::nullopt);
    for (const char* bad : {"", "+", "+-1", " 1", "1 ", "0x10", "true", "yes", "1.0"}) {
        EXPECT_EQ(parseInteger<int>(bad), std::nullopt) << bad;
    }
}

TEST(TextValuesTest, FloatsIgnoreTheLocaleAndRejectPartialText) {
    for (const auto& [text, value] : {std::pair{"1.5", 1.5f}, {"2", 2.0f}, {"+0.25", 0.25f}}) {
        EXPECT_EQ(parseFloat(text), value) << text;
    }
    // Out of range: too large is infinite, too small is zero, as the platform's parser has it.
    EXPECT_EQ(parseFloat("-1e50"), -INFINITY);
    EXPECT_EQ(parseFloat("1e-50"), 0.0f);
    for (const char* bad : {"", " 2", "2 ", "1,5", "abc", "2h"}) {
        EXPECT_EQ(parseFloat(bad), std::nullopt) << bad;
    }
    std::string shown; // never an exponent
    for (const float value : {60.0f, 1.5f, 0.1f, -30.0f, 600000.0f, 0.0001f, 100000.0f}) {
        shown += shortestFloat(value) + " ";
    }
    EXPECT_EQ(shown, "60.0 1.5 0.1 -30.0 600000.0 0.0001 100000.0 ");
}

TEST(TextValuesTest, TrimmingAndUtf8) {
    EXPECT_EQ(trimmed(" \t key \r\n"), "key");
    EXPECT_EQ(trimmed("\u00A0value\u3000"), "value");
    EXPECT_EQ(trimmed("   "), "");
    EXPECT_TRUE(isValidUtf8("Gr\u00FC\u00DFe \u6771\u4EAC \U0001F600"));
    // Cut short, overlong, a surrogate, beyond U+10FFFF.
    for (const char* bad : {"\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80"}) {
        EXPECT_FALSE(isValidUtf8(bad)) << bad;
    }
    EXPECT_EQ(replaceAll("a<b<c", "<", "&lt;"), "a&lt;b&lt;c");
}

} // namespace
} // namespace varnoth::text
