#include "rstp/machines.h"
#include "rstp/state_mach.h"
#include "rstp/times.h"
#include "rstp/vect.h"

namespace {

/// True when some port that takes part asks for its role.
bool reselection_wanted(const stpm_t *bridge)
{
    for (const port_t *port = next_interesting_port(bridge->ports); port; port = next_interesting_port(port->next))
        if (port->reselect)
            return true;
    return false;
}

/// One hop's share of a message's age: a 16th of max age, rounded to nearest, at least 1.
uint8_t message_age_step(uint8_t max_age)
{
    const int step = (max_age + 8) / 16;
    return static_cast<uint8_t>(step ? step : 1);
}

void set_role(port_t *port, lvt_rstp_port_role_t role)
{
    port->selectedRole = role;
    // A port outside the tree does not wait for the role transitions machine.
    if (role == ROLE_NON_STP)
        port->role = role;
}

/// The best root information among the ports. Nothing excludes what this bridge sent itself.
void choose_root(stpm_t *bridge)
{
    STP_VECT_create(&bridge->rootPrio, &bridge->BrId, 0, &bridge->BrId, 0, 0);
    bridge->rootTimes = bridge->BrTimes;

    for (const port_t *port = next_interesting_port(bridge->ports); port; port = next_interesting_port(port->next)) {
        if (port->infoIs != INFO_IS_RECEIVED)
            continue;
        prio_vector_t candidate = port->portPrio;
        candidate.root_path_cost += port->pathCost;
        if (STP_VECT_compare_vector(&candidate, &bridge->rootPrio) != VECT_BETTER)
            continue;
        bridge->rootPrio = candidate;
        bridge->rootTimes = port->portTimes;
        bridge->rootTimes.MessageAge =
            static_cast<uint8_t>(port->portTimes.MessageAge + message_age_step(port->portTimes.MaxAge));
    }
    bridge->rootPortId = bridge->rootPrio.bridge_port;
}

void set_designated(stpm_t *bridge)
{
    for (port_t *port = next_interesting_port(bridge->ports); port; port = next_interesting_port(port->next)) {
        STP_VECT_create(&port->designatedPrio, &bridge->rootPrio.root_bridge, bridge->rootPrio.root_path_cost,
                        &bridge->BrId, port->port_id, port->port_id);
        port->designatedTimes = bridge->rootTimes;
    }
}

void choose_role_of_received(const stpm_t *bridge, port_t *port)
{
    port->updtInfo = 0;
    if (bridge->rootPortId == port->port_id)
        set_role(port, ROLE_ROOT);
    else if (STP_VECT_compare_vector(&port->designatedPrio, &port->portPrio) == VECT_BETTER) {
        set_role(port, ROLE_DESIGNATED);
        port->updtInfo = 1;
    } else if (STP_VECT_eq_bridge_id(&port->portPrio.design_bridge, &bridge->BrId))
        set_role(port, ROLE_BACKUP);
    else
        set_role(port, ROLE_ALTERNATE);
}

void choose_role(const stpm_t *bridge, port_t *port)
{
    if (port->nonStp) {
        set_role(port, ROLE_NON_STP);
        port->forward = 1;
        port->learn = 1;
        return;
    }

    switch (port->infoIs) {
    case INFO_IS_DISABLED:
        set_role(port, ROLE_DISABLED);
        break;
    case INFO_IS_AGED:
        set_role(port, ROLE_DESIGNATED);
        port->updtInfo = 1;
        break;
    case INFO_IS_MINE:
        set_role(port, ROLE_DESIGNATED);
        if (!STP_VECT_eq_vector(&port->portPrio, &port->designatedPrio) ||
            !STP_eq_times(&port->portTimes, &port->designatedTimes))
            port->updtInfo = 1;
        break;
    case INFO_IS_RECEIVED:
        choose_role_of_received(bridge, port);
        break;
    }
}

/// Compare updtRolesTree (clause 17.21), and setSelectedTree.
void select_roles(stpm_t *bridge)
{
    for (port_t *port = bridge->ports; port; port = port->next)
        port->reselect = 0;

    choose_root(bridge);
    set_designated(bridge);
    for (port_t *port = bridge->ports; port; port = port->next)
        choose_role(bridge, port);

    if (reselection_wanted(bridge))
        return;
    for (port_t *port = next_interesting_port(bridge->ports); port; port = next_interesting_port(port->next))
        port->selected = 1;
}

} // namespace

int STP_rolesel_check_conditions(state_mach_t *mach)
{
    const auto *bridge = static_cast<const stpm_t *>(mach->owner);

    switch (mach->State) {
    case STP_BEGIN:
        STP_hop_2_state(mach, ROLESEL_INIT_BRIDGE);
        return STP_hop_2_state(mach, ROLESEL_ROLE_SELECTION);
    case ROLESEL_INIT_BRIDGE:
        return STP_hop_2_state(mach, ROLESEL_ROLE_SELECTION);
    case ROLESEL_ROLE_SELECTION:
        if (reselection_wanted(bridge))
            return STP_hop_2_state(mach, ROLESEL_ROLE_SELECTION);
        return 0;
    }
    return 0;
}

void STP_rolesel_enter_state(state_mach_t *mach)
{
    auto *bridge = static_cast<stpm_t *>(mach->owner);

    switch (mach->State) {
    case STP_BEGIN:
    case ROLESEL_INIT_BRIDGE:
        for (port_t *port = bridge->ports; port; port = port->next)
            port->selectedRole = ROLE_DISABLED;
        break;
    case ROLESEL_ROLE_SELECTION:
        select_roles(bridge);
        break;
    }
}
