#pragma once

namespace pw::sim {

// Which machine a scenario simulates (its "flavor"): the simulator builds the matching
// Mac or Linux parts from it. The program never sees it: the machine it is handed differs.
enum class Flavor { appleSilicon, intel, linux };

} // namespace pw::sim
