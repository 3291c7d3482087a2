#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string_view>

namespace pw::platform {
class HostFacts;
class Clock;
} // namespace pw::platform

// The plain-text diagnostic log: one timestamped, categorised line per message,
// emptied at every start, each line handed to the file in one write before `log` returns
// (so it survives the process crashing; only crash lines are also synced to the disk),
// crash lines written from the fatal-signal and uncaught-exception handlers.
// Process-wide state behind free functions; callable from any thread.
namespace pw::DiagnosticLog {

// Empties (or creates) the file at `host`'s log location, opens it and installs the crash
// handlers, keeping `host` and `clock` until `stop`. If the file cannot be opened the
// program runs on without a file log, silently.
void start(std::shared_ptr<const platform::HostFacts> host, std::shared_ptr<platform::Clock> clock);
// The same, at an explicit location with explicit collaborators (tests).
void start(const std::filesystem::path& file, const platform::HostFacts& host,
           platform::Clock& clock);
// Closes the file, puts the default crash dispositions back and lets the host and clock
// go once no thread is inside `log`; lines after it are dropped. Each program's `main`
// calls it once its Core is gone.
void stop();

// Every line from now on is also written, whole, to `fd` (-1: no more): the command line's
// --verbose shows its log on stderr, whether or not the file could be opened.
void echoTo(int fd);

// Writes the seven-line start banner, category "System".
void writeBanner();

// Appends "[yyyy-MM-dd HH:mm:ss.SSS] [category] message\n". Dropped before `start`.
void log(std::string_view category, std::string_view message);

// Where the file lives (shown in the banner); empty before `start`.
std::filesystem::path logFileURL();

// `stop`, so a test can start afresh.
void resetForTesting();

// How many times the file was synced to the disk since the last start (only crash lines
// are). Not used by the program.
int diskSyncsForTesting();

// Runs `body` while holding the log lock exactly as `log` does (tests: a crash in the
// middle of a line). Not used by the program.
void withLockHeldForTesting(const std::function<void()>& body);

} // namespace pw::DiagnosticLog
