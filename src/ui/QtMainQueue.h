#pragma once

#include "platform/MainQueue.h"

#include <QObject>
#include <QPointer>

namespace pw::ui {

// The main queue of the application: the Qt event loop of the GUI thread. Tasks posted
// from any thread run on the thread that owns `context` (the application object), in
// posting order for equal delays; delayed tasks ride on single-shot timers.
class QtMainQueue final : public platform::MainQueue {
public:
    explicit QtMainQueue(QObject* context);

    void post(Task task) override;
    void postAfter(std::chrono::milliseconds delay, Task task) override;
    bool isMainThread() const override;

private:
    QPointer<QObject> context_;
};

} // namespace pw::ui
