// Placeholder until the diagnostic log lands: every line is dropped.
#include "app/DiagnosticLog.h"

namespace pw::DiagnosticLog {
void start() {}
void start(const std::filesystem::path&, const platform::HostInfo&, platform::Clock&) {}
void writeBanner() {}
void log(std::string_view, std::string_view) {}
std::filesystem::path logFileURL() { return {}; }
void resetForTesting() {}
} // namespace pw::DiagnosticLog
