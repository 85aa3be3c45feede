#include "base/TextValues.h"

#include <algorithm>
#include <cmath>
#include <utf8proc.h>

namespace varnoth::text {

bool isValidUtf8(std::string_view text) {
    std::size_t i = 0;
    const std::size_t n = text.size();
    while (i < n) {
        const auto byte = static_cast<unsigned char>(text[i]);
        std::size_t length = 0;
        char32_t code = 0;
        if (byte < 0x80) {
            ++i;
            continue;
        } else if ((byte & 0xE0) == 0xC0) {
            length = 2;
            code = byte & 0x1F;
        } else if ((byte & 0xF0) == 0xE0) {
            length = 3;
            code = byte & 0x0F;
        } else if ((byte & 0xF8) == 0xF0) {
            length = 4;
            code = byte & 0x07;
        } else {
            return false;
        }
        if (i + length > n) {
            return false;
        }
        for (std::size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80) {
                return false;
            }
            code = (code << 6) | (next & 0x3F);
        }
        const char32_t minimum = length == 2 ? 0x80 : length == 3 ? 0x800 : 0x10000;
        if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
            return false;
        }
        i += length;
    }
    return true;
}

namespace {

// The length of a white-space or line-end character at the front (or back) of the text, else 0.
constexpr std::string_view unicodeSpaces[] = {
    "\u0085", "\u00A0", "\u1680", "\u2000", "\u2001", "\u2002", "\u2003", "\u2004", "\u2005", "\u2006",
    "\u2007", "\u2008", "\u2009", "\u200A", "\u2028", "\u2029", "\u202F", "\u205F", "\u3000",
};

bool isAsciiSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

std::size_t spaceAtFront(std::string_view text) {
    if (text.empty()) {
        return 0;
    }
    if (isAsciiSpace(text.front())) {
        return 1;
    }
    for (auto space : unicodeSpaces) {
        if (text.substr(0, space.size()) == space) {
            return space.size();
        }
    }
    return 0;
}

std::size_t spaceAtBack(std::string_view text) {
    if (text.empty()) {
        return 0;
    }
    if (isAsciiSpace(text.back())) {
        return 1;
    }
    for (auto space : unicodeSpaces) {
        if (text.size() >= space.size() && text.substr(text.size() - space.size()) == space) {
            return space.size();
        }
    }
    return 0;
}

} // namespace

std::string_view trimmed(std::string_view text) {
    while (std::size_t length = spaceAtFront(text)) {
        text.remove_prefix(length);
    }
    while (std::size_t length = spaceAtBack(text)) {
        text.remove_suffix(length);
    }
    return text;
}

namespace {

// Whether a decimal number beyond a float's range is too small for it rather than too large: its first
// significant digit stands right of the decimal point once the exponent is applied.
bool beyondRangeIsTiny(std::string_view text) {
    if (!text.empty() && text.front() == '-') {
        text.remove_prefix(1);
    }
    long long exponent = 0;
    if (const std::size_t mark = text.find_first_of("eE"); mark != std::string_view::npos) {
        std::string_view digits = text.substr(mark + 1);
        const bool negative = !digits.empty() && digits.front() == '-';
        if (!digits.empty() && digits.front() == '+') {
            digits.remove_prefix(1);
        }
        if (std::from_chars(digits.data(), digits.data() + digits.size(), exponent).ec != std::errc()) {
            return negative; // an exponent of more digits than a long long holds decides alone
        }
        text = text.substr(0, mark);
    }
    const auto point = static_cast<long long>(std::min(text.find('.'), text.size()));
    const std::size_t found = text.find_first_of("123456789");
    if (found == std::string_view::npos) {
        return true;
    }
    const auto first = static_cast<long long>(found);
    const long long position = first < point ? point - first - 1 : point - first; // 10 to this power
    return exponent < -position;
}

} // namespace

std::optional<float> parseFloat(std::string_view text) {
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
        if (!text.empty() && text.front() == '-') {
            return std::nullopt;
        }
    }
    float value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    if (error == std::errc::result_out_of_range) {
        // Like the platform's own parser: too large is infinite, too small is zero.
        const bool negative = text.front() == '-';
        if (beyondRangeIsTiny(text)) {
            return negative ? -0.0f : 0.0f;
        }
        return negative ? -INFINITY : INFINITY;
    }
    if (error != std::errc()) {
        return std::nullopt;
    }
    return value;
}

std::string shortestFloat(float value) {
    char buffer[64]; // FLT_MAX takes 39 digits, the smallest float 47 characters
    // Fixed notation: administrators read 600000.0 in the settings entry, not 6e+05.
    const auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed);
    std::string result(buffer, error == std::errc() ? end : buffer);
    if (std::isfinite(value) && result.find_first_of(".e") == std::string::npos) {
        result += ".0";
    }
    return result;
}

std::string lowercased(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    const auto size = static_cast<utf8proc_ssize_t>(text.size());
    for (utf8proc_ssize_t at = 0; at < size;) {
        utf8proc_int32_t code = 0;
        const utf8proc_ssize_t length = utf8proc_iterate(bytes + at, size - at, &code);
        if (length <= 0) {
            result += text[static_cast<std::size_t>(at++)];
            continue;
        }
        utf8proc_uint8_t encoded[4];
        result.append(reinterpret_cast<const char*>(encoded),
                      static_cast<std::size_t>(utf8proc_encode_char(utf8proc_tolower(code), encoded)));
        at += length;
    }
    return result;
}

std::string replaceAll(std::string text, std::string_view from, std::string_view to) {
    if (from.empty()) {
        return text;
    }
    std::string result;
    result.reserve(text.size());
    std::size_t start = 0;
    for (std::size_t found; (found = text.find(from, start)) != std::string::npos;
         start = found + from.size()) {
        result.append(text, start, found - start);
        result.append(to);
    }
    result.append(text, start, std::string::npos);
    return result;
}

} // namespace varnoth::text
