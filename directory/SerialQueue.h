#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace varnoth {

// One worker thread that runs its tasks one after the other, in the order they were posted. The
// queue finishes every posted task before it is destroyed.
class SerialQueue {
public:
    using Task = std::function<void()>;

    explicit SerialQueue(std::string label);
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    const std::string& label() const { return label_; }
    void post(Task task);
    // Runs what is queued, then stops the worker; later posts are dropped. Must not be called from
    // a task of this queue.
    void finish();

private:
    void run();

    std::string label_;
    std::mutex mutex_;
    std::condition_variable wakeUp_;
    std::deque<Task> tasks_;
    bool finishing_ = false;
    std::thread worker_; // started last, once the fields it reads exist
};

} // namespace varnoth
