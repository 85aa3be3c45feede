#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace varnoth {

// An error of the TCP client, with a readable description in the system's wording
// ("Connection refused", "Name or service not known", "Connection timed out").
struct TCPError {
    std::string localizedDescription;
};

// A plain TCP connection to one host and port, on POSIX sockets. Host names are resolved with
// getaddrinfo (IPv4 and IPv6). Constructing a client causes no traffic; the socket is closed when
// the client connects again or is dropped. Sends never raise SIGPIPE.
class TCPClient {
public:
    TCPClient(std::string address, std::int32_t port);
    ~TCPClient();
    TCPClient(const TCPClient&) = delete;
    TCPClient& operator=(const TCPClient&) = delete;

    const std::string& address() const { return address_; }
    std::int32_t port() const { return port_; }

    // Connects, closing an earlier connection first. The time-out bounds the whole attempt over every
    // address the name resolves to (name resolution itself is the resolver's). Nothing on success.
    std::optional<TCPError> connect(int timeoutSeconds);
    std::optional<TCPError> connect(std::chrono::milliseconds timeout);

    // Sends every byte or reports why not; gives up after sendTimeout without progress.
    std::optional<TCPError> send(std::string_view data);

    // Up to maxLength bytes that have arrived, or nothing. A time-out of -1 means "no time-out" for the
    // caller, who keeps its own bound between reads: the call waits at most idleWait for bytes, and on
    // a connection the peer has closed it waits that long too instead of returning at once, so a loop
    // of reads neither hangs on a silent peer nor spins on a closed one, and the processor stays idle.
    std::optional<std::string> read(std::size_t maxLength, int timeoutSeconds);

    // The same read, appending the bytes to buffer instead of returning them; the count appended.
    std::size_t readAppending(std::string& buffer, std::size_t maxLength, int timeoutSeconds);

    void close();

    std::chrono::milliseconds idleWait{100};
    std::chrono::milliseconds sendTimeout{20000};

private:
    std::string address_;
    std::int32_t port_;
    int socket_ = -1;
    bool peerClosed_ = false;
};

} // namespace varnoth
