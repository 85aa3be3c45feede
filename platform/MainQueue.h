#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace varnoth {

class RepeatingTimer;

// The main thread's run loop: everything the agent does runs from here.
class MainQueue {
public:
    using Task = std::function<void()>;

    virtual ~MainQueue() = default;

    // Runs the task on the main thread after the current work, without delay. The desktop's queue takes
    // posts from any thread (the worker's continuations); every other call comes from the main thread.
    virtual void post(Task task) = 0;
    // Runs the task on the main thread once the delay has passed.
    virtual void postAfter(std::chrono::milliseconds delay, Task task) = 0;
    // Runs the task every interval until the returned timer is invalidated or dropped.
    virtual std::unique_ptr<RepeatingTimer> scheduleRepeating(std::chrono::milliseconds interval,
                                                              Task task) = 0;
};

} // namespace varnoth
