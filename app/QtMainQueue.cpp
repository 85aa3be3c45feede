#include "app/QtMainQueue.h"

#include "platform/RepeatingTimer.h"

#include <QCoreApplication>
#include <QTimer>

namespace varnoth {

namespace {

class QtRepeatingTimer final : public RepeatingTimer {
public:
    QtRepeatingTimer(std::chrono::milliseconds interval, MainQueue::Task task) : interval_(interval) {
        timer_.setTimerType(Qt::CoarseTimer); // no need to wake the processor early for an hourly run
        timer_.setInterval(interval);
        QObject::connect(&timer_, &QTimer::timeout, [task = std::move(task)] { task(); });
        timer_.start();
    }
    std::chrono::milliseconds interval() const override { return interval_; }
    void invalidate() override { timer_.stop(); }

private:
    std::chrono::milliseconds interval_;
    QTimer timer_;
};

} // namespace

void QtMainQueue::post(Task task) {
    // A queued invocation, which any thread may make: the worker's threads post here.
    QMetaObject::invokeMethod(QCoreApplication::instance(), std::move(task), Qt::QueuedConnection);
}

void QtMainQueue::postAfter(std::chrono::milliseconds delay, Task task) {
    QTimer::singleShot(delay, Qt::PreciseTimer, QCoreApplication::instance(), std::move(task));
}

std::unique_ptr<RepeatingTimer> QtMainQueue::scheduleRepeating(std::chrono::milliseconds interval,
                                                               Task task) {
    return std::make_unique<QtRepeatingTimer>(interval, std::move(task));
}

} // namespace varnoth
