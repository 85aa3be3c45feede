#pragma once

#include <filesystem>

namespace varnoth {

// Keeps one tray agent per user: a kernel lock (flock) on a file, held for the life of the object.
// The kernel drops the lock when the process ends, however it ends, so only a running agent holds
// it; a file that a crash, a power loss or an agent on another host left behind is taken over. The
// file is never removed (another process may have it open to lock), only emptied when the holder
// ends normally, so a file with content that nobody locks tells of an agent that did not end well.
class InstanceLock {
public:
    enum class State {
        acquired,      // the file was new or empty
        tookOver,      // the file held another agent's process id (or anything else), and no lock
        heldByAnother, // a running agent holds it
        failed,        // the file cannot be opened or locked (no lock is kept; nothing stops the agent)
    };

    explicit InstanceLock(const std::filesystem::path& path);
    ~InstanceLock();
    InstanceLock(const InstanceLock&) = delete;
    InstanceLock& operator=(const InstanceLock&) = delete;

    State state() const { return state_; }

private:
    int fd_ = -1;
    State state_ = State::failed;
};

} // namespace varnoth
