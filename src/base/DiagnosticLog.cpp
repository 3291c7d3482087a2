#include "base/DiagnosticLog.h"

#include "platform/Clock.h"
#include "platform/HostFacts.h"
#include "support/Installed.h"

#include <atomic>
#include <chrono>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <cxxabi.h>
#include <exception>
#include <fcntl.h>
#include <signal.h>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <typeinfo>
#include <unistd.h>

namespace pw::DiagnosticLog {

namespace {

namespace fs = std::filesystem;
using platform::Clock;
using platform::HostFacts;

constexpr int kCrashSignals[] = {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP};

// How long a second crashing thread waits for the first to finish its lines and end the
// process before it ends the process itself.
constexpr int kSecondCrashPauses = 500;
constexpr long kSecondCrashPauseNs = 2'000'000;

// The signal handler's own stack, so that a stack overflow can still be logged. Static:
// the handler cannot allocate, and the stack must outlive every crash.
constexpr std::size_t kCrashStackSize = 64 * 1024;
alignas(16) char gCrashStack[kCrashStackSize];

struct State {
    // Orders the lines of `log` and guards the descriptor's replacement. The crash paths
    // never take it: each of their lines goes out in one write, which an append-mode
    // file never interleaves with another line.
    std::mutex mutex;
    // Read without the lock by the crash handlers and by `log`'s early exit.
    std::atomic<int> fd{-1};
    // Where lines are echoed as well (--verbose), or -1.
    std::atomic<int> echoFd{-1};
    std::atomic<const HostFacts*> host{nullptr};
    std::atomic<Clock*> clock{nullptr};
    // Asked from the host when the log starts, so the signal handler makes no virtual call.
    std::atomic<HostFacts::StackWriter> stackWriter{nullptr};
    // Seconds east of UTC at the latest line: the signal handler cannot consult the time
    // zone database, so it stamps its lines with the offset the log last saw.
    std::atomic<long> utcOffset{0};
    // Lines pushed to the disk (fsync) since the start: only crash lines are.
    std::atomic<int> diskSyncs{0};
    // Threads inside `log` now: `stop` waits for them before it lets the clock go.
    std::atomic<int> writers{0};
    // Under the lock.
    fs::path path;
    std::shared_ptr<const HostFacts> ownedHost; // keeps the installed platform's objects alive
    std::shared_ptr<Clock> ownedClock;
    std::terminate_handler previousTerminate = nullptr;
    bool handlersInstalled = false;
};

// Fixed storage, never destroyed: a crash handler may run while the process is already
// tearing down its statics. What it refers to is let go by `stop`.
State& state() {
    alignas(State) static unsigned char storage[sizeof(State)];
    static State* const instance = new (storage) State;
    return *instance;
}

// Set by the first thread that enters the signal handler, for good.
std::atomic<bool> gCrashing{false};
// Whether this thread is the one writing the crash lines: a second fault inside the
// handler must end the process at once rather than wait for itself.
thread_local volatile std::sig_atomic_t tCrashing = 0;

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

// One line in one write: the kernel has the bytes when `log` returns, so they survive the
// process crashing. No fsync: a line may be written while the DDC manager's transfer queue
// holds the bus, and waiting for the disk there would stall every monitor.
void writeLine(int fd, std::string_view line) { writeAll(fd, line); }

// Crash lines are the last the process writes: they are pushed to the disk as well.
void writeCrashLines(int fd, std::string_view lines) {
    writeAll(fd, lines);
    ::fsync(fd);
    state().diskSyncs.fetch_add(1, std::memory_order_relaxed);
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

// The real time, for the signal handler: clock_gettime is safe there, a Clock's virtual
// `now` is not. On a real machine the log's clock is this same clock.
Clock::TimePoint crashTime() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return Clock::TimePoint(std::chrono::duration_cast<Clock::Duration>(
        std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec)));
}

void endBy(int signal) {
    struct sigaction fallback {};
    fallback.sa_handler = SIG_DFL;
    sigemptyset(&fallback.sa_mask);
    ::sigaction(signal, &fallback, nullptr);
    // Blocked while this handler runs; delivered, with the default action, as it returns.
    ::raise(signal);
}

// Runs on the crashing thread in signal context, on its own stack: no allocation, no
// lock, no virtual call. Only the first crashing thread writes; a fault in the handler
// itself, or a crash on another thread meanwhile, ends the process without more lines.
void onFatalSignal(int signal) {
    const int savedErrno = errno;
    if (tCrashing) {
        endBy(signal);
        errno = savedErrno;
        return;
    }
    if (gCrashing.exchange(true)) {
        for (int pause = 0; pause < kSecondCrashPauses; ++pause) {
            timespec wait{0, kSecondCrashPauseNs};
            ::nanosleep(&wait, nullptr);
        }
        endBy(signal);
        errno = savedErrno;
        return;
    }
    tCrashing = 1;
    State& s = state();
    const int fd = s.fd.load();
    if (fd >= 0) {
        const long offset = s.utcOffset.load(std::memory_order_relaxed);
        FixedText<192> lines;
        addPrefix(lines, crashTime(), offset, "CRASH");
        lines.add("Received signal ");
        lines.addNumber(signal);
        lines.add(" (");
        if (std::string_view name = signalName(signal); !name.empty()) {
            lines.add(name);
        } else {
            lines.add("SIG");
            lines.addNumber(signal);
        }
        lines.add(")\n");
        addPrefix(lines, crashTime(), offset, "CRASH");
        lines.add("Stack trace:\n");
        writeAll(fd, lines.view());
        if (HostFacts::StackWriter writeStack = s.stackWriter.load()) writeStack(fd);
        ::fsync(fd);
        s.diskSyncs.fetch_add(1, std::memory_order_relaxed);
    }
    endBy(signal);
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
    // Not in signal context: the ordinary symbol list will do.
    if (const HostFacts* host = s.host.load()) {
        for (const std::string& symbol : host->currentStackSymbols())
            trace += "\n" + symbol;
    }
    Clock* clock = s.clock.load();
    if (!clock) return;
    const std::string lines = formatLine(clock->now(), "CRASH", "Uncaught exception: " + name) +
                              formatLine(clock->now(), "CRASH", "Reason: " + reason) +
                              formatLine(clock->now(), "CRASH", trace);
    const int fd = s.fd.load();
    if (fd >= 0) writeCrashLines(fd, lines);
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
    // The handler runs on its own stack, so a thread that overflowed its stack can still
    // log. This alternate stack belongs to the thread that starts the log (the main thread);
    // every serial queue's worker sets up its own (support/SerialQueue.cpp).
    stack_t crashStack{};
    crashStack.ss_sp = gCrashStack;
    crashStack.ss_size = kCrashStackSize;
    ::sigaltstack(&crashStack, nullptr);
    struct sigaction action {};
    action.sa_handler = onFatalSignal;
    action.sa_flags = SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    // Another fatal signal while the lines are written waits for them.
    for (int signal : kCrashSignals)
        sigaddset(&action.sa_mask, signal);
    for (int signal : kCrashSignals)
        ::sigaction(signal, &action, nullptr);
    s.handlersInstalled = true;
}

void startWith(const fs::path& file, const HostFacts* host, Clock* clock,
               std::shared_ptr<const HostFacts> ownedHost, std::shared_ptr<Clock> ownedClock) {
    State& s = state();
    std::lock_guard hold(s.mutex);
    s.host.store(host);
    s.clock.store(clock);
    s.stackWriter.store(host ? host->stackWriter() : nullptr);
    s.diskSyncs.store(0);
    s.ownedHost = std::move(ownedHost);
    s.ownedClock = std::move(ownedClock);
    s.path = file;
    const int fd = host && clock ? openEmpty(file) : -1;
    if (clock) localOffset(clock->now());
    const int previous = s.fd.exchange(fd);
    if (previous >= 0) ::close(previous);
    installHandlersLocked(s);
}

// A fact the build does not know is written as "?".
std::string orUnknown(std::string fact) { return fact.empty() ? "?" : fact; }

} // namespace

void start(const fs::path& file, const HostFacts& host, Clock& clock) {
    startWith(file, &host, &clock, nullptr, nullptr);
}

void start(std::shared_ptr<const HostFacts> host, std::shared_ptr<Clock> clock) {
    fs::path file;
    if (host) {
        host->prepareDiagnosticLogFolder();
        file = host->diagnosticLogPath();
    }
    const HostFacts* rawHost = host.get();
    Clock* rawClock = clock.get();
    startWith(file, rawHost, rawClock, std::move(host), std::move(clock));
}

void echoTo(int fd) { state().echoFd.store(fd); }

void writeBanner() {
    const HostFacts* host = state().host.load();
    const std::string rule(40, '=');
    log("System", rule);
    const platform::BuildFacts build = host ? host->build() : platform::BuildFacts{};
    log("System", "Panelwright v" + orUnknown(build.version) + " (" +
                      orUnknown(build.buildNumber) + ")");
    log("System", host ? host->operatingSystemLine() : "?");
    log("System", host ? host->architectureLine() : "?");
    log("System", "Process: " + (host ? host->processName() : "?") + " (PID " +
                      (host ? std::to_string(host->processId()) : "?") + ")");
    log("System", "Log file: " + logFileURL().string());
    log("System", rule);
}

void log(std::string_view category, std::string_view message) {
    State& s = state();
    s.writers.fetch_add(1);
    const struct Leave {
        State& s;
        ~Leave() { s.writers.fetch_sub(1); }
    } leave{s};
    if (s.fd.load() < 0 && s.echoFd.load() < 0) return; // before start, or no file: dropped
    Clock* clock = s.clock.load();
    if (!clock) return;
    // Stamped before the lock: lines written at nearly the same moment may land slightly
    // out of time order, but no thread waits on the clock while holding the lock.
    const std::string line = formatLine(clock->now(), category, message);
    std::lock_guard hold(s.mutex);
    if (const int fd = s.fd.load(); fd >= 0) writeLine(fd, line);
    if (const int echo = s.echoFd.load(); echo >= 0) writeLine(echo, line);
}

fs::path logFileURL() {
    State& s = state();
    std::lock_guard hold(s.mutex);
    return s.path;
}

void stop() {
    State& s = state();
    std::shared_ptr<const HostFacts> host;
    std::shared_ptr<Clock> clock;
    {
        std::lock_guard hold(s.mutex);
        const int fd = s.fd.exchange(-1);
        if (fd >= 0) ::close(fd);
        s.echoFd.store(-1);
        s.host.store(nullptr);
        s.clock.store(nullptr);
        s.stackWriter.store(nullptr);
        host = std::move(s.ownedHost);
        clock = std::move(s.ownedClock);
        s.path.clear();
        if (s.handlersInstalled) {
            for (int signal : kCrashSignals)
                std::signal(signal, SIG_DFL);
            if (s.previousTerminate) std::set_terminate(s.previousTerminate);
            s.handlersInstalled = false;
        }
    }
    // A thread that entered `log` before the pointers were cleared may still use the
    // clock: the host and clock go once it has left (a later one finds nothing).
    while (s.writers.load() != 0)
        std::this_thread::yield();
}

void resetForTesting() { stop(); }

int diskSyncsForTesting() { return state().diskSyncs.load(); }

void withLockHeldForTesting(const std::function<void()>& body) {
    State& s = state();
    std::lock_guard hold(s.mutex);
    body();
}

} // namespace pw::DiagnosticLog
