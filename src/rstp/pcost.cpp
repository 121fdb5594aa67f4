#include "rstp/machines.h"
#include "rstp/state_mach.h"

namespace {

constexpr uint32_t COST_BY_HAND = 0xFFFFFFFF; ///< in usedSpeed: no speed is behind the cost

/// Path cost by speed in Mbit/s (table 17-3): 20000 for 1 Gbit/s.
uint32_t cost_of_speed(uint32_t speed)
{
    if (speed == 0)
        return 200000000;
    const uint32_t cost = 20000000 / speed;
    return cost < 2 ? 2 : cost;
}

} // namespace

int STP_pcost_check_conditions(state_mach_t *mach)
{
    const auto *port = static_cast<const port_t *>(mach->owner);
    const uint32_t by_hand = port->config.adminPathCost;

    switch (mach->State) {
    case STP_BEGIN:
        return STP_hop_2_state(mach, PCOST_AUTO);
    case PCOST_AUTO:
    case PCOST_FORSE:
        return STP_hop_2_state(mach, PCOST_STABLE);
    case PCOST_STABLE:
        if (by_hand == 0 && port->speed != port->usedSpeed)
            return STP_hop_2_state(mach, PCOST_AUTO);
        if (by_hand != 0 && port->pathCost != by_hand)
            return STP_hop_2_state(mach, PCOST_FORSE);
        return 0;
    }
    return 0;
}

void STP_pcost_enter_state(state_mach_t *mach)
{
    auto *port = static_cast<port_t *>(mach->owner);

    switch (mach->State) {
    case STP_BEGIN:
    case PCOST_AUTO:
        port->speed = lvt_aggr_get_linkspeed(port->port_number);
        port->usedSpeed = port->speed;
        port->pathCost = cost_of_speed(port->speed);
        break;
    case PCOST_FORSE:
        port->usedSpeed = COST_BY_HAND;
        port->pathCost = port->config.adminPathCost;
        break;
    case PCOST_STABLE:
        break;
    }
}
