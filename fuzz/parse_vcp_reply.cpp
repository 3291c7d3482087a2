// Feeds arbitrary bytes to the reply parser as a monitor's answer, once as the reply to a
// brightness request and once as the reply to whatever code it echoes. It must never
// crash, and whatever it takes for a value or an "unsupported" must be a reply it could
// have decoded by hand: source 0x6E, length 0x88, a sound checksum over those 11 bytes,
// the reply opcode, the requested code echoed, the result code, and the values from bytes
// 6 to 9. No platform is installed, so the rejection reports go nowhere.
#include "ddc/DDCMessages.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

namespace {

void check(std::span<const std::uint8_t> data, std::uint8_t requested) {
    using Kind = pw::ddc::VCPReply::Kind;
    const auto reply = pw::ddc::parseVCPReply(data, requested);
    if (reply.kind == Kind::busy) {
        if (data.size() < 3 || data[0] != 0x6E || data[1] != 0x80 || data[2] != 0xBE) std::abort();
        return;
    }
    if (reply.kind == Kind::rejected) return;
    if (data.size() < pw::ddc::kReplyLength) std::abort();
    std::uint8_t sum = pw::ddc::kHostReplyAddress;
    for (std::size_t i = 0; i + 1 < pw::ddc::kReplyLength; ++i)
        sum ^= data[i];
    if (sum != data[10] || data[0] != 0x6E || data[1] != 0x88 || data[2] != 0x02 ||
        data[4] != requested)
        std::abort();
    if (reply.kind == Kind::unsupported) {
        if (data[3] != 0x01) std::abort();
        return;
    }
    if (data[3] != 0x00) std::abort();
    if (reply.value.max != ((data[6] << 8) | data[7])) std::abort();
    if (reply.value.current != ((data[8] << 8) | data[9])) std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::uint8_t> reply(data, size);
    check(reply, 0x10);
    if (size > 4) check(reply, data[4]);

    const std::string dump = pw::ddc::hexDump(reply);
    if (dump.size() != (size == 0 ? 0 : size * 3 - 1)) std::abort();
    return 0;
}
