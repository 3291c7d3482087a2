#include "ddc/VCP.h"

namespace pw {

std::optional<VCPCode> vcpCodeFromRaw(std::uint8_t raw) {
    for (VCPCode code : kAllVCPCodes)
        if (rawValue(code) == raw) return code;
    return std::nullopt;
}

std::string_view displayName(VCPCode code) {
    switch (code) {
    case VCPCode::brightness: return "Brightness";
    case VCPCode::contrast: return "Contrast";
    case VCPCode::redGain: return "Red Gain";
    case VCPCode::greenGain: return "Green Gain";
    case VCPCode::blueGain: return "Blue Gain";
    case VCPCode::inputSource: return "Input Source";
    case VCPCode::volume: return "Volume";
    case VCPCode::mute: return "Mute";
    case VCPCode::standby: return "Standby";
    }
    return "";
}

std::string_view featureName(VCPCode code) {
    switch (code) {
    case VCPCode::brightness: return "brightness";
    case VCPCode::contrast: return "contrast";
    case VCPCode::redGain: return "redGain";
    case VCPCode::greenGain: return "greenGain";
    case VCPCode::blueGain: return "blueGain";
    case VCPCode::inputSource: return "inputSource";
    case VCPCode::volume: return "volume";
    case VCPCode::mute: return "mute";
    case VCPCode::standby: return "standby";
    }
    return "";
}

std::optional<VCPCode> vcpCodeFromName(std::string_view name) {
    for (VCPCode code : kAllVCPCodes)
        if (featureName(code) == name) return code;
    return std::nullopt;
}

std::optional<InputSource> inputSourceFromRaw(std::uint16_t raw) {
    for (InputSource source : kAllInputSources)
        if (rawValue(source) == raw) return source;
    return std::nullopt;
}

std::string_view label(InputSource source) {
    switch (source) {
    case InputSource::vga1: return "VGA 1";
    case InputSource::vga2: return "VGA 2";
    case InputSource::dvi1: return "DVI 1";
    case InputSource::dvi2: return "DVI 2";
    case InputSource::composite1: return "Composite 1";
    case InputSource::composite2: return "Composite 2";
    case InputSource::svideo1: return "S-Video 1";
    case InputSource::svideo2: return "S-Video 2";
    case InputSource::component1: return "Component 1";
    case InputSource::component2: return "Component 2";
    case InputSource::displayPort1: return "DP 1";
    case InputSource::displayPort2: return "DP 2";
    case InputSource::hdmi1: return "HDMI 1";
    case InputSource::hdmi2: return "HDMI 2";
    case InputSource::usbC: return "USB-C";
    }
    return "";
}

std::string_view icon(InputSource source) {
    switch (source) {
    case InputSource::displayPort1:
    case InputSource::displayPort2: return "display";
    case InputSource::hdmi1:
    case InputSource::hdmi2: return "tv";
    default: return "cable.connector";
    }
}

} // namespace pw
