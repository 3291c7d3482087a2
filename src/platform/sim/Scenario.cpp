#include "platform/sim/Scenario.h"

#include "support/Hex.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

namespace pw::sim {

namespace {

// Objects keep their keys in file order: the order of "productNames" is what the system
// would report, and error messages should point at keys the way the author wrote them.
using Json = nlohmann::ordered_json;

// Thrown inside the loader only, caught by parseScenario: the first thing wrong wins.
struct Invalid {
    std::string path;
    std::string expected;
};

[[noreturn]] void fail(std::string path, std::string expected) {
    throw Invalid{std::move(path), std::move(expected)};
}

std::string child(const std::string& path, std::string_view key) {
    return path.empty() ? std::string(key) : path + "." + std::string(key);
}

std::string element(const std::string& path, std::size_t index) {
    return path + "[" + std::to_string(index) + "]";
}

// The simulator's own vocabulary of feature names; it deliberately does not borrow the
// program's, so a renamed code on either side shows up as a failing test.
constexpr std::array<std::pair<std::string_view, std::uint8_t>, 9> kFeatureNames = {{
    {"brightness", 0x10},
    {"contrast", 0x12},
    {"redGain", 0x16},
    {"greenGain", 0x18},
    {"blueGain", 0x1A},
    {"inputSource", 0x60},
    {"volume", 0x62},
    {"mute", 0x8D},
    {"standby", 0xD6},
}};

constexpr const char* kFeatureKey =
    "a feature name (brightness, contrast, redGain, greenGain, blueGain, inputSource, "
    "volume, mute, standby) or a code 0x00..0xFF or 0..255";
constexpr const char* kFeatureValue = "[current, max] with 0 <= current, max <= 65535";

int digitValue(char c, int base) {
    int v = -1;
    if (c >= '0' && c <= '9') v = c - '0';
    if (c >= 'a' && c <= 'f') v = c - 'a' + 10;
    if (c >= 'A' && c <= 'F') v = c - 'A' + 10;
    return v < base ? v : -1;
}

std::optional<std::uint8_t> featureCode(std::string_view key) {
    for (const auto& [name, code] : kFeatureNames) {
        if (key == name) return code;
    }
    int base = 10;
    std::size_t maxDigits = 3;
    if (key.size() > 2 && key[0] == '0' && (key[1] == 'x' || key[1] == 'X')) {
        key.remove_prefix(2);
        base = 16;
        maxDigits = 2;
    }
    if (key.empty() || key.size() > maxDigits) return std::nullopt;
    int value = 0;
    for (const char c : key) {
        const int d = digitValue(c, base);
        if (d < 0) return std::nullopt;
        value = value * base + d;
    }
    if (value > 255) return std::nullopt;
    return static_cast<std::uint8_t>(value);
}

std::string codeText(std::uint8_t code) {
    return "0x" + hex(code, 2);
}

std::string list(const std::vector<std::string_view>& names) {
    std::string text;
    for (const auto name : names) {
        if (!text.empty()) text += ", ";
        text += name;
    }
    return text;
}

void onlyFields(const Json& object, const std::string& path,
                const std::vector<std::string_view>& allowed, std::string_view what) {
    for (const auto& [key, value] : object.items()) {
        if (std::find(allowed.begin(), allowed.end(), key) == allowed.end()) {
            fail(child(path, key), std::string(what) + " (" + list(allowed) + ")");
        }
    }
}

const Json* field(const Json& object, std::string_view key) {
    const auto found = object.find(std::string(key));
    return found == object.end() ? nullptr : &*found;
}

bool readBool(const Json& value, const std::string& path) {
    if (!value.is_boolean()) fail(path, "true or false");
    return value.get<bool>();
}

std::uint64_t readInteger(const Json& value, const std::string& path, std::uint64_t min,
                          std::uint64_t max, std::string_view unit = {}) {
    const auto expected = [&] {
        return "an integer " + std::to_string(min) + ".." + std::to_string(max) +
               (unit.empty() ? "" : " (" + std::string(unit) + ")");
    };
    if (value.is_number_unsigned()) {
        const auto n = value.get<std::uint64_t>();
        if (n < min || n > max) fail(path, expected());
        return n;
    }
    // Negative integers, fractions and everything that is no number at all.
    fail(path, expected());
}

std::string readString(const Json& value, const std::string& path) {
    if (!value.is_string()) fail(path, "a string");
    return value.get<std::string>();
}

std::uint8_t readFeatureKey(std::string_view key, const std::string& path) {
    const auto code = featureCode(key);
    if (!code) fail(path, kFeatureKey);
    return *code;
}

MonitorSpec::Feature readFeatureValue(const Json& value, const std::string& path) {
    if (!value.is_array() || value.size() != 2 || !value[0].is_number_unsigned() ||
        !value[1].is_number_unsigned()) {
        fail(path, kFeatureValue);
    }
    const auto current = value[0].get<std::uint64_t>();
    const auto max = value[1].get<std::uint64_t>();
    if (max > 0xFFFF) fail(path, kFeatureValue);
    if (current > max)
        fail(path, std::string(kFeatureValue) + " (current " + std::to_string(current) +
                       " is above max " + std::to_string(max) + ")");
    return {static_cast<std::uint16_t>(current), static_cast<std::uint16_t>(max)};
}

FaultScript readFault(const Json& value, const std::string& path) {
    FaultScript fault;
    if (value.is_boolean()) {
        fault.always = value.get<bool>();
        return fault;
    }
    if (!value.is_number_unsigned()) {
        fail(path, "a count of spoiled transfers 0..4294967295, or true for every transfer");
    }
    fault.count = static_cast<std::uint32_t>(
        readInteger(value, path, 0, std::numeric_limits<std::uint32_t>::max()));
    return fault;
}

MonitorSpec readMonitor(const Json& json, const std::string& path) {
    if (!json.is_object()) fail(path, "an object (the DDC/CI monitor behind the connection)");
    onlyFields(json, path, {"features", "unsupported", "replyDelayMs", "faults"},
               "a monitor field");

    MonitorSpec monitor = MonitorSpec::withDefaultFeatures();
    if (const auto* features = field(json, "features")) {
        const auto featuresPath = child(path, "features");
        if (!features->is_object())
            fail(featuresPath, "an object mapping features to " + std::string(kFeatureValue));
        monitor.features.clear();
        std::map<std::uint8_t, std::string> seen;
        for (const auto& [key, value] : features->items()) {
            const auto keyPath = child(featuresPath, key);
            const auto code = readFeatureKey(key, keyPath);
            if (const auto [at, fresh] = seen.emplace(code, key); !fresh) {
                fail(keyPath, "each feature once (" + codeText(code) + " is also given as \"" +
                                  at->second + "\")");
            }
            monitor.features[code] = readFeatureValue(value, keyPath);
        }
    }
    if (const auto* unsupported = field(json, "unsupported")) {
        const auto listPath = child(path, "unsupported");
        if (!unsupported->is_array()) fail(listPath, "an array of features");
        for (std::size_t i = 0; i < unsupported->size(); ++i) {
            const auto itemPath = element(listPath, i);
            const auto& item = (*unsupported)[i];
            if (!item.is_string()) fail(itemPath, kFeatureKey);
            monitor.unsupported.insert(readFeatureKey(item.get<std::string>(), itemPath));
        }
    }
    if (const auto* delay = field(json, "replyDelayMs")) {
        monitor.replyDelay = std::chrono::milliseconds(
            readInteger(*delay, child(path, "replyDelayMs"), 0, 60000, "milliseconds"));
    }
    if (const auto* faults = field(json, "faults")) {
        const auto faultsPath = child(path, "faults");
        if (!faults->is_object()) fail(faultsPath, "an object of scripted faults");
        onlyFields(*faults, faultsPath,
                   {"corruptChecksum", "wrongOpcode", "nullReply", "nak", "silent"}, "a fault");
        const std::pair<const char*, FaultScript*> kinds[] = {
            {"corruptChecksum", &monitor.faults.corruptChecksum},
            {"wrongOpcode", &monitor.faults.wrongOpcode},
            {"nullReply", &monitor.faults.nullReply},
            {"nak", &monitor.faults.nak},
            {"silent", &monitor.faults.silent},
        };
        for (const auto& [name, script] : kinds) {
            if (const auto* value = field(*faults, name)) {
                *script = readFault(*value, child(faultsPath, name));
            }
        }
    }
    return monitor;
}

constexpr const char* kPropertyValue =
    "a string, a non-negative integer, true or false, an array of bytes 0..255, an object of "
    "such values, or null to remove the property";

platform::PropertyValue readProperty(const Json& value, const std::string& path, int depth) {
    if (value.is_string()) return {value.get<std::string>()};
    if (value.is_boolean()) return {value.get<bool>()};
    if (value.is_number_unsigned()) {
        return {static_cast<std::int64_t>(readInteger(
            value, path, 0, static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())))};
    }
    if (value.is_array()) {
        platform::PropertyBytes bytes;
        for (std::size_t i = 0; i < value.size(); ++i) {
            bytes.push_back(
                static_cast<std::uint8_t>(readInteger(value[i], element(path, i), 0, 255)));
        }
        return {std::move(bytes)};
    }
    // Dictionaries nest, but a registry property is never deep.
    if (value.is_object() && depth < 8) {
        platform::PropertyDictionary dictionary;
        for (const auto& [key, item] : value.items()) {
            const auto itemPath = child(path, key);
            if (item.is_null()) fail(itemPath, "a value (null only removes a whole property)");
            dictionary[key] = readProperty(item, itemPath, depth + 1);
        }
        return {std::move(dictionary)};
    }
    fail(path, kPropertyValue);
}

DisplaySpec::PropertyOverrides readOverrides(const Json& json, const std::string& path) {
    if (!json.is_object()) fail(path, "an object mapping property names to values");
    DisplaySpec::PropertyOverrides overrides;
    for (const auto& [key, value] : json.items()) {
        const auto keyPath = child(path, key);
        if (value.is_null()) {
            overrides.emplace_back(key, std::nullopt);
        } else {
            overrides.emplace_back(key, readProperty(value, keyPath, 0));
        }
    }
    return overrides;
}

std::vector<std::uint8_t> readEdidHex(const Json& value, const std::string& path) {
    constexpr const char* kExpected =
        "the EDID as hexadecimal text, two digits per byte, 1 to 32768 bytes";
    if (!value.is_string()) fail(path, kExpected);
    const auto& text = value.get_ref<const std::string&>();
    if (text.empty() || text.size() % 2 != 0 || text.size() > 65536) fail(path, kExpected);
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() / 2);
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const int high = digitValue(text[i], 16);
        const int low = digitValue(text[i + 1], 16);
        if (high < 0 || low < 0) fail(path, kExpected);
        bytes.push_back(static_cast<std::uint8_t>(high << 4 | low));
    }
    return bytes;
}

platform::Rect readFrame(const Json& value, const std::string& path) {
    constexpr const char* kExpected =
        "[x, y, width, height] with width and height > 0 (points, within 10000000 of the origin)";
    if (!value.is_array() || value.size() != 4) fail(path, kExpected);
    double numbers[4] = {};
    for (std::size_t i = 0; i < 4; ++i) {
        if (!value[i].is_number()) fail(path, kExpected);
        numbers[i] = value[i].get<double>();
        if (!(std::abs(numbers[i]) < 1e7)) fail(path, kExpected);
    }
    if (numbers[2] <= 0 || numbers[3] <= 0) fail(path, kExpected);
    return {numbers[0], numbers[1], numbers[2], numbers[3]};
}

constexpr std::uint32_t kMaxBuses = 16;

// Bus indices of a display with `buses` buses, each at most once.
std::vector<std::uint32_t> readBusList(const Json& value, const std::string& path,
                                       std::uint32_t buses) {
    const std::string expected = buses == 0
                                     ? std::string("an empty array (the display has no I2C buses)")
                                     : "an array of bus indices 0.." + std::to_string(buses - 1);
    if (!value.is_array()) fail(path, expected);
    std::vector<std::uint32_t> list;
    for (std::size_t i = 0; i < value.size(); ++i) {
        const auto itemPath = element(path, i);
        if (buses == 0) fail(itemPath, "no bus index (the display has no I2C buses)");
        const auto bus = static_cast<std::uint32_t>(readInteger(value[i], itemPath, 0, buses - 1));
        if (std::find(list.begin(), list.end(), bus) != list.end()) {
            fail(itemPath, "each bus once (" + std::to_string(bus) + " is given twice)");
        }
        list.push_back(bus);
    }
    return list;
}

std::optional<std::uint64_t> readMask(const Json& value, const std::string& path) {
    constexpr const char* kExpected =
        "a transaction-type mask 0..4294967295, or null for a bus without the property";
    if (value.is_null()) return std::nullopt;
    if (!value.is_number_unsigned() || value.get<std::uint64_t>() > 0xFFFFFFFFu) {
        fail(path, kExpected);
    }
    return value.get<std::uint64_t>();
}

DisplaySpec::Intel readIntel(const Json& json, const std::string& path) {
    if (!json.is_object()) fail(path, "an object (the display's framebuffer on an Intel Mac)");
    onlyFields(json, path,
               {"buses", "monitorBuses", "transactionTypes", "lookupFails", "countFails",
                "copyFails", "openFails", "infoDictionary", "replyWaitMs"},
               "an intel field");

    DisplaySpec::Intel intel;
    // The bus count bounds every index below, whatever order the fields come in.
    if (const auto* v = field(json, "buses")) {
        intel.buses =
            static_cast<std::uint32_t>(readInteger(*v, child(path, "buses"), 0, kMaxBuses));
    }
    if (intel.buses == 0) intel.monitorBuses.clear();
    if (const auto* v = field(json, "monitorBuses")) {
        intel.monitorBuses = readBusList(*v, child(path, "monitorBuses"), intel.buses);
    }
    if (const auto* v = field(json, "transactionTypes")) {
        const auto typesPath = child(path, "transactionTypes");
        if (v->is_array()) {
            if (v->size() != intel.buses) {
                fail(typesPath, "one mask per bus (" + std::to_string(intel.buses) +
                                    "), or a single mask for all of them");
            }
            for (std::size_t i = 0; i < v->size(); ++i) {
                intel.busTransactionTypes.push_back(readMask((*v)[i], element(typesPath, i)));
            }
        } else {
            intel.transactionTypes = readMask(*v, typesPath);
        }
    }
    if (const auto* v = field(json, "lookupFails"))
        intel.lookupFails = readBool(*v, child(path, "lookupFails"));
    if (const auto* v = field(json, "countFails"))
        intel.countFails = readBool(*v, child(path, "countFails"));
    if (const auto* v = field(json, "copyFails"))
        intel.copyFails = readBusList(*v, child(path, "copyFails"), intel.buses);
    if (const auto* v = field(json, "openFails"))
        intel.openFails = readBusList(*v, child(path, "openFails"), intel.buses);
    if (const auto* v = field(json, "infoDictionary")) {
        const auto infoPath = child(path, "infoDictionary");
        if (v->is_boolean()) {
            intel.hasInfoDictionary = v->get<bool>();
        } else if (v->is_object()) {
            intel.infoDictionary = readOverrides(*v, infoPath);
        } else {
            fail(infoPath, "true, false or an object of entries forced onto the display "
                           "information");
        }
    }
    if (const auto* v = field(json, "replyWaitMs")) {
        intel.replyWait = std::chrono::milliseconds(
            readInteger(*v, child(path, "replyWaitMs"), 0, 60000, "milliseconds"));
    }
    return intel;
}

// --- Linux: DRM connectors and i2c adapters ----------------------------------------------

constexpr std::array<std::pair<std::string_view, int>, 7> kErrnoNames = {{
    {"EACCES", EACCES}, {"EPERM", EPERM}, {"ENOENT", ENOENT}, {"ENODEV", ENODEV},
    {"EBUSY", EBUSY},   {"ENXIO", ENXIO}, {"EIO", EIO},
}};

int readErrno(const Json& value, const std::string& path) {
    const auto text = value.is_string() ? value.get<std::string>() : std::string();
    for (const auto& [name, code] : kErrnoNames)
        if (text == name) return code;
    fail(path, "an error name: EACCES, EPERM, ENOENT, ENODEV, EBUSY, ENXIO or EIO");
}

std::uint32_t readPciClass(const Json& value, const std::string& path) {
    const auto text = value.is_string() ? value.get<std::string>() : std::string();
    std::uint32_t number = 0;
    bool ok = text.size() > 2 && text.size() <= 8 && text[0] == '0' && text[1] == 'x';
    for (std::size_t i = 2; ok && i < text.size(); ++i) {
        const int d = digitValue(text[i], 16);
        ok = d >= 0;
        number = number * 16 + static_cast<std::uint32_t>(d < 0 ? 0 : d);
    }
    if (!ok) fail(path, "a PCI class as hex text, such as \"0x030000\"");
    return number;
}

DisplaySpec::Connector readConnector(const Json& json, const std::string& path) {
    if (!json.is_object()) fail(path, "an object describing the display's DRM connector");
    onlyFields(json, path,
               {"connector", "status", "enabled", "link", "adapter", "adapterName", "pciClass",
                "openError", "slaveError", "lockHeld", "refusesRdwr", "edidReadable"},
               "a connector field");
    DisplaySpec::Connector c;
    if (const auto* v = field(json, "connector")) {
        c.name = readString(*v, child(path, "connector"));
        if (c.name.rfind("card", 0) != 0 || c.name.find('-') == std::string::npos)
            fail(child(path, "connector"), "a connector name such as \"card0-HDMI-A-1\"");
    }
    if (const auto* v = field(json, "status")) {
        c.status = readString(*v, child(path, "status"));
        if (c.status != "connected" && c.status != "disconnected" && c.status != "unknown")
            fail(child(path, "status"), "\"connected\", \"disconnected\" or \"unknown\"");
    }
    if (const auto* v = field(json, "enabled")) c.enabled = readBool(*v, child(path, "enabled"));
    if (const auto* v = field(json, "link")) {
        const auto text = v->is_string() ? v->get<std::string>() : std::string();
        if (text == "ddc") c.link = DisplaySpec::Connector::Link::ddc;
        else if (text == "aux") c.link = DisplaySpec::Connector::Link::aux;
        else if (text == "none") c.link = DisplaySpec::Connector::Link::none;
        else fail(child(path, "link"), "\"ddc\", \"aux\" or \"none\"");
    }
    if (const auto* v = field(json, "adapter"))
        c.adapter = static_cast<int>(readInteger(*v, child(path, "adapter"), 0, 4095));
    if (const auto* v = field(json, "adapterName"))
        c.adapterName = readString(*v, child(path, "adapterName"));
    if (const auto* v = field(json, "pciClass")) c.pciClass = readPciClass(*v, child(path, "pciClass"));
    if (const auto* v = field(json, "openError")) c.openError = readErrno(*v, child(path, "openError"));
    if (const auto* v = field(json, "slaveError"))
        c.slaveError = readErrno(*v, child(path, "slaveError"));
    if (const auto* v = field(json, "lockHeld")) c.lockHeld = readBool(*v, child(path, "lockHeld"));
    if (const auto* v = field(json, "refusesRdwr"))
        c.refusesRdwr = readBool(*v, child(path, "refusesRdwr"));
    if (const auto* v = field(json, "edidReadable"))
        c.edidReadable = readBool(*v, child(path, "edidReadable"));
    return c;
}

LinuxMachineSpec readLinuxMachine(const Json& json, const std::string& path) {
    if (!json.is_object()) fail(path, "an object with the fields drm, i2cDev, adapters");
    onlyFields(json, path, {"drm", "i2cDev", "adapters"}, "a Linux machine field");
    LinuxMachineSpec machine;
    if (const auto* v = field(json, "drm")) machine.drm = readBool(*v, child(path, "drm"));
    if (const auto* v = field(json, "i2cDev")) machine.i2cDev = readBool(*v, child(path, "i2cDev"));
    if (const auto* v = field(json, "adapters")) {
        const auto listPath = child(path, "adapters");
        if (!v->is_array()) fail(listPath, "an array of i2c adapters");
        for (std::size_t i = 0; i < v->size(); ++i) {
            const auto& entry = (*v)[i];
            const auto at = element(listPath, i);
            if (!entry.is_object()) fail(at, "an object with number, name and pciClass");
            onlyFields(entry, at, {"number", "name", "pciClass"}, "an adapter field");
            AdapterSpec adapter;
            const auto* number = field(entry, "number");
            if (!number) fail(child(at, "number"), "the adapter's number (i2c-N)");
            adapter.number = static_cast<int>(readInteger(*number, child(at, "number"), 0, 4095));
            if (const auto* n = field(entry, "name")) adapter.name = readString(*n, child(at, "name"));
            if (const auto* c = field(entry, "pciClass"); c && !c->is_null())
                adapter.pciClass = readPciClass(*c, child(at, "pciClass"));
            machine.adapters.push_back(std::move(adapter));
        }
    }
    return machine;
}

// Fields that describe a part only one kind of Mac has.
const std::vector<std::string_view> kAppleSiliconOnlyFields = {
    "location", "edidParentDepth", "avServiceCreateFails", "proxyProperties"};

void checkFlavorFields(const Json& json, const std::string& path, Flavor flavor) {
    if (flavor != Flavor::linux && field(json, "linux")) {
        fail(child(path, "linux"), "no linux object on a Mac (set \"flavor\": \"linux\" for "
                                   "DRM connectors and i2c adapters)");
    }
    if (flavor == Flavor::linux) {
        for (const auto key : kAppleSiliconOnlyFields) {
            if (field(json, key))
                fail(child(path, key), "no " + std::string(key) + " on a Linux machine (use \"linux\")");
        }
        if (field(json, "intel"))
            fail(child(path, "intel"), "no intel object on a Linux machine (use \"linux\")");
    } else if (flavor == Flavor::intel) {
        for (const auto key : kAppleSiliconOnlyFields) {
            if (field(json, key)) {
                fail(child(path, key), "no " + std::string(key) +
                                           " on an Intel Mac (its displays have no AV-service "
                                           "connection; use \"intel\")");
            }
        }
    } else if (field(json, "intel")) {
        fail(child(path, "intel"), "no intel object on an Apple Silicon Mac (set \"flavor\": "
                                   "\"intel\" for a framebuffer with I2C buses)");
    }
}

const std::vector<std::string_view> kDisplayFields = {
    "id",
    "builtin",
    "vendor",
    "model",
    "serial",
    "name",
    "appleDisplay",
    "monitor",
    "productNames",
    "productNamesWrongType",
    "screenName",
    "frame",
    "location",
    "hasEDID",
    "edid",
    "edidParentDepth",
    "avServiceCreateFails",
    "proxyProperties",
    "framebufferProperties",
    "intel",
    "linux",
};

DisplaySpec readDisplay(const Json& json, const std::string& path, std::size_t position,
                        Flavor flavor) {
    if (!json.is_object()) fail(path, "an object describing one display");
    onlyFields(json, path, kDisplayFields, "a display field");
    checkFlavorFields(json, path, flavor);

    DisplaySpec display;
    display.id = static_cast<platform::DisplayID>(position + 1);
    if (const auto* id = field(json, "id")) {
        display.id = static_cast<platform::DisplayID>(
            readInteger(*id, child(path, "id"), 1, std::numeric_limits<std::uint32_t>::max()));
    }
    if (const auto* v = field(json, "builtin"))
        display.builtin = readBool(*v, child(path, "builtin"));
    if (const auto* v = field(json, "vendor")) {
        display.vendor =
            static_cast<std::uint32_t>(readInteger(*v, child(path, "vendor"), 0, 0xFFFF));
    }
    if (const auto* v = field(json, "model")) {
        display.model =
            static_cast<std::uint32_t>(readInteger(*v, child(path, "model"), 0, 0xFFFF));
    }
    if (const auto* v = field(json, "serial")) {
        display.serial = static_cast<std::uint32_t>(
            readInteger(*v, child(path, "serial"), 0, std::numeric_limits<std::uint32_t>::max()));
    }
    if (const auto* v = field(json, "name")) display.name = readString(*v, child(path, "name"));
    if (const auto* v = field(json, "appleDisplay")) {
        display.appleDisplay = readBool(*v, child(path, "appleDisplay"));
    }
    if (const auto* v = field(json, "monitor")) {
        if (display.builtin) {
            fail(child(path, "monitor"),
                 "no monitor on a built-in display (a panel has no DDC/CI)");
        }
        display.monitor = readMonitor(*v, child(path, "monitor"));
    }

    if (const auto* v = field(json, "productNames")) {
        const auto namesPath = child(path, "productNames");
        if (!v->is_object()) fail(namesPath, "an object mapping locales to names");
        for (const auto& [locale, name] : v->items()) {
            display.productNames.emplace_back(locale, readString(name, child(namesPath, locale)));
        }
    } else if (display.name) {
        display.productNames = {{"en_US", *display.name}};
    }
    if (const auto* v = field(json, "productNamesWrongType")) {
        display.productNamesWrongType = readBool(*v, child(path, "productNamesWrongType"));
    }
    if (const auto* v = field(json, "screenName")) {
        display.screenName = readString(*v, child(path, "screenName"));
    } else {
        display.screenName = display.name.value_or("");
    }
    if (const auto* v = field(json, "frame")) display.frame = readFrame(*v, child(path, "frame"));

    if (display.builtin) display.location = "Embedded";
    if (const auto* v = field(json, "location")) {
        const auto locationPath = child(path, "location");
        if (display.builtin) {
            fail(locationPath, "no location on a built-in display (its connection is always "
                               "\"Embedded\"; proxyProperties can change that)");
        }
        if (v->is_null()) {
            display.proxyProperties.emplace_back("Location", std::nullopt);
        } else if (v->is_string()) {
            display.location = v->get<std::string>();
        } else {
            fail(locationPath, "a string, or null for a connection without \"Location\"");
        }
    }
    if (const auto* v = field(json, "hasEDID"))
        display.hasEDID = readBool(*v, child(path, "hasEDID"));
    if (const auto* v = field(json, "edid")) display.edid = readEdidHex(*v, child(path, "edid"));
    if (const auto* v = field(json, "edidParentDepth")) {
        display.edidParentDepth =
            static_cast<unsigned>(readInteger(*v, child(path, "edidParentDepth"), 1, 16));
    }
    if (const auto* v = field(json, "avServiceCreateFails")) {
        display.avServiceCreateFails = readBool(*v, child(path, "avServiceCreateFails"));
    }
    if (const auto* v = field(json, "proxyProperties")) {
        auto more = readOverrides(*v, child(path, "proxyProperties"));
        display.proxyProperties.insert(display.proxyProperties.end(), more.begin(), more.end());
    }
    if (const auto* v = field(json, "framebufferProperties")) {
        display.framebufferProperties = readOverrides(*v, child(path, "framebufferProperties"));
    }
    if (const auto* v = field(json, "intel")) display.intel = readIntel(*v, child(path, "intel"));
    if (const auto* v = field(json, "linux"))
        display.connector = readConnector(*v, child(path, "linux"));
    return display;
}

Scenario readScenario(const Json& json) {
    if (!json.is_object()) fail("", "an object with the fields flavor, displays, description");
    onlyFields(json, "", {"flavor", "displays", "description", "linux", "softwareDimming"},
               "a scenario field");

    Scenario scenario;
    if (const auto* flavor = field(json, "flavor")) {
        const auto text = flavor->is_string() ? flavor->get<std::string>() : std::string();
        if (text == "appleSilicon") {
            scenario.flavor = Flavor::appleSilicon;
        } else if (text == "intel") {
            scenario.flavor = Flavor::intel;
        } else if (text == "linux") {
            scenario.flavor = Flavor::linux;
        } else {
            fail("flavor", "\"appleSilicon\", \"intel\" or \"linux\"");
        }
    }
    if (const auto* machine = field(json, "linux")) {
        if (scenario.flavor != Flavor::linux)
            fail("linux", "no linux object on a Mac (set \"flavor\": \"linux\")");
        scenario.linuxMachine = readLinuxMachine(*machine, "linux");
    }
    if (const auto* dimming = field(json, "softwareDimming"))
        scenario.softwareDimming = readBool(*dimming, "softwareDimming");
    if (const auto* description = field(json, "description")) {
        scenario.description = readString(*description, "description");
    }
    if (const auto* displays = field(json, "displays")) {
        if (!displays->is_array()) fail("displays", "an array of displays");
        std::map<platform::DisplayID, std::size_t> owners;
        for (std::size_t i = 0; i < displays->size(); ++i) {
            const auto path = element("displays", i);
            auto display = readDisplay((*displays)[i], path, i, scenario.flavor);
            if (const auto [at, fresh] = owners.emplace(display.id, i); !fresh) {
                const bool explicitId = field((*displays)[i], "id") != nullptr;
                fail(explicitId ? child(path, "id") : path,
                     "an id no other display has (" + std::to_string(display.id) +
                         " is also displays[" + std::to_string(at->second) + "]'s" +
                         (explicitId ? ")" : "; give this display an \"id\")"));
            }
            scenario.displays.push_back(std::move(display));
        }
    }
    return scenario;
}

// Rejects an object key that appears twice, which the JSON library would otherwise let
// the last one win silently; the path is built while parsing, as the error must name it.
class DuplicateKeys {
public:
    bool operator()(int /*depth*/, Json::parse_event_t event, Json& parsed) {
        using Event = Json::parse_event_t;
        switch (event) {
        case Event::object_start:
        case Event::array_start:
            enterElement();
            frames_.push_back(Frame{event == Event::array_start, 0, {}, {}});
            break;
        case Event::object_end:
        case Event::array_end:
            frames_.pop_back();
            break;
        case Event::key: {
            auto& top = frames_.back();
            top.key = parsed.get<std::string>();
            if (!top.keys.insert(top.key).second) {
                fail(path(), "each key once (\"" + top.key + "\" is given twice)");
            }
            break;
        }
        case Event::value:
            enterElement();
            break;
        }
        return true;
    }

private:
    struct Frame {
        bool array = false;
        std::size_t next = 0; // index the next element of an array gets
        std::set<std::string> keys;
        std::string key;
    };

    void enterElement() {
        if (!frames_.empty() && frames_.back().array) ++frames_.back().next;
    }

    std::string path() const {
        std::string text;
        for (const auto& frame : frames_) {
            text = frame.array ? element(text, frame.next - 1) : child(text, frame.key);
        }
        return text;
    }

    std::vector<Frame> frames_;
};

std::string syntaxError(std::string_view json, const Json::parse_error& error, std::string& where) {
    const std::size_t byte = std::min<std::size_t>(error.byte, json.size() + 1);
    std::size_t line = 1;
    std::size_t column = 1;
    for (std::size_t i = 0; i + 1 < byte && i < json.size(); ++i) {
        if (json[i] == '\n') {
            ++line;
            column = 1;
        } else {
            ++column;
        }
    }
    where = "line " + std::to_string(line) + ", column " + std::to_string(column) + " (byte " +
            std::to_string(byte) + ")";
    // The library's text starts with its own location; keep only the reason.
    std::string reason = error.what();
    if (const auto colon = reason.find(": "); colon != std::string::npos) {
        reason.erase(0, colon + 2);
    }
    return "well-formed JSON (" + reason + ")";
}

} // namespace

std::string ScenarioError::message() const {
    std::string text = file + ": ";
    if (!path.empty()) text += path + ": ";
    return text + "expected " + expected;
}

ScenarioResult parseScenario(std::string_view json, std::string_view sourceName) {
    const std::string source(sourceName);
    try {
        DuplicateKeys duplicates;
        Json document = Json::parse(json.begin(), json.end(), std::ref(duplicates));
        Scenario scenario = readScenario(document);
        scenario.source = source;
        return scenario;
    } catch (const Invalid& invalid) {
        return ScenarioError{source, invalid.path, invalid.expected};
    } catch (const Json::parse_error& error) {
        ScenarioError result{source, {}, {}};
        result.expected = syntaxError(json, error, result.path);
        return result;
    } catch (const Json::exception& error) {
        // Anything else the library refuses (invalid UTF-8 in a string, for one).
        return ScenarioError{source, {}, std::string("valid JSON (") + error.what() + ")"};
    }
}

ScenarioResult loadScenarioFile(const std::filesystem::path& file) {
    const std::string source = file.string();
    std::error_code ec;
    if (std::filesystem::is_directory(file, ec))
        return ScenarioError{source, {}, "a scenario file, not a folder"};
    std::ifstream in(file, std::ios::binary);
    if (!in) return ScenarioError{source, {}, "a readable scenario file"};
    // Read at most one byte past the limit: a device such as /dev/zero never ends.
    std::string text(kMaxScenarioBytes + 1, '\0');
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (in.bad()) return ScenarioError{source, {}, "a readable scenario file"};
    text.resize(static_cast<std::size_t>(in.gcount()));
    if (text.size() > kMaxScenarioBytes)
        return ScenarioError{source, {}, "a scenario file of at most 1 MiB (this one is larger)"};
    return parseScenario(text, source);
}

} // namespace pw::sim
