#include "rstp/machines.h"
#include "rstp/state_mach.h"

int STP_sttrans_check_conditions(state_mach_t *mach)
{
    const auto *port = static_cast<const port_t *>(mach->owner);

    switch (mach->State) {
    case STP_BEGIN:
        return STP_hop_2_state(mach, STTRANS_DISCARDING);
    case STTRANS_DISCARDING:
        if (port->learn)
            return STP_hop_2_state(mach, STTRANS_LEARNING);
        return 0;
    case STTRANS_LEARNING:
        if (port->forward)
            return STP_hop_2_state(mach, STTRANS_FORWARDING);
        if (!port->learn)
            return STP_hop_2_state(mach, STTRANS_DISCARDING);
        return 0;
    case STTRANS_FORWARDING:
        if (!port->forward)
            return STP_hop_2_state(mach, STTRANS_DISCARDING);
        return 0;
    }
    return 0;
}

void STP_sttrans_enter_state(state_mach_t *mach)
{
    auto *port = static_cast<port_t *>(mach->owner);

    switch (mach->State) {
    case STP_BEGIN:
    case STTRANS_DISCARDING:
        STP_OUT_flush_lt(port->port_number, 0, 1, 2);
        port->learning = 0;
        port->forwarding = 0;
        lvt_aggr_set_stpstate(port->port_number, HW_DISCARDING);
        break;
    case STTRANS_LEARNING:
        port->learning = 1;
        lvt_aggr_set_stpstate(port->port_number, HW_LEARNING);
        break;
    case STTRANS_FORWARDING:
        port->tc = !port->operEdge;
        port->forwarding = 1;
        lvt_aggr_set_stpstate(port->port_number, HW_FORWARDING);
        break;
    }
}
