#include "server/Framing.h"
#include "server/Utf16.h"

#include <gtest/gtest.h>

namespace varnoth::test {
namespace {

TEST(FramingTest, EndMarkerIsFoundOnlyWholeAndOnTheStreamsTwoByteGrid) {
    const std::string marker = utf16::encode("##!! DATA BLOCK END !!##");
    const std::string stream = utf16::encode("abc") + marker;
    EXPECT_TRUE(framing::chunkHoldsEndMarker(stream, 0));
    EXPECT_TRUE(framing::chunkHoldsEndMarker(stream, 6));
    EXPECT_FALSE(framing::chunkHoldsEndMarker(stream, 8)); // the marker began in the previous chunk
    EXPECT_TRUE(framing::chunkHoldsEndMarker(stream, 5));  // an odd start is still read on the grid
    EXPECT_FALSE(framing::chunkHoldsEndMarker("x" + stream, 0));
    EXPECT_EQ(framing::findEndMarker("x" + stream + "y" + marker), 1 + stream.size() + 1);

    // A chunk starting inside a surrogate pair, or inside a code unit, before a lone high surrogate.
    const std::string broken = utf16::encode("😀") + std::string("\x00\xD8", 2) + marker;
    EXPECT_TRUE(framing::chunkHoldsEndMarker(broken, 2));
    EXPECT_TRUE(framing::chunkHoldsEndMarker(broken, 1));
}

TEST(FramingTest, UnframeRemovesEveryMarkerThenRewritesEveryUtf16Declaration) {
    EXPECT_EQ(framing::unframe("##!! DATA BLOCK START !!##<a encoding=\"utf-16\">##!! DATA BLOCK END !!##x"
                               "##!! DATA BLOCK START !!## encoding=\"utf-16\"##!! DATA BLOCK END !!##"),
              "<a encoding=\"utf-8\">x encoding=\"utf-8\"");
    // Start markers go first, so an end marker that only appears once they are gone is removed too.
    EXPECT_EQ(framing::unframe("##!! DATA BLOCK E##!! DATA BLOCK START !!##ND !!##z"), "z");
    EXPECT_EQ(framing::unframe("encoding=\"UTF-16\""), "encoding=\"UTF-16\""); // case-sensitive
}

} // namespace
} // namespace varnoth::test
