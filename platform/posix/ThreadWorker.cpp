#include "platform/posix/ThreadWorker.h"

#include "platform/MainQueue.h"

#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

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
    auto job = std::make_shared<std::pair<Task, Task>>(std::move(work), std::move(done));
    try {
        std::thread([shared = shared_, job] {
            job->first();
            job->first = nullptr; // what the work owned goes with it, on this thread
            const std::lock_guard lock(shared->mutex);
            if (shared->mainQueue != nullptr) {
                shared->mainQueue->post(std::move(job->second));
            }
            --shared->running;
            shared->idle.notify_all();
        }).detach();
    } catch (const std::system_error&) {
        // No thread to be had (the process is at its limit): the work blocks this thread, as it once did,
        // rather than never ending its run.
        {
            const std::lock_guard lock(shared_->mutex);
            --shared_->running;
        }
        job->first();
        job->second();
    }
}

} // namespace varnoth
