#include "rstp/rapid.h"

namespace {

/// The neighbour's port is a root or alternate port.
bool is_below(const port_t *port)
{
    return port->rcvdRole == BPDU_ROLE_ROOT || port->rcvdRole == BPDU_ROLE_ALTERNATE_BACKUP;
}

/// Whether the present proposal was sent at least a whole second ago.
bool has_proposed_long(const port_t *port)
{
    return port->fdWhile + 2 <= port->owner->rootTimes.ForwardDelay && !port->newInfo;
}

} // namespace

bool STP_rapid_agreement(const port_t *port)
{
    const prio_vector_t &heard = port->msgPrio;
    const prio_vector_t &told = port->portPrio;

    if (!is_below(port) || port->infoIs != INFO_IS_MINE)
        return false;
    if (STP_VECT_eq_bridge_id(&heard.design_bridge, &told.design_bridge))
        return STP_VECT_eq_vector(&heard, &told) && port->wordHeard == port->wordTold;
    if (!STP_VECT_eq_bridge_id(&heard.root_bridge, &told.root_bridge) ||
        STP_VECT_compare_vector(&heard, &told) == VECT_BETTER)
        return false;
    return (port->rcvdRole == BPDU_ROLE_ROOT && heard.root_path_cost - told.root_path_cost == port->pathCost) ||
           has_proposed_long(port);
}

void STP_rapid_tell(const port_t *port, bpdu_t *bpdu)
{
    const bool agrees = port->synced && port->infoIs == INFO_IS_RECEIVED;

    if (agrees)
        STP_VECT_set_vector(&port->portPrio, bpdu);
    bpdu->message_age[1] = agrees ? port->wordHeld : port->wordTold;
}

bool STP_rapid_takes_back(const port_t *port)
{
    return STP_OUT_rapid() && port->infoIs == INFO_IS_RECEIVED && port->operPointToPoint && is_below(port);
}
