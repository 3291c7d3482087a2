#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>
#include <string>
#include <thread>

namespace pw {

// A named first-in-first-out worker thread. Every queue the program names
// ("com.panelwright.ddc", "com.panelwright.globalDDCQueue", ...) is one of these.
// The worker's OS thread carries the label (truncated to what the OS allows) so
// a debugger shows who is who; `currentLabel()` gives the full label.
//
// `sync` from the queue's own thread runs the task inline instead of deadlocking,
// so nested synchronous use stays safe.
class SerialQueue {
public:
    using Task = std::function<void()>;

    explicit SerialQueue(std::string label);
    ~SerialQueue(); // runs every task already queued, then joins the worker

    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    const std::string& label() const { return label_; }

    void async(Task task);
    void sync(const Task& task);

    // Convenience: run `fn` synchronously and hand back its result.
    template <typename F> auto syncResult(F&& fn) -> decltype(fn()) {
        using R = decltype(fn());
        if constexpr (std::is_void_v<R>) {
            sync([&] { fn(); });
        } else {
            std::optional<R> out;
            sync([&] { out.emplace(fn()); });
            return std::move(*out);
        }
    }

    bool isCurrent() const;

    // Label of the serial queue whose worker runs the calling thread, or "" elsewhere.
    static std::string currentLabel();

private:
    // Shared with the worker thread, so a queue destroyed by one of its own tasks
    // leaves the worker something valid to finish with.
    struct State {
        std::string label;
        std::mutex mutex;
        std::condition_variable wake;
        std::deque<Task> tasks;
        bool stopping = false;
    };
    static void run(const std::shared_ptr<State>& state, const SerialQueue* owner);

    std::string label_;
    std::shared_ptr<State> state_;
    std::thread worker_;
};

} // namespace pw
