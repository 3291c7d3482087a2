#pragma once

#include <chrono>
#include <functional>

namespace pw::platform {

// The main thread's queue: completions, list publication and UI work land here.
// In the application it is the GUI event loop; in tests a manual queue that the
// test drives on virtual time. `post` may be called from any thread.
class MainQueue {
public:
    using Task = std::function<void()>;

    virtual ~MainQueue() = default;
    virtual void post(Task task) = 0;
    virtual void postAfter(std::chrono::milliseconds delay, Task task) = 0;
    // True when the calling thread is the one that runs this queue's tasks.
    virtual bool isMainThread() const = 0;
};

} // namespace pw::platform
