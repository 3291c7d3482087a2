#pragma once

#include "platform/SystemLog.h"
#include "platform/posix/StderrSystemLog.h"

#include <filesystem>
#include <memory>

namespace pw::platform {

// Where the journal listens on a systemd machine.
inline const std::filesystem::path kJournalSocket = "/run/systemd/journal/socket";

// The systemd journal: one entry per message with MESSAGE, PRIORITY (debug 7, info 6,
// error 3), SYSLOG_IDENTIFIER=panelwright, PANELWRIGHT_SUBSYSTEM and PANELWRIGHT_CATEGORY.
// A message the journal does not take (it went away during the run) goes to stderr.
class JournalSystemLog final : public SystemLogSink {
public:
    void write(std::string_view subsystem, std::string_view category, LogLevel level,
               std::string_view message) override;

private:
    StderrSystemLog fallback_;
};

// Whether this build was made with journal support.
bool journalBuiltIn();

// The journal when this build supports it and its socket is there, else stderr.
std::shared_ptr<SystemLogSink>
makeSystemLog(const std::filesystem::path& journalSocket = kJournalSocket);

} // namespace pw::platform
