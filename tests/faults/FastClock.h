#pragma once

#include "platform/Clock.h"
#include "tests/support/ManualMainQueue.h"

#include <chrono>

namespace varnoth::test {

// Wall time from the virtual main queue, and a steady time that runs a fixed number of times faster
// than the real one. Read loops that bound themselves by the steady clock then give up after a
// fraction of their real bound, while the sockets they wait on still run in real time.
class FastClock final : public Clock {
public:
    FastClock(const ManualMainQueue& queue, int factor) : queue_(queue), factor_(factor) {}

    std::chrono::system_clock::time_point now() const override { return queue_.now(); }
    std::chrono::steady_clock::time_point steadyNow() const override {
        const auto real = std::chrono::steady_clock::now() - start_;
        return start_ + real * factor_;
    }

private:
    const ManualMainQueue& queue_;
    int factor_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

} // namespace varnoth::test
