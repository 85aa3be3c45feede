#include "directory/Iconv.h"

#include <cctype>
#include <gtest/gtest.h>
#include <set>

namespace varnoth {
namespace {

using CodePage = Iconv::CodePage;
using Bytes = std::vector<std::uint8_t>;

TEST(IconvCodePages, CaseNamesFollowFromIconvNamesAndLookupIsExact) {
    const auto pages = Iconv::allCodePages();
    ASSERT_EQ(pages.size(), 403u);
    EXPECT_EQ(pages.front(), CodePage::ANSI_X3_4_1968);
    EXPECT_EQ(pages.at(12), CodePage::UTF8);
    EXPECT_EQ(pages.back(), CodePage::RISCOS_LATIN1);

    std::set<std::string_view> names;
    for (const CodePage page : pages) {
        const std::string iconvName(Iconv::name(page));
        std::string expected;
        if (!iconvName.empty() && std::isdigit(static_cast<unsigned char>(iconvName.front()))) {
            expected = "_";
        }
        for (const char c : iconvName) {
            expected += (c == '-' || c == '.' || c == ':') ? '_' : c;
        }
        EXPECT_EQ(Iconv::caseName(page), expected) << iconvName;
        EXPECT_EQ(Iconv::codePage(iconvName), page) << iconvName;
        names.insert(Iconv::name(page));
    }
    EXPECT_EQ(names.size(), 403u) << "iconv names must be distinct";

    EXPECT_EQ(Iconv::name(CodePage::UTF_8), "UTF-8");
    EXPECT_EQ(Iconv::name(CodePage::UTF8_MAC), "UTF8-MAC");
    EXPECT_EQ(Iconv::name(CodePage::ISO_646_IRV_1991), "ISO_646.IRV:1991");
    EXPECT_EQ(Iconv::name(CodePage::_850), "850");
    EXPECT_EQ(Iconv::name(CodePage::TIS620_2529_1), "TIS620.2529-1");
    EXPECT_EQ(Iconv::name(CodePage::BIG5_HKSCS_2004), "BIG5-HKSCS:2004");
    EXPECT_NE(CodePage::UTF_8, CodePage::UTF8);

    EXPECT_EQ(Iconv::codePage("utf-8"), std::nullopt);
    EXPECT_EQ(Iconv::codePage("UTF_8"), std::nullopt);
    EXPECT_EQ(Iconv::codePage(""), std::nullopt);
    EXPECT_EQ(Iconv::codePage("UTF-8 "), std::nullopt);
}

TEST(IconvConstruction, UnconvertiblePairThrowsInvalidEncoding) {
    // glibc has no decomposed UTF-8 variant.
    try {
        Iconv converter(CodePage::UTF_8_MAC, CodePage::UTF8);
        FAIL() << "expected INVALID_ENCODING";
    } catch (const Iconv::Exception& error) {
        EXPECT_EQ(error.value, Iconv::Exception::INVALID_ENCODING);
        EXPECT_STREQ(error.what(), "INVALID_ENCODING");
    }
    EXPECT_NO_THROW(Iconv(CodePage::ISO_646_IRV_1991, CodePage::UTF_8));
}

TEST(IconvConversion, OutputIsBoundedByTwiceTheInput) {
    Iconv latinToUtf8(CodePage::ISO_8859_1, CodePage::UTF8);
    const auto fits = latinToUtf8.convert(Bytes{0xE4, 0xF6, 0xFC});
    EXPECT_EQ(fits, (Bytes{0xC3, 0xA4, 0xC3, 0xB6, 0xC3, 0xBC}));

    // Sixteen bytes needed, eight available: no result, not a truncated one.
    Iconv latinToUtf32(CodePage::ISO_8859_1, CodePage::UTF_32BE);
    const Bytes four{'a', 'b', 'c', 'd'};
    EXPECT_EQ(latinToUtf32.convert(four.data(), four.size()), std::nullopt);
    EXPECT_TRUE(latinToUtf32.convert(four).empty());
    EXPECT_EQ(latinToUtf32.convertToText(four), std::nullopt);

    // Exactly twice the input fills the buffer to the last byte.
    Iconv asciiToUtf16(CodePage::ASCII, CodePage::UTF_16LE);
    EXPECT_EQ(asciiToUtf16.convert(Bytes{'h', 'i'}), (Bytes{'h', 0, 'i', 0}));
}

TEST(IconvConversion, ListAndTextForms) {
    Iconv copy(CodePage::UTF8, CodePage::UTF8);
    const std::string text = "Grüße, 日本";
    const Bytes utf8(text.begin(), text.end());
    EXPECT_EQ(copy.convert(utf8), utf8);
    EXPECT_EQ(copy.convertToText(utf8), text);

    const std::vector<std::int8_t> signedBytes(text.begin(), text.end());
    EXPECT_EQ(copy.convert(signedBytes), signedBytes);
    EXPECT_EQ(copy.convertToText(signedBytes), text);

    // Nothing converted is no text; invalid input is no result at all.
    EXPECT_EQ(copy.convertToText(Bytes{}), std::nullopt);
    EXPECT_EQ(copy.convert(Bytes{}.data(), 0), Bytes{});
    EXPECT_EQ(copy.convertToText(Bytes{'a', 0xC3}), std::nullopt);
    EXPECT_TRUE(copy.convert(Bytes{0xFF, 'a'}).empty());

    // Converted bytes that are not UTF-8 are no text.
    Iconv toLatin(CodePage::UTF8, CodePage::ISO_8859_1);
    EXPECT_EQ(toLatin.convert(Bytes{0xC3, 0xA9}), Bytes{0xE9});
    EXPECT_EQ(toLatin.convertToText(Bytes{0xC3, 0xA9}), std::nullopt);
    EXPECT_EQ(toLatin.convertToText(Bytes{'o', 'k'}), "ok");

    Iconv fromLatin(CodePage::LATIN1, CodePage::UTF_8);
    EXPECT_EQ(
        fromLatin.convertToText(std::vector<std::int8_t>{'G', 'r', static_cast<std::int8_t>(0xFC), 'n'}),
        "Grün");
}

TEST(IconvConversion, ShiftStateIsNeitherFlushedNorReset) {
    // "日" in ISO-2022-JP: the shift into JIS X 0208, then two bytes. No shift back is written, and
    // the second call continues in the shifted state.
    Iconv toJis(CodePage::UTF8, CodePage::ISO_2022_JP);
    const std::string kanji = "日";
    const Bytes input(kanji.begin(), kanji.end());
    EXPECT_EQ(toJis.convert(input), (Bytes{0x1B, '$', 'B', 0x46, 0x7C}));
    EXPECT_EQ(toJis.convert(input), (Bytes{0x46, 0x7C}));
}

} // namespace
} // namespace varnoth
