#include "rstp/machines.h"
#include "rstp/state_mach.h"

namespace {

constexpr uint8_t MIGRATE_DELAY = 3; ///< seconds (MigrateTime, clause 17.13)

int check_sending_rstp(state_mach_t *mach, const port_t *port)
{
    if (port->rstpVersion)
        return STP_hop_2_state(mach, MIGRATE_SEND_RSTP);
    if (port->mdelayWhile != 0 && (port->rcvdSTP || port->rcvdRSTP))
        return STP_hop_2_state(mach, MIGRATE_SENDING_RSTP);
    if (port->mdelayWhile == 0 && port->rcvdSTP)
        return STP_hop_2_state(mach, MIGRATE_SEND_STP);
    if (STP_OUT_force_version() < 2)
        return STP_hop_2_state(mach, MIGRATE_SEND_STP);
    return 0;
}

int check_sending_stp(state_mach_t *mach, const port_t *port)
{
    if (port->rstpVersion)
        return STP_hop_2_state(mach, MIGRATE_SEND_RSTP);
    if (port->mdelayWhile == 0 && port->rcvdRSTP)
        return STP_hop_2_state(mach, MIGRATE_SEND_RSTP);
    if (port->mdelayWhile != 0 && (port->rcvdSTP || port->rcvdRSTP))
        return STP_hop_2_state(mach, MIGRATE_SENDING_STP);
    return 0;
}

} // namespace

int STP_migrate_check_conditions(state_mach_t *mach)
{
    const auto *port = static_cast<const port_t *>(mach->owner);

    if (!port->edgeDetected && !port->initPm)
        return STP_hop_2_state(mach, MIGRATE_INIT);

    switch (mach->State) {
    case STP_BEGIN:
        return STP_hop_2_state(mach, MIGRATE_INIT);
    case MIGRATE_INIT:
        if (port->edgeDetected)
            return STP_hop_2_state(mach, STP_OUT_force_version() < 2 ? MIGRATE_SEND_STP : MIGRATE_SEND_RSTP);
        return 0;
    case MIGRATE_SEND_RSTP:
        return STP_hop_2_state(mach, MIGRATE_SENDING_RSTP);
    case MIGRATE_SENDING_RSTP:
        return check_sending_rstp(mach, port);
    case MIGRATE_SEND_STP:
        return STP_hop_2_state(mach, MIGRATE_SENDING_STP);
    case MIGRATE_SENDING_STP:
        return check_sending_stp(mach, port);
    }
    return 0;
}

void STP_migrate_enter_state(state_mach_t *mach)
{
    auto *port = static_cast<port_t *>(mach->owner);

    switch (mach->State) {
    case STP_BEGIN:
    case MIGRATE_INIT:
        port->initPm = 1;
        port->rstpVersion = 0;
        break;
    case MIGRATE_SEND_RSTP:
        port->sendRSTP = 1;
        port->mdelayWhile = MIGRATE_DELAY;
        port->initPm = 0;
        port->rstpVersion = 0;
        break;
    case MIGRATE_SEND_STP:
        port->sendRSTP = 0;
        port->mdelayWhile = MIGRATE_DELAY;
        port->initPm = 0;
        break;
    case MIGRATE_SENDING_RSTP:
    case MIGRATE_SENDING_STP:
        port->rcvdRSTP = 0;
        port->rcvdSTP = 0;
        break;
    }
}
