#include "tests/faults/PeerServer.h"

#include "server/Framing.h"
#include "server/Utf16.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace varnoth::test {

PeerServer::PeerServer(Script script) : script_(std::move(script)) {
    if (::pipe(stop_) != 0) {
        throw std::runtime_error("cannot make the stop pipe");
    }
    thread_ = std::thread([this] { serve(); });
}

PeerServer::~PeerServer() {
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(stop_[1], &byte, 1);
    thread_.join();
    ::close(stop_[0]);
    ::close(stop_[1]);
}

bool PeerServer::writeAll(int socket, const std::string& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count = ::send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return false;
        }
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

void PeerServer::serve() {
    const std::string end = utf16::encodeAscii(framing::endMarker);
    for (;;) {
        pollfd entries[2] = {{listener_.fd(), POLLIN, 0}, {stop_[0], POLLIN, 0}};
        if (::poll(entries, 2, -1) < 0 && errno != EINTR) {
            return;
        }
        if ((entries[1].revents & POLLIN) != 0) {
            return;
        }
        if ((entries[0].revents & POLLIN) == 0) {
            continue;
        }
        const int socket = ::accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) {
            continue;
        }
        ++connections_;
        // The request up to its end marker, for at most five seconds.
        std::string request;
        for (int waited = 0; request.find(end) == std::string::npos && waited < 50; ++waited) {
            pollfd entry{socket, POLLIN, 0};
            if (::poll(&entry, 1, 100) > 0) {
                char buffer[4096];
                const ssize_t count = ::recv(socket, buffer, sizeof buffer, 0);
                if (count <= 0) {
                    break;
                }
                request.append(buffer, static_cast<std::size_t>(count));
            }
        }
        script_(socket, request);
        ::close(socket);
    }
}

} // namespace varnoth::test
