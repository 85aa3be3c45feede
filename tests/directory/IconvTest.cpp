#include "directory/Iconv.h"
#include "tests/support/Golden.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <sstream>

namespace varnoth {
namespace {

using Bytes = std::vector<std::uint8_t>;

// Bytes below 0x20 (and any above 0x7E too, unless `text`) as \xHH; a backslash doubled.
std::string escaped(const std::string& bytes, bool text) {
    std::string result;
    for (const char byte : bytes) {
        const auto code = static_cast<std::uint8_t>(byte);
        char hex[5];
        std::snprintf(hex, sizeof hex, "\\x%02X", code);
        result += byte == '\\' ? "\\\\" : code >= 0x20 && (text || code < 0x7F) ? std::string(1, byte) : hex;
    }
    return result;
}

// The cases of tests/golden/directory/iconv.txt: code pages by name, and conversions whose answer is the
// bytes in brackets and the text, every form (pointer, either vector, text) on a fresh converter agreeing;
// "again" converts once more with the last one.
TEST(Iconv, CodePagesAndConversions) {
    std::unique_ptr<Iconv> last;
    test::expectTranscript("directory/iconv", [&](const std::string& word, const std::string& rest) {
        const auto page = Iconv::codePage(test::unescaped(rest));
        if (word == "count" || word == "page") {
            return word == "count" ? std::to_string(Iconv::allCodePages().size())
                   : page ? std::string(Iconv::caseName(*page)) + " " + std::string(Iconv::name(*page))
                          : "none";
        }
        std::istringstream in(rest);
        std::string from, to, input;
        std::getline(in >> from >> to >> std::ws, input);
        const std::string bytes = test::unescaped(word == "again" ? rest : input);
        const Bytes unsignedBytes(bytes.begin(), bytes.end());
        const std::vector<std::int8_t> signedBytes(bytes.begin(), bytes.end());
        const auto fresh = [&] {
            return std::make_unique<Iconv>(*Iconv::codePage(from), *Iconv::codePage(to));
        };
        try {
            if (word != "again") {
                last = fresh();
            }
            const auto converted = last->convert(unsignedBytes.data(), unsignedBytes.size());
            const Bytes plain = converted.value_or(Bytes{});
            if (word == "again") {
                return "[" + escaped(std::string(plain.begin(), plain.end()), false) + "]";
            }
            EXPECT_EQ(fresh()->convert(unsignedBytes), plain) << rest;
            EXPECT_EQ(fresh()->convert(signedBytes), std::vector<std::int8_t>(plain.begin(), plain.end()))
                << rest;
            const auto text = fresh()->convertToText(unsignedBytes);
            EXPECT_EQ(fresh()->convertToText(signedBytes), text) << rest;
            return (converted ? "[" + escaped(std::string(plain.begin(), plain.end()), false) + "]"
                              : "none") +
                   " text " + (text ? escaped(*text, true) : "none");
        } catch (const Iconv::Exception& error) {
            return std::string(error.what()) + (error.value == Iconv::Exception::INVALID_ENCODING ? "" : "?");
        }
    });
}

} // namespace
} // namespace varnoth
