/// Included before step.cpp where the simulator compiles the daemon as one piece: of a switch-second, most is the
/// sweeps, and most of a sweep would be calls. What the functions do is said in step.cpp alone.
#pragma once

#include "rstp/step.h"

[[gnu::flatten]] void lvt_rstp_more_work();
