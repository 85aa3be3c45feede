#pragma once

#include "tools/signature-server/SignatureServer.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace varnoth::signatureserver {

// The network side of the demo server: listens, serves every connection on a thread of its own,
// reads requests up to their end marker and writes the answers with the configured faults.
class SocketServer {
public:
    static constexpr std::size_t maxRequestBytes = 32 * 1024 * 1024;
    static constexpr std::size_t maxConnections = 256;
    static constexpr int idleSeconds = 120; // a connection without traffic for this long is closed

    SocketServer(SignatureServer& server, const std::string& address, std::uint16_t port); // throws
    ~SocketServer();
    SocketServer(const SocketServer&) = delete;
    SocketServer& operator=(const SocketServer&) = delete;

    std::uint16_t port() const { return port_; }

    // Serves until stopFd becomes readable, then closes every connection and returns.
    void run(int stopFd);

private:
    struct Connection;
    void serve(int socket, int stopFd);

    SignatureServer& server_;
    int listener_ = -1;
    std::uint16_t port_ = 0;
};

} // namespace varnoth::signatureserver
