#include "rstp/machines.h"
#include "rstp/state_mach.h"

namespace {

constexpr uint8_t EDGE_DELAY = 3; ///< seconds in which a BPDU tells that a bridge is there

} // namespace

int STP_edge_check_conditions(state_mach_t *mach)
{
    const auto *port = static_cast<const port_t *>(mach->owner);

    switch (mach->State) {
    case STP_BEGIN:
        return STP_hop_2_state(mach, EDGE_DISABLED);
    case EDGE_DISABLED:
        if (port->portEnabled)
            return STP_hop_2_state(mach, EDGE_DETECTED);
        return 0;
    case EDGE_DETECTED:
        return STP_hop_2_state(mach, EDGE_DELEAYED);
    case EDGE_DELEAYED:
        if (port->rcvdBpdu || port->edgeDelayWhile == 0)
            return STP_hop_2_state(mach, EDGE_RESOLVED);
        if (!port->portEnabled)
            return STP_hop_2_state(mach, EDGE_DISABLED);
        return 0;
    case EDGE_RESOLVED:
        if (!port->portEnabled)
            return STP_hop_2_state(mach, EDGE_DISABLED);
        return 0;
    }
    return 0;
}

void STP_edge_enter_state(state_mach_t *mach)
{
    auto *port = static_cast<port_t *>(mach->owner);

    switch (mach->State) {
    case EDGE_DISABLED:
        port->operEdge = port->config.adminEdge != 0;
        port->edgeDelayWhile = 0;
        port->edgeDetected = 0;
        port->rcvdBpdu = 0;
        break;
    case EDGE_DETECTED:
        port->edgeDelayWhile = EDGE_DELAY;
        port->edgeDetected = 1;
        port->operEdge = 0;
        break;
    case EDGE_RESOLVED:
        if (!port->rcvdBpdu)
            port->operEdge = port->config.adminEdge != 0;
        break;
    case EDGE_DELEAYED:
    case STP_BEGIN:
        break;
    }
}
