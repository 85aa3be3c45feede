#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

// The signature server's message frame: "##!! DATA BLOCK START !!##", an XML document, then
// "##!! DATA BLOCK END !!##", the whole text carried as UTF-16 little-endian without byte-order mark.
namespace varnoth::framing {

inline constexpr std::string_view startMarker = "##!! DATA BLOCK START !!##";
inline constexpr std::string_view endMarker = "##!! DATA BLOCK END !!##";
inline constexpr std::string_view xmlDeclaration = R"(<?xml version="1.0" encoding="utf-16"?>)";

// The wire bytes of a request: start marker, declaration, the Request element with the attributes
// Type, Version and Source="DeploymentAgent", the body, and the end marker.
std::string frameRequest(std::string_view type, std::string_view version, std::string_view body);

// The wire bytes of any text between the two markers (used by the demo server for its answers).
std::string frameText(std::string_view text);

// Whether an end marker of the received stream ends in the chunk that starts at chunkStart.
//
// The network may cut the stream anywhere, the marker included, so the test looks back into the
// stream by all of the marker but its last byte. The stream is read on its two-byte grid rather than
// from the chunk's first byte: when the bytes before it were an odd count, its first byte completes
// the previous code unit. A broken surrogate pair cannot hide the (ASCII) marker; the strict decoding
// of the whole answer is what rejects broken bytes.
bool chunkHoldsEndMarker(std::string_view stream, std::size_t chunkStart);

// The offset, on the two-byte grid and at or after from, of the first end marker of a UTF-16LE
// stream, or nothing.
std::optional<std::size_t> findEndMarker(std::string_view stream, std::size_t from = 0);

// Whether the text holds a start or end marker.
bool holdsMarker(std::string_view text);

// The answer text with every start marker removed, then every end marker, then every
// encoding="utf-16" rewritten to encoding="utf-8".
std::string unframe(std::string text);

} // namespace varnoth::framing
