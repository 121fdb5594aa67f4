#include "rstp/machines.h"
#include "rstp/state_mach.h"

int STP_p2p_check_conditions(state_mach_t *mach)
{
    const auto *port = static_cast<const port_t *>(mach->owner);

    switch (mach->State) {
    case STP_BEGIN:
    case P2P_INIT:
    case P2P_RECOMPUTE:
        return STP_hop_2_state(mach, P2P_STABLE);
    case P2P_STABLE:
        if (port->p2pRecompute)
            return STP_hop_2_state(mach, P2P_RECOMPUTE);
        return 0;
    }
    return 0;
}

void STP_p2p_enter_state(state_mach_t *mach)
{
    auto *port = static_cast<port_t *>(mach->owner);

    switch (mach->State) {
    case STP_BEGIN:
    case P2P_INIT:
        port->p2pRecompute = 1;
        break;
    case P2P_RECOMPUTE:
        switch (port->config.adminPointToPoint) {
        case 0:
            port->operPointToPoint = 1;
            break;
        case 1:
            port->operPointToPoint = 0;
            break;
        default:
            port->operPointToPoint = lvt_aggr_get_linkduplex(port->port_number) == 1;
        }
        port->p2pRecompute = 0;
        break;
    case P2P_STABLE:
        break;
    }
}
