#include "core/TextValues.h"

#include <cmath>
#include <gtest/gtest.h>

namespace varnoth::text {
namespace {

TEST(TextValuesTest, IntegersAreWholeDecimalsWithAnOptionalSign) {
    EXPECT_EQ(parseInteger<int>("6000"), 6000);
    EXPECT_EQ(parseInteger<int>("+7"), 7);
    EXPECT_EQ(parseInteger<int>("-7"), -7);
    EXPECT_EQ(parseInteger<std::int32_t>("60000000000"), std::nullopt);
    for (const char* bad : {"", "+", "+-1", " 1", "1 ", "0x10", "true", "yes", "1.0"}) {
        EXPECT_EQ(parseInteger<int>(bad), std::nullopt) << bad;
    }
}

TEST(TextValuesTest, FloatsIgnoreTheLocaleAndRejectPartialText) {
    EXPECT_EQ(parseFloat("1.5"), 1.5f);
    EXPECT_EQ(parseFloat("2"), 2.0f);
    EXPECT_EQ(parseFloat("+0.25"), 0.25f);
    // Out of range: too large is infinite, too small is zero, as the platform's parser has it.
    EXPECT_EQ(parseFloat("-1e50"), -INFINITY);
    EXPECT_EQ(parseFloat("1e-50"), 0.0f);
    for (const char* bad : {"", " 2", "2 ", "1,5", "abc", "2h"}) {
        EXPECT_EQ(parseFloat(bad), std::nullopt) << bad;
    }
    EXPECT_EQ(shortestFloat(60.0f), "60.0");
    EXPECT_EQ(shortestFloat(1.5f), "1.5");
    EXPECT_EQ(shortestFloat(0.1f), "0.1");
    EXPECT_EQ(shortestFloat(-30.0f), "-30.0");
}

TEST(TextValuesTest, TrimmingAndUtf8) {
    EXPECT_EQ(trimmed(" \t key \r\n"), "key");
    EXPECT_EQ(trimmed("\u00A0value\u3000"), "value");
    EXPECT_EQ(trimmed("   "), "");
    EXPECT_TRUE(isValidUtf8("Gr\u00FC\u00DFe \u6771\u4EAC \U0001F600"));
    EXPECT_FALSE(isValidUtf8("\xC3"));
    EXPECT_FALSE(isValidUtf8("\xC0\xAF"));         // overlong
    EXPECT_FALSE(isValidUtf8("\xED\xA0\x80"));     // surrogate
    EXPECT_FALSE(isValidUtf8("\xF4\x90\x80\x80")); // beyond U+10FFFF
    EXPECT_EQ(replaceAll("a<b<c", "<", "&lt;"), "a&lt;b&lt;c");
}

} // namespace
} // namespace varnoth::text
