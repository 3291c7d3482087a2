#include "platform/sim/Edid.h"

#include <array>
#include <string>

namespace pw::sim {

namespace {

constexpr std::size_t kBlockSize = 128;
constexpr std::array<std::size_t, 4> kDescriptors = {54, 72, 90, 108};

std::uint8_t low(std::uint32_t value) {
    return static_cast<std::uint8_t>(value & 0xFF);
}

// One detailed timing descriptor with reduced blanking at 60 Hz, the way monitors state
// their native mode.
void writeTiming(std::uint8_t* d, std::uint32_t width, std::uint32_t height, std::uint32_t widthMm,
                 std::uint32_t heightMm) {
    const std::uint32_t hBlank = 160, vBlank = 41;
    const std::uint32_t hFront = 48, hSync = 32, vFront = 3, vSync = 5;
    const std::uint32_t clock10kHz = (width + hBlank) * (height + vBlank) * 60 / 10000;
    d[0] = low(clock10kHz);
    d[1] = low(clock10kHz >> 8);
    d[2] = low(width);
    d[3] = low(hBlank);
    d[4] = static_cast<std::uint8_t>((width >> 8 & 0x0F) << 4 | (hBlank >> 8 & 0x0F));
    d[5] = low(height);
    d[6] = low(vBlank);
    d[7] = static_cast<std::uint8_t>((height >> 8 & 0x0F) << 4 | (vBlank >> 8 & 0x0F));
    d[8] = low(hFront);
    d[9] = low(hSync);
    d[10] = static_cast<std::uint8_t>((vFront & 0x0F) << 4 | (vSync & 0x0F));
    d[11] = 0;
    d[12] = low(widthMm);
    d[13] = low(heightMm);
    d[14] = static_cast<std::uint8_t>((widthMm >> 8 & 0x0F) << 4 | (heightMm >> 8 & 0x0F));
    d[15] = 0;
    d[16] = 0;
    d[17] = 0x1A; // digital separate sync, positive horizontal polarity
}

// A display descriptor holding text: at most 13 characters, ended by a line feed and
// padded with spaces when shorter.
void writeText(std::uint8_t* d, std::uint8_t tag, const std::string& text) {
    d[3] = tag;
    std::size_t i = 0;
    for (; i < text.size() && i < 13; ++i) {
        // Descriptor text is printable ASCII; anything else shows as a question mark.
        const auto c = static_cast<unsigned char>(text[i]);
        d[5 + i] = c >= 0x20 && c < 0x7F ? c : static_cast<std::uint8_t>('?');
    }
    if (i < 13) d[5 + i++] = 0x0A;
    for (; i < 13; ++i)
        d[5 + i] = 0x20;
}

} // namespace

std::vector<std::uint8_t> buildEdid(const DisplaySpec& display) {
    std::vector<std::uint8_t> edid(kBlockSize, 0);
    constexpr std::array<std::uint8_t, 8> kHeader = {0x00, 0xFF, 0xFF, 0xFF,
                                                     0xFF, 0xFF, 0xFF, 0x00};
    std::copy(kHeader.begin(), kHeader.end(), edid.begin());

    // Manufacturer id is big-endian, product code and serial little-endian.
    edid[8] = low(display.vendor >> 8);
    edid[9] = low(display.vendor);
    edid[10] = low(display.model);
    edid[11] = low(display.model >> 8);
    for (std::size_t i = 0; i < 4; ++i)
        edid[12 + i] = low(display.serial >> (8 * i));
    edid[16] = static_cast<std::uint8_t>(1 + display.model % 52);          // week of manufacture
    edid[17] = static_cast<std::uint8_t>(2019 - 1990 + display.model % 5); // year - 1990
    edid[18] = 1;                                                          // EDID 1.4
    edid[19] = 4;

    const bool panel = display.builtin;
    edid[20] = panel ? 0xA5 : 0xB5; // digital, 8 or 10 bits per colour, DisplayPort
    edid[21] = panel ? 30 : 60;     // screen size in cm
    edid[22] = panel ? 19 : 34;
    edid[23] = 0x78; // gamma 2.2
    edid[24] = 0x3A; // RGB 4:4:4, sRGB default, preferred timing is native
    // sRGB primaries and D65 white point.
    constexpr std::array<std::uint8_t, 10> kChromaticity = {0xEE, 0x91, 0xA3, 0x54, 0x4C,
                                                            0x99, 0x26, 0x0F, 0x50, 0x54};
    std::copy(kChromaticity.begin(), kChromaticity.end(), edid.begin() + 25);
    edid[35] = 0x21; // 640x480 and 800x600 at 60 Hz
    edid[36] = 0x08; // 1024x768 at 60 Hz
    for (std::size_t i = 38; i < 54; ++i)
        edid[i] = 0x01; // no standard timings

    auto* timing = &edid[kDescriptors[0]];
    if (panel) {
        writeTiming(timing, 3024, 1964, 302, 196);
    } else {
        writeTiming(timing, 2560, 1440, 597, 336);
    }

    writeText(&edid[kDescriptors[1]], 0xFF, std::to_string(display.serial));

    auto* range = &edid[kDescriptors[2]];
    range[3] = 0xFD;
    range[5] = 48; // vertical 48..75 Hz
    range[6] = 75;
    range[7] = 30; // horizontal 30..160 kHz
    range[8] = 160;
    range[9] = 60; // pixel clock up to 600 MHz
    range[10] = 0x00;
    range[11] = 0x0A;
    for (std::size_t i = 12; i < 18; ++i)
        range[i] = 0x20;

    auto* last = &edid[kDescriptors[3]];
    if (display.name) {
        writeText(last, 0xFC, *display.name);
    } else {
        last[3] = 0x10; // dummy descriptor: a monitor that names itself nowhere
    }

    edid[126] = 0; // no extension blocks
    unsigned sum = 0;
    for (std::size_t i = 0; i + 1 < kBlockSize; ++i)
        sum += edid[i];
    edid[127] = static_cast<std::uint8_t>((256 - sum % 256) % 256);
    return edid;
}

} // namespace pw::sim
