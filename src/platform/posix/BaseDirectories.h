#pragma once

#include <filesystem>
#include <string_view>

// Where per-user files go on a free desktop: the base directories named by the
// XDG_*_HOME variables, with one rule for every fallback.
namespace pw::platform::xdg {

// `variable` when it is an absolute path; otherwise (unset, empty or relative, which the
// base-directory rules call invalid and which would put files wherever the program
// happened to start) `home` / `underHome`. An empty `home` means the password database's
// home folder, and "." when even that is unknown.
std::filesystem::path baseDirectory(std::string_view variable, std::string_view home,
                                    const std::filesystem::path& underHome);

// The same from the environment: $XDG_STATE_HOME or $HOME/.local/state, and
// $XDG_CONFIG_HOME or $HOME/.config.
std::filesystem::path stateHome();
std::filesystem::path configHome();

} // namespace pw::platform::xdg
