#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace pw {

// MCCS VCP feature codes the program uses, over their raw byte.
enum class VCPCode : std::uint8_t {
    brightness = 0x10,
    contrast = 0x12,
    redGain = 0x16,
    greenGain = 0x18,
    blueGain = 0x1A,
    inputSource = 0x60,
    volume = 0x62,
    mute = 0x8D,
    standby = 0xD6,
};

inline constexpr std::array<VCPCode, 9> kAllVCPCodes = {
    VCPCode::brightness, VCPCode::contrast,    VCPCode::redGain,
    VCPCode::greenGain,  VCPCode::blueGain,    VCPCode::inputSource,
    VCPCode::volume,     VCPCode::mute,        VCPCode::standby,
};

constexpr std::uint8_t rawValue(VCPCode code) { return static_cast<std::uint8_t>(code); }
std::optional<VCPCode> vcpCodeFromRaw(std::uint8_t raw);
std::string_view displayName(VCPCode code);   // "Brightness", "Input Source", ...
std::string_view featureName(VCPCode code);   // lower camel case name: "brightness", "inputSource"
std::optional<VCPCode> vcpCodeFromName(std::string_view name); // by featureName

// MCCS values of VCP 0x60.
enum class InputSource : std::uint16_t {
    vga1 = 0x01,
    vga2 = 0x02,
    dvi1 = 0x03,
    dvi2 = 0x04,
    composite1 = 0x05,
    composite2 = 0x06,
    svideo1 = 0x07,
    svideo2 = 0x08,
    component1 = 0x0C,
    component2 = 0x0D,
    displayPort1 = 0x0F,
    displayPort2 = 0x10,
    hdmi1 = 0x11,
    hdmi2 = 0x12,
    usbC = 0x13,
};

inline constexpr std::array<InputSource, 15> kAllInputSources = {
    InputSource::vga1,       InputSource::vga2,         InputSource::dvi1,
    InputSource::dvi2,       InputSource::composite1,   InputSource::composite2,
    InputSource::svideo1,    InputSource::svideo2,      InputSource::component1,
    InputSource::component2, InputSource::displayPort1, InputSource::displayPort2,
    InputSource::hdmi1,      InputSource::hdmi2,        InputSource::usbC,
};

constexpr std::uint16_t rawValue(InputSource source) { return static_cast<std::uint16_t>(source); }
std::optional<InputSource> inputSourceFromRaw(std::uint16_t raw);
std::string_view label(InputSource source); // "HDMI 1"
std::string_view icon(InputSource source);  // symbol name: "tv", "display", "cable.connector"

// The result of reading one feature: present value and the monitor's maximum.
struct DDCReadResult {
    std::uint16_t current = 0;
    std::uint16_t max = 0;
    friend bool operator==(const DDCReadResult&, const DDCReadResult&) = default;
};

} // namespace pw
