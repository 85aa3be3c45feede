#include "server/Framing.h"
#include "server/Utf16.h"
#include "tests/support/Golden.h"

#include <gtest/gtest.h>

namespace varnoth::test {
namespace {

// A stream is its pieces after the offset, each sent as UTF-16 unless it is written "raw bytes".
TEST(FramingTest, FindsTheEndMarkerAndUnframesAsTheTableSays) {
    expectTranscript("server/framing", [](const std::string& word, const std::string& rest) {
        const auto pieces = caseArguments(rest);
        std::string stream;
        for (std::size_t i = word == "holds"; i < pieces.size(); ++i) {
            stream += pieces[i].starts_with("raw ") ? pieces[i].substr(4) : utf16::encode(pieces[i]);
        }
        const auto found = framing::findEndMarker(stream);
        if (word == "cuts") {
            std::string marks;
            for (std::size_t cut = 0; cut < stream.size(); ++cut) {
                marks += framing::chunkHoldsEndMarker(stream, cut) ? 'y' : 'n';
            }
            return marks;
        }
        return word == "unframe" ? framing::unframe(pieces[0])
               : word == "find"
                   ? (found ? std::to_string(*found) : "nothing")
                   : (framing::chunkHoldsEndMarker(stream, std::stoul(pieces[0])) ? "yes" : "no");
    });
}

} // namespace
} // namespace varnoth::test
