#pragma once

#include "platform/macos/FramebufferI2C.h"
#include "platform/sim/SimRegistry.h"

#include <map>
#include <memory>
#include <vector>

namespace pw::test {

// Framebuffer I2C in a few lines: framebuffers and their bus interfaces are entries of a
// SimRegistry (whose ledger counts the interface references handed out); each bus can be
// told to refuse its interface, its opening or its request. Every request is recorded with
// its wire bytes; one a bus takes gets the reply bytes 1, 2, 3...
class RecordingFramebufferI2C final : public platform::FramebufferI2C {
public:
    static constexpr platform::KernReturn kFails = platform::kError;
    struct Bus {
        platform::IOObject interface = 0;
        bool copyFails = false, openFails = false;
        platform::KernReturn sendReturn = 0, requestResult = 0;
    };
    struct Framebuffer {
        std::vector<Bus> buses;
        bool countFails = false;
        std::optional<platform::PropertyDictionary> info;
    };
    struct Sent {
        std::uint32_t bus;
        platform::I2CRequest request; // as handed in; the buffers are gone afterwards
        std::vector<std::uint8_t> wire;
        bool replyZeroed = true;
    };

    explicit RecordingFramebufferI2C(sim::SimRegistry& registry) : registry_(registry) {}

    // A framebuffer with `buses` I2C interfaces reporting transaction types 6, and display
    // information with the three numbers (none when all are 0).
    platform::IOObject add(std::size_t buses, std::uint32_t vendor = 0, std::uint32_t product = 0,
                           std::uint32_t serial = 0) {
        const auto fb = registry_.addEntry(registry_.root(), "IOFramebuffer", "IOFramebuffer",
                                           std::to_string(framebuffers.size()));
        auto& state = framebuffers[fb];
        for (std::uint32_t i = 0; i < buses; ++i) {
            const auto entry =
                registry_.addEntry(fb, "IOFramebufferI2CInterface", "i2c", std::to_string(i));
            registry_.setProperty(entry, "IOI2CTransactionTypes",
                                  platform::PropertyValue{std::int64_t{6}});
            state.buses.push_back({entry});
            where[entry] = {fb, i};
        }
        if (vendor != 0 || product != 0 || serial != 0)
            state.info =
                platform::PropertyDictionary{{"DisplayVendorID", {std::int64_t{vendor}}},
                                             {"DisplayProductID", {std::int64_t{product}}},
                                             {"DisplaySerialNumber", {std::int64_t{serial}}}};
        return fb;
    }

    platform::KernReturn i2cInterfaceCount(platform::IOObject fb, std::uint32_t& count) override {
        count = static_cast<std::uint32_t>(framebuffers.at(fb).buses.size());
        return framebuffers.at(fb).countFails ? kFails : 0;
    }
    platform::KernReturn copyI2CInterfaceForBus(platform::IOObject fb, std::uint32_t bus,
                                                platform::IOObject& interface) override {
        copied.push_back(bus);
        const auto& b = framebuffers.at(fb).buses.at(bus);
        if (b.copyFails) return kFails;
        registry_.retain(b.interface); // handed to the caller, who releases it
        interface = b.interface;
        return 0;
    }
    platform::KernReturn interfaceOpen(platform::IOObject interface, std::uint32_t options,
                                       platform::I2CConnection& connection) override {
        const auto [fb, bus] = where.at(interface);
        if (framebuffers.at(fb).buses.at(bus).openFails || options != 0) return kFails;
        connection = nextConnection++;
        open[connection] = {fb, bus};
        return 0;
    }
    platform::KernReturn interfaceClose(platform::I2CConnection connection,
                                        std::uint32_t) override {
        return open.erase(connection) == 1 ? 0 : kFails;
    }
    platform::KernReturn sendRequest(platform::I2CConnection connection, std::uint32_t,
                                     platform::I2CRequest& request) override {
        const auto [fb, index] = open.at(connection);
        const auto& bus = framebuffers.at(fb).buses.at(index);
        Sent sent{index, request, {request.sendBuffer, request.sendBuffer + request.sendBytes}};
        for (std::uint32_t i = 0; i < request.replyBytes; ++i) {
            sent.replyZeroed = sent.replyZeroed && request.replyBuffer[i] == 0;
            request.replyBuffer[i] = static_cast<std::uint8_t>(i + 1);
        }
        requests.push_back(sent);
        request.result = bus.requestResult;
        return bus.sendReturn;
    }
    platform::IOObject serviceForDisplayNumber(platform::DisplayID id) override {
        return windowServer.count(id) ? windowServer[id] : 0;
    }
    std::optional<platform::PropertyDictionary> displayInfoDictionary(platform::IOObject fb,
                                                                      std::uint32_t) override {
        return framebuffers.at(fb).info;
    }

    std::map<platform::IOObject, Framebuffer> framebuffers;
    std::map<platform::DisplayID, platform::IOObject> windowServer;
    std::vector<std::uint32_t> copied; // buses whose interface was asked for
    std::vector<Sent> requests;
    std::map<platform::I2CConnection, std::pair<platform::IOObject, std::uint32_t>> open;

private:
    sim::SimRegistry& registry_;
    std::map<platform::IOObject, std::pair<platform::IOObject, std::uint32_t>> where;
    platform::I2CConnection nextConnection = 1;
};

} // namespace pw::test
