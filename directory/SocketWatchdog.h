#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace varnoth {

// Cuts the sockets of a directory session when an operation runs past its deadline or the agent is
// asked to exit. libldap cannot bound everything itself: its TLS handshake waits without limit on a
// silent peer, and a peer that trickles bytes keeps resetting its waits. Shutting a socket down (it is
// not closed: the session still owns the descriptor) turns any blocked or repeated read into an error,
// so the operation ends at once.
class SocketWatchdog {
public:
    SocketWatchdog();
    ~SocketWatchdog();
    SocketWatchdog(const SocketWatchdog&) = delete;
    SocketWatchdog& operator=(const SocketWatchdog&) = delete;

    // A connection of the session was opened, or is about to be closed.
    void add(int socket);
    void remove(int socket);

    // Until disarm, the sockets are shut down at the deadline (or on termination).
    void arm(std::chrono::steady_clock::time_point deadline);
    // Whether the sockets were cut since arm.
    bool disarm();

private:
    void watch();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<int> sockets_;
    std::chrono::steady_clock::time_point deadline_{};
    bool armed_ = false;
    bool fired_ = false;
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace varnoth
