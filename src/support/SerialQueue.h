#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
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
    // Runs every task already queued, then joins the worker (from its own task: hands the
    // worker to `joinOrphans`).
    ~SerialQueue();

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

    // A queue destroyed by one of its own tasks cannot join its worker: the worker
    // finishes what was queued and is joined here, by the program's teardown once every
    // queue's owner is gone. Returns how many workers it joined; each waits for its worker
    // to drain. What is still handed over when the process exits is joined then.
    static std::size_t joinOrphans();

private:
    // Shared with the worker thread, so a queue destroyed by one of its own tasks
    // leaves the worker something valid to finish with.
    struct State {
        std::string label;
        std::mutex mutex;
        std::condition_variable wake;
        std::deque<Task> tasks;
        bool stopping = false;
        // Set by the worker as its last act, so a later hand-over can join it at once.
        std::shared_ptr<std::atomic<bool>> ended = std::make_shared<std::atomic<bool>>(false);
    };
    static void run(const std::shared_ptr<State>& state, const SerialQueue* owner);

    std::string label_;
    std::shared_ptr<State> state_;
    std::thread worker_;
};

} // namespace pw
