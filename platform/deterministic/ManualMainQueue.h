#pragma once

#include "platform/Clock.h"
#include "platform/MainQueue.h"
#include "platform/RepeatingTimer.h"

#include <cstdint>
#include <map>
#include <memory>

namespace varnoth {

// A main queue on virtual time, which is also the clock: tests advance the time and the due tasks
// run in order, so half-second and one-hour delays are tested instantly.
class ManualMainQueue final : public MainQueue, public Clock {
public:
    void post(Task task) override { postAfter(std::chrono::milliseconds(0), std::move(task)); }
    void postAfter(std::chrono::milliseconds delay, Task task) override;
    std::unique_ptr<RepeatingTimer> scheduleRepeating(std::chrono::milliseconds interval, Task task) override;

    std::chrono::system_clock::time_point now() const override { return wallStart_ + elapsed_; }
    std::chrono::steady_clock::time_point steadyNow() const override { return steadyStart_ + elapsed_; }

    // Runs everything due now, including tasks that those tasks post for now.
    void runUntilIdle() { advance(std::chrono::milliseconds(0)); }
    // Moves the time forward, running each task at its due time.
    void advance(std::chrono::milliseconds duration);
    // Moves the time without running anything, as a blocking call on the main thread would.
    void elapse(std::chrono::milliseconds duration) { elapsed_ += duration; }

    std::chrono::milliseconds elapsed() const { return elapsed_; }
    std::size_t pendingCount() const { return tasks_.size(); }
    std::size_t activeTimerCount() const;

private:
    class Timer;
    struct Entry {
        Task task;
        std::shared_ptr<bool> alive; // repeating timers only
        std::chrono::milliseconds interval{0};
    };
    using Key = std::pair<std::chrono::milliseconds, std::uint64_t>;

    void schedule(std::chrono::milliseconds at, Entry entry) {
        tasks_.emplace(Key{at, sequence_++}, std::move(entry));
    }

    std::map<Key, Entry> tasks_;
    std::uint64_t sequence_ = 0;
    std::chrono::milliseconds elapsed_{0};
    std::chrono::system_clock::time_point wallStart_ = std::chrono::system_clock::now();
    std::chrono::steady_clock::time_point steadyStart_ = std::chrono::steady_clock::now();
};

} // namespace varnoth
