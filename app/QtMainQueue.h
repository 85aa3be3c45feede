#pragma once

#include "platform/MainQueue.h"

namespace varnoth {

// The main queue on Qt's event loop.
class QtMainQueue final : public MainQueue {
public:
    void post(Task task) override;
    void postAfter(std::chrono::milliseconds delay, Task task) override;
    std::unique_ptr<RepeatingTimer> scheduleRepeating(std::chrono::milliseconds interval, Task task) override;
};

} // namespace varnoth
