// Received answer bytes: end-marker search, strict UTF-16 decoding and unframing.
#include "fuzz/FuzzEnvironment.h"
#include "server/Framing.h"
#include "server/Utf16.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    varnoth::fuzz::FuzzEnvironment::setUp();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace varnoth;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);

    // The whole stream as one chunk: the chunk test and the search must agree.
    const bool held = framing::chunkHoldsEndMarker(bytes, 0);
    const auto found = framing::findEndMarker(bytes);
    if (held != found.has_value()) {
        std::abort();
    }
    if (found && (*found % 2 != 0 || *found + framing::endMarker.size() * 2 > size)) {
        std::abort();
    }
    // Any cut of the stream: a chunk holding a marker means the stream holds one from before it.
    if (size > 0) {
        const std::size_t cut = data[0] % size;
        if (framing::chunkHoldsEndMarker(bytes, cut) &&
            !framing::findEndMarker(bytes, cut & ~std::size_t{1})) {
            std::abort();
        }
    }

    const auto text = utf16::decode(bytes);
    if (text) {
        // What decodes encodes back to the same bytes, less a leading byte-order mark.
        const bool bom = size >= 2 && data[0] == 0xFF && data[1] == 0xFE;
        if (utf16::encode(*text) != bytes.substr(bom ? 2 : 0)) {
            std::abort();
        }
        // Text without markers passes unframing unchanged, apart from the declared encoding.
        if (text->find("##") == std::string::npos && text->find("encoding=\"utf-16\"") == std::string::npos &&
            framing::unframe(*text) != *text) {
            std::abort();
        }
    }
    // Arbitrary bytes read as UTF-8 text go out as valid UTF-16 (broken sequences become U+FFFD).
    if (!utf16::decode(utf16::encode(bytes))) {
        std::abort();
    }
    return 0;
}
