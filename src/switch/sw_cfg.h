/// Operations on the switch chip, each one batch of register accesses. Port indices are
/// 0-based front ports. All return 0, or -1 when the chip did not take the batch.
#pragma once

#include <cstdint>

/// Sets a port's spanning tree state (three bits). A failure is told on standard output.
int sw_cfg_stp_mstpState_set_api(uint32_t index, uint8_t state);

/// Deletes all learned addresses. Silent.
int sw_cfg_l2_addr_delAll_api();

/// Deletes the unicast addresses learned on a port. A failure is told on standard output.
int sw_cfg_l2_ucastAddr_flush_api(uint32_t index);

/// Traps frames to the bridge group address to the CPU (nonzero) or not. It is one rule for
/// the whole switch: the index is ignored and the last call decides. A failure is told on the
/// console.
int sw_cfg_trap_portMgmtFrameAction_rstp_set_api(uint8_t enable, uint32_t index);

/// Lets spanning tree frames of each front port pass the VLAN checks (nonzero), or clears
/// those rules. Stops at the first failure, which is told on standard output.
int sw_cfg_trap_bypassVlan_rstp_set_api(uint8_t enable);

/// Prints the trap setting of each port to the console.
void sw_cfg_l2pt_trap_show_api();
