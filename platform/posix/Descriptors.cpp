#include "platform/posix/Descriptors.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace varnoth {

namespace {

#ifdef __APPLE__
// macOS has no MSG_NOSIGNAL: the socket itself is told not to raise SIGPIPE.
constexpr int noSignal = 0;
bool keepQuiet(int socket) {
    const int on = 1;
    return ::setsockopt(socket, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on) == 0;
}
#else
constexpr int noSignal = MSG_NOSIGNAL;
bool keepQuiet(int) {
    return true;
}
#endif

bool addFlag(int descriptor, int get, int set, int flag) {
    const int flags = ::fcntl(descriptor, get);
    return flags >= 0 && ::fcntl(descriptor, set, flags | flag) == 0;
}

// Closes the descriptor without letting close() overwrite the errno of what failed.
int closed(int descriptor) {
    const int error = errno;
    ::close(descriptor);
    errno = error;
    return -1;
}

// The socket with openSocket's flags, or -1 with the socket closed.
int withSocketFlags(int socket) {
    if (socket < 0) {
        return -1;
    }
    return Descriptors::setCloseOnExec(socket) && keepQuiet(socket) ? socket : closed(socket);
}

} // namespace

bool Descriptors::openPipe(int ends[2]) {
    if (::pipe(ends) != 0) {
        return false;
    }
    if (!setCloseOnExec(ends[0]) || !setCloseOnExec(ends[1])) {
        closed(ends[1]);
        closed(ends[0]);
        ends[0] = ends[1] = -1;
        return false;
    }
    return true;
}

int Descriptors::openSocket(int family, int type, int protocol) {
    return withSocketFlags(::socket(family, type, protocol));
}

int Descriptors::accept(int listener) {
    return withSocketFlags(::accept(listener, nullptr, nullptr));
}

bool Descriptors::setCloseOnExec(int descriptor) {
    return addFlag(descriptor, F_GETFD, F_SETFD, FD_CLOEXEC);
}

bool Descriptors::setNonBlocking(int descriptor) {
    return addFlag(descriptor, F_GETFL, F_SETFL, O_NONBLOCK);
}

ssize_t Descriptors::send(int socket, const void* data, std::size_t size, int flags) {
    return ::send(socket, data, size, flags | noSignal);
}

} // namespace varnoth
