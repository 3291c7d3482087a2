// Placeholder until the system-log identity lands.
#include "app/SystemLog.h"

#include "platform/Platform.h"

namespace pw::SystemLog {
void Logger::write(platform::LogLevel level, std::string_view message) const {
    if (auto sink = platform::current().systemLog) sink->write(subsystem(), category_, level, message);
}
const Logger& app() { static const Logger l("App"); return l; }
const Logger& ddc() { static const Logger l("DDC"); return l; }
const Logger& display() { static const Logger l("Display"); return l; }
const Logger& keyboard() { static const Logger l("Keyboard"); return l; }
const Logger& osd() { static const Logger l("OSD"); return l; }
std::string subsystem() { return "com.panelwright.app"; }
} // namespace pw::SystemLog
