// Feeds arbitrary bytes to the EDID name reader twice: as the hex text itself (what a
// damaged registry property could hold) and hex-encoded (any EDID content, however
// malformed its descriptors). Neither may crash, and a name that comes back must be
// what a descriptor can hold: 1 to 13 ASCII characters without surrounding blanks.
#include "display/EdidName.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

namespace {

void check(const std::optional<std::string>& name) {
    if (!name) return;
    if (name->empty() || name->size() > 13) std::abort();
    for (const char c : *name) {
        if (static_cast<unsigned char>(c) > 0x7F || c == '\n') std::abort();
    }
    if (name->front() == ' ' || name->back() == ' ') std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    check(pw::nameFromEDID(text));

    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(size * 2);
    for (std::size_t i = 0; i < size; ++i) {
        hex.push_back(kDigits[data[i] >> 4]);
        hex.push_back(kDigits[data[i] & 0x0F]);
    }
    check(pw::nameFromEDID(hex));
    return 0;
}
