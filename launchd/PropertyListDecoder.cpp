#include "launchd/PropertyListDecoder.h"

#include "launchd/PropertyListError.h"

#include <cctype>
#include <charconv>
#include <cstdint>
#include <limits>
#include <string>

namespace varnoth {

namespace {

// The text libplist's XML reader gives an integer beyond the signed 64-bit range upwards: it reads it
// as a 16-byte integer, which decoding refuses.
constexpr std::string_view beyondRange = "18446744073709551616";

// Whether the text of an XML integer is a negative number below the signed 64-bit range, read as
// libplist reads it (leading white space, a sign, then decimal, 0x hexadecimal or 0 octal digits).
bool belowSigned64Bits(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) {
        text.remove_prefix(1);
    }
    if (text.empty() || text.front() != '-') {
        return false;
    }
    text.remove_prefix(1);
    int base = 10;
    if (text.size() > 1 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    } else if (text.size() > 1 && text[0] == '0') {
        base = 8;
    }
    std::uint64_t magnitude = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), magnitude, base);
    return result.ec == std::errc::result_out_of_range ||
           (result.ec == std::errc() && magnitude > std::uint64_t{1} << 63);
}

// libplist's XML reader wraps a negative integer below the signed 64-bit range around into another
// value without telling. Such an integer's text is replaced by one the reader marks as too large, so
// decoding refuses it at its key like any other integer out of range. Comments, CDATA sections and
// other markup declarations are skipped, so text inside them is never changed.
std::string markIntegersBelowRange(std::string_view xml) {
    static constexpr std::string_view open = "<integer>", close = "</integer>";
    static constexpr std::pair<std::string_view, std::string_view> skipped[] = {
        {"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<!", ">"}, {"<?", "?>"}};
    std::string result;
    std::size_t copied = 0;
    for (std::size_t at = xml.find('<'); at != std::string_view::npos; at = xml.find('<', at + 1)) {
        const std::string_view rest = xml.substr(at);
        bool declaration = false;
        for (const auto& [start, end] : skipped) {
            if (rest.starts_with(start)) {
                const std::size_t stop = xml.find(end, at + start.size());
                at = stop == std::string_view::npos ? xml.size() - 1 : stop;
                declaration = true;
                break;
            }
        }
        if (declaration || !rest.starts_with(open)) {
            continue;
        }
        const std::size_t textStart = at + open.size();
        const std::size_t textEnd = xml.find(close, textStart);
        if (textEnd == std::string_view::npos) {
            break;
        }
        if (belowSigned64Bits(xml.substr(textStart, textEnd - textStart))) {
            result.append(xml.substr(copied, textStart - copied)).append(beyondRange);
            copied = textEnd;
        }
        at = textEnd;
    }
    return copied == 0 ? std::string() : result.append(xml.substr(copied));
}

} // namespace

PlistNode PropertyListDecoder::parse(std::string_view bytes) {
    std::string marked;
    if (!bytes.starts_with("bplist")) {
        marked = markIntegersBelowRange(bytes);
        if (!marked.empty()) {
            bytes = marked;
        }
    }
    if (bytes.empty() || bytes.size() > std::numeric_limits<std::uint32_t>::max()) {
        throw PropertyListError(PropertyListError::Kind::dataCorrupted, {},
                                "the data is not a property list");
    }
    plist_t root = nullptr;
    plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
    if (root == nullptr) {
        throw PropertyListError(PropertyListError::Kind::dataCorrupted, {},
                                "the data is not a property list");
    }
    return PlistNode(root);
}

} // namespace varnoth
