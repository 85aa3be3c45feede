#include "directory/Iconv.h"

#include <cctype>
#include <gtest/gtest.h>
#include <set>

namespace varnoth {
namespace {

using CodePage = Iconv::CodePage;
using Bytes = std::vector<std::uint8_t>;

TEST(IconvCodePages, CaseNamesFollowFromIconvNamesLookupIsExactUnconvertiblePairsThrow) {
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

    EXPECT_EQ(Iconv::caseName(CodePage::_850), "_850");
    EXPECT_EQ(Iconv::name(CodePage::BIG5_HKSCS_2004), "BIG5-HKSCS:2004");
    for (const char* notAName : {"utf-8", "UTF_8", "", "UTF-8 "}) {
        EXPECT_EQ(Iconv::codePage(notAName), std::nullopt) << notAName;
    }

    // glibc has no decomposed UTF-8 variant.
    try {
        Iconv converter(CodePage::UTF_8_MAC, CodePage::UTF8);
        FAIL() << "expected INVALID_ENCODING";
    } catch (const Iconv::Exception& error) {
        EXPECT_EQ(error.value, Iconv::Exception::INVALID_ENCODING);
        EXPECT_STREQ(error.what(), "INVALID_ENCODING");
    }
}

TEST(IconvConversion, OutputIsBoundedByTwiceTheInput) {
    const std::string text = "Grüße, 日本";
    const Bytes utf8(text.begin(), text.end());
    const struct {
        CodePage from, to;
        Bytes input;
        std::optional<Bytes> output;
    } rows[] = {
        {CodePage::ISO_8859_1, CodePage::UTF8, {0xE4, 0xF6, 0xFC}, Bytes{0xC3, 0xA4, 0xC3, 0xB6, 0xC3, 0xBC}},
        // Sixteen bytes needed, eight available: no result, not a truncated one.
        {CodePage::ISO_8859_1, CodePage::UTF_32BE, {'a', 'b', 'c', 'd'}, std::nullopt},
        // Exactly twice the input fills the buffer to the last byte.
        {CodePage::ASCII, CodePage::UTF_16LE, {'h', 'i'}, Bytes{'h', 0, 'i', 0}},
        {CodePage::UTF8, CodePage::UTF8, utf8, utf8},
        {CodePage::UTF8, CodePage::UTF8, {}, Bytes{}},
        {CodePage::UTF8, CodePage::UTF8, {0xFF, 'a'}, std::nullopt},
        {CodePage::UTF8, CodePage::ISO_8859_1, {0xC3, 0xA9}, Bytes{0xE9}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(Iconv::name(row.from)) + " to " + std::string(Iconv::name(row.to)));
        Iconv converter(row.from, row.to);
        EXPECT_EQ(converter.convert(row.input.data(), row.input.size()), row.output);
        EXPECT_EQ(converter.convert(row.input), row.output.value_or(Bytes{}));
    }
}

TEST(IconvConversion, TextFormsNeedConvertedUtf8) {
    Iconv copy(CodePage::UTF8, CodePage::UTF8);
    const std::string text = "Grüße, 日本";
    const std::vector<std::int8_t> signedBytes(text.begin(), text.end());
    EXPECT_EQ(copy.convert(signedBytes), signedBytes);
    EXPECT_EQ(copy.convertToText(signedBytes), text);
    EXPECT_EQ(copy.convertToText(Bytes{}), std::nullopt); // nothing converted is no text
    EXPECT_EQ(copy.convertToText(Bytes{'a', 0xC3}), std::nullopt);

    Iconv toLatin(CodePage::UTF8, CodePage::ISO_8859_1);
    EXPECT_EQ(toLatin.convertToText(Bytes{0xC3, 0xA9}), std::nullopt);
    EXPECT_EQ(toLatin.convertToText(Bytes{'o', 'k'}), "ok");
    EXPECT_EQ(Iconv(CodePage::LATIN1, CodePage::UTF_8).convertToText(Bytes{'G', 'r', 0xFC, 'n'}), "Grün");
}

TEST(IconvConversion, ShiftStateIsNeitherFlushedNorReset) {
    // "日" in ISO-2022-JP: the shift into JIS X 0208, then two bytes. No shift back is written, and
    // the second call continues in the shifted state.
    Iconv toJis(CodePage::UTF8, CodePage::ISO_2022_JP);
    const Bytes input{0xE6, 0x97, 0xA5};
    EXPECT_EQ(toJis.convert(input), (Bytes{0x1B, '$', 'B', 0x46, 0x7C}));
    EXPECT_EQ(toJis.convert(input), (Bytes{0x46, 0x7C}));
}

} // namespace
} // namespace varnoth
