/// One line for each transition, on standard error: who, from, to. In traced builds only.
#include <cstdio>

#include "rstp/state_mach.h"

void STP_OUT_trace(const state_mach_t *mach, rstpstate_t state)
{
    const stp_mach_identity_t who = STP_mach_identify(mach);
    fprintf(stderr, "port %u %s: %s -> %s\n", who.port_number, who.machine, who.state_name(mach->State),
            who.state_name(state));
}
