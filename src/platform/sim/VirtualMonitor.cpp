#include "platform/sim/VirtualMonitor.h"

#include <algorithm>
#include <array>

namespace pw::sim {

namespace {

// The monitor speaks the protocol on its own terms: the simulator never borrows the
// program's frame code, so a mistake there cannot hide behind the same mistake here.
constexpr std::uint32_t kChipAddress = 0x37;
constexpr std::uint8_t kMonitorAddress = 0x6E; // destination of requests, source of replies
constexpr std::uint8_t kHostAddress = 0x51;    // source of requests
constexpr std::uint8_t kReplySeed = 0x50;      // destination of replies
constexpr std::uint8_t kLengthFlag = 0x80;
constexpr std::uint8_t kGetVCP = 0x01;
constexpr std::uint8_t kGetVCPReply = 0x02;
constexpr std::uint8_t kSetVCP = 0x03;
constexpr std::uint8_t kResultOk = 0x00;
constexpr std::uint8_t kResultUnsupported = 0x01;
constexpr std::uint8_t kSetParameter = 0x00; // VCP type of a continuous/settable control

using Reply = std::array<std::uint8_t, 11>;

std::uint8_t xorOf(std::span<const std::uint8_t> bytes, std::uint8_t seed) {
    for (std::uint8_t b : bytes)
        seed ^= b;
    return seed;
}

void seal(Reply& reply) {
    reply.back() = xorOf(std::span(reply).first(reply.size() - 1), kReplySeed);
}

// "Nothing to say": what a monitor sends when asked before it has an answer.
constexpr std::array<std::uint8_t, 3> kNullMessage = {
    kMonitorAddress, kLengthFlag,
    static_cast<std::uint8_t>(kReplySeed ^ kMonitorAddress ^ kLengthFlag)};

// Takes one transfer from a script; true when the script spoils it.
bool play(FaultScript& script) {
    if (script.always) return true;
    if (script.count == 0) return false;
    --script.count;
    return true;
}

} // namespace

VirtualMonitor::VirtualMonitor(MonitorSpec setup, platform::Clock& clock)
    : clock_(clock), spec_(std::move(setup)), faultsLeft_(spec_.faults) {}

std::int32_t VirtualMonitor::busFault() {
    // A silent monitor is checked first: when nothing listens, a NAK script has no
    // transfer to spoil.
    if (play(faultsLeft_.silent)) return kNotAcknowledged;
    if (play(faultsLeft_.nak)) return kNotAcknowledged;
    return 0;
}

std::int32_t VirtualMonitor::receive(std::uint32_t chipAddress, std::uint32_t dataAddress,
                                     std::span<const std::uint8_t> bytes) {
    std::lock_guard lock(mutex_);
    if (!attached_ || chipAddress != kChipAddress) return kNotAcknowledged;
    if (const auto fault = busFault()) return fault;
    handleRequest(dataAddress, bytes);
    return 0;
}

void VirtualMonitor::handleRequest(std::uint32_t dataAddress, std::span<const std::uint8_t> frame) {
    // Layout: length byte (0x80 | n), n bytes of message, checksum over the addresses
    // and everything before it. Anything else is line noise to the monitor.
    const bool wellFormed = [&] {
        if (dataAddress != kHostAddress || frame.size() < 2) return false;
        const std::uint8_t length = frame[0];
        if ((length & kLengthFlag) == 0) return false;
        if (frame.size() != static_cast<std::size_t>(length & 0x7F) + 2) return false;
        const auto body = frame.first(frame.size() - 1);
        return xorOf(body, kMonitorAddress ^ kHostAddress) == frame.back();
    }();
    const std::size_t n = wellFormed ? frame.size() - 2 : 0;
    const bool isGet = wellFormed && n == 2 && frame[1] == kGetVCP;
    const bool isSet = wellFormed && n == 4 && frame[1] == kSetVCP;
    // Still busy with the last setting: the request is lost.
    const bool tooSoon = clock_.now() < quietUntil_;
    if ((!isGet && !isSet) || tooSoon) {
        ++ignored_;
        return;
    }
    ++accepted_;

    // A new request supersedes an answer nobody fetched.
    pendingReply_.reset();
    const std::uint8_t code = frame[2];
    const auto found = spec_.features.find(code);
    const bool supported = found != spec_.features.end() && !spec_.unsupported.contains(code);

    if (isSet) {
        if (!supported) return; // monitors drop writes to controls they lack
        const auto value = static_cast<std::uint16_t>((frame[3] << 8) | frame[4]);
        found->second.current = std::min(value, found->second.max);
        quietUntil_ = clock_.now() + spec_.quietTime;
        return;
    }

    Reply reply{};
    reply[0] = kMonitorAddress;
    reply[1] = static_cast<std::uint8_t>(kLengthFlag | 8);
    reply[2] = kGetVCPReply;
    reply[3] = supported ? kResultOk : kResultUnsupported;
    reply[4] = code;
    reply[5] = kSetParameter;
    if (supported) {
        const auto& f = found->second;
        reply[6] = static_cast<std::uint8_t>(f.max >> 8);
        reply[7] = static_cast<std::uint8_t>(f.max & 0xFF);
        reply[8] = static_cast<std::uint8_t>(f.current >> 8);
        reply[9] = static_cast<std::uint8_t>(f.current & 0xFF);
    }
    seal(reply);
    pendingReply_.emplace(reply.begin(), reply.end());
    replyReadyAt_ = clock_.now() + spec_.replyDelay;
}

std::int32_t VirtualMonitor::respond(std::uint32_t chipAddress, std::uint32_t /*offset*/,
                                     std::span<std::uint8_t> out) {
    std::lock_guard lock(mutex_);
    if (!attached_ || chipAddress != kChipAddress) return kNotAcknowledged;
    if (const auto fault = busFault()) return fault;
    fillReply(out);
    return 0;
}

void VirtualMonitor::fillReply(std::span<std::uint8_t> out) {
    std::fill(out.begin(), out.end(), std::uint8_t{0});
    auto send = [&](std::span<const std::uint8_t> bytes) {
        std::copy_n(bytes.begin(), std::min(bytes.size(), out.size()), out.begin());
    };

    if (!pendingReply_ || clock_.now() < replyReadyAt_) {
        send(kNullMessage);
        return;
    }
    Reply reply{};
    std::copy_n(pendingReply_->begin(), reply.size(), reply.begin());
    pendingReply_.reset();

    // One spoiler per reply, in this order, so a script is only used up by a reply it
    // actually changed.
    if (play(faultsLeft_.nullReply)) {
        send(kNullMessage);
        return;
    }
    if (play(faultsLeft_.wrongOpcode)) {
        reply[2] = kGetVCP; // a plausible wrong opcode: the request's own
        seal(reply);        // only the opcode is wrong, the checksum still adds up
    } else if (play(faultsLeft_.corruptChecksum)) {
        reply.back() = static_cast<std::uint8_t>(reply.back() ^ 0x5A);
    }
    send(reply);
}

std::optional<MonitorSpec::Feature> VirtualMonitor::feature(std::uint8_t code) const {
    std::lock_guard lock(mutex_);
    const auto found = spec_.features.find(code);
    if (found == spec_.features.end()) return std::nullopt;
    return found->second;
}

void VirtualMonitor::setFeature(std::uint8_t code, std::uint16_t current, std::uint16_t max) {
    std::lock_guard lock(mutex_);
    // Taken as given, even current > max: some real monitors report exactly that.
    spec_.features[code] = {current, max};
}

MonitorSpec VirtualMonitor::snapshot() const {
    std::lock_guard lock(mutex_);
    return spec_;
}

void VirtualMonitor::setAttached(bool attached) {
    std::lock_guard lock(mutex_);
    attached_ = attached;
    // Unplugging loses whatever the monitor was about to say.
    if (!attached) pendingReply_.reset();
}

bool VirtualMonitor::attached() const {
    std::lock_guard lock(mutex_);
    return attached_;
}

std::size_t VirtualMonitor::requestsAccepted() const {
    std::lock_guard lock(mutex_);
    return accepted_;
}

std::size_t VirtualMonitor::requestsIgnored() const {
    std::lock_guard lock(mutex_);
    return ignored_;
}

} // namespace pw::sim
