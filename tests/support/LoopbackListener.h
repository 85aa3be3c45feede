#pragma once

#include "platform/posix/Descriptors.h"

#include <netinet/in.h>
#include <sys/socket.h>
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

private:
    int fd_;
    int port_ = 0;
};

} // namespace varnoth::test
