// Received answer bytes: end-marker search, strict UTF-16 decoding and unframing.
#include "fuzz/FuzzEnvironment.h"
#include "server/Framing.h"
#include "server/Utf16.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace varnoth;
    using fuzz::require;
    const std::string_view bytes = fuzz::bytes(data, size);

    // The whole stream as one chunk: the chunk test and the search must agree.
    const auto found = framing::findEndMarker(bytes);
    require(framing::chunkHoldsEndMarker(bytes, 0) == found.has_value());
    require(!found || (*found % 2 == 0 && *found + framing::endMarker.size() * 2 <= size));
    // Any cut of the stream: the chunk after it holds a marker exactly when a marker ends after the cut.
    const std::size_t cut = size > 0 ? data[0] % size : 0;
    auto ending = found;
    while (ending && *ending + framing::endMarker.size() * 2 <= cut) {
        ending = framing::findEndMarker(bytes, *ending + 2);
    }
    require(framing::chunkHoldsEndMarker(bytes, cut) == ending.has_value());

    if (const auto text = utf16::decode(bytes)) {
        // What decodes encodes back to the same bytes, less a leading byte-order mark.
        const bool bom = size >= 2 && data[0] == 0xFF && data[1] == 0xFE;
        require(utf16::encode(*text) == bytes.substr(bom ? 2 : 0));
        // Text without markers passes unframing unchanged, apart from the declared encoding.
        require(text->find("##") != std::string::npos ||
                text->find("encoding=\"utf-16\"") != std::string::npos || framing::unframe(*text) == *text);
    }
    // Arbitrary bytes read as UTF-8 text go out as valid UTF-16 (broken sequences become U+FFFD).
    require(utf16::decode(utf16::encode(bytes)).has_value());
    return 0;
}
