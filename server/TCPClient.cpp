#include "server/TCPClient.h"

#include "platform/Termination.h"
#include "platform/posix/Descriptors.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace varnoth {

namespace {

using Clock = std::chrono::steady_clock;

TCPError systemError(int code) {
    return TCPError{std::strerror(code)};
}

int remainingMilliseconds(Clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, 1 << 30));
}

// Waits for the events on the socket until the deadline; false on time-out, or at once when the agent
// is asked to exit.
bool waitFor(int socket, short events, Clock::time_point deadline) {
    for (;;) {
        if (Termination::requested()) {
            return false;
        }
        pollfd entry{socket, events, 0};
        const int ready = ::poll(&entry, 1, std::min(remainingMilliseconds(deadline), 100));
        if (ready > 0) {
            return true;
        }
        if (ready == 0) {
            if (Clock::now() >= deadline) {
                return false;
            }
            continue;
        }
        if (errno != EINTR) {
            return true; // let the following call report the error
        }
    }
}

} // namespace

TCPClient::TCPClient(std::string address, std::int32_t port) : address_(std::move(address)), port_(port) {}

TCPClient::~TCPClient() {
    close();
}

void TCPClient::close() {
    if (socket_ >= 0) {
        ::close(socket_);
        socket_ = -1;
    }
    peerClosed_ = false;
}

std::optional<TCPError> TCPClient::connect(int timeoutSeconds) {
    return connect(std::chrono::seconds(std::max(timeoutSeconds, 0)));
}

std::optional<TCPError> TCPClient::connect(std::chrono::milliseconds timeout) {
    close();
    const auto deadline = Clock::now() + timeout;
    if (port_ < 0 || port_ > 65535) {
        return TCPError{"Invalid port: " + std::to_string(port_)};
    }

    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV | AI_ADDRCONFIG;
    addrinfo* found = nullptr;
    const int resolved = ::getaddrinfo(address_.c_str(), std::to_string(port_).c_str(), &hints, &found);
    if (resolved != 0) {
        return TCPError{resolved == EAI_SYSTEM ? std::strerror(errno) : ::gai_strerror(resolved)};
    }

    TCPError last = systemError(ETIMEDOUT);
    for (const addrinfo* candidate = found; candidate != nullptr; candidate = candidate->ai_next) {
        if (Clock::now() >= deadline) {
            last = systemError(ETIMEDOUT);
            break;
        }
        const int fd =
            Descriptors::openSocket(candidate->ai_family, candidate->ai_socktype, candidate->ai_protocol);
        if (fd < 0) {
            last = systemError(errno);
            continue;
        }
        if (!Descriptors::setNonBlocking(fd)) {
            last = systemError(errno);
            ::close(fd);
            continue;
        }
        int code = 0;
        if (::connect(fd, candidate->ai_addr, candidate->ai_addrlen) != 0) {
            code = errno;
            if (code == EINPROGRESS || code == EINTR) {
                if (!waitFor(fd, POLLOUT, deadline)) {
                    code = Termination::requested() ? ECANCELED : ETIMEDOUT;
                } else {
                    socklen_t length = sizeof code;
                    if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &code, &length) != 0) {
                        code = errno;
                    }
                }
            }
        }
        if (code == 0) {
            socket_ = fd;
            ::freeaddrinfo(found);
            return std::nullopt;
        }
        ::close(fd);
        last = systemError(code);
    }
    ::freeaddrinfo(found);
    return last;
}

std::optional<TCPError> TCPClient::send(std::string_view data) {
    if (socket_ < 0) {
        return systemError(ENOTCONN);
    }
    auto deadline = Clock::now() + sendTimeout;
    while (!data.empty()) {
        const ssize_t sent = Descriptors::send(socket_, data.data(), data.size(), 0);
        if (sent > 0) {
            data.remove_prefix(static_cast<std::size_t>(sent));
            deadline = Clock::now() + sendTimeout;
            continue;
        }
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            if (!waitFor(socket_, POLLOUT, deadline)) {
                return systemError(ETIMEDOUT);
            }
            continue;
        }
        return systemError(sent < 0 ? errno : EPIPE);
    }
    return std::nullopt;
}

std::optional<std::string> TCPClient::read(std::size_t maxLength, int timeoutSeconds) {
    std::string bytes;
    if (readAppending(bytes, maxLength, timeoutSeconds) == 0) {
        return std::nullopt;
    }
    return bytes;
}

std::size_t TCPClient::readAppending(std::string& buffer, std::size_t maxLength, int timeoutSeconds) {
    const auto wait =
        timeoutSeconds < 0 ? idleWait : std::chrono::milliseconds(std::chrono::seconds(timeoutSeconds));
    const auto deadline = Clock::now() + wait;
    if (socket_ < 0 || peerClosed_ || maxLength == 0) {
        std::this_thread::sleep_until(deadline);
        return 0;
    }
    const std::size_t start = buffer.size();
    if (buffer.capacity() < start + maxLength) {
        buffer.reserve(std::max(start + maxLength, 2 * buffer.capacity()));
    }
    buffer.resize(start + maxLength); // within the capacity: no reallocation, only the new bytes are cleared
    for (;;) {
        const ssize_t received = ::recv(socket_, buffer.data() + start, maxLength, 0);
        if (received > 0) {
            buffer.resize(start + static_cast<std::size_t>(received));
            return static_cast<std::size_t>(received);
        }
        const int code = received == 0 ? 0 : errno;
        if (code == EINTR) {
            continue;
        }
        if (code == EAGAIN || code == EWOULDBLOCK) {
            if (waitFor(socket_, POLLIN, deadline)) {
                continue;
            }
            buffer.resize(start);
            return 0;
        }
        // The peer closed the connection, or it failed (a reset, say): later reads find nothing.
        peerClosed_ = true;
        buffer.resize(start);
        std::this_thread::sleep_until(deadline);
        return 0;
    }
}

} // namespace varnoth
