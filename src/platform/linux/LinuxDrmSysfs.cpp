#include "platform/linux/LinuxDrmSysfs.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <optional>
#include <regex>
#include <system_error>

namespace pw::platform {

namespace fs = std::filesystem;

namespace {

// Attributes are small; a read that fails (the device went away) gives nothing.
std::optional<std::string> readText(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) return std::nullopt;
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) return std::nullopt;
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ' || text.back() == '\0'))
        text.pop_back();
    return text;
}

std::vector<std::uint8_t> readBytes(const fs::path& file) {
    constexpr std::size_t kMax = 32768; // 256 blocks, the most an EDID can have
    std::ifstream in(file, std::ios::binary);
    std::vector<std::uint8_t> bytes;
    char chunk[4096];
    while (in && bytes.size() < kMax) {
        in.read(chunk, sizeof chunk);
        bytes.insert(bytes.end(), chunk, chunk + in.gcount());
    }
    if (bytes.size() > kMax) bytes.resize(kMax);
    return bytes;
}

template <typename Int> std::optional<Int> parseNumber(std::string_view text, int base = 10) {
    if (base == 16 && (text.starts_with("0x") || text.starts_with("0X"))) text.remove_prefix(2);
    Int value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
    return value;
}

// "i2c-7" -> 7
std::optional<int> adapterNumber(std::string_view name) {
    if (!name.starts_with("i2c-")) return std::nullopt;
    return parseNumber<int>(name.substr(4));
}

std::vector<std::string> entries(const fs::path& folder) {
    std::vector<std::string> names;
    std::error_code ec;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec))
        names.push_back(it->path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

bool isConnectorName(const std::string& name) {
    static const std::regex pattern("card[0-9]+-.+");
    return std::regex_match(name, pattern);
}

} // namespace

LinuxDrmSysfs::LinuxDrmSysfs(fs::path root) : root_(std::move(root)) {}

bool LinuxDrmSysfs::present() {
    static const std::regex card("card[0-9]+");
    const auto names = entries(root_ / "sys/class/drm");
    return std::any_of(names.begin(), names.end(),
                       [](const std::string& name) { return std::regex_match(name, card); });
}

std::vector<DrmConnector> LinuxDrmSysfs::connectors() {
    std::vector<DrmConnector> result;
    DisplayID position = 0;
    for (const auto& name : entries(root_ / "sys/class/drm")) {
        if (!isConnectorName(name)) continue;
        ++position;
        const auto folder = root_ / "sys/class/drm" / name;
        DrmConnector connector;
        connector.name = name;
        const auto status = readText(folder / "status");
        if (!status) continue; // gone between listing and reading
        connector.status = *status;
        connector.enabled = readText(folder / "enabled").value_or("") == "enabled";
        connector.edid = readBytes(folder / "edid");
        const auto id = parseNumber<DisplayID>(readText(folder / "connector_id").value_or(""));
        connector.id = id && *id != 0 ? *id : kPositionalIds + position;

        std::error_code ec;
        if (const auto link = fs::read_symlink(folder / "ddc", ec); !ec)
            connector.ddcAdapter = adapterNumber(link.filename().string());
        for (const auto& entry : entries(folder)) {
            if (auto number = adapterNumber(entry)) {
                connector.auxAdapter = number;
                break;
            }
        }
        result.push_back(std::move(connector));
    }
    return result;
}

std::vector<I2CAdapterInfo> LinuxDrmSysfs::adapters() {
    std::vector<I2CAdapterInfo> result;
    const auto devices = root_ / "sys/bus/i2c/devices";
    const auto sysRoot = fs::weakly_canonical(root_ / "sys");
    for (const auto& name : entries(devices)) {
        const auto number = adapterNumber(name);
        if (!number) continue;
        I2CAdapterInfo adapter;
        adapter.number = *number;
        adapter.name = readText(devices / name / "name").value_or("");
        // The PCI device the adapter hangs under, however deep: the first parent folder
        // with a PCI `class` attribute.
        std::error_code ec;
        auto folder = fs::canonical(devices / name, ec);
        while (!ec && folder.has_parent_path() && folder != sysRoot && folder != folder.root_path()) {
            folder = folder.parent_path();
            if (!fs::exists(folder / "vendor", ec) || ec) continue;
            const auto cls = readText(folder / "class");
            if (cls && cls->starts_with("0x")) {
                adapter.pciClass = parseNumber<std::uint32_t>(*cls, 16);
                break;
            }
        }
        result.push_back(std::move(adapter));
    }
    std::sort(result.begin(), result.end(),
              [](const auto& a, const auto& b) { return a.number < b.number; });
    return result;
}

std::string LinuxDrmSysfs::ddcDriver(int adapter) {
    const auto name = "i2c-" + std::to_string(adapter);
    std::error_code ec;
    const auto driver = fs::read_symlink(
        root_ / "sys/bus/i2c/devices" / name / (std::to_string(adapter) + "-0037") / "driver", ec);
    return ec ? std::string() : driver.filename().string();
}

} // namespace pw::platform
