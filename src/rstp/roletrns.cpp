#include "rstp/machines.h"
#include "rstp/state_mach.h"

namespace {

/// Compare allSynced (clause 17.20), which also asks for selected roles.
bool all_synced(const port_t *self)
{
    for (const port_t *port = next_interesting_port(self->owner->ports); port; port = next_interesting_port(port->next))
        if (port != self && !port->synced)
            return false;
    return true;
}

/// reRooted (clause 17.20).
bool all_rerooted(const port_t *self)
{
    for (const port_t *port = next_interesting_port(self->owner->ports); port; port = next_interesting_port(port->next))
        if (port != self && port->rrWhile != 0)
            return false;
    return true;
}

uint8_t forward_delay(const port_t *port) { return port->owner->rootTimes.ForwardDelay; }

/// How long a port remembers that it was a backup: two hellos, in the width of the timer.
uint8_t recent_backup_time(const port_t *port) { return static_cast<uint8_t>(2 * port->owner->rootTimes.HelloTime); }

/// A new role is taken up at once, from any state.
int take_role(state_mach_t *mach, lvt_rstp_port_role_t role)
{
    switch (role) {
    case ROLE_DISABLED:
    case ROLE_ALTERNATE:
    case ROLE_BACKUP:
        return STP_hop_2_state(mach, ROLETRNS_BLOCK_PORT);
    case ROLE_ROOT:
        return STP_hop_2_state(mach, ROLETRNS_ROOT_PORT);
    case ROLE_DESIGNATED:
        return STP_hop_2_state(mach, ROLETRNS_DESIGNATED_PORT);
    default:
        return 0;
    }
}

int check_blocked_port(state_mach_t *mach, const port_t *port)
{
    if (port->fdWhile != forward_delay(port) || port->sync || port->reRoot || !port->synced)
        return STP_hop_2_state(mach, ROLETRNS_BLOCKED_PORT);
    if (port->rbWhile != recent_backup_time(port) && port->role == ROLE_BACKUP)
        return STP_hop_2_state(mach, ROLETRNS_BACKUP_PORT);
    return 0;
}

int check_root_port(state_mach_t *mach, const port_t *port)
{
    const bool may_advance =
        port->fdWhile == 0 || (all_rerooted(port) && port->rbWhile == 0 && STP_OUT_force_version() >= 2);

    if (!port->forward && !port->reRoot)
        return STP_hop_2_state(mach, ROLETRNS_REROOT);
    if ((port->proposed || !port->synced) && all_synced(port))
        return STP_hop_2_state(mach, ROLETRNS_ROOT_AGREED);
    if (port->proposed && !port->synced)
        return STP_hop_2_state(mach, ROLETRNS_ROOT_PROPOSED);
    if (may_advance && !port->learn)
        return STP_hop_2_state(mach, ROLETRNS_ROOT_LEARN);
    if (may_advance && port->learn && !port->forward)
        return STP_hop_2_state(mach, ROLETRNS_ROOT_FORWARD);
    if (port->reRoot && port->forward)
        return STP_hop_2_state(mach, ROLETRNS_REROOTED);
    if (port->rrWhile != forward_delay(port))
        return STP_hop_2_state(mach, ROLETRNS_ROOT_PORT);
    return 0;
}

int check_designated_port(state_mach_t *mach, const port_t *port)
{
    const bool may_advance =
        (port->fdWhile == 0 || port->operEdge || port->agreed) && (port->rrWhile == 0 || !port->reRoot) && !port->sync;
    const bool must_sync = port->sync && !port->synced;
    const bool must_retire = port->reRoot && port->rrWhile != 0;

    if (!port->forward && !port->agreed && !port->proposing && !port->operEdge)
        return STP_hop_2_state(mach, ROLETRNS_DESIGNATED_PROPOSE);
    if (port->rrWhile == 0 && port->reRoot)
        return STP_hop_2_state(mach, ROLETRNS_DESIGNATED_RETIRED);
    if ((!port->learning && !port->forwarding && !port->synced) || (port->agreed && !port->synced) ||
        (port->operEdge && !port->synced) || (port->sync && port->synced))
        return STP_hop_2_state(mach, ROLETRNS_DESIGNATED_SYNCED);
    if (may_advance && port->learn && !port->forward)
        return STP_hop_2_state(mach, ROLETRNS_DESIGNATED_FORWARD);
    if (may_advance && !port->learn)
        return STP_hop_2_state(mach, ROLETRNS_DESIGNATED_LEARN);
    if ((must_sync || must_retire) && !port->operEdge && (port->learn || port->forward))
        return STP_hop_2_state(mach, ROLETRNS_DESIGNATED_LISTEN);
    return 0;
}

} // namespace

int STP_roletrns_check_conditions(state_mach_t *mach)
{
    const auto *port = static_cast<const port_t *>(mach->owner);
    const bool settled = port->selected && !port->updtInfo;

    if (mach->State == STP_BEGIN)
        return STP_hop_2_state(mach, ROLETRNS_INIT_PORT);
    if (settled && port->role != port->selectedRole)
        return take_role(mach, port->selectedRole);

    switch (mach->State) {
    case ROLETRNS_INIT_PORT:
        return STP_hop_2_state(mach, ROLETRNS_BLOCK_PORT);
    case ROLETRNS_BLOCK_PORT:
        if (settled && !port->learning && !port->forwarding)
            return STP_hop_2_state(mach, ROLETRNS_BLOCKED_PORT);
        return 0;
    case ROLETRNS_BLOCKED_PORT:
        return settled ? check_blocked_port(mach, port) : 0;
    case ROLETRNS_BACKUP_PORT:
        return STP_hop_2_state(mach, ROLETRNS_BLOCKED_PORT);

    case ROLETRNS_ROOT_PROPOSED:
    case ROLETRNS_ROOT_AGREED:
    case ROLETRNS_REROOT:
    case ROLETRNS_REROOTED:
    case ROLETRNS_ROOT_LEARN:
    case ROLETRNS_ROOT_FORWARD:
        return STP_hop_2_state(mach, ROLETRNS_ROOT_PORT);
    case ROLETRNS_ROOT_PORT:
        return settled ? check_root_port(mach, port) : 0;

    case ROLETRNS_DESIGNATED_PROPOSE:
    case ROLETRNS_DESIGNATED_SYNCED:
    case ROLETRNS_DESIGNATED_RETIRED:
    case ROLETRNS_DESIGNATED_LISTEN:
    case ROLETRNS_DESIGNATED_LEARN:
    case ROLETRNS_DESIGNATED_FORWARD:
        return STP_hop_2_state(mach, ROLETRNS_DESIGNATED_PORT);
    case ROLETRNS_DESIGNATED_PORT:
        return settled ? check_designated_port(mach, port) : 0;
    }
    return 0;
}

void STP_roletrns_enter_state(state_mach_t *mach)
{
    auto *port = static_cast<port_t *>(mach->owner);

    switch (mach->State) {
    case STP_BEGIN:
    case ROLETRNS_INIT_PORT:
        // learn and forward stay: a port that joins the tree while it forwards is taken
        // through its states by BLOCK_PORT.
        port->role = ROLE_DISABLED;
        port->selectedRole = ROLE_DISABLED;
        port->synced = 0;
        port->sync = 1;
        port->reRoot = 1;
        port->reselect = 1;
        port->fdWhile = forward_delay(port);
        port->rrWhile = forward_delay(port);
        port->rbWhile = 0;
        break;
    case ROLETRNS_BLOCK_PORT:
        port->role = port->selectedRole;
        port->learn = 0;
        port->forward = 0;
        break;
    case ROLETRNS_BLOCKED_PORT:
        port->fdWhile = forward_delay(port);
        port->synced = 1;
        port->rrWhile = 0;
        port->sync = 0;
        port->reRoot = 0;
        break;
    case ROLETRNS_BACKUP_PORT:
        port->rbWhile = recent_backup_time(port);
        break;

    case ROLETRNS_ROOT_PROPOSED: // setSyncTree (clause 17.21), this port included
        for (port_t *other = next_interesting_port(port->owner->ports); other;
             other = next_interesting_port(other->next))
            other->sync = 1;
        port->proposed = 0;
        break;
    case ROLETRNS_ROOT_AGREED:
        port->proposed = 0;
        port->sync = 0;
        port->synced = 1;
        port->newInfo = 1;
        break;
    case ROLETRNS_REROOT: // setReRootTree (clause 17.21), this port included
        for (port_t *other = next_interesting_port(port->owner->ports); other;
             other = next_interesting_port(other->next))
            other->reRoot = 1;
        break;
    case ROLETRNS_ROOT_PORT:
        port->role = ROLE_ROOT;
        port->rrWhile = forward_delay(port);
        break;
    case ROLETRNS_REROOTED:
        port->reRoot = 0;
        break;
    case ROLETRNS_ROOT_LEARN:
        port->fdWhile = forward_delay(port);
        port->learn = 1;
        break;
    case ROLETRNS_ROOT_FORWARD:
        port->fdWhile = 0;
        port->forward = 1;
        break;

    case ROLETRNS_DESIGNATED_PROPOSE:
        port->proposing = 1;
        port->newInfo = 1;
        break;
    case ROLETRNS_DESIGNATED_SYNCED:
        port->rrWhile = 0;
        port->sync = 0;
        port->synced = 1;
        break;
    case ROLETRNS_DESIGNATED_RETIRED:
        port->reRoot = 0;
        break;
    case ROLETRNS_DESIGNATED_PORT:
        port->role = ROLE_DESIGNATED;
        break;
    case ROLETRNS_DESIGNATED_LISTEN:
        port->learn = 0;
        port->forward = 0;
        port->fdWhile = forward_delay(port);
        break;
    case ROLETRNS_DESIGNATED_LEARN:
        port->learn = 1;
        port->fdWhile = forward_delay(port);
        break;
    case ROLETRNS_DESIGNATED_FORWARD:
        port->forward = 1;
        port->fdWhile = 0;
        break;
    }
}
