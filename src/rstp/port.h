/// Life of a port record.
#pragma once

#include "rstp/records.h"

/// Attaches a port to a bridge, at the head of its list, applies its settings and puts its
/// machines at Begin. The port must belong to no bridge.
void STP_port_create(stpm_t *bridge, port_t *port);

/// Applies the administrative settings of `port->config`. Restarts migration, asks for new
/// roles, and takes the configured edge setting whatever was heard before.
void STP_port_cfg(port_t *port);

/// Sets the dynamic values anew. `full` also takes the link and the designated information
/// from the present state of `bridge`.
void STP_port_init(port_t *port, const stpm_t *bridge, uint8_t full);

/// Asks role selection for the port's role anew.
inline void STP_port_reselect(port_t *port)
{
    port->reselect = 1;
    port->selected = 0;
}

/// Takes a port out of its bridge.
void STP_port_delete(port_t *port);

/// One second has passed: takes one from each of the nine timers that is above 0 (clause 17.22). The timers
/// of a port that takes no part stand still.
void STP_port_tick(port_t *port);
