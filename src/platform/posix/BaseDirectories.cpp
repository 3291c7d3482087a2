#include "platform/posix/BaseDirectories.h"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>
#include <vector>

namespace pw::platform::xdg {

namespace {

std::string_view environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

std::filesystem::path passwordHome() {
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found &&
        found->pw_dir && *found->pw_dir)
        return found->pw_dir;
    return ".";
}

} // namespace

std::filesystem::path baseDirectory(std::string_view variable, std::string_view home,
                                    const std::filesystem::path& underHome) {
    std::filesystem::path base(variable);
    if (!variable.empty() && base.is_absolute()) return base;
    return (home.empty() ? passwordHome() : std::filesystem::path(home)) / underHome;
}

std::filesystem::path stateHome() {
    return baseDirectory(environment("XDG_STATE_HOME"), environment("HOME"),
                         std::filesystem::path(".local") / "state");
}

std::filesystem::path configHome() {
    return baseDirectory(environment("XDG_CONFIG_HOME"), environment("HOME"), ".config");
}

} // namespace pw::platform::xdg
