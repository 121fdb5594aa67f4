/// The stepping of the engine. A pass over all bridges is done in units of one port each, with
/// the pending-work cursor between them, so that the caller decides when to go on. A pass that
/// one event begins is finished at the latest by the next. The two names under `lvt_rstp_` are
/// those by which the rest of the daemon knows the steps.
#pragma once

#include <cstdint>

/// Does one unit of the pass under way: runs the machines of the port under the cursor until
/// none moves and, after a bridge's last port, its role selection and its topology change
/// scan. Does nothing at rest.
void lvt_rstp_more_work();

/// Finishes the pass under way.
void lvt_rstp_run_pending();

/// Finishes the pass under way, begins a new one and runs its first unit only. A rapid bridge (STP_OUT_rapid)
/// makes passes until it is at rest instead, and never leaves one under way.
void STP_stpm_update();

/// Sweeps over one port's machines that one unit may take. No known input needs more than 14;
/// the bound keeps a bad value from holding the caller's lock for ever.
constexpr uint32_t STP_SWEEPS_MAX = 1000;

struct port_t;

/// One sweep: checks the nine machines of `port`, then enters those that moved. Returns which
/// moved, bit i for row i of the machine table; 0 when all are quiet.
uint32_t STP_port_sweep(port_t *port);
