#include "platform/posix/ThreadWorker.h"

#include "platform/MainQueue.h"

#include <condition_variable>
#include <mutex>
#include <thread>

namespace varnoth {

// What the worker and its threads share; the threads keep it alive after the worker is gone.
struct ThreadWorker::Shared {
    std::mutex mutex;
    std::condition_variable idle;
    int running = 0;
    MainQueue* mainQueue = nullptr; // null once the worker is gone: continuations are dropped
};

ThreadWorker::ThreadWorker(MainQueue& mainQueue) : shared_(std::make_shared<Shared>()) {
    shared_->mainQueue = &mainQueue;
}

ThreadWorker::~ThreadWorker() {
    std::unique_lock lock(shared_->mutex);
    shared_->idle.wait_for(lock, abandonAfter, [this] { return shared_->running == 0; });
    shared_->mainQueue = nullptr;
}

void ThreadWorker::run(Task work, Task done) {
    {
        const std::lock_guard lock(shared_->mutex);
        ++shared_->running;
    }
    std::thread([shared = shared_, work = std::move(work), done = std::move(done)]() mutable {
        work();
        work = nullptr; // what the work owned goes with it, on this thread
        const std::lock_guard lock(shared->mutex);
        if (shared->mainQueue != nullptr) {
            shared->mainQueue->post(std::move(done));
        }
        --shared->running;
        shared->idle.notify_all();
    }).detach();
}

} // namespace varnoth
