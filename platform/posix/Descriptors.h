#pragma once

#include <cstddef>
#include <sys/types.h>

namespace varnoth {

// Pipes and sockets opened with the flags the agent needs, the same way on Linux and macOS. macOS has
// none of Linux's calls and flags that set close-on-exec, non-blocking or no-signal as the descriptor is
// made, so the flags are set once it exists, and Linux takes the same path, which its tests thereby cover.
// Each call that opens something leaves nothing open when it fails, with errno set.
class Descriptors {
public:
    // A pipe whose two ends are closed on exec.
    static bool openPipe(int ends[2]);
    // A socket closed on exec whose sends never raise SIGPIPE (with send() below); -1 on failure.
    static int openSocket(int family, int type, int protocol);
    // The next connection of a listening socket, with openSocket's flags; -1 on failure.
    static int accept(int listener);

    static bool setCloseOnExec(int descriptor);
    static bool setNonBlocking(int descriptor);

    // send(2) that never raises SIGPIPE on a socket from openSocket or accept.
    static ssize_t send(int socket, const void* data, std::size_t size, int flags);
};

} // namespace varnoth
