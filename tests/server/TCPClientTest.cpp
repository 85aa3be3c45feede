#include "server/TCPClient.h"
#include "tests/support/LoopbackListener.h"

#include <gtest/gtest.h>
#include <memory>
#include <poll.h>
#include <unistd.h>

namespace varnoth::test {
namespace {

// Whether the peer of the accepted socket has closed (a read finds the end of the stream).
bool peerClosed(int accepted) {
    pollfd entry{accepted, POLLIN, 0};
    char byte;
    return poll(&entry, 1, 2000) > 0 && recv(accepted, &byte, 1, 0) == 0;
}

TEST(TCPClientTest, ConstructionCausesNoTrafficAndABadPortFailsTheConnect) {
    TCPClient client("no.such.host.invalid", 1);
    EXPECT_EQ(client.send("x")->localizedDescription, "Transport endpoint is not connected");
    EXPECT_EQ(TCPClient("127.0.0.1", 65536).connect(1)->localizedDescription, "Invalid port: 65536");
    // A refused connect leaves no descriptor open: the lowest free one is the same before and after.
    const auto lowestFree = [] {
        const int fd = ::dup(0);
        ::close(fd);
        return fd;
    };
    const int free = lowestFree();
    const auto highest = TCPClient("127.0.0.1", 65535).connect(1);
    EXPECT_TRUE(!highest || highest->localizedDescription != "Invalid port: 65535");
    EXPECT_EQ(lowestFree(), free);
}

TEST(TCPClientTest, ReadsAndSendsOverANamedHostAndTheSocketClosesOnReconnectAndDrop) {
    LoopbackListener listener;
    auto client = std::make_unique<TCPClient>("localhost", listener.port());
    ASSERT_EQ(client->connect(5), std::nullopt);
    const int first = listener.accept();
    ASSERT_EQ(send(first, "hello world", 11, 0), 11);
    std::string received;
    while (received.size() < 11) {
        const auto bytes = client->read(5, -1).value_or("");
        EXPECT_LE(bytes.size(), 5u);
        received += bytes;
    }
    EXPECT_EQ(received, "hello world");
    EXPECT_EQ(client->send("ping"), std::nullopt);
    char buffer[4];
    EXPECT_EQ(recv(first, buffer, 4, MSG_WAITALL), 4);

    ASSERT_EQ(client->connect(5), std::nullopt);
    const int second = listener.accept();
    EXPECT_TRUE(peerClosed(first));
    client.reset();
    EXPECT_TRUE(peerClosed(second));
    close(first);
    close(second);
}

} // namespace
} // namespace varnoth::test
