// What the kernel's sysfs hands the Linux machine: EDID blocks, and a connector's text
// attributes. Arbitrary bytes go to the EDID reader, then become the attributes of a
// connector and an adapter in a scratch sysfs tree that the real sysfs reader lists.
// Nothing may crash; an identity that comes back must come from a block whose checksum
// holds, and a name must be printable ASCII of at most 13 characters.
#include "platform/Edid.h"
#include "platform/linux/LinuxDrmSysfs.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

void write(const fs::path& file, const std::uint8_t* data, std::size_t size) {
    std::ofstream(file, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
}

const fs::path& scratch() {
    static const fs::path root = [] {
        auto folder = fs::temp_directory_path() / ("pw-fuzz-sysfs-" + std::to_string(::getpid()));
        const auto device = folder / "sys/devices/pci0000:00/0000:00:02.0";
        fs::create_directories(device / "drm/card0/card0-HDMI-A-1");
        fs::create_directories(device / "i2c-4");
        fs::create_directories(folder / "sys/class/drm");
        fs::create_directories(folder / "sys/bus/i2c/devices");
        std::error_code ec;
        fs::create_directory_symlink(device / "drm/card0/card0-HDMI-A-1",
                                     folder / "sys/class/drm/card0-HDMI-A-1", ec);
        fs::create_directory_symlink(device / "i2c-4", folder / "sys/bus/i2c/devices/i2c-4", ec);
        std::ofstream(device / "vendor") << "0x1002\n";
        return folder;
    }();
    return root;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (const auto edid = pw::platform::Edid::parse({data, size}); edid.valid) {
        std::uint8_t sum = 0;
        for (std::size_t i = 0; i < 128; ++i)
            sum = static_cast<std::uint8_t>(sum + data[i]);
        if (sum != 0) std::abort();
        if (edid.name) {
            if (edid.name->empty() || edid.name->size() > 13) std::abort();
            for (const char c : *edid.name)
                if (c < 0x20 || c > 0x7E) std::abort();
        }
    }

    // The same bytes, cut in three, as a connector's status, connector_id and EDID, and
    // as the class of the adapter's device.
    const auto& root = scratch();
    const auto device = root / "sys/devices/pci0000:00/0000:00:02.0";
    const auto connector = device / "drm/card0/card0-HDMI-A-1";
    const std::size_t a = size / 3, b = 2 * size / 3;
    write(connector / "status", data, a);
    write(connector / "connector_id", data + a, b - a);
    write(connector / "edid", data + b, size - b);
    write(device / "class", data + a, b - a);
    write(device / "i2c-4" / "name", data, a);
    pw::platform::LinuxDrmSysfs sysfs(root);
    for (const auto& c : sysfs.connectors()) {
        (void)c.type();
        (void)c.builtin();
    }
    (void)sysfs.adapters();
    return 0;
}
