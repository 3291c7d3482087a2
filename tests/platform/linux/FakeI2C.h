#pragma once

// What the fake i2c-dev driver (FakeI2CDevice.cpp) saw, for tests linked with it.

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace pw::fakei2c {

// One message on a fake bus.
struct Transfer {
    std::string path; // the device file, as opened
    std::uint16_t address = 0;
    bool read = false;
    int error = 0; // 0 or the errno the message failed with
    std::chrono::steady_clock::time_point start, end;
};

// Every message of this process so far, in order.
std::vector<Transfer> transfers();

} // namespace pw::fakei2c
