/// What all state machines share. A machine is a pair of functions: check-conditions only
/// reads and moves, enter-state performs the entry actions of the state that is reached.
#pragma once

#include "rstp/stp_out.h"

/// Puts a machine at Begin.
inline void STP_state_mach_init(state_mach_t *mach, void *owner)
{
    mach->owner = owner;
    mach->State = STP_BEGIN;
}

/// Moves a machine. Every transition of every machine passes here. Returns 1.
inline int STP_hop_2_state(state_mach_t *mach, rstpstate_t state)
{
#ifdef STP_TRACE
    STP_OUT_trace(mach, state);
#endif
    mach->State = state;
    return 1;
}

using stp_check_t = int (*)(state_mach_t *);
using stp_enter_t = void (*)(state_mach_t *);
using stp_name_t = const char *(*)(rstpstate_t);

/// One of the nine machines of a port: its place in the record and its functions.
struct stp_machine_t {
    const char *name;
    const char *begin_assertion; ///< text of the assertion that it is at Begin
    unsigned begin_line;         ///< and its line
    state_mach_t port_t::*mach;
    stp_check_t check_conditions;
    stp_enter_t enter_state;
    stp_name_t state_name;
};

/// The names of all states, machine after machine, as ten tables in one.
extern const char *const STP_state_names[];

/// Who a machine is, for a trace.
struct stp_mach_identity_t {
    uint32_t port_number; ///< 0 for the role selection of a bridge
    const char *machine;
    stp_name_t state_name;
};

/// Tells which machine `mach` is. It must be one of a port_t or a stpm_t.
stp_mach_identity_t STP_mach_identify(const state_mach_t *mach);
