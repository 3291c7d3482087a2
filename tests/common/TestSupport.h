#pragma once

#include <cstddef>
#include <fstream>
#include <filesystem>
#include <string>

#include "base/Preferences.h"
#include "base/SystemLog.h"
#include "platform/Platform.h"

namespace pw::test {

// A fresh directory under the system's temp folder, removed with everything in it.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

// What a Core installs process-wide, for the lifetime of the object: the machine's system
// log sink and settings store; the ones before come back after.
class ScopedPlatform {
public:
    explicit ScopedPlatform(const platform::Platform& platform);
    ~ScopedPlatform();
    ScopedPlatform(const ScopedPlatform&) = delete;
    ScopedPlatform& operator=(const ScopedPlatform&) = delete;

private:
    SystemLog::Scope systemLog_;
    Preferences::Scope preferences_;
};

// Path of a file in the source tree (scenarios/, fuzz/corpus/, ...).
std::filesystem::path sourcePath(const std::string& relative);

// The whole contents of a file, or "" when it cannot be read.
std::string readFile(const std::filesystem::path& file);

// Threads of this process whose name starts with `prefix` right now (Linux). Only named
// ones are counted: sanitizer runtimes start helper threads of their own.
inline std::size_t threadCount(const std::string& prefix) {
    std::size_t n = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream comm(entry.path() / "comm");
        std::string name;
        std::getline(comm, name);
        if (name.rfind(prefix, 0) == 0) ++n;
    }
    return n;
}

} // namespace pw::test
