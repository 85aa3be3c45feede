#include "server/Framing.h"

#include "core/TextValues.h"
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
    return findEndMarker(stream, chunkStart).has_value();
}

std::string unframe(std::string text) {
    text = text::replaceAll(std::move(text), startMarker, "");
    text = text::replaceAll(std::move(text), endMarker, "");
    return text::replaceAll(std::move(text), R"(encoding="utf-16")", R"(encoding="utf-8")");
}

} // namespace varnoth::framing
