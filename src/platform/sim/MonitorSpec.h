#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <set>

namespace pw::sim {

// How one scripted fault spoils transfers: the first `count` transfers it applies
// to (counted from the start of the run), or every transfer when `always`.
struct FaultScript {
    std::uint32_t count = 0;
    bool always = false;
    bool active() const { return always || count > 0; }
};

// The monitor section of a scenario display: what the virtual DDC/CI monitor
// behind a connection holds and how it misbehaves.
struct MonitorSpec {
    struct Feature {
        std::uint16_t current = 0;
        std::uint16_t max = 0;
    };
    std::map<std::uint8_t, Feature> features; // VCP code -> value
    std::set<std::uint8_t> unsupported;       // answered with result code 0x01
    std::chrono::milliseconds replyDelay{40};
    // After a setting, requests that come sooner than this are lost.
    std::chrono::milliseconds quietTime{50};
    struct Faults {
        FaultScript corruptChecksum, wrongOpcode, nullReply, nak, silent;
    } faults;

    // brightness [50,100], contrast [75,100], volume [50,100], mute [2,2], inputSource [15,18]
    static MonitorSpec withDefaultFeatures();
};

} // namespace pw::sim
