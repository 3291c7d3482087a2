#include "support/SerialQueue.h"

#include <pthread.h>

#include <future>

namespace pw {

namespace {
thread_local const SerialQueue* tCurrentQueue = nullptr;

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
} // namespace

SerialQueue::SerialQueue(std::string label) : label_(std::move(label)) {
    worker_ = std::thread([this] { run(); });
}

SerialQueue::~SerialQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    if (worker_.joinable()) {
        if (worker_.get_id() == std::this_thread::get_id()) {
            worker_.detach(); // destroyed from its own task: nothing left to wait for
        } else {
            worker_.join();
        }
    }
}

void SerialQueue::async(Task task) {
    {
        std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    wake_.notify_one();
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

std::string SerialQueue::currentLabel() {
    return tCurrentQueue ? tCurrentQueue->label_ : std::string();
}

void SerialQueue::run() {
    nameThisThread(label_);
    tCurrentQueue = this;
    for (;;) {
        Task task;
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
            if (tasks_.empty()) break; // stopping and drained
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        task();
    }
    tCurrentQueue = nullptr;
}

} // namespace pw
