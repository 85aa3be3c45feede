#include "server/Utf16.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace varnoth::utf16 {

namespace {

constexpr char32_t replacement = 0xFFFD;

void appendUnit(std::string& out, std::uint16_t unit) {
    out.push_back(static_cast<char>(unit & 0xFF));
    out.push_back(static_cast<char>(unit >> 8));
}

// The UTF-8 sequence at position i: how many bytes it spans and whether it is a Unicode scalar value.
// A lead byte with the continuation bytes it calls for is one sequence even when its value is a
// surrogate, beyond U+10FFFF or overlong; any other byte is a sequence of its own.
struct Sequence {
    std::size_t length;
    char32_t value;
    bool valid;
};

Sequence sequenceAt(std::string_view text, std::size_t i) {
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = byte(i);
    if (lead < 0x80) {
        return {1, lead, true};
    }
    std::size_t length = 0;
    char32_t value = 0;
    char32_t minimum = 0;
    if ((lead & 0xE0) == 0xC0) {
        length = 2, value = lead & 0x1F, minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3, value = lead & 0x0F, minimum = 0x800;
    } else if (lead >= 0xF0) {
        // F8 to FF start no UTF-8, but an XML parser writes a reference beyond U+1FFFFF with them.
        length = 4, value = lead & 0x07, minimum = 0x10000;
    } else {
        return {1, replacement, false};
    }
    if (i + length > text.size()) {
        return {1, replacement, false};
    }
    for (std::size_t k = 1; k < length; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80) {
            return {1, replacement, false};
        }
        value = (value << 6) | (byte(i + k) & 0x3F);
    }
    const bool valid =
        lead < 0xF8 && value >= minimum && value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF);
    return {length, value, valid};
}

// One code point from UTF-8 at position i; invalid sequences yield U+FFFD and consume one byte.
char32_t nextCodePoint(std::string_view text, std::size_t& i) {
    const Sequence sequence = sequenceAt(text, i);
    if (!sequence.valid) {
        ++i;
        return replacement;
    }
    i += sequence.length;
    return sequence.value;
}

std::uint16_t unitAt(const unsigned char* data, std::size_t index) {
    return static_cast<std::uint16_t>(data[2 * index] | (data[2 * index + 1] << 8));
}

// Whether the four code units at index are all ASCII.
bool fourAscii(const unsigned char* data, std::size_t index) {
    std::uint64_t block;
    std::memcpy(&block, data + 2 * index, sizeof block);
    return (block & 0xFF80FF80FF80FF80ULL) == 0;
}

bool isHigh(std::uint16_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool isLow(std::uint16_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

} // namespace

std::string encode(std::string_view utf8) {
    std::string out;
    out.reserve(utf8.size() * 2);
    for (std::size_t i = 0; i < utf8.size();) {
        const char32_t point = nextCodePoint(utf8, i);
        if (point >= 0x10000) {
            const char32_t offset = point - 0x10000;
            appendUnit(out, static_cast<std::uint16_t>(0xD800 + (offset >> 10)));
            appendUnit(out, static_cast<std::uint16_t>(0xDC00 + (offset & 0x3FF)));
        } else {
            appendUnit(out, static_cast<std::uint16_t>(point));
        }
    }
    return out;
}

std::string encodeAscii(std::string_view ascii) {
    std::string out(ascii.size() * 2, '\0');
    for (std::size_t i = 0; i < ascii.size(); ++i) {
        out[2 * i] = ascii[i];
    }
    return out;
}

std::string wellFormed(std::string utf8) {
    std::size_t i = 0;
    while (i < utf8.size()) {
        const Sequence sequence = sequenceAt(utf8, i);
        if (!sequence.valid) {
            break;
        }
        i += sequence.length;
    }
    if (i == utf8.size()) {
        return utf8;
    }
    std::string out = utf8.substr(0, i);
    while (i < utf8.size()) {
        const Sequence sequence = sequenceAt(utf8, i);
        if (sequence.valid) {
            out.append(utf8, i, sequence.length);
        } else {
            out += "\xEF\xBF\xBD";
        }
        i += sequence.length;
    }
    return out;
}

std::optional<std::string> decode(std::string_view bytes) {
    if (bytes.size() % 2 != 0) {
        return std::nullopt;
    }
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    std::size_t count = bytes.size() / 2;
    if (count > 0 && unitAt(data, 0) == 0xFEFF) {
        data += 2;
        --count;
    }

    // One pass. Every code unit gives at least one byte, so the text starts with room for an ASCII
    // answer plus some slack and grows only when other characters use the slack up.
    std::string out(count + count / 8 + 8, '\0');
    std::size_t write = 0;
    for (std::size_t i = 0; i < count; ++i) {
        if (i + 4 <= count && fourAscii(data, i)) {
            // Bytes a 0 b 0 c 0 d 0 become a b c d.
            std::uint64_t block;
            std::memcpy(&block, data + 2 * i, sizeof block);
            block |= block >> 8;
            block &= 0x0000FFFF0000FFFFULL;
            block |= block >> 16;
            const auto packed = static_cast<std::uint32_t>(block);
            std::memcpy(out.data() + write, &packed, sizeof packed);
            write += 4;
            i += 3;
            continue;
        }
        const std::uint16_t unit = unitAt(data, i);
        if (unit < 0x80) {
            out[write++] = static_cast<char>(unit);
            continue;
        }
        // Room for this character (at most two bytes more than its units) and one byte per unit after it.
        if (const std::size_t need = write + (count - i) + 2; need > out.size()) {
            out.resize(std::max(need, out.size() + out.size() / 2));
        }
        char* at = out.data() + write;
        if (unit < 0x800) {
            at[0] = static_cast<char>(0xC0 | (unit >> 6));
            at[1] = static_cast<char>(0x80 | (unit & 0x3F));
            write += 2;
        } else if (isHigh(unit)) {
            if (i + 1 >= count || !isLow(unitAt(data, i + 1))) {
                return std::nullopt;
            }
            const char32_t point =
                0x10000 + ((static_cast<char32_t>(unit) - 0xD800) << 10) + (unitAt(data, ++i) - 0xDC00);
            at[0] = static_cast<char>(0xF0 | (point >> 18));
            at[1] = static_cast<char>(0x80 | ((point >> 12) & 0x3F));
            at[2] = static_cast<char>(0x80 | ((point >> 6) & 0x3F));
            at[3] = static_cast<char>(0x80 | (point & 0x3F));
            write += 4;
        } else if (isLow(unit)) {
            return std::nullopt;
        } else {
            at[0] = static_cast<char>(0xE0 | (unit >> 12));
            at[1] = static_cast<char>(0x80 | ((unit >> 6) & 0x3F));
            at[2] = static_cast<char>(0x80 | (unit & 0x3F));
            write += 3;
        }
    }
    out.resize(write);
    return out;
}

} // namespace varnoth::utf16
