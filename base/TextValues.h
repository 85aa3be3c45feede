#pragma once

#include <charconv>
#include <optional>
#include <string>
#include <string_view>

// Small text conversions that several subsystems share: strict number parsing that ignores the
// user's locale, UTF-8 validation, trimming, lower case and substring replacement.
namespace varnoth::text {

bool isValidUtf8(std::string_view text);

// White space and line ends (Unicode's, not only ASCII's) removed from both ends.
std::string_view trimmed(std::string_view text);

// A whole decimal integer with an optional leading sign; nothing when it does not fit.
template <typename Integer> std::optional<Integer> parseInteger(std::string_view text) {
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
        if (!text.empty() && text.front() == '-') {
            return std::nullopt;
        }
    }
    Integer value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

// A whole single-precision number with "." as decimal point; no leading white space.
std::optional<float> parseFloat(std::string_view text);

// The shortest text that reads back as the same float, with at least one fractional digit (60.0).
std::string shortestFloat(float value);

// Every character in lower case by Unicode's simple mapping ("ÄRGER" gives "ärger"); a byte that is not
// part of UTF-8 stays as it is.
std::string lowercased(std::string_view text);

std::string replaceAll(std::string text, std::string_view from, std::string_view to);

} // namespace varnoth::text
