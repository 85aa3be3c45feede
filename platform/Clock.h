#pragma once

#include <chrono>

namespace varnoth {

// Wall time for time stamps and a monotonic time for time-outs.
class Clock {
public:
    virtual ~Clock() = default;
    virtual std::chrono::system_clock::time_point now() const = 0;
    virtual std::chrono::steady_clock::time_point steadyNow() const = 0;
};

} // namespace varnoth
