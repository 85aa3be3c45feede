#include "directory/SocketWatchdog.h"

#include "platform/Termination.h"

#include <algorithm>
#include <sys/socket.h>
#include <utility>

namespace varnoth {

namespace {

// How often an armed watchdog looks at the termination flag.
constexpr std::chrono::milliseconds terminationCheck{100};

} // namespace

SocketWatchdog::SocketWatchdog() : thread_([this] { watch(); }) {}

SocketWatchdog::~SocketWatchdog() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void SocketWatchdog::add(int socket) {
    std::lock_guard lock(mutex_);
    sockets_.push_back(socket);
    // A connection opened after the deadline (a referral, say) is cut at once.
    if (fired_) {
        ::shutdown(socket, SHUT_RDWR);
    }
}

void SocketWatchdog::remove(int socket) {
    std::lock_guard lock(mutex_);
    std::erase(sockets_, socket);
}

void SocketWatchdog::arm(std::chrono::steady_clock::time_point deadline) {
    {
        std::lock_guard lock(mutex_);
        deadline_ = deadline;
        armed_ = true;
        fired_ = false;
    }
    changed_.notify_all();
}

bool SocketWatchdog::disarm() {
    std::lock_guard lock(mutex_);
    armed_ = false;
    return std::exchange(fired_, false);
}

void SocketWatchdog::watch() {
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        if (!armed_ || fired_) {
            changed_.wait(lock);
            continue;
        }
        const auto now = std::chrono::steady_clock::now();
        if (now >= deadline_ || Termination::requested()) {
            // Under the lock: a socket being closed is removed first, so a reused descriptor is never hit.
            for (const int socket : sockets_) {
                ::shutdown(socket, SHUT_RDWR);
            }
            fired_ = true;
            continue;
        }
        changed_.wait_until(lock, std::min(deadline_, now + terminationCheck));
    }
}

} // namespace varnoth
