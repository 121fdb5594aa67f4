/// The other demo: two rings of three switches each, the daemons of one asked to be rapid. The same cables are
/// pulled and plugged in in both, and the table tells how long the hosts of each were apart.
#pragma once

namespace lab {

/// Returns whether everything was right.
bool play_rings();

} // namespace lab
