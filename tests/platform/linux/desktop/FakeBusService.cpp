#include "FakeBusService.h"

#include "platform/linux/desktop/SessionBus.h"

#include <chrono>
#include <future>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

namespace pw::test {

namespace {

std::string describe(sd_bus_message* message) {
    std::string out;
    char type = 0;
    const char* contents = nullptr;
    while (sd_bus_message_peek_type(message, &type, &contents) > 0) {
        if (!out.empty()) out += ", ";
        if (type == 'a' || type == 'r' || type == 'e' || type == 'v') {
            sd_bus_message_enter_container(message, type, contents);
            const auto inner = describe(message);
            sd_bus_message_exit_container(message);
            if (type == 'a')
                out += "[" + inner + "]";
            else if (type == 'r')
                out += "(" + inner + ")";
            else if (type == 'e')
                out += "{" + inner + "}";
            else
                out += inner;
            continue;
        }
        union {
            const char* text;
            std::uint8_t byte;
            int boolean;
            std::int16_t i16;
            std::uint16_t u16;
            std::int32_t i32;
            std::uint32_t u32;
            std::int64_t i64;
            std::uint64_t u64;
            double real;
        } value{};
        if (sd_bus_message_read_basic(message, type, &value) < 0) break;
        switch (type) {
        case 's':
        case 'o':
        case 'g':
            out += "\"" + std::string(value.text) + "\"";
            break;
        case 'y':
            out += std::to_string(value.byte);
            break;
        case 'b':
            out += value.boolean ? "true" : "false";
            break;
        case 'n':
            out += std::to_string(value.i16);
            break;
        case 'q':
            out += std::to_string(value.u16);
            break;
        case 'i':
            out += std::to_string(value.i32);
            break;
        case 'u':
            out += std::to_string(value.u32);
            break;
        case 'x':
            out += std::to_string(value.i64);
            break;
        case 't':
            out += std::to_string(value.u64);
            break;
        case 'd':
            out += std::to_string(value.real);
            break;
        default:
            out += "?";
            break;
        }
    }
    return out;
}

} // namespace

std::unique_ptr<FakeBusService> FakeBusService::start(const std::string& address, const char* name,
                                                      std::map<std::string, Answer> answers) {
    std::unique_ptr<FakeBusService> service(new FakeBusService);
    auto& bus = service->bus_;
    if (sd_bus_new(&bus) < 0 || sd_bus_set_address(bus, address.c_str()) < 0 ||
        sd_bus_set_bus_client(bus, 1) < 0 || sd_bus_start(bus) < 0)
        return nullptr;
    if (name && sd_bus_request_name(bus, name, 0) < 0) return nullptr;
    service->answers_ = std::move(answers);
    const auto filter = [](sd_bus_message* message, void* self, sd_bus_error*) -> int {
        auto* service = static_cast<FakeBusService*>(self);
        std::uint8_t type = 0;
        sd_bus_message_get_type(message, &type);
        if (type != SD_BUS_MESSAGE_METHOD_CALL || !sd_bus_message_get_interface(message)) return 0;
        Call call{sd_bus_message_get_path(message), sd_bus_message_get_member(message),
                  describe(message)};
        sd_bus_message_rewind(message, 1);
        const auto answer = service->answers_.find(call.member);
        {
            std::lock_guard lock(service->mutex_);
            service->calls_.push_back(std::move(call));
        }
        service->changed_.notify_all();
        if (answer != service->answers_.end())
            answer->second(service->bus_, message);
        else
            sd_bus_reply_method_return(message, "");
        return 1;
    };
    sd_bus_add_filter(bus, nullptr, filter, service.get());
    service->wakeFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    service->thread_ = std::thread([raw = service.get()] { raw->run(); });
    return service;
}

std::unique_ptr<FakeBusService> FakeBusService::startKGlobalAccel(const std::string& address,
                                                                  std::set<std::int32_t> taken) {
    std::map<std::string, Answer> answers;
    answers["setShortcut"] = [taken](sd_bus*, sd_bus_message* call) {
        std::int32_t code = 0;
        sd_bus_message_skip(call, "as");
        sd_bus_message_enter_container(call, 'a', "i");
        sd_bus_message_read(call, "i", &code);
        if (taken.contains(code))
            sd_bus_reply_method_return(call, "ai", 0);
        else
            sd_bus_reply_method_return(call, "ai", 1, code);
    };
    answers["getComponent"] = [](sd_bus*, sd_bus_message* call) {
        sd_bus_reply_method_return(call, "o", kKGlobalAccelComponent);
    };
    return start(address, "org.kde.kglobalaccel", std::move(answers));
}

FakeBusService::~FakeBusService() {
    if (thread_.joinable()) {
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = write(wakeFd_, &one, sizeof one);
        thread_.join();
    }
    if (wakeFd_ >= 0) close(wakeFd_);
    sd_bus_flush_close_unref(bus_);
}

void FakeBusService::run() {
    while (true) {
        std::deque<std::function<void()>> work;
        {
            std::lock_guard lock(mutex_);
            if (stopping_) return;
            work.swap(work_);
        }
        for (auto& item : work)
            item();
        while (sd_bus_process(bus_, nullptr) > 0) {
        }
        linuxdesktop::waitForBus(bus_, wakeFd_);
    }
}

void FakeBusService::onBus(std::function<void(sd_bus*)> work) {
    std::promise<void> done;
    {
        std::lock_guard lock(mutex_);
        work_.push_back([&] {
            work(bus_);
            // A reply of the daemon: what was sent before has been routed.
            sd_bus_message* reply = nullptr;
            sd_bus_call_method(bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                               "org.freedesktop.DBus", "GetId", nullptr, &reply, "");
            sd_bus_message_unref(reply);
            done.set_value();
        });
    }
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = write(wakeFd_, &one, sizeof one);
    done.get_future().wait();
}

std::vector<FakeBusService::Call> FakeBusService::calls(const std::string& member) const {
    std::lock_guard lock(mutex_);
    std::vector<Call> found;
    for (const auto& call : calls_)
        if (call.member == member) found.push_back(call);
    return found;
}

std::vector<FakeBusService::Call> FakeBusService::waitForCalls(const std::string& member,
                                                               std::size_t count) const {
    {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, std::chrono::seconds(10), [&] {
            std::size_t found = 0;
            for (const auto& call : calls_)
                found += call.member == member;
            return found >= count;
        });
    }
    return calls(member);
}

} // namespace pw::test
