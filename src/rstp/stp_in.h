/// The way into the engine: what the adaptation layer reports. The operations that name a port
/// by its index, 1 to 9, do not run the engine; an index out of range is a programming error,
/// and the port of no enabled bridge is left alone.
#pragma once

#include "rstp/bpdu.h"
#include "rstp/records.h"

/// The first bridge in use with this VLAN, or null.
stpm_t *stpapi_stpm_find(uint16_t vlan_id);

/// The record of port `port_index` if it belongs to `bridge`, else null.
port_t *_stpapi_port_find(stpm_t *bridge, uint32_t port_index);

/// Applies changed settings of a port and, when it has a bridge, begins a pass.
void STP_IN_set_port_cfg(port_t *port);

/// The duplex of a port may have changed. Returns 0.
int STP_IN_changed_port_duplex(uint32_t port_index);

/// The speed of a port, in Mbit/s, may have changed. Returns 0.
int STP_IN_changed_port_speed(uint32_t port_index, uint32_t speed);

/// The link of a port came up (nonzero) or went down. Returns 0.
int STP_IN_enable_port(uint32_t port_index, uint8_t enable);

/// Hands on a validated BPDU of `len` octets, counted from its protocol identifier, and begins
/// a pass. Returns 0, or STP_BRIDGE_DISABLED when the bridge is off.
int STP_IN_rx_bpdu(port_t *port, const bpdu_t *bpdu, uint32_t len);
