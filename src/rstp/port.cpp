#include "rstp/port.h"

#include <initializer_list>

#include "rstp/port_machines.h"
#include "rstp/vect.h"

void STP_port_create(stpm_t *bridge, port_t *port)
{
    STP_ASSERT(port->owner == nullptr, "this->owner == ((void *)0)", "port", 59, "STP_port_create");
    STP_ASSERT(port->next == nullptr, "this->next == ((void *)0)", "port", 60, "STP_port_create");

    port->owner = bridge;
    port->next = bridge->ports;
    bridge->ports = port;
    STP_port_cfg(port);
    for (const stp_machine_t &machine : STP_port_machines)
        STP_state_mach_init(&(port->*machine.mach), port);
}

void STP_port_cfg(port_t *port)
{
    port->rstpVersion = STP_OUT_force_version() >= 2;
    port->p2pRecompute = 1;
    port->port_id = static_cast<uint16_t>(port->config.port_priority << 8 | port->port_number);
    port->operEdge = port->config.adminEdge != 0;
    port->nonStp = !(port->stpEnabled && port->config.adminEnable != 0);
    STP_port_reselect(port);
}

void STP_port_init(port_t *port, const stpm_t *bridge, uint8_t full)
{
    if (full) {
        port->portEnabled = lvt_aggr_get_linkstate(port->port_number) > 0;
        STP_VECT_create(&port->designatedPrio, &bridge->BrId, 0, &bridge->BrId, port->port_id, port->port_id);
        port->designatedTimes = bridge->rootTimes;
    }

    port->sendRSTP = 1;
    port->fdWhile = 0;
    port->helloWhen = 0;
    port->mdelayWhile = 0;
    port->rbWhile = 0;
    port->rcvdInfoWhile = 0;
    port->rrWhile = 0;
    port->tcWhile = 0;
    port->txCount = 0;
    port->selectedRole = ROLE_DISABLED; // but not the role: a port that loses its link parts with a BPDU
    port->rcvdRole = 0;
    port->speed = lvt_aggr_get_linkspeed(port->port_number);
    port->p2pRecompute = 1;
}

void STP_port_delete(port_t *port)
{
    stpm_t *bridge = port->owner;

    port->owner = nullptr;
    if (bridge)
        for (port_t **link = &bridge->ports; *link; link = &(*link)->next)
            if (*link == port) {
                *link = port->next;
                break;
            }
    port->next = nullptr;
}

void STP_port_tick(port_t *port)
{
    if (boring_port(port))
        return;
    for (uint8_t *timer : {&port->fdWhile, &port->helloWhen, &port->mdelayWhile, &port->rbWhile, &port->rcvdInfoWhile,
                           &port->rrWhile, &port->tcWhile, &port->txCount, &port->edgeDelayWhile})
        if (*timer)
            --*timer;
}
