#pragma once

#include <optional>
#include <string>
#include <string_view>

// UTF-16 little-endian, the signature server's wire encoding, to and from the UTF-8 text the agent
// works with.
//
// Decisions of this codec:
// - Encoding never writes a byte-order mark. Bytes that are not valid UTF-8 become U+FFFD.
// - Decoding drops one byte-order mark (FF FE) at the very start; a U+FEFF anywhere else is text.
// - Decoding fails (no text) for an odd byte count and for a broken surrogate pair: a high surrogate
//   not followed by a low one, or a low surrogate on its own. Nothing is replaced silently.
namespace varnoth::utf16 {

std::string encode(std::string_view utf8);

std::optional<std::string> decode(std::string_view bytes);

// The UTF-8 text with each sequence that is no Unicode scalar value replaced with one U+FFFD: a surrogate,
// an overlong form or a value beyond U+10FFFF written as a lead byte and its continuation bytes (as an XML
// parser writes a character reference to one) is one sequence, any other stray byte one of its own.
std::string wellFormed(std::string utf8);

// The UTF-16LE bytes of a pure ASCII text (markers and other fixed texts).
std::string encodeAscii(std::string_view ascii);

} // namespace varnoth::utf16
