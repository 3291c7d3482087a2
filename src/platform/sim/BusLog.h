#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Clock.h"

namespace pw::sim {

// Every I2C transfer of the simulated machine, with start and end time. A transfer
// that begins while another is still in flight is flagged as overlapping (and so is
// the one it overlaps): on a real bus that is a corrupted transaction, and the
// program must never cause one.
struct BusTransfer {
    enum class Kind { write, read };
    Kind kind = Kind::write;
    std::string endpoint;             // which monitor connection ("display 2")
    std::uint32_t chipAddress = 0;
    std::uint32_t dataAddress = 0;
    std::vector<std::uint8_t> bytes;  // written bytes, or the bytes read back
    std::int32_t result = 0;          // 0 = the bus accepted the transfer
    platform::Clock::TimePoint start{};
    platform::Clock::TimePoint end{};
    std::string queueLabel;           // serial queue the transfer ran on ("" = none)
    bool overlapped = false;
};

class BusLog {
public:
    explicit BusLog(platform::Clock& clock) : clock_(clock) {}

    // Marks the start of a transfer; returns its ticket for `finish`. Tickets stay
    // unique across `clear`, so a transfer that was in flight then is simply dropped.
    std::size_t begin(BusTransfer::Kind kind, std::string endpoint, std::uint32_t chipAddress,
                      std::uint32_t dataAddress);
    void finish(std::size_t index, std::vector<std::uint8_t> bytes, std::int32_t result);

    std::vector<BusTransfer> transfers() const;
    // How many recorded transfers are flagged `overlapped` (a clash of two counts 2).
    std::size_t overlapCount() const;
    void clear();

    // Called with every transfer as it finishes, on the thread that ran it and outside
    // the log's lock (the command line's --trace prints the bus as it happens).
    void setObserver(std::function<void(const BusTransfer&)> observer);

    platform::Clock& clock() { return clock_; }

private:
    platform::Clock& clock_;
    mutable std::mutex mutex_;
    std::vector<BusTransfer> transfers_;
    std::vector<std::size_t> inFlight_; // tickets
    std::size_t firstTicket_ = 0;       // ticket of transfers_[0]
    std::function<void(const BusTransfer&)> observer_;
};

} // namespace pw::sim
