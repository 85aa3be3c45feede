#include "directory/Iconv.h"

#include <gtest/gtest.h>

namespace varnoth {
namespace {

using CodePage = Iconv::CodePage;
using Bytes = std::vector<std::uint8_t>;

// A handful of real code pages, found by their iconv names, convert as iconv does.
TEST(IconvCodePages, NamedCodePagesConvertAndUnconvertiblePairsThrow) {
    EXPECT_EQ(Iconv::allCodePages().size(), 403u);
    EXPECT_EQ(Iconv::caseName(CodePage::_850), "_850");
    EXPECT_EQ(Iconv::name(CodePage::BIG5_HKSCS_2004), "BIG5-HKSCS:2004");
    for (const char* notAName : {"utf-8", "UTF_8", "", "UTF-8 "}) {
        EXPECT_EQ(Iconv::codePage(notAName), std::nullopt) << notAName;
    }
    const struct {
        const char* from;
        Bytes input;
        std::string utf8;
    } rows[] = {
        {"CP850", {0x81, 0x9C}, "ü£"},
        {"CP1252", {0x80, 'x'}, "€x"},
        {"KOI8-R", {0xF0, 0xD2, 0xC9}, "При"},
        {"SHIFT-JIS", {0x93, 0xFA, 0x96, 0x7B}, "日本"},
        {"ISO-8859-15", {0xA4, 'x', 'y'}, "€xy"},
    };
    for (const auto& row : rows) {
        const auto page = Iconv::codePage(row.from);
        ASSERT_TRUE(page) << row.from;
        EXPECT_EQ(Iconv::name(*page), row.from);
        EXPECT_EQ(Iconv(*page, CodePage::UTF8).convertToText(row.input), row.utf8) << row.from;
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
