#pragma once

#include "platform/sim/SimMachine.h"

#include <filesystem>
#include <string_view>

namespace pw::sim {

// Where a simulated machine's monitor values live between runs, so that a value set in
// one run is read back in the next as it would be from a real monitor:
// $XDG_STATE_HOME/panelwright/simulated/<scenario file name>-<hash of its absolute path>.json
// ($HOME/.local/state when XDG_STATE_HOME is unset, empty or relative). The hash keeps two
// scenarios of the same name in different folders apart.
std::filesystem::path statePathFor(const std::filesystem::path& scenarioFile);

// Both report on stderr under `program`, the name of the program that runs the machine.
// Puts the saved values back into the machine's monitors. A missing file is the first
// run; an unreadable or malformed one is reported in one line on stderr and ignored.
void restoreState(SimMachine& machine, const std::filesystem::path& stateFile,
                  std::string_view program);
// Writes every monitor's values (atomically: a temporary file renamed over the old one).
// A failure is reported on stderr; the command's outcome does not depend on it.
void saveState(const SimMachine& machine, const std::filesystem::path& stateFile,
               std::string_view program);

} // namespace pw::sim
