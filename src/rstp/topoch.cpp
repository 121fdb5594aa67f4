#include "rstp/machines.h"
#include "rstp/state_mach.h"

namespace {

bool is_root_or_designated(const port_t *port) { return port->role == ROLE_ROOT || port->role == ROLE_DESIGNATED; }

/// Compare newTcWhile (clause 17.21): one hello and a second, and a running timer is left.
uint8_t new_tc_while(const port_t *port)
{
    const timevalues_t &times = port->owner->rootTimes;
    return static_cast<uint8_t>(port->sendRSTP && port->operPointToPoint ? 2 * times.HelloTime
                                                                         : times.MaxAge + times.ForwardDelay);
}

/// setTcPropTree (clause 17.21), with one flush for all the ports concerned.
void set_tc_prop_bridge(port_t *self, int reason)
{
    uint32_t flush_port = 0;

    for (port_t *port = next_interesting_port(self->owner->ports); port; port = next_interesting_port(port->next)) {
        if (port != self)
            port->tcProp = 1;
        if (!port->operEdge)
            flush_port = port->port_number;
    }
    if (flush_port)
        STP_OUT_flush_lt(flush_port, 0, 1, reason);
}

int check_active(state_mach_t *mach, const port_t *port)
{
    if (!is_root_or_designated(port))
        return STP_hop_2_state(mach, TOPOCH_INIT);
    if (port->tc)
        return STP_hop_2_state(mach, TOPOCH_DETECTED);
    if (port->rcvdTcn)
        return STP_hop_2_state(mach, TOPOCH_NOTIFIED_TCN);
    if (port->rcvdTc)
        return STP_hop_2_state(mach, TOPOCH_NOTIFIED_TC);
    if (port->tcProp && !port->operEdge)
        return STP_hop_2_state(mach, TOPOCH_PROPAGATING);
    if (port->rcvdTcAck)
        return STP_hop_2_state(mach, TOPOCH_ACKNOWLEDGED);
    return 0;
}

} // namespace

int STP_topoch_check_conditions(state_mach_t *mach)
{
    const auto *port = static_cast<const port_t *>(mach->owner);

    switch (mach->State) {
    case STP_BEGIN:
        return STP_hop_2_state(mach, TOPOCH_INIT);
    case TOPOCH_INIT:
        return STP_hop_2_state(mach, TOPOCH_INACTIVE);
    case TOPOCH_INACTIVE:
        if (is_root_or_designated(port))
            return STP_hop_2_state(mach, TOPOCH_TCACTIVE);
        if (port->rcvdTc || port->rcvdTcAck || port->rcvdTcn || port->tc || port->tcProp)
            return STP_hop_2_state(mach, TOPOCH_INACTIVE);
        return 0;
    case TOPOCH_TCACTIVE:
        return check_active(mach, port);
    case TOPOCH_DETECTED:
    case TOPOCH_NOTIFIED_TC:
    case TOPOCH_PROPAGATING:
    case TOPOCH_ACKNOWLEDGED:
        return STP_hop_2_state(mach, TOPOCH_TCACTIVE);
    case TOPOCH_NOTIFIED_TCN:
        return STP_hop_2_state(mach, TOPOCH_NOTIFIED_TC);
    }
    return 0;
}

void STP_topoch_enter_state(state_mach_t *mach)
{
    auto *port = static_cast<port_t *>(mach->owner);

    switch (mach->State) {
    case STP_BEGIN:
    case TOPOCH_INIT:
        port->tcWhile = 0;
        port->tc = 0;
        port->tcAck = 0;
        port->tcProp = 0;
        break;
    case TOPOCH_INACTIVE:
        port->tc = 0;
        port->tcProp = 0;
        port->rcvdTc = 0;
        port->rcvdTcAck = 0;
        port->rcvdTcn = 0;
        break;
    case TOPOCH_TCACTIVE:
        break;
    case TOPOCH_DETECTED:
        port->tcWhile = new_tc_while(port);
        set_tc_prop_bridge(port, 2);
        port->tc = 0;
        break;
    case TOPOCH_NOTIFIED_TC:
        port->rcvdTc = 0;
        port->rcvdTcn = 0;
        if (port->role == ROLE_DESIGNATED)
            port->tcAck = 1;
        set_tc_prop_bridge(port, 3);
        break;
    case TOPOCH_PROPAGATING:
        port->tcWhile = new_tc_while(port);
        port->tcProp = 0;
        break;
    case TOPOCH_ACKNOWLEDGED:
        port->tcWhile = 0;
        port->rcvdTcAck = 0;
        break;
    case TOPOCH_NOTIFIED_TCN:
        port->tcWhile = new_tc_while(port);
        break;
    }
}
