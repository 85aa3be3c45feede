#include "tests/support/ManualMainQueue.h"

#include <algorithm>

namespace varnoth::test {

class ManualMainQueue::Timer final : public RepeatingTimer {
public:
    Timer(std::chrono::milliseconds interval, std::shared_ptr<bool> alive)
        : interval_(interval), alive_(std::move(alive)) {}
    ~Timer() override { invalidate(); }
    std::chrono::milliseconds interval() const override { return interval_; }
    void invalidate() override { *alive_ = false; }

private:
    std::chrono::milliseconds interval_;
    std::shared_ptr<bool> alive_;
};

ManualMainQueue::ManualMainQueue()
    : wallStart_(std::chrono::system_clock::now()), steadyStart_(std::chrono::steady_clock::now()) {}

void ManualMainQueue::post(Task task) {
    schedule(elapsed_, Entry{std::move(task), nullptr, {}});
}

void ManualMainQueue::postAfter(std::chrono::milliseconds delay, Task task) {
    schedule(elapsed_ + std::max(delay, std::chrono::milliseconds(0)), Entry{std::move(task), nullptr, {}});
}

std::unique_ptr<RepeatingTimer> ManualMainQueue::scheduleRepeating(std::chrono::milliseconds interval,
                                                                   Task task) {
    auto alive = std::make_shared<bool>(true);
    schedule(elapsed_ + interval, Entry{std::move(task), alive, interval});
    return std::make_unique<Timer>(interval, alive);
}

std::chrono::system_clock::time_point ManualMainQueue::now() const {
    return wallStart_ + elapsed_;
}

std::chrono::steady_clock::time_point ManualMainQueue::steadyNow() const {
    return steadyStart_ + elapsed_;
}

void ManualMainQueue::runUntilIdle() {
    while (runNextDue(elapsed_)) {
    }
}

void ManualMainQueue::advance(std::chrono::milliseconds duration) {
    const auto until = elapsed_ + duration;
    while (runNextDue(until)) {
    }
    elapsed_ = std::max(elapsed_, until);
}

std::size_t ManualMainQueue::activeTimerCount() const {
    return static_cast<std::size_t>(std::count_if(tasks_.begin(), tasks_.end(), [](const auto& item) {
        return item.second.alive && *item.second.alive;
    }));
}

void ManualMainQueue::schedule(std::chrono::milliseconds at, Entry entry) {
    tasks_.emplace(Key{at, sequence_++}, std::move(entry));
}

bool ManualMainQueue::runNextDue(std::chrono::milliseconds until) {
    if (tasks_.empty() || tasks_.begin()->first.first > until) {
        return false;
    }
    auto node = tasks_.extract(tasks_.begin());
    Entry entry = std::move(node.mapped());
    elapsed_ = std::max(elapsed_, node.key().first);
    if (entry.alive && !*entry.alive) {
        return true;
    }
    if (entry.alive) {
        schedule(node.key().first + entry.interval, Entry{entry.task, entry.alive, entry.interval});
    }
    entry.task();
    return true;
}

} // namespace varnoth::test
