// The record of dimmed displays is read back at start from the user's state folder, where
// anything may have happened to it. Nothing may crash; a text that parses must format back
// to records that parse to the same thing, and no ramp may be empty or channels uneven.
#include "platform/linux/desktop/GammaJournal.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace pw::linuxdesktop;
    std::string whyNot;
    const auto ramps =
        parseDimmedRamps(std::string_view(reinterpret_cast<const char*>(data), size), whyNot);
    if (!ramps) {
        if (whyNot.empty()) std::abort();
        return 0;
    }
    for (const auto& ramp : *ramps) {
        const auto n = ramp.original.size();
        if (n == 0 || ramp.original.green.size() != n || ramp.original.blue.size() != n)
            std::abort();
        (void)looksDimmedFrom(ramp.original, ramp.original);
    }
    const auto again = parseDimmedRamps(formatDimmedRamps(*ramps), whyNot);
    if (!again || again->size() != ramps->size()) std::abort();
    for (std::size_t i = 0; i < ramps->size(); ++i)
        if ((*again)[i].displayKey != (*ramps)[i].displayKey ||
            (*again)[i].original.red != (*ramps)[i].original.red)
            std::abort();
    return 0;
}
