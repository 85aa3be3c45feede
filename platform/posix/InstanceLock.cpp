#include "platform/posix/InstanceLock.h"

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace varnoth {

InstanceLock::InstanceLock(const std::filesystem::path& path) {
    fd_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    if (fd_ < 0) {
        return;
    }
    struct stat status {};
    const bool locked = ::flock(fd_, LOCK_EX | LOCK_NB) == 0;
    if (!locked || ::fstat(fd_, &status) != 0 || !S_ISREG(status.st_mode)) {
        state_ = !locked && errno == EWOULDBLOCK ? State::heldByAnother : State::failed;
        ::close(fd_);
        fd_ = -1;
        return;
    }
    state_ = status.st_size > 0 ? State::tookOver : State::acquired;
    // The holder's process id, for a person who looks; the kernel lock is what counts.
    const std::string pid = std::to_string(::getpid()) + "\n";
    const bool written = ::ftruncate(fd_, 0) == 0 &&
                         ::pwrite(fd_, pid.data(), pid.size(), 0) == static_cast<ssize_t>(pid.size());
    (void)written;
}

InstanceLock::~InstanceLock() {
    if (fd_ >= 0) {
        const bool emptied = ::ftruncate(fd_, 0) == 0;
        (void)emptied;
        ::close(fd_);
    }
}

} // namespace varnoth
