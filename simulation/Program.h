// The program that `mox_add_simulation` makes: options, many histories, and for one that fails its
// shortest form with the command that replays it.
#pragma once

namespace Mox::Simulation {

/// Exit code 0: every history held; 1: one failed; 2: the arguments are wrong.
int program(int argc, char** argv);

}  // namespace Mox::Simulation
