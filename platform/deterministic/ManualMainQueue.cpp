#include "platform/deterministic/ManualMainQueue.h"

#include <algorithm>

namespace varnoth {

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

void ManualMainQueue::postAfter(std::chrono::milliseconds delay, Task task) {
    schedule(elapsed_ + std::max(delay, std::chrono::milliseconds(0)), Entry{std::move(task), nullptr, {}});
}

std::unique_ptr<RepeatingTimer> ManualMainQueue::scheduleRepeating(std::chrono::milliseconds interval,
                                                                   Task task) {
    auto alive = std::make_shared<bool>(true);
    schedule(elapsed_ + interval, Entry{std::move(task), alive, interval});
    return std::make_unique<Timer>(interval, alive);
}

void ManualMainQueue::advance(std::chrono::milliseconds duration) {
    const auto until = elapsed_ + duration;
    // Each due task in order; a repeating timer's next run is scheduled before this one runs.
    while (!tasks_.empty() && tasks_.begin()->first.first <= until) {
        auto node = tasks_.extract(tasks_.begin());
        Entry& entry = node.mapped();
        elapsed_ = std::max(elapsed_, node.key().first);
        if (entry.alive && !*entry.alive) {
            continue;
        }
        if (entry.alive) {
            schedule(node.key().first + entry.interval, entry);
        }
        entry.task();
    }
    elapsed_ = std::max(elapsed_, until);
}

std::size_t ManualMainQueue::activeTimerCount() const {
    return static_cast<std::size_t>(std::count_if(tasks_.begin(), tasks_.end(), [](const auto& item) {
        return item.second.alive && *item.second.alive;
    }));
}

} // namespace varnoth
