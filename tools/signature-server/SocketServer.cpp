#include "tools/signature-server/SocketServer.h"

#include "platform/posix/Descriptors.h"
#include "server/Framing.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <list>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace varnoth::signatureserver {

namespace {

enum class Wait { ready, timeout, stop };

// The peer's half-close, told apart from bytes to read: a Linux extension. Without it a connection held
// unread (--never-answer) may last until the server stops.
#ifdef POLLRDHUP
constexpr short peerClosed = POLLRDHUP;
#else
constexpr short peerClosed = 0;
#endif

// Waits for the events on the socket, or for the stop signal.
Wait waitFor(int socket, short events, int stopFd, int milliseconds) {
    for (;;) {
        pollfd entries[2] = {{socket, events, 0}, {stopFd, POLLIN, 0}};
        const int ready = ::poll(entries, 2, milliseconds);
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready < 0 || entries[1].revents != 0) {
            return Wait::stop;
        }
        return ready == 0 ? Wait::timeout : Wait::ready;
    }
}

bool sendAll(int socket, std::string_view bytes, int stopFd) {
    while (!bytes.empty()) {
        const ssize_t sent = Descriptors::send(socket, bytes.data(), bytes.size(), MSG_DONTWAIT);
        if (sent > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        } else if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) {
            if (waitFor(socket, POLLOUT, stopFd, SocketServer::idleSeconds * 1000) != Wait::ready) {
                return false;
            }
        } else {
            return false;
        }
    }
    return true;
}

// Sleeps, unless the server stops meanwhile; false when it does.
bool pause(std::chrono::milliseconds duration, int stopFd) {
    if (duration.count() <= 0) {
        return true;
    }
    pollfd entry{stopFd, POLLIN, 0};
    return ::poll(&entry, 1, static_cast<int>(duration.count())) == 0;
}

} // namespace

SocketServer::SocketServer(SignatureServer& server, const std::string& address, std::uint16_t port)
    : server_(server) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const int resolved = ::getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found);
    if (resolved != 0) {
        throw std::runtime_error("cannot resolve " + address + ": " + ::gai_strerror(resolved));
    }
    std::string error = "no address";
    for (const addrinfo* candidate = found; candidate != nullptr && listener_ < 0;
         candidate = candidate->ai_next) {
        const int fd =
            Descriptors::openSocket(candidate->ai_family, candidate->ai_socktype, candidate->ai_protocol);
        if (fd < 0) {
            error = std::strerror(errno);
            continue;
        }
        const int on = 1;
        ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        if (::bind(fd, candidate->ai_addr, candidate->ai_addrlen) != 0 || ::listen(fd, 128) != 0) {
            error = std::strerror(errno);
            ::close(fd);
            continue;
        }
        listener_ = fd;
    }
    ::freeaddrinfo(found);
    if (listener_ < 0) {
        throw std::runtime_error("cannot listen on " + address + " port " + std::to_string(port) + ": " +
                                 error);
    }
    sockaddr_storage bound{};
    socklen_t length = sizeof bound;
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&bound), &length);
    port_ = ntohs(bound.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&bound)->sin6_port
                                              : reinterpret_cast<sockaddr_in*>(&bound)->sin_port);
}

SocketServer::~SocketServer() {
    if (listener_ >= 0) {
        ::close(listener_);
    }
}

struct SocketServer::Connection {
    std::thread thread;
    std::shared_ptr<std::atomic<bool>> done = std::make_shared<std::atomic<bool>>(false);
};

void SocketServer::run(int stopFd) {
    std::list<Connection> connections;
    const auto reap = [&] {
        for (auto it = connections.begin(); it != connections.end();) {
            if (*it->done) {
                it->thread.join();
                it = connections.erase(it);
            } else {
                ++it;
            }
        }
    };
    for (;;) {
        const Wait wait = waitFor(listener_, POLLIN, stopFd, 1000);
        reap();
        if (wait == Wait::stop) {
            break;
        }
        if (wait == Wait::timeout) {
            continue;
        }
        const int socket = Descriptors::accept(listener_);
        if (socket < 0) {
            continue; // EMFILE, ECONNABORTED and friends: the next client may fare better
        }
        if (connections.size() >= maxConnections) {
            ::close(socket);
            continue;
        }
        Connection& connection = connections.emplace_back();
        connection.thread = std::thread([this, socket, stopFd, done = connection.done] {
            serve(socket, stopFd);
            ::close(socket);
            *done = true;
        });
    }
    for (Connection& connection : connections) {
        connection.thread.join();
    }
}

void SocketServer::serve(int socket, int stopFd) {
    const Faults& faults = server_.options().faults;
    if (faults.closeAfterAccept) {
        return;
    }
    if (faults.neverAnswer) {
        // Hold the connection without reading until the client leaves or the server stops.
        while (waitFor(socket, peerClosed, stopFd, idleSeconds * 1000) == Wait::timeout) {
        }
        return;
    }
    std::string buffer;
    std::size_t searched = 0;
    char chunk[65536];
    for (;;) {
        if (waitFor(socket, POLLIN, stopFd, idleSeconds * 1000) != Wait::ready) {
            return;
        }
        const ssize_t received = ::recv(socket, chunk, sizeof chunk, MSG_DONTWAIT);
        if (received < 0 && (errno == EAGAIN || errno == EINTR)) {
            continue;
        }
        if (received <= 0) {
            return;
        }
        buffer.append(chunk, static_cast<std::size_t>(received));
        if (buffer.size() > maxRequestBytes) {
            return;
        }
        // Every complete request in the buffer is answered in turn.
        for (;;) {
            const auto end = framing::findEndMarker(buffer, searched);
            if (!end) {
                searched = buffer.size() > 48 ? buffer.size() - 48 : 0;
                break;
            }
            const std::size_t length = *end + 2 * framing::endMarker.size();
            const SignatureServer::Reply reply = server_.handle(std::string_view(buffer).substr(0, length));
            buffer.erase(0, length);
            searched = 0;
            if (!reply.writes.empty() && !pause(faults.delay, stopFd)) {
                return;
            }
            for (std::size_t i = 0; i < reply.writes.size(); ++i) {
                if ((i > 0 && !pause(faults.chunkPause, stopFd)) ||
                    !sendAll(socket, reply.writes[i], stopFd)) {
                    return;
                }
            }
        }
    }
}

} // namespace varnoth::signatureserver
