#pragma once

#include <functional>

namespace varnoth {

// Where the agent's blocking calls to the network run: the signature server exchange and the directory
// lookups. This base runs the work and its continuation at once on the calling thread, which is what a
// program without an event loop and the deterministic tests want; the desktop agent installs a
// ThreadWorker, so that the main thread keeps answering the menu meanwhile.
class Worker {
public:
    using Task = std::function<void()>;

    virtual ~Worker() = default;

    // Runs work, then done on the main thread.
    virtual void run(Task work, Task done) {
        work();
        done();
    }
};

} // namespace varnoth
