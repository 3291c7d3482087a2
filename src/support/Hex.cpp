#include "support/Hex.h"

namespace pw {

namespace {

const char* digitsFor(HexCase letters) {
    return letters == HexCase::upper ? "0123456789ABCDEF" : "0123456789abcdef";
}

} // namespace

std::string hex(std::uint64_t value, int width, HexCase letters) {
    const char* digits = digitsFor(letters);
    char text[16];
    int count = 0;
    do {
        text[count++] = digits[value & 0xF];
        value >>= 4;
    } while (value != 0);
    std::string out;
    for (int pad = count; pad < width; ++pad)
        out.push_back('0');
    while (count > 0)
        out.push_back(text[--count]);
    return out;
}

std::string hexBytes(std::span<const std::uint8_t> bytes, std::string_view separator,
                     HexCase letters) {
    const char* digits = digitsFor(letters);
    std::string out;
    if (bytes.empty()) return out;
    out.reserve(bytes.size() * (2 + separator.size()));
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i > 0) out.append(separator);
        out.push_back(digits[bytes[i] >> 4]);
        out.push_back(digits[bytes[i] & 0x0F]);
    }
    return out;
}

} // namespace pw
