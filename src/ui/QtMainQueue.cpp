#include "ui/QtMainQueue.h"

#include <QMetaObject>
#include <QThread>
#include <QTimer>

namespace pw::ui {

QtMainQueue::QtMainQueue(QObject* context)
    : context_(context), mainThread_(context ? context->thread() : nullptr) {
    if (context)
        closeWithContext_ = QObject::connect(context, &QObject::destroyed, [this] { close(); });
}

QtMainQueue::~QtMainQueue() {
    QObject::disconnect(closeWithContext_);
    close();
}

void QtMainQueue::close() {
    std::lock_guard lock(mutex_);
    context_ = nullptr;
}

void QtMainQueue::post(Task task) {
    std::lock_guard lock(mutex_); // `close` waits until the event is in the context's queue
    if (!context_) return;        // the application is gone: nothing will run any more
    QMetaObject::invokeMethod(context_, std::move(task), Qt::QueuedConnection);
}

void QtMainQueue::postAfter(std::chrono::milliseconds delay, Task task) {
    if (delay.count() <= 0) return post(std::move(task));
    std::lock_guard lock(mutex_);
    QObject* const context = context_;
    if (!context) return;
    if (isMainThread()) {
        QTimer::singleShot(delay, context, std::move(task));
        return;
    }
    // A timer must start on the thread that runs it: hop there first. The hop runs only
    // while the context lives (Qt drops the events of an object it destroys).
    QMetaObject::invokeMethod(
        context,
        [context, delay, task = std::move(task)]() mutable {
            QTimer::singleShot(delay, context, std::move(task));
        },
        Qt::QueuedConnection);
}

bool QtMainQueue::isMainThread() const {
    return mainThread_ && QThread::currentThread() == mainThread_;
}

} // namespace pw::ui
