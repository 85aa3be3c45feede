#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace varnoth {

// A converter between two character sets on the platform's iconv. The output of one conversion is
// bounded by twice the input's size and a conversion is never resumed: text that needs more room,
// or is invalid in the source set, gives no result. Not for use from two threads at once: the
// descriptor carries shift state from one call to the next.
class Iconv {
public:
    enum class CodePage {
#define VARNOTH_CODE_PAGE(name, iconvName) name,
#include "directory/CodePages.inc"
#undef VARNOTH_CODE_PAGE
    };

    static constexpr std::size_t codePageCount = 0
#define VARNOTH_CODE_PAGE(name, iconvName) +1
#include "directory/CodePages.inc"
#undef VARNOTH_CODE_PAGE
        ;

    class Exception : public std::runtime_error {
    public:
        enum Case { INVALID_ENCODING };
        explicit Exception(Case value) : std::runtime_error("INVALID_ENCODING"), value(value) {}
        Case value;
    };

    // The name iconv knows the code page by.
    static std::string_view name(CodePage codePage);
    // The case's own name in the enumeration, e.g. "_850" for "850".
    static std::string_view caseName(CodePage codePage);
    // Only the exact iconv names are accepted: "utf-8" is not "UTF-8".
    static std::optional<CodePage> codePage(std::string_view iconvName);
    static std::vector<CodePage> allCodePages();

    // Throws Exception(INVALID_ENCODING) when the platform cannot convert between the two.
    Iconv(CodePage from, CodePage to);
    ~Iconv();
    Iconv(const Iconv&) = delete;
    Iconv& operator=(const Iconv&) = delete;

    // The converted bytes (their count is the vector's size), or nothing on any failure.
    std::optional<std::vector<std::uint8_t>> convert(const void* bytes, std::size_t count);
    // Empty on failure.
    std::vector<std::uint8_t> convert(const std::vector<std::uint8_t>& bytes);
    std::vector<std::int8_t> convert(const std::vector<std::int8_t>& bytes);
    // The converted bytes read as UTF-8; nothing when the conversion failed, gave no bytes or gave
    // invalid UTF-8.
    std::optional<std::string> convertToText(const std::vector<std::uint8_t>& bytes);
    std::optional<std::string> convertToText(const std::vector<std::int8_t>& bytes);

private:
    void* cd = nullptr; // iconv_t
};

} // namespace varnoth
