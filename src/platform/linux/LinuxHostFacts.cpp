#include "platform/linux/LinuxHostFacts.h"

#include "platform/posix/BaseDirectories.h"
#include "platform/posix/ProcessStack.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace pw::platform {

namespace {

namespace fs = std::filesystem;

// What the binary was compiled for, like the banner on a Mac: not what the kernel reports.
// An architecture not named here is taken from the kernel.
#if defined(__x86_64__)
constexpr std::string_view kArchitecture = "x86_64";
#elif defined(__aarch64__)
constexpr std::string_view kArchitecture = "arm64";
#elif defined(__i386__)
constexpr std::string_view kArchitecture = "i386";
#elif defined(__riscv) && __riscv_xlen == 64
constexpr std::string_view kArchitecture = "riscv64";
#else
constexpr std::string_view kArchitecture = "";
#endif

} // namespace

LinuxHostFacts::LinuxHostFacts(fs::path logPath) : logPath_(std::move(logPath)) {
    // The unwinder allocates when first loaded: now rather than in a signal handler.
    loadStackUnwinder();
}

LinuxHostFacts::LinuxHostFacts() : LinuxHostFacts(xdg::stateHome() / "panelwright" / "Panelwright.log") {}

fs::path LinuxHostFacts::logPathFor(std::string_view xdgStateHome, std::string_view home) {
    return xdg::baseDirectory(xdgStateHome, home, fs::path(".local") / "state") / "panelwright" /
           "Panelwright.log";
}

std::string LinuxHostFacts::kernelVersion(std::string_view release) {
    std::string version;
    std::size_t at = 0;
    for (int part = 0; part < 3; ++part) {
        const std::size_t begin = at;
        while (at < release.size() && release[at] >= '0' && release[at] <= '9')
            ++at;
        if (at == begin) {
            if (part == 0) return std::string(release);
            version += ".0";
            continue;
        }
        if (part > 0) version += '.';
        version += release.substr(begin, at - begin);
        // Only a dot followed by a digit continues the number ("6.8-rc1" stops at "8").
        if (at + 1 < release.size() && release[at] == '.' && release[at + 1] >= '0' &&
            release[at + 1] <= '9')
            ++at;
        else
            at = release.size();
    }
    return version;
}

bool LinuxHostFacts::prepareDiagnosticLogFolder() const {
    const fs::path folder = logPath_.parent_path();
    if (folder.empty()) return true;
    fs::path partial;
    for (const fs::path& part : folder) {
        partial /= part;
        if (::mkdir(partial.c_str(), 0700) != 0 && errno != EEXIST) return false;
    }
    struct stat info {};
    return ::stat(folder.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::string LinuxHostFacts::operatingSystemLine() const {
    utsname names{};
    if (::uname(&names) != 0) return "Linux";
    return "Linux " + kernelVersion(names.release);
}

std::string LinuxHostFacts::architectureLine() const {
    std::string name(kArchitecture);
    if (name.empty()) {
        utsname names{};
        name = ::uname(&names) == 0 ? names.machine : "unknown";
    }
    return "Architecture: " + name + " (Linux)";
}

std::string LinuxHostFacts::processName() const {
    std::ifstream comm("/proc/self/comm");
    std::string name;
    if (std::getline(comm, name) && !name.empty()) return name;
    return program_invocation_short_name;
}

std::int64_t LinuxHostFacts::processId() const {
    return static_cast<std::int64_t>(::getpid());
}

std::vector<std::string> LinuxHostFacts::currentStackSymbols() const {
    return processStackSymbols(1); // the caller wants its own stack, not this function
}

HostFacts::StackWriter LinuxHostFacts::stackWriter() const { return writeProcessStack; }

} // namespace pw::platform
