#include "rstp/stpm.h"

#include "rstp/port.h"
#include "rstp/port_machines.h"
#include "rstp/step.h"
#include "rstp/vect.h"

stpm_t *STP_stpm_create(uint16_t vlan_id)
{
    stpm_t **free_bridges = STP_OUT_free_bridges();
    stpm_t *bridge = *free_bridges;
    if (!bridge)
        return nullptr;
    *free_bridges = bridge->next;

    bridge->vlan_id = vlan_id;
    bridge->ports = nullptr;
    bridge->admin_state = 0;
    STP_state_mach_init(&bridge->rolesel, bridge);

    stpm_t **bridges = STP_OUT_bridges();
    bridge->next = *bridges;
    *bridges = bridge;
    return bridge;
}

void STP_stpm_free(stpm_t *bridge)
{
    stpm_t **free_bridges = STP_OUT_free_bridges();
    bridge->next = *free_bridges;
    *free_bridges = bridge;
}

int STP_stpm_enable(stpm_t *bridge, uint8_t enable)
{
    if (bridge->admin_state == enable)
        return 0;

    if (!enable) {
        bridge->admin_state = 0;
        STP_stpm_stop(bridge);
        return 0;
    }
    // The bridge is still disabled during the pass that its start begins.
    const int result = STP_stpm_start(bridge);
    bridge->admin_state = enable;
    return result;
}

int STP_stpm_start(stpm_t *bridge)
{
    STP_ASSERT(bridge->ports, "this->ports", "stpm", 171, "STP_stpm_start");

    lvt_os_get_systemmac(bridge->BrId.addr);
    if (int error = STP_stpm_check_bridge_priority(bridge))
        return error;

    STP_VECT_create(&bridge->rootPrio, &bridge->BrId, 0, &bridge->BrId, 0, 0);
    bridge->BrTimes.MessageAge = 0;
    bridge->rootTimes = bridge->BrTimes;
    for (port_t *port = bridge->ports; port; port = port->next)
        STP_port_init(port, bridge, 1);
    STP_OUT_flush_lt(0, bridge->vlan_id, 1, 1);

    STP_ASSERT(bridge->rolesel.State == STP_BEGIN, "this->rolesel.State == ((rstpstate_t)255)", "stpm", 192,
               "STP_stpm_start");
    STP_rolesel_enter_state(&bridge->rolesel);
    for (port_t *port = next_interesting_port(bridge->ports); port; port = next_interesting_port(port->next))
        for (const stp_machine_t &machine : STP_port_machines) {
            state_mach_t *mach = &(port->*machine.mach);
            STP_ASSERT(mach->State == STP_BEGIN, machine.begin_assertion, "stpm", machine.begin_line, "STP_stpm_start");
            machine.enter_state(mach);
        }

    STP_stpm_update();
    return 0;
}

void STP_stpm_stop(stpm_t *) {}

int STP_stpm_check_bridge_priority(const stpm_t *bridge)
{
    for (const stpm_t *other = *STP_OUT_bridges(); other; other = other->next)
        if (other != bridge && other->admin_state && STP_VECT_eq_bridge_id(&other->BrId, &bridge->BrId))
            return STP_BRIDGE_ID_USED;
    return 0;
}

void STP_stpm_update_after_bridge_management(stpm_t *bridge)
{
    const bool rstp = STP_OUT_force_version() >= 2;

    for (port_t *port = next_interesting_port(bridge->ports); port; port = next_interesting_port(port->next)) {
        port->rstpVersion = rstp;
        STP_port_reselect(port);
    }
}

int check_topoch(stpm_t *bridge)
{
    for (const port_t *port = next_interesting_port(bridge->ports); port; port = next_interesting_port(port->next))
        if (port->tcWhile) {
            bridge->prevTcPort = bridge->lastTcPort;
            bridge->lastTcPort = port->port_number;
            return 1;
        }
    return 0;
}

// ---- what only other programs of the board would call: the linker leaves it out of the daemon ---------

void STP_stpm_delete(stpm_t *bridge)
{
    STP_stpm_enable(bridge, 0);
    STP_ASSERT(bridge->ports == nullptr, "this->ports == ((void *)0)", "stpm", 128, "STP_stpm_delete");

    for (stpm_t **link = STP_OUT_bridges(); *link; link = &(*link)->next)
        if ((*link)->vlan_id == bridge->vlan_id) {
            *link = (*link)->next;
            break;
        }
    bridge->vlan_id = 0;
    STP_stpm_free(bridge);
}
