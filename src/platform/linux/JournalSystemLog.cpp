#include "platform/linux/JournalSystemLog.h"

#include <iterator>
#include <string>
#include <sys/stat.h>
#include <sys/uio.h>

#if PW_HAVE_SYSTEMD
// The sink's own source location would be the same for every entry: leave it out.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>
#endif

namespace pw::platform {

namespace {

int priorityOf(LogLevel level) {
    switch (level) {
    case LogLevel::debug:
        return 7;
    case LogLevel::info:
        return 6;
    case LogLevel::error:
        return 3;
    }
    return 6;
}

#if PW_HAVE_SYSTEMD
constexpr bool kJournalBuiltIn = true;

// Through the native protocol, field by field: messages keep their line feeds and any
// byte, and nothing in them is read as a format.
bool sendToJournal(std::string_view subsystem, std::string_view category, LogLevel level,
                   std::string_view message) {
    const std::string fields[] = {
        "MESSAGE=" + std::string(message),
        "PRIORITY=" + std::to_string(priorityOf(level)),
        "SYSLOG_IDENTIFIER=panelwright",
        "PANELWRIGHT_SUBSYSTEM=" + std::string(subsystem),
        "PANELWRIGHT_CATEGORY=" + std::string(category),
    };
    iovec vectors[std::size(fields)];
    for (std::size_t i = 0; i < std::size(fields); ++i)
        vectors[i] = {const_cast<char*>(fields[i].data()), fields[i].size()};
    return ::sd_journal_sendv(vectors, static_cast<int>(std::size(vectors))) >= 0;
}
#else
constexpr bool kJournalBuiltIn = false;

bool sendToJournal(std::string_view, std::string_view, LogLevel level, std::string_view) {
    static_cast<void>(priorityOf(level));
    return false;
}
#endif

} // namespace

void JournalSystemLog::write(std::string_view subsystem, std::string_view category, LogLevel level,
                             std::string_view message) {
    if (!sendToJournal(subsystem, category, level, message))
        fallback_.write(subsystem, category, level, message);
}

bool journalBuiltIn() {
    return kJournalBuiltIn;
}

std::shared_ptr<SystemLogSink> makeSystemLog(const std::filesystem::path& journalSocket) {
    struct stat info {};
    const bool listening = ::stat(journalSocket.c_str(), &info) == 0 && S_ISSOCK(info.st_mode);
    if (kJournalBuiltIn && listening) return std::make_shared<JournalSystemLog>();
    return std::make_shared<StderrSystemLog>();
}

} // namespace pw::platform
