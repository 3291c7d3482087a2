#pragma once

#include "platform/MainQueue.h"

#include <QObject>

#include <mutex>

class QThread;

namespace pw::ui {

// The main queue of the application: the Qt event loop of the GUI thread. Tasks posted
// from any thread run on the thread that owns `context` (the application object), in
// posting order for equal delays; delayed tasks ride on single-shot timers.
//
// Any thread may post while the GUI thread closes the queue: the context is looked at
// only under the queue's lock, which `close` (and the context's destruction) takes to
// forget it, so no post ever reaches an object being destroyed. Once closed, posts are
// dropped.
class QtMainQueue final : public platform::MainQueue {
public:
    explicit QtMainQueue(QObject* context);
    ~QtMainQueue() override;

    void post(Task task) override;
    void postAfter(std::chrono::milliseconds delay, Task task) override;
    bool isMainThread() const override;

    // GUI thread, before the context goes: nothing posted from now on runs.
    void close();

private:
    mutable std::mutex mutex_;
    QObject* context_ = nullptr; // guarded by mutex_
    QThread* const mainThread_;
    QMetaObject::Connection closeWithContext_;
};

} // namespace pw::ui
