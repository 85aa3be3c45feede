#pragma once

#include <chrono>

namespace varnoth {

// A repeating timer made by MainQueue::scheduleRepeating; dropping it stops it.
class RepeatingTimer {
public:
    virtual ~RepeatingTimer() = default;
    virtual std::chrono::milliseconds interval() const = 0;
    virtual void invalidate() = 0;
};

} // namespace varnoth
