// Feeds arbitrary bytes to the EDID parser, as a monitor (or a damaged registry property
// or sysfs file) could hand them over. It may not crash; a name that comes back must be
// what a descriptor can hold (1 to 13 ASCII characters without surrounding blanks), and
// an identity only comes with a whole base block.
#include "platform/Edid.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto edid = pw::platform::Edid::parse(std::span<const std::uint8_t>(data, size));
    if (edid.bytes.size() != size) std::abort();
    if (const auto& name = edid.name) {
        if (name->empty() || name->size() > 13) std::abort();
        for (const char c : *name)
            if (static_cast<unsigned char>(c) > 0x7F || c == '\n') std::abort();
        if (name->front() == ' ' || name->back() == ' ') std::abort();
    }
    if ((edid.valid || edid.name || edid.baseBlockHash != 0) && !edid.complete()) std::abort();
    if (!edid.valid && (edid.vendor || edid.product || edid.serial)) std::abort();
    return 0;
}
