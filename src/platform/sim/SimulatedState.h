#pragma once

#include "platform/sim/SimMachine.h"

#include <filesystem>

namespace pw::cli {

// Where a simulated machine's monitor values live between runs, so that a value set in
// one run is read back in the next as it would be from a real monitor:
// $XDG_STATE_HOME/panelwright/simulated/<scenario file name>-<hash of its absolute path>.json
// ($HOME/.local/state when XDG_STATE_HOME is unset, empty or relative). The hash keeps two
// scenarios of the same name in different folders apart.
std::filesystem::path statePathFor(const std::filesystem::path& scenarioFile);

// Puts the saved values back into the machine's monitors. A missing file is the first
// run; an unreadable or malformed one is reported in one line on stderr and ignored.
void restoreState(sim::SimMachine& machine, const std::filesystem::path& stateFile);
// Writes every monitor's values (atomically: a temporary file renamed over the old one).
// A failure is reported on stderr; the command's outcome does not depend on it.
void saveState(const sim::SimMachine& machine, const std::filesystem::path& stateFile);

} // namespace pw::cli
