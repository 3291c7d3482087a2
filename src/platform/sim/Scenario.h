#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "platform/Screens.h"
#include "platform/Platform.h"
#include "platform/macos/Registry.h"
#include "platform/sim/Flavor.h"
#include "platform/sim/MonitorSpec.h"

namespace pw::sim {

// One display of a simulated machine (see docs/scenarios.md for every field).
struct DisplaySpec {
    platform::DisplayID id = 0;
    bool builtin = false;
    std::uint32_t vendor = 0;
    std::uint32_t model = 0;
    std::uint32_t serial = 0;
    std::optional<std::string> name;      // what the system reports; absent = unknown
    bool appleDisplay = false;            // the system reads its brightness itself
    std::optional<MonitorSpec> monitor;   // absent = no DDC/CI channel
    // Naming sources beyond `name`, registry and screen details: filled by the loader
    // with the defaults docs/scenarios.md gives.
    std::vector<std::pair<std::string, std::string>> productNames; // locale -> name
    std::optional<std::string> screenName;
    platform::Rect frame;
    std::string location = "External";    // "Location" of the connection's AV service
    bool hasEDID = true;                  // the framebuffer entry carries "IODisplayEDID"

    // The system has a "DisplayProductName" entry for the display that is not a map of
    // strings (the program must treat it as no names at all).
    bool productNamesWrongType = false;
    // Parent steps from the connection's AV service entry up to its framebuffer entry.
    unsigned edidParentDepth = 4;
    // Bytes presented as "IODisplayEDID" instead of the EDID built from the identity.
    std::optional<std::vector<std::uint8_t>> edid;
    // Making an AV service for the connection fails (as it does for some docks).
    bool avServiceCreateFails = false;
    // Properties forced onto the connection's AV service entry or its framebuffer entry
    // after they are built, in order; nothing = the property is removed. This is how a
    // machine presents a "Location" that is a number or an "IODisplayEDID" that is text.
    using PropertyOverrides =
        std::vector<std::pair<std::string, std::optional<platform::PropertyValue>>>;
    PropertyOverrides proxyProperties;
    PropertyOverrides framebufferProperties;

    // What an Intel Mac's framebuffer offers for this display: its I2C buses, which of
    // them reach the monitor, and the window-server and display-information lookups.
    struct Intel {
        std::uint32_t buses = 1;
        // Buses wired to the monitor; the others lead nowhere (indices >= buses are ignored).
        std::vector<std::uint32_t> monitorBuses = {0};
        // "IOI2CTransactionTypes" of every bus (bit n = transaction type n supported;
        // 6 = simple and DDC/CI reply); nothing = the property is absent and the bus
        // accepts any type. `busTransactionTypes[i]`, when given, replaces it for bus i.
        std::optional<std::uint64_t> transactionTypes = 6;
        std::vector<std::optional<std::uint64_t>> busTransactionTypes;
        bool lookupFails = false; // the window server knows no framebuffer for the display
        bool countFails = false;  // asking for the bus count fails
        std::vector<std::uint32_t> copyFails; // buses whose interface cannot be had
        std::vector<std::uint32_t> openFails; // buses whose interface cannot be opened
        bool hasInfoDictionary = true;        // the display information call gives something
        PropertyOverrides infoDictionary;     // forced onto that dictionary; nothing removes
        // The driver's own pause between sending a request and reading its reply; a request
        // asking for a longer minimum gets that instead.
        std::chrono::milliseconds replyWait{50};
    };
    Intel intel;

    // What a Linux machine shows for this display: its DRM connector, the i2c adapter
    // that carries its DDC/CI, and what goes wrong when the program uses that adapter.
    struct Connector {
        std::string name;              // "card0-HDMI-A-1"; default from the position
        std::string status = "connected";
        bool enabled = true;
        enum class Link { ddc, aux, none };
        Link link = Link::ddc;         // how the driver names the adapter, if at all
        int adapter = -1;              // i2c-N; -1 = the next free number from 10
        std::string adapterName;       // default after the link ("card0 DDC", "DPDDC-A")
        std::uint32_t pciClass = 0x030000;
        int openError = 0;             // errno open() fails with (EACCES, ENOENT)
        int slaveError = 0;            // errno I2C_SLAVE fails with (EBUSY: a driver at 0x37)
        bool lockHeld = false;         // another program holds the device's flock
        bool refusesRdwr = false;      // I2C_RDWR gives EINVAL, as NVIDIA's driver does
        bool edidReadable = true;      // the EEPROM at 0x50 answers
    };
    Connector connector;
};

// An i2c adapter of a Linux machine that belongs to no display.
struct AdapterSpec {
    int number = 0;
    std::string name;
    std::optional<std::uint32_t> pciClass; // nothing = not a PCI device
};

// What a Linux machine has beyond its displays.
struct LinuxMachineSpec {
    bool drm = true;    // false: no DRM device at all (a virtual machine)
    bool i2cDev = true; // false: no /dev/i2c-* (the i2c-dev module is not loaded)
    std::vector<AdapterSpec> adapters;
};

struct Scenario {
    Flavor flavor = Flavor::appleSilicon;
    std::vector<DisplaySpec> displays;
    LinuxMachineSpec linuxMachine; // read only for "flavor": "linux"
    std::string source;      // file it came from, for messages
    std::string description; // what the machine is meant to show, for people
    // The machine offers gamma tables (false: a desktop that gives programs none, such as
    // KDE on Wayland).
    bool softwareDimming = true;
};

// What was wrong with a scenario: the file, the JSON path ("displays[1].monitor.features.
// brightness") and what was expected there.
struct ScenarioError {
    std::string file;
    std::string path;
    std::string expected;
    std::string message() const; // "FILE: PATH: expected ..."
};

using ScenarioResult = std::variant<Scenario, ScenarioError>;

ScenarioResult parseScenario(std::string_view json, std::string_view sourceName);
// Scenarios describe a few monitors in a few kilobytes; anything larger is not one.
inline constexpr std::size_t kMaxScenarioBytes = 1024 * 1024;
ScenarioResult loadScenarioFile(const std::filesystem::path& file);

} // namespace pw::sim
