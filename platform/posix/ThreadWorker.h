#pragma once

#include "platform/Worker.h"

#include <chrono>
#include <memory>

namespace varnoth {

class MainQueue;

// Runs each piece of work on a thread of its own and posts its continuation to the main queue.
//
// Threading pitfalls, for whoever hands work here:
// - The work runs beside the main thread. It must not log, read Config or the platform's ports, or use
//   any object the main thread may change or drop meanwhile: it gets copies of its inputs and shares
//   ownership of what it works on (the TCP client, the directory session), and hands its result to the
//   continuation, which does the logging and the deciding on the main thread, in the run's order.
// - The continuation may come after its requester is gone (a run abandoned at exit, a service dropped by
//   a test); it must check, through a weak reference, that its requester still exists.
// - The main queue's post is the only thing the threads call from outside; it must be safe from any
//   thread.
// - A blocked call is not waited for at exit. The owner first asks the agent to end (Termination), which
//   ends the socket and directory waits within 100 ms; the destructor waits that long, then abandons
//   what still runs (a name lookup ignores the flag) and drops its continuation, so the process is never
//   kept alive by the network. Abandoned work touches only what it owns until it returns.
// - Threads are not joined but detached: no std::thread object may outlive main un-joined, and a join
//   would wait for the very call that has to be abandoned.
class ThreadWorker final : public Worker {
public:
    // How long the destructor waits for work that was asked to end.
    static constexpr std::chrono::milliseconds abandonAfter{500};

    explicit ThreadWorker(MainQueue& mainQueue);
    ~ThreadWorker() override;
    ThreadWorker(const ThreadWorker&) = delete;
    ThreadWorker& operator=(const ThreadWorker&) = delete;

    void run(Task work, Task done) override;

private:
    struct Shared;
    std::shared_ptr<Shared> shared_;
};

} // namespace varnoth
