/// The nine machines of a port, in one table. It is known while compiling, so that walking it
/// costs no more than nine calls written out.
#pragma once

#include "rstp/machines.h"
#include "rstp/state_mach.h"

constexpr size_t STP_PORT_MACHINES = 9;

// clang-format off
// A row: the machine, the assertion that start makes of it, its place and its functions.
#define STP_MACHINE(name, line)                                                               \
    {#name, "port->" #name ".State == ((rstpstate_t)255)", line, &port_t::name,               \
     STP_##name##_check_conditions, STP_##name##_enter_state, STP_##name##_state_name}

/// The machines of a port in the order of their evaluation.
inline constexpr stp_machine_t STP_port_machines[STP_PORT_MACHINES] = {
    STP_MACHINE(transmit, 198), STP_MACHINE(sttrans, 199), STP_MACHINE(roletrns, 200),
    STP_MACHINE(info, 201),     STP_MACHINE(pcost, 202),   STP_MACHINE(edge, 203),
    STP_MACHINE(p2p, 204),      STP_MACHINE(migrate, 205), STP_MACHINE(topoch, 206),
};

#undef STP_MACHINE
// clang-format on
