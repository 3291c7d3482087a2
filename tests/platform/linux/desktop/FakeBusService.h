#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

struct sd_bus;
struct sd_bus_message;

namespace pw::test {

// A desktop service played by the test on a private bus, on a thread of its own so that
// the code under test may wait for its answers. It records every method call it gets,
// with the arguments written out ("s" as "text", arrays as [..], structs as (..), dict
// entries as {key: value}); calls it has an answer for are answered by it, others get an
// empty reply.
class FakeBusService {
public:
    struct Call {
        std::string path;
        std::string member;
        std::string arguments;
    };
    // Runs on the service's thread with the call (read from its start); replies itself.
    using Answer = std::function<void(sd_bus* bus, sd_bus_message* call)>;

    // Nothing when the bus cannot be reached or `name` (may be null) not owned.
    static std::unique_ptr<FakeBusService> start(const std::string& address, const char* name,
                                                 std::map<std::string, Answer> answers = {});
    // KDE's global-shortcut service as far as a key tap uses it, its component object at
    // kKGlobalAccelComponent. Keys whose codes are in `taken` belong to another component:
    // asking for them gets an empty list.
    static constexpr const char* kKGlobalAccelComponent = "/component/panelwright";
    static std::unique_ptr<FakeBusService> startKGlobalAccel(const std::string& address,
                                                             std::set<std::int32_t> taken = {});
    ~FakeBusService();
    FakeBusService(const FakeBusService&) = delete;
    FakeBusService& operator=(const FakeBusService&) = delete;

    std::vector<Call> calls(const std::string& member) const;
    // The calls of `member` once there are at least `count` (at most 10 s).
    std::vector<Call> waitForCalls(const std::string& member, std::size_t count) const;
    // Runs `work` on the service's thread and returns when it has; afterwards, everything
    // it sent has reached the bus daemon.
    void onBus(std::function<void(sd_bus* bus)> work);

private:
    FakeBusService() = default;
    void run();

    sd_bus* bus_ = nullptr;
    std::map<std::string, Answer> answers_;
    int wakeFd_ = -1;
    std::thread thread_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    bool stopping_ = false;
    std::deque<std::function<void()>> work_;
    std::vector<Call> calls_;
};

} // namespace pw::test
