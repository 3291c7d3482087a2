#include "app/DiagnosticLog.h"

#include "platform/Clock.h"
#include "platform/HostInfo.h"
#include "platform/Platform.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <cxxabi.h>
#include <exception>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <string>
#include <typeinfo>
#include <unistd.h>
#include <variant>

namespace pw::DiagnosticLog {

namespace {

namespace fs = std::filesystem;
using platform::Clock;
using platform::HostInfo;

constexpr int kCrashSignals[] = {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP};

// How long a crash handler waits for a lock that another thread holds: a line takes
// microseconds to write, so a lock still held after this is stuck (its holder is wedged
// in the file system or crashed too) and the crash lines go out without it.
constexpr int kCrashLockAttempts = 250;
constexpr long kCrashLockPauseNs = 2'000'000;

struct State {
    // Guards the descriptor's replacement and every line's write and sync.
    std::mutex mutex;
    // Read without the lock by the crash handlers and by `log`'s early exit.
    std::atomic<int> fd{-1};
    std::atomic<const HostInfo*> host{nullptr};
    std::atomic<Clock*> clock{nullptr};
    // Seconds east of UTC at the latest line: the signal handler cannot consult the time
    // zone database, so it stamps its lines with the offset the log last saw.
    std::atomic<long> utcOffset{0};
    // Under the lock.
    fs::path path;
    std::shared_ptr<const HostInfo> ownedHost; // keeps the installed platform's objects alive
    std::shared_ptr<Clock> ownedClock;
    std::terminate_handler previousTerminate = nullptr;
    bool handlersInstalled = false;
};

// Never destroyed: a crash handler may run while the process is already tearing down
// its statics.
State& state() {
    static State* const instance = new State;
    return *instance;
}

// Whether this thread holds the log lock. A crash handler running on the holder must not
// wait for the lock: it would never come.
thread_local volatile std::sig_atomic_t tHoldsLock = 0;

class Hold {
public:
    explicit Hold(State& s) : s_(s) {
        s_.mutex.lock();
        tHoldsLock = 1;
    }
    ~Hold() {
        tHoldsLock = 0;
        s_.mutex.unlock();
    }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

private:
    State& s_;
};

// The lock for a crash handler, if it can be had within a bounded wait; else the crash
// lines are written without it (at worst they interleave with a line of another thread).
class CrashHold {
public:
    explicit CrashHold(State& s) : s_(s) {
        if (tHoldsLock) return;
        for (int attempt = 0; attempt < kCrashLockAttempts; ++attempt) {
            if (s_.mutex.try_lock()) {
                locked_ = true;
                tHoldsLock = 1;
                return;
            }
            timespec pause{0, kCrashLockPauseNs};
            ::nanosleep(&pause, nullptr);
        }
    }
    ~CrashHold() {
        if (!locked_) return;
        tHoldsLock = 0;
        s_.mutex.unlock();
    }
    CrashHold(const CrashHold&) = delete;
    CrashHold& operator=(const CrashHold&) = delete;

private:
    State& s_;
    bool locked_ = false;
};

// Text built in a fixed buffer, dropping what does not fit: no allocation, so the signal
// handler can use it.
template <std::size_t N> class FixedText {
public:
    void add(std::string_view text) {
        for (char c : text) {
            if (size_ == N) return;
            data_[size_++] = c;
        }
    }
    void add(char c) { add(std::string_view(&c, 1)); }
    void addNumber(std::int64_t value, int minDigits = 1) {
        char digits[24];
        int count = 0;
        const bool negative = value < 0;
        // Work in negative numbers so the most negative value does not overflow.
        std::int64_t rest = negative ? value : -value;
        do {
            digits[count++] = static_cast<char>('0' - rest % 10);
            rest /= 10;
        } while (rest != 0);
        while (count < minDigits && count < 20)
            digits[count++] = '0';
        if (negative) add('-');
        while (count > 0)
            add(digits[--count]);
    }
    std::string_view view() const { return {data_, size_}; }

private:
    char data_[N];
    std::size_t size_ = 0;
};

struct CivilDate {
    std::int64_t year;
    int month;
    int day;
};

// Days since 1970-01-01 to a proleptic Gregorian date.
CivilDate civilFromDays(std::int64_t days) {
    days += 719468;
    const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const std::int64_t dayOfEra = days - era * 146097;
    const std::int64_t yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const std::int64_t shiftedMonth = (5 * dayOfYear + 2) / 153; // March = 0
    const int day = static_cast<int>(dayOfYear - (153 * shiftedMonth + 2) / 5 + 1);
    const int month = static_cast<int>(shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9);
    return {yearOfEra + era * 400 + (month <= 2 ? 1 : 0), month, day};
}

// "yyyy-MM-dd HH:mm:ss.SSS" by arithmetic alone (no locale, no time-zone lookup), so the
// normal path and the signal handler stamp lines the same way.
template <std::size_t N> void addStamp(FixedText<N>& out, Clock::TimePoint at, long utcOffset) {
    using namespace std::chrono;
    const std::int64_t ms =
        floor<milliseconds>(at.time_since_epoch()).count() + std::int64_t{utcOffset} * 1000;
    constexpr std::int64_t kMsPerDay = 86'400'000;
    std::int64_t days = ms / kMsPerDay;
    std::int64_t inDay = ms % kMsPerDay;
    if (inDay < 0) {
        inDay += kMsPerDay;
        --days;
    }
    const CivilDate date = civilFromDays(days);
    out.addNumber(date.year, 4);
    out.add('-');
    out.addNumber(date.month, 2);
    out.add('-');
    out.addNumber(date.day, 2);
    out.add(' ');
    out.addNumber(inDay / 3'600'000, 2);
    out.add(':');
    out.addNumber(inDay / 60'000 % 60, 2);
    out.add(':');
    out.addNumber(inDay / 1000 % 60, 2);
    out.add('.');
    out.addNumber(inDay % 1000, 3);
}

// The local offset at `at`, remembered for the signal handler.
long localOffset(Clock::TimePoint at) {
    const std::time_t seconds = static_cast<std::time_t>(
        std::chrono::floor<std::chrono::seconds>(at.time_since_epoch()).count());
    std::tm local{};
    const long offset = ::localtime_r(&seconds, &local) ? local.tm_gmtoff : 0;
    state().utcOffset.store(offset, std::memory_order_relaxed);
    return offset;
}

template <std::size_t N>
void addPrefix(FixedText<N>& out, Clock::TimePoint at, long utcOffset, std::string_view category) {
    out.add('[');
    addStamp(out, at, utcOffset);
    out.add("] [");
    out.add(category);
    out.add("] ");
}

std::string formatLine(Clock::TimePoint at, std::string_view category, std::string_view message) {
    FixedText<32> stamp;
    addStamp(stamp, at, localOffset(at));
    std::string line;
    line.reserve(stamp.view().size() + category.size() + message.size() + 6);
    line += '[';
    line += stamp.view();
    line += "] [";
    line += category;
    line += "] ";
    line += message;
    line += '\n';
    return line;
}

// Write errors are not acted on: there is nowhere left to report them.
void writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

// Every line reaches the disk before `log` returns, so the last lines before a crash or
// a power cut are there to read.
void writeLineLocked(int fd, std::string_view line) {
    writeAll(fd, line);
    ::fsync(fd);
}

// Empties or creates the file and opens it for appending; -1 when that is not possible.
int openEmpty(const fs::path& file) {
    if (file.empty()) return -1;
    // Non-blocking open, so a FIFO without a reader in the log's place cannot hang the start.
    const int fd = ::open(file.c_str(),
                          O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC | O_NONBLOCK, 0644);
    if (fd < 0) return -1;
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags >= 0) ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
    return fd;
}

std::string_view signalName(int signal) {
    switch (signal) {
    case SIGILL:
        return "SIGILL";
    case SIGTRAP:
        return "SIGTRAP";
    case SIGABRT:
        return "SIGABRT";
    case SIGFPE:
        return "SIGFPE";
    case SIGBUS:
        return "SIGBUS";
    case SIGSEGV:
        return "SIGSEGV";
    default:
        return {};
    }
}

// Runs on the crashing thread in signal context: no allocation and no lock that could
// already be held by this thread. The symbols come from the platform's allocation-free
// writer when it has one; otherwise through the ordinary call, which is fine unless the
// crash was inside the allocator.
void onFatalSignal(int signal) {
    const int savedErrno = errno;
    State& s = state();
    {
        CrashHold hold(s);
        const int fd = s.fd.load();
        Clock* clock = s.clock.load();
        if (fd >= 0 && clock) {
            const long offset = s.utcOffset.load(std::memory_order_relaxed);
            FixedText<128> first;
            addPrefix(first, clock->now(), offset, "CRASH");
            first.add("Received signal ");
            first.addNumber(signal);
            first.add(" (");
            if (std::string_view name = signalName(signal); !name.empty()) {
                first.add(name);
            } else {
                first.add("SIG");
                first.addNumber(signal);
            }
            first.add(")\n");
            writeAll(fd, first.view());

            FixedText<64> second;
            addPrefix(second, clock->now(), offset, "CRASH");
            second.add("Stack trace:\n");
            writeAll(fd, second.view());
            const HostInfo* host = s.host.load();
            if (host && !host->writeStackSymbols(fd)) {
                for (const std::string& symbol : host->currentStackSymbols()) {
                    writeAll(fd, symbol);
                    writeAll(fd, "\n");
                }
            }
            ::fsync(fd);
        }
    }
    // With the default disposition back, the re-raised signal ends the process as the
    // original one would have (it is delivered when this handler returns).
    std::signal(signal, SIG_DFL);
    std::raise(signal);
    errno = savedErrno;
}

std::string demangled(const char* name) {
    int status = 0;
    std::unique_ptr<char, decltype(&std::free)> readable(
        abi::__cxa_demangle(name, nullptr, nullptr, &status), &std::free);
    return status == 0 && readable ? std::string(readable.get()) : std::string(name);
}

void logUncaughtException(State& s) {
    std::string name = "(no exception)";
    std::string reason = "nil";
    if (std::exception_ptr current = std::current_exception()) {
        if (const std::type_info* type = abi::__cxa_current_exception_type())
            name = demangled(type->name());
        try {
            std::rethrow_exception(current);
        } catch (const std::exception& error) {
            reason = error.what();
        } catch (...) {
        }
    }
    std::string trace = "Stack trace:";
    if (const HostInfo* host = s.host.load()) {
        for (const std::string& symbol : host->currentStackSymbols())
            trace += "\n" + symbol;
    }
    Clock* clock = s.clock.load();
    if (!clock) return;
    const std::string lines = formatLine(clock->now(), "CRASH", "Uncaught exception: " + name) +
                              formatLine(clock->now(), "CRASH", "Reason: " + reason) +
                              formatLine(clock->now(), "CRASH", trace);
    CrashHold hold(s);
    const int fd = s.fd.load();
    if (fd >= 0) writeLineLocked(fd, lines);
}

// The uncaught-exception handler. It logs, then hands over to the handler that was there
// before (the runtime's, which names the exception on stderr and aborts), so the process
// still ends by SIGABRT and the signal handler adds its own two lines.
[[noreturn]] void onTerminate() {
    static std::atomic<bool> entered{false};
    State& s = state();
    if (!entered.exchange(true)) {
        try {
            if (s.fd.load() >= 0) logUncaughtException(s);
        } catch (...) {
        }
    }
    if (std::terminate_handler previous = s.previousTerminate) previous();
    std::abort();
}

void installHandlersLocked(State& s) {
    const std::terminate_handler previous = std::set_terminate(onTerminate);
    if (previous != onTerminate) s.previousTerminate = previous;
    for (int signal : kCrashSignals)
        std::signal(signal, onFatalSignal);
    s.handlersInstalled = true;
}

void startWith(const fs::path& file, const HostInfo* host, Clock* clock,
               std::shared_ptr<const HostInfo> ownedHost, std::shared_ptr<Clock> ownedClock) {
    State& s = state();
    Hold hold(s);
    s.host.store(host);
    s.clock.store(clock);
    s.ownedHost = std::move(ownedHost);
    s.ownedClock = std::move(ownedClock);
    s.path = file;
    const int fd = host && clock ? openEmpty(file) : -1;
    if (clock) localOffset(clock->now());
    const int previous = s.fd.exchange(fd);
    if (previous >= 0) ::close(previous);
    installHandlersLocked(s);
}

std::string bundleString(const HostInfo* host, const std::string& key) {
    if (!host) return "?";
    const auto value = host->bundleInfo(key);
    const std::string* text = value ? std::get_if<std::string>(&*value) : nullptr;
    return text ? *text : "?";
}

} // namespace

void start() {
    const platform::Platform& installed = platform::current();
    std::shared_ptr<const HostInfo> host = installed.host;
    std::shared_ptr<Clock> clock = installed.clock;
    fs::path file;
    if (host) {
        host->prepareDiagnosticLogFolder();
        file = host->diagnosticLogPath();
    }
    startWith(file, host.get(), clock.get(), host, clock);
}

void start(const fs::path& file, const HostInfo& host, Clock& clock) {
    startWith(file, &host, &clock, nullptr, nullptr);
}

void writeBanner() {
    const HostInfo* host = state().host.load();
    const std::string rule(40, '=');
    log("System", rule);
    log("System", "Panelwright v" + bundleString(host, "CFBundleShortVersionString") + " (" +
                      bundleString(host, "CFBundleVersion") + ")");
    log("System", host ? host->operatingSystemLine() : "?");
    log("System", host ? host->architectureLine() : "?");
    log("System", "Process: " + (host ? host->processName() : "?") + " (PID " +
                      (host ? std::to_string(host->processId()) : "?") + ")");
    log("System", "Log file: " + logFileURL().string());
    log("System", rule);
}

void log(std::string_view category, std::string_view message) {
    State& s = state();
    if (s.fd.load() < 0) return; // before start, or no file: dropped
    Clock* clock = s.clock.load();
    if (!clock) return;
    // Stamped before the lock: lines written at nearly the same moment may land slightly
    // out of time order, but no thread waits on the clock while holding the lock.
    const std::string line = formatLine(clock->now(), category, message);
    Hold hold(s);
    const int fd = s.fd.load();
    if (fd >= 0) writeLineLocked(fd, line);
}

fs::path logFileURL() {
    {
        State& s = state();
        Hold hold(s);
        if (!s.path.empty()) return s.path;
    }
    const auto host = platform::current().host;
    return host ? host->diagnosticLogPath() : fs::path();
}

void resetForTesting() {
    State& s = state();
    Hold hold(s);
    const int fd = s.fd.exchange(-1);
    if (fd >= 0) ::close(fd);
    s.host.store(nullptr);
    s.clock.store(nullptr);
    s.ownedHost.reset();
    s.ownedClock.reset();
    s.path.clear();
    if (s.handlersInstalled) {
        for (int signal : kCrashSignals)
            std::signal(signal, SIG_DFL);
        if (s.previousTerminate) std::set_terminate(s.previousTerminate);
        s.handlersInstalled = false;
    }
}

void withLockHeldForTesting(const std::function<void()>& body) {
    State& s = state();
    Hold hold(s);
    body();
}

} // namespace pw::DiagnosticLog
