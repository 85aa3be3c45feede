#pragma once

namespace varnoth {

// Whether the process has been asked to end (SIGTERM, SIGINT). The main thread may be blocked in a
// connect, a read, a directory call or an Outlook script when the signal arrives; those waits look
// here at least every 100 ms, so the agent ends promptly instead of when the wait runs out.
class Termination {
public:
    // Safe to call from a signal handler.
    static void request();
    static bool requested();
    // For tests that play a signal more than once in one process.
    static void clear();
};

} // namespace varnoth
