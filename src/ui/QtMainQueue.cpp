#include "ui/QtMainQueue.h"

#include <QMetaObject>
#include <QThread>
#include <QTimer>

namespace pw::ui {

QtMainQueue::QtMainQueue(QObject* context) : context_(context) {}

void QtMainQueue::post(Task task) {
    if (!context_) return; // the application is gone: nothing will run any more
    QMetaObject::invokeMethod(context_, std::move(task), Qt::QueuedConnection);
}

void QtMainQueue::postAfter(std::chrono::milliseconds delay, Task task) {
    if (!context_) return;
    if (delay.count() <= 0) return post(std::move(task));
    if (isMainThread()) {
        QTimer::singleShot(delay, context_, std::move(task));
        return;
    }
    // A timer must start on the thread that runs it: hop there first.
    QMetaObject::invokeMethod(
        context_,
        [context = context_, delay, task = std::move(task)]() mutable {
            if (context) QTimer::singleShot(delay, context, std::move(task));
        },
        Qt::QueuedConnection);
}

bool QtMainQueue::isMainThread() const {
    return context_ && QThread::currentThread() == context_->thread();
}

} // namespace pw::ui
