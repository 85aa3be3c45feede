#pragma once

#include "platform/Clock.h"
#include "platform/deterministic/ManualMainQueue.h"

#include <chrono>

namespace varnoth {

// Wall time from the virtual main queue, and a steady time that can run a number of times faster than
// the real one. Read loops that bound themselves by the steady clock then give up after a fraction of
// their real bound, while the sockets they wait on still run in real time.
class FastClock final : public Clock {
public:
    explicit FastClock(const ManualMainQueue& queue) : queue_(queue) {}

    std::chrono::system_clock::time_point now() const override { return queue_.now(); }
    std::chrono::steady_clock::time_point steadyNow() const override {
        return steadyBase_ + (std::chrono::steady_clock::now() - realBase_) * factor_;
    }
    // From now on, steady time runs factor times as fast as real time (1: real time).
    void setFactor(int factor) {
        steadyBase_ = steadyNow();
        realBase_ = std::chrono::steady_clock::now();
        factor_ = factor;
    }

private:
    const ManualMainQueue& queue_;
    int factor_ = 1;
    std::chrono::steady_clock::time_point realBase_ = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point steadyBase_ = realBase_;
};

} // namespace varnoth
