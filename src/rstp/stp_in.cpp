#include "rstp/stp_in.h"

#include "rstp/machines.h"
#include "rstp/port.h"
#include "rstp/rapid.h"
#include "rstp/state_mach.h"
#include "rstp/step.h"

namespace {

void set_link(stpm_t *bridge, uint32_t port_index, uint8_t enable)
{
    port_t *port = _stpapi_port_find(bridge, port_index);
    if (!port)
        return;
    port->portEnabled = enable != 0;
    STP_port_init(port, bridge, 0);
    STP_port_reselect(port);
}

/// Calls `report` with the port in each enabled bridge that owns it.
template <typename report_t>
void for_enabled_bridges(uint32_t port_index, report_t report)
{
    for (stpm_t *bridge = *STP_OUT_bridges(); bridge; bridge = bridge->next)
        if (bridge->admin_state)
            if (port_t *port = _stpapi_port_find(bridge, port_index))
                report(bridge, port);
}

} // namespace

port_t *_stpapi_port_find(stpm_t *bridge, uint32_t port_index)
{
    STP_ASSERT(port_index - 1 < RSTP_PORTS, "((port_index) > 0 && (port_index) <= (((6) * 1)) + ((3 * 1)+(0 )))",
               "stp_in", 53, "_stpapi_port_find");

    port_t *port = STP_OUT_port(port_index);
    return port->owner == bridge ? port : nullptr;
}

void STP_IN_set_port_cfg(port_t *port)
{
    STP_port_cfg(port);
    if (port->owner)
        STP_stpm_update();
}

int STP_IN_changed_port_duplex(uint32_t port_index)
{
    for_enabled_bridges(port_index, [](stpm_t *, port_t *port) {
        port->p2pRecompute = 1;
        STP_port_reselect(port);
    });
    return 0;
}

int STP_IN_changed_port_speed(uint32_t port_index, uint32_t speed)
{
    for_enabled_bridges(port_index, [speed](stpm_t *, port_t *port) {
        port->speed = speed;
        STP_port_reselect(port);
    });
    return 0;
}

int STP_IN_enable_port(uint32_t port_index, uint8_t enable)
{
    for_enabled_bridges(port_index, [=](stpm_t *bridge, port_t *) { set_link(bridge, port_index, enable); });
    return 0;
}

int STP_IN_rx_bpdu(port_t *port, const bpdu_t *bpdu, uint32_t len)
{
    stpm_t *bridge = port->owner;
    STP_ASSERT(bridge, "this", "stp_in", 156, "STP_IN_rx_bpdu");

    if (!bridge->admin_state)
        return STP_BRIDGE_DISABLED;

    // A bridge behind an edge port: count it as a change of the topology.
    if (port->operEdge && port->edgeDelayWhile == 0 && port->edgeDetected)
        port->tc = 1;
    // The BPDU may overtake the report of the link over which it came.
    if (!port->edgeDetected && lvt_aggr_get_linkstate(port->port_number))
        set_link(bridge, port->port_number, 1);
    port->rcvdBpdu = 1;
    port->operEdge = 0;
    STP_info_rx_bpdu(port, bpdu, len);
    if (STP_OUT_rapid())
        STP_rapid_hear(port, bpdu);
    STP_stpm_update();
    return 0;
}

// ---- what only other programs of the board would call: the linker leaves it out of the daemon ---------

stpm_t *stpapi_stpm_find(uint16_t vlan_id)
{
    stpm_t *bridge = *STP_OUT_bridges();
    while (bridge && bridge->vlan_id != vlan_id)
        bridge = bridge->next;
    return bridge;
}
