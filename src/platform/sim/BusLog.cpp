#include "platform/sim/BusLog.h"

#include "support/SerialQueue.h"

#include <algorithm>

namespace pw::sim {

std::size_t BusLog::begin(BusTransfer::Kind kind, std::string endpoint, std::uint32_t chipAddress,
                          std::uint32_t dataAddress) {
    BusTransfer transfer;
    transfer.kind = kind;
    transfer.endpoint = std::move(endpoint);
    transfer.chipAddress = chipAddress;
    transfer.dataAddress = dataAddress;
    transfer.queueLabel = SerialQueue::currentLabel();
    transfer.start = clock_.now();

    std::lock_guard lock(mutex_);
    // Transfers on different monitors' cables would not collide electrically, but the
    // program promises one transfer at a time across all of them, so any two count.
    if (!inFlight_.empty()) {
        transfer.overlapped = true;
        for (std::size_t ticket : inFlight_)
            transfers_[ticket - firstTicket_].overlapped = true;
    }
    const std::size_t ticket = firstTicket_ + transfers_.size();
    transfers_.push_back(std::move(transfer));
    inFlight_.push_back(ticket);
    return ticket;
}

void BusLog::finish(std::size_t index, std::vector<std::uint8_t> bytes, std::int32_t result) {
    const auto end = clock_.now();
    std::function<void(const BusTransfer&)> observer;
    BusTransfer finished;
    {
        std::lock_guard lock(mutex_);
        const auto flying = std::find(inFlight_.begin(), inFlight_.end(), index);
        if (flying == inFlight_.end()) return; // finished twice, or cleared meanwhile
        inFlight_.erase(flying);
        BusTransfer& transfer = transfers_[index - firstTicket_];
        transfer.bytes = std::move(bytes);
        transfer.result = result;
        transfer.end = end;
        if (!observer_) return;
        observer = observer_;
        finished = transfer;
    }
    observer(finished);
}

void BusLog::setObserver(std::function<void(const BusTransfer&)> observer) {
    std::lock_guard lock(mutex_);
    observer_ = std::move(observer);
}

std::vector<BusTransfer> BusLog::transfers() const {
    std::lock_guard lock(mutex_);
    return transfers_;
}

std::size_t BusLog::overlapCount() const {
    std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(std::count_if(
        transfers_.begin(), transfers_.end(), [](const BusTransfer& t) { return t.overlapped; }));
}

void BusLog::clear() {
    std::lock_guard lock(mutex_);
    firstTicket_ += transfers_.size();
    transfers_.clear();
    inFlight_.clear();
}

} // namespace pw::sim
