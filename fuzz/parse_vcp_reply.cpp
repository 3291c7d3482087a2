// Feeds arbitrary bytes to the reply parser as a monitor's answer. It must never crash,
// and whatever it accepts must be a reply it could have decoded by hand: a sound
// checksum, the reply opcode, result code zero, and the values taken from bytes 6 to 9.
// No platform is installed, so the rejection reports go nowhere.
#include "ddc/DDCMessages.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::uint8_t> reply(data, size);
    const auto result = pw::ddc::parseVCPReply(reply);
    if (result) {
        if (size < pw::ddc::kReplyLength) std::abort();
        std::uint8_t sum = pw::ddc::kHostReplyAddress;
        for (std::size_t i = 0; i + 1 < size; ++i)
            sum ^= data[i];
        if (sum != data[size - 1] || data[2] != 0x02 || data[3] != 0x00) std::abort();
        if (result->max != ((data[6] << 8) | data[7])) std::abort();
        if (result->current != ((data[8] << 8) | data[9])) std::abort();
    }

    const std::string dump = pw::ddc::hexDump(reply);
    if (dump.size() != (size == 0 ? 0 : size * 3 - 1)) std::abort();
    return 0;
}
