#include "support/SerialQueue.h"

#include <pthread.h>
#include <signal.h>

#include <cstdlib>
#include <future>
#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace pw {

namespace {
thread_local const SerialQueue* tCurrentQueue = nullptr;
thread_local const std::string* tCurrentLabel = nullptr;

void nameThisThread(const std::string& label) {
    // Linux limits thread names to 15 bytes; keep the most telling end of the label.
    std::string name = label;
    const std::string prefix = "com.panelwright.";
    if (name.rfind(prefix, 0) == 0) name = name.substr(prefix.size());
    if (name.size() > 15) name.resize(15);
#if defined(__APPLE__)
    pthread_setname_np(label.c_str());
#else
    pthread_setname_np(pthread_self(), name.c_str());
#endif
}
// A stack of the thread's own for signal handlers, so that a task that overflows its stack
// still gets its crash lines written (the handlers are installed with SA_ONSTACK, and an
// alternate stack is per thread). The one in place before (a sanitizer's) comes back when
// the thread ends, for its owner to free.
class CrashStack {
public:
    CrashStack() : memory_(new char[kSize]) {
        stack_t ours{};
        ours.ss_sp = memory_.get();
        ours.ss_size = kSize;
        installed_ = ::sigaltstack(&ours, &previous_) == 0;
    }
    ~CrashStack() {
        if (installed_) ::sigaltstack(&previous_, nullptr);
    }
    CrashStack(const CrashStack&) = delete;
    CrashStack& operator=(const CrashStack&) = delete;

private:
    static constexpr std::size_t kSize = 64 * 1024;
    std::unique_ptr<char[]> memory_;
    stack_t previous_{};
    bool installed_ = false;
};

// Workers of queues destroyed by one of their own tasks. Such a worker cannot join itself,
// so it is handed here and joined by the next thread that asks (`joinOrphans`, from the
// program's teardown), by the next hand-over once it has ended, or at the latest as the
// process exits. The list lives in fixed storage and is never destroyed: a queue whose own
// task ends it after that (a worker that nobody owns) must still find it.
struct Orphan {
    std::thread thread;
    std::shared_ptr<const std::atomic<bool>> ended;
};

struct Orphans {
    std::mutex mutex;
    std::vector<Orphan> waiting;

    // Takes out those matching `which` under the lock; they are joined outside it.
    template <typename Which> std::vector<Orphan> take(Which which) {
        std::vector<Orphan> out;
        std::lock_guard lock(mutex);
        for (auto it = waiting.begin(); it != waiting.end();) {
            if (which(*it)) {
                out.push_back(std::move(*it));
                it = waiting.erase(it);
            } else {
                ++it;
            }
        }
        return out;
    }
    static void join(std::vector<Orphan>& orphans) {
        for (auto& orphan : orphans)
            if (orphan.thread.joinable() && orphan.thread.get_id() != std::this_thread::get_id())
                orphan.thread.join();
    }
};

Orphans& orphans() {
    alignas(Orphans) static unsigned char storage[sizeof(Orphans)];
    static Orphans* const instance = [] {
        auto* made = new (storage) Orphans;
        std::atexit([] { SerialQueue::joinOrphans(); });
        return made;
    }();
    return *instance;
}

} // namespace

std::size_t SerialQueue::joinOrphans() {
    const auto self = std::this_thread::get_id();
    auto taken = orphans().take([self](const Orphan& o) { return o.thread.get_id() != self; });
    Orphans::join(taken);
    return taken.size();
}

SerialQueue::SerialQueue(std::string label)
    : label_(std::move(label)), state_(std::make_shared<State>()) {
    state_->label = label_;
    worker_ = std::thread([state = state_, owner = this] { run(state, owner); });
}

SerialQueue::~SerialQueue() {
    {
        std::lock_guard lock(state_->mutex);
        state_->stopping = true;
    }
    state_->wake.notify_all();
    if (worker_.joinable()) {
        if (worker_.get_id() == std::this_thread::get_id()) {
            // Destroyed from its own task: the worker drains what is left on the shared
            // state and ends by itself; another thread joins it (`joinOrphans`). Those
            // handed over before that have ended are joined now, so the list stays short.
            auto ended = orphans().take([](const Orphan& o) { return o.ended->load(); });
            Orphans::join(ended);
            std::lock_guard lock(orphans().mutex);
            orphans().waiting.push_back({std::move(worker_), state_->ended});
        } else {
            worker_.join();
        }
    }
}

void SerialQueue::async(Task task) {
    // Notify under the lock: the task may destroy this queue the moment it can run, so
    // nothing of the queue may be touched after the lock is released.
    std::lock_guard lock(state_->mutex);
    state_->tasks.push_back(std::move(task));
    state_->wake.notify_one();
}

void SerialQueue::sync(const Task& task) {
    if (isCurrent()) {
        task();
        return;
    }
    std::promise<void> done;
    auto finished = done.get_future();
    async([&] {
        try {
            task();
            done.set_value();
        } catch (...) {
            done.set_exception(std::current_exception());
        }
    });
    finished.get();
}

bool SerialQueue::isCurrent() const { return tCurrentQueue == this; }

std::string SerialQueue::currentLabel() { return tCurrentLabel ? *tCurrentLabel : std::string(); }

void SerialQueue::run(const std::shared_ptr<State>& state, const SerialQueue* owner) {
    nameThisThread(state->label);
    const CrashStack crashStack;
    tCurrentQueue = owner;
    tCurrentLabel = &state->label;
    for (;;) {
        Task task;
        {
            std::unique_lock lock(state->mutex);
            state->wake.wait(lock, [&] { return state->stopping || !state->tasks.empty(); });
            if (state->tasks.empty()) break; // stopping and drained
            task = std::move(state->tasks.front());
            state->tasks.pop_front();
        }
        task();
    }
    tCurrentQueue = nullptr;
    tCurrentLabel = nullptr;
    state->ended->store(true);
}

} // namespace pw
