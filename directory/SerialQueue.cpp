#include "directory/SerialQueue.h"

#include <utility>

namespace varnoth {

SerialQueue::SerialQueue(std::string label) : label_(std::move(label)), worker_([this] { run(); }) {}

SerialQueue::~SerialQueue() {
    finish();
}

void SerialQueue::post(Task task) {
    {
        const std::lock_guard lock(mutex_);
        if (finishing_) {
            return;
        }
        tasks_.push_back(std::move(task));
    }
    wakeUp_.notify_one();
}

void SerialQueue::finish() {
    {
        const std::lock_guard lock(mutex_);
        finishing_ = true;
    }
    wakeUp_.notify_one();
    if (worker_.joinable()) {
        worker_.join();
    }
}

void SerialQueue::run() {
    for (;;) {
        Task task;
        {
            std::unique_lock lock(mutex_);
            wakeUp_.wait(lock, [this] { return finishing_ || !tasks_.empty(); });
            if (tasks_.empty()) {
                return;
            }
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        task();
    }
}

} // namespace varnoth
