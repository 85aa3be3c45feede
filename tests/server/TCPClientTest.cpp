#include "server/TCPClient.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace varnoth::test {
namespace {

using namespace std::chrono_literals;

// A loopback listener that accepts in the test's own thread.
class Listener {
public:
    Listener() {
        fd_ = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address);
        listen(fd_, 8);
        socklen_t length = sizeof address;
        getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length);
        port_ = ntohs(address.sin_port);
    }
    ~Listener() { close(fd_); }
    int port() const { return port_; }
    int accept() const { return ::accept(fd_, nullptr, nullptr); }

private:
    int fd_ = -1;
    int port_ = 0;
};

// Whether the peer of the accepted socket has closed (a read finds the end of the stream).
bool peerClosed(int accepted) {
    pollfd entry{accepted, POLLIN, 0};
    if (poll(&entry, 1, 2000) <= 0) {
        return false;
    }
    char byte;
    return recv(accepted, &byte, 1, 0) == 0;
}

TEST(TCPClientTest, ConstructionCausesNoTrafficAndKeepsTheAddress) {
    TCPClient client("no.such.host.invalid", 1);
    EXPECT_EQ(client.address(), "no.such.host.invalid");
    EXPECT_EQ(client.port(), 1);
    EXPECT_EQ(client.send("x")->localizedDescription, "Transport endpoint is not connected");
}

TEST(TCPClientTest, SocketIsClosedWhenTheClientIsDroppedOrConnectsAgain) {
    Listener listener;
    auto client = std::make_unique<TCPClient>("127.0.0.1", listener.port());
    ASSERT_EQ(client->connect(5), std::nullopt);
    const int first = listener.accept();
    ASSERT_EQ(client->connect(5), std::nullopt);
    const int second = listener.accept();
    EXPECT_TRUE(peerClosed(first));
    client.reset();
    EXPECT_TRUE(peerClosed(second));
    close(first);
    close(second);
}

TEST(TCPClientTest, ReadsReturnWhatArrivedUpToTheMaximum) {
    Listener listener;
    TCPClient client("localhost", listener.port()); // resolved by name
    ASSERT_EQ(client.connect(5), std::nullopt);
    const int peer = listener.accept();
    ASSERT_EQ(send(peer, "hello world", 11, 0), 11);
    std::string received;
    while (received.size() < 11) {
        if (auto bytes = client.read(5, -1)) {
            EXPECT_LE(bytes->size(), 5u);
            received += *bytes;
        }
    }
    EXPECT_EQ(received, "hello world");
    EXPECT_EQ(client.send("ping"), std::nullopt);
    char buffer[4];
    EXPECT_EQ(recv(peer, buffer, 4, MSG_WAITALL), 4);
    close(peer);
}

TEST(TCPClientTest, ReadWithoutTimeOutWaitsOneIdleSliceOnASilentOrClosedPeer) {
    Listener listener;
    TCPClient client("127.0.0.1", listener.port());
    client.idleWait = 150ms;
    ASSERT_EQ(client.connect(5), std::nullopt);
    const int peer = listener.accept();
    for (bool closed : {false, true}) {
        if (closed) {
            close(peer);
        }
        for (int i = 0; i < 2; ++i) {
            const auto started = std::chrono::steady_clock::now();
            EXPECT_EQ(client.read(100, -1), std::nullopt);
            const auto took = std::chrono::steady_clock::now() - started;
            EXPECT_GE(took, 140ms) << (closed ? "closed" : "silent");
            EXPECT_LT(took, 1s);
        }
    }
}

TEST(TCPClientTest, InvalidPortIsAConnectError) {
    TCPClient client("127.0.0.1", 70000);
    EXPECT_EQ(client.connect(1)->localizedDescription, "Invalid port: 70000");
}

} // namespace
} // namespace varnoth::test
