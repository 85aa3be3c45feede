#pragma once

#include "tests/support/LoopbackListener.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

namespace varnoth::test {

// A loopback TCP server for the faults the demo server cannot play: a thread accepts connections on
// 127.0.0.1 and hands each one's socket and received request (read up to its end marker) to a script.
// Connections are served one after the other; the destructor stops the thread and closes everything.
class PeerServer {
public:
    // Gets the socket and the request bytes; the socket is closed after it returns.
    using Script = std::function<void(int socket, const std::string& request)>;

    explicit PeerServer(Script script);
    ~PeerServer();
    PeerServer(const PeerServer&) = delete;
    PeerServer& operator=(const PeerServer&) = delete;

    int port() const { return listener_.port(); }
    int connections() const { return connections_; }

    // Writes all bytes unless the peer went away; false then.
    static bool writeAll(int socket, const std::string& bytes);

private:
    void serve();

    LoopbackListener listener_{16};
    int stop_[2] = {-1, -1};
    std::atomic<int> connections_{0};
    Script script_;
    std::thread thread_;
};

} // namespace varnoth::test
