/// The other demos: two rings of three, the daemons of one asked to be rapid. The same cables are pulled and plugged
/// in in both, and the table tells how long the hosts of each were apart. Both throw cannot_run_t when what they show
/// was not built, and return whether everything was right.
#pragma once

namespace lab {

/// Rings of simulated switches.
bool play_rings();

/// Rings of Linux bridges that lvt_bridge rules.
bool play_bridges();

} // namespace lab
