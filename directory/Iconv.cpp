#include "directory/Iconv.h"

#include "base/TextValues.h"

#include <array>
#include <iconv.h>

namespace varnoth {

namespace {

struct CodePageNames {
    std::string_view iconvName;
    std::string_view caseName;
};

constexpr std::array<CodePageNames, Iconv::codePageCount> codePageNames{{
#define VARNOTH_CODE_PAGE(name, iconvName) {iconvName, #name},
#include "directory/CodePages.inc"
#undef VARNOTH_CODE_PAGE
}};

const iconv_t failedDescriptor = reinterpret_cast<iconv_t>(-1);

} // namespace

std::string_view Iconv::name(CodePage codePage) {
    return codePageNames.at(static_cast<std::size_t>(codePage)).iconvName;
}

std::string_view Iconv::caseName(CodePage codePage) {
    return codePageNames.at(static_cast<std::size_t>(codePage)).caseName;
}

std::optional<Iconv::CodePage> Iconv::codePage(std::string_view iconvName) {
    for (std::size_t index = 0; index < codePageNames.size(); ++index) {
        if (codePageNames[index].iconvName == iconvName) {
            return static_cast<CodePage>(index);
        }
    }
    return std::nullopt;
}

std::vector<Iconv::CodePage> Iconv::allCodePages() {
    std::vector<CodePage> pages;
    pages.reserve(codePageCount);
    for (std::size_t index = 0; index < codePageCount; ++index) {
        pages.push_back(static_cast<CodePage>(index));
    }
    return pages;
}

Iconv::Iconv(CodePage from, CodePage to) {
    const iconv_t descriptor = iconv_open(std::string(name(to)).c_str(), std::string(name(from)).c_str());
    if (descriptor == failedDescriptor) {
        throw Exception(Exception::INVALID_ENCODING);
    }
    cd = descriptor;
}

Iconv::~Iconv() {
    if (cd != nullptr) {
        iconv_close(static_cast<iconv_t>(cd));
    }
}

std::optional<std::vector<std::uint8_t>> Iconv::convert(const void* bytes, std::size_t count) {
    // One call into a fixed buffer: the directory's values are short, and a value that does not fit
    // is treated like one that does not convert.
    std::vector<std::uint8_t> output(2 * count, 0);
    // iconv reads a null input as "flush the shift state"; an empty input must stay a conversion.
    static char emptyBuffer = 0;
    char* input = count > 0 ? const_cast<char*>(static_cast<const char*>(bytes)) : &emptyBuffer;
    char* outputCursor = output.empty() ? &emptyBuffer : reinterpret_cast<char*>(output.data());
    std::size_t inputLeft = count;
    std::size_t outputLeft = output.size();
    if (iconv(static_cast<iconv_t>(cd), &input, &inputLeft, &outputCursor, &outputLeft) ==
        static_cast<size_t>(-1)) {
        return std::nullopt;
    }
    output.resize(output.size() - outputLeft);
    return output;
}

std::vector<std::uint8_t> Iconv::convert(const std::vector<std::uint8_t>& bytes) {
    return convert(bytes.data(), bytes.size()).value_or(std::vector<std::uint8_t>{});
}

std::vector<std::int8_t> Iconv::convert(const std::vector<std::int8_t>& bytes) {
    const auto converted = convert(bytes.data(), bytes.size());
    if (!converted) {
        return {};
    }
    return std::vector<std::int8_t>(converted->begin(), converted->end());
}

namespace {

std::optional<std::string> utf8Text(const std::optional<std::vector<std::uint8_t>>& bytes) {
    if (!bytes || bytes->empty()) {
        return std::nullopt;
    }
    std::string text(bytes->begin(), bytes->end());
    if (!text::isValidUtf8(text)) {
        return std::nullopt;
    }
    return text;
}

} // namespace

std::optional<std::string> Iconv::convertToText(const std::vector<std::uint8_t>& bytes) {
    return utf8Text(convert(bytes.data(), bytes.size()));
}

std::optional<std::string> Iconv::convertToText(const std::vector<std::int8_t>& bytes) {
    return utf8Text(convert(bytes.data(), bytes.size()));
}

} // namespace varnoth
