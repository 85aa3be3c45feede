#pragma once

#include "platform/posix/Descriptors.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace varnoth::test {

// A TCP listener on a free 127.0.0.1 port that accepts in the test's own thread.
class LoopbackListener {
public:
    explicit LoopbackListener(int backlog = 8) : fd_(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address);
        listen(fd_, backlog);
        socklen_t length = sizeof address;
        getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length);
        port_ = ntohs(address.sin_port);
    }
    ~LoopbackListener() { close(fd_); }
    LoopbackListener(const LoopbackListener&) = delete;
    LoopbackListener& operator=(const LoopbackListener&) = delete;

    int port() const { return port_; }
    int accept() const { return Descriptors::accept(fd_); }
    // A loopback port on which nothing listens.
    static int closedPort() { return LoopbackListener().port(); }

    // How many bytes a loopback connection takes in while its peer never reads: the kernel grows the
    // send buffer as it goes, so this sends until a pause brings no more room. A send larger than this
    // must wait for the peer, whatever the machine's settings.
    static std::size_t unreadCapacity() {
        const LoopbackListener listener;
        const int client = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<std::uint16_t>(listener.port()));
        connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address);
        const int peer = listener.accept();
        Descriptors::setNonBlocking(client);
        const std::string chunk(1 << 16, 'a');
        std::size_t total = 0;
        for (std::size_t before = SIZE_MAX; total != before;) {
            before = total;
            for (ssize_t sent; (sent = ::send(client, chunk.data(), chunk.size(), 0)) > 0;) {
                total += static_cast<std::size_t>(sent);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        close(client);
        close(peer);
        return total;
    }

private:
    int fd_;
    int port_ = 0;
};

} // namespace varnoth::test
