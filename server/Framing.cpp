#include "server/Framing.h"

#include "server/Utf16.h"

#include <cstring>

namespace varnoth::framing {

namespace {

const std::string& endMarkerBytes() {
    static const std::string bytes = utf16::encodeAscii(endMarker);
    return bytes;
}

} // namespace

std::string frameRequest(std::string_view type, std::string_view version, std::string_view body) {
    std::string text;
    text.reserve(startMarker.size() + xmlDeclaration.size() + body.size() + 128);
    text.append(xmlDeclaration);
    text.append("<Request Type=\"").append(type).append("\" Version=\"").append(version);
    text.append("\" Source=\"DeploymentAgent\">").append(body).append("</Request>");
    return frameText(text);
}

std::string frameText(std::string_view text) {
    std::string bytes = utf16::encodeAscii(startMarker);
    bytes += utf16::encode(text);
    bytes += endMarkerBytes();
    return bytes;
}

std::optional<std::size_t> findEndMarker(std::string_view stream, std::size_t from) {
    const std::string& marker = endMarkerBytes();
    from += from % 2;
    while (from < stream.size()) {
        const void* hit = memmem(stream.data() + from, stream.size() - from, marker.data(), marker.size());
        if (hit == nullptr) {
            return std::nullopt;
        }
        const auto offset = static_cast<std::size_t>(static_cast<const char*>(hit) - stream.data());
        if (offset % 2 == 0) {
            return offset;
        }
        from = offset + 1;
    }
    return std::nullopt;
}

bool chunkHoldsEndMarker(std::string_view stream, std::size_t chunkStart) {
    const std::size_t lookBack = endMarkerBytes().size() - 1;
    return findEndMarker(stream, chunkStart > lookBack ? chunkStart - lookBack : 0).has_value();
}

bool holdsMarker(std::string_view text) {
    return text.find(startMarker) != std::string_view::npos || text.find(endMarker) != std::string_view::npos;
}

// Replaces every occurrence, left to right, by a text no longer than it, in place.
static void replaceInPlace(std::string& text, std::string_view from, std::string_view to) {
    char* const data = text.data();
    const std::size_t size = text.size();
    std::size_t read = 0;
    std::size_t write = 0;
    for (;;) {
        const void* hit = memmem(data + read, size - read, from.data(), from.size());
        const std::size_t found =
            hit == nullptr ? size : static_cast<std::size_t>(static_cast<const char*>(hit) - data);
        if (write != read) {
            std::memmove(data + write, data + read, found - read);
        }
        write += found - read;
        if (hit == nullptr) {
            break;
        }
        std::memcpy(data + write, to.data(), to.size());
        write += to.size();
        read = found + from.size();
    }
    text.resize(write);
}

std::string unframe(std::string text) {
    replaceInPlace(text, startMarker, "");
    replaceInPlace(text, endMarker, "");
    replaceInPlace(text, R"(encoding="utf-16")", R"(encoding="utf-8")");
    return text;
}

} // namespace varnoth::framing
