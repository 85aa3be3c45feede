#include "server/Framing.h"
#include "server/Utf16.h"

#include <gtest/gtest.h>

namespace varnoth::test {
namespace {

TEST(FramingTest, RequestIsMarkersDeclarationAndRequestElementWithNothingBetween) {
    const std::string wire = framing::frameRequest("T", "9.9", "<B/>");
    EXPECT_EQ(utf16::decode(wire), "##!! DATA BLOCK START !!##<?xml version=\"1.0\" encoding=\"utf-16\"?>"
                                   "<Request Type=\"T\" Version=\"9.9\" Source=\"DeploymentAgent\"><B/></Request>"
                                   "##!! DATA BLOCK END !!##");
    EXPECT_EQ(wire.substr(0, 4), std::string("\x23\x00\x23\x00", 4));
}

TEST(FramingTest, EndMarkerIsFoundOnlyWholeAndOnTheStreamsTwoByteGrid) {
    const std::string marker = utf16::encode("##!! DATA BLOCK END !!##");
    const std::string stream = utf16::encode("abc") + marker;
    EXPECT_TRUE(framing::chunkHoldsEndMarker(stream, 0));
    EXPECT_TRUE(framing::chunkHoldsEndMarker(stream, 6));
    EXPECT_FALSE(framing::chunkHoldsEndMarker(stream, 8)); // the marker began in the previous chunk

    // A chunk that starts at an odd offset is still read on the stream's grid.
    EXPECT_TRUE(framing::chunkHoldsEndMarker(stream, 5));
    // Bytes shifted by one are not a marker.
    EXPECT_FALSE(framing::chunkHoldsEndMarker("x" + stream, 0));
    EXPECT_EQ(framing::findEndMarker("x" + stream + "y" + marker), 1 + stream.size() + 1);
}

TEST(FramingTest, BrokenSurrogatesAndCutUnitsInAChunkDoNotHideTheMarker) {
    const std::string marker = utf16::encode("##!! DATA BLOCK END !!##");
    const std::string emoji = utf16::encode("😀");
    const std::string stream = emoji + std::string("\x00\xD8", 2) + marker;
    EXPECT_TRUE(framing::chunkHoldsEndMarker(stream, 2)); // starts in the middle of the pair
    EXPECT_TRUE(framing::chunkHoldsEndMarker(stream, 1)); // and inside a code unit
}

TEST(FramingTest, UnframeRemovesEveryMarkerThenRewritesEveryUtf16Declaration) {
    EXPECT_EQ(framing::unframe("##!! DATA BLOCK START !!##<a encoding=\"utf-16\">##!! DATA BLOCK END !!##x"
                               "##!! DATA BLOCK START !!## encoding=\"utf-16\"##!! DATA BLOCK END !!##"),
              "<a encoding=\"utf-8\">x encoding=\"utf-8\"");
    // Start markers go first, so an end marker that only appears once they are gone is removed too.
    EXPECT_EQ(framing::unframe("##!! DATA BLOCK E##!! DATA BLOCK START !!##ND !!##z"), "z");
    // Case-sensitive.
    EXPECT_EQ(framing::unframe("encoding=\"UTF-16\""), "encoding=\"UTF-16\"");
}

} // namespace
} // namespace varnoth::test
