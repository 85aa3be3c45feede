#include "tests/faults/BlackHoleListener.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace varnoth::test {

BlackHoleListener::BlackHoleListener() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(listener_.port()));
    // Nobody accepts: connect until an attempt stays unanswered, which means the backlog is full.
    for (int attempt = 0; attempt < 16 && !full_; ++attempt) {
        const int filler = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        fillers_.push_back(filler);
        if (::connect(filler, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
            continue;
        }
        if (errno != EINPROGRESS) {
            return;
        }
        pollfd entry{filler, POLLOUT, 0};
        full_ = ::poll(&entry, 1, 200) == 0;
    }
}

BlackHoleListener::~BlackHoleListener() {
    for (const int filler : fillers_) {
        ::close(filler);
    }
}

} // namespace varnoth::test
