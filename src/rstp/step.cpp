#include "rstp/step.h"

#include <utility>

#include "rstp/port_machines.h"
#include "rstp/rapid.h"
#include "rstp/stpm.h"

namespace {

/// First of `bridge` and its successors that has ports, or null.
stpm_t *next_bridge_with_ports(stpm_t *bridge)
{
    while (bridge && !bridge->ports)
        bridge = bridge->next;
    return bridge;
}

void set_cursor(stpm_t *bridge)
{
    current_stpm = bridge;
    current_port = bridge ? bridge->ports : nullptr;
}

void finish_bridge(stpm_t *bridge)
{
    while (STP_rolesel_check_conditions(&bridge->rolesel))
        STP_rolesel_enter_state(&bridge->rolesel);

    bridge->topoChange = static_cast<uint8_t>(check_topoch(bridge));
    if (bridge->topoChange) {
        bridge->tcCount++;
        bridge->timeSinceTc = 0;
    } else {
        bridge->tcCount = 0;
        bridge->timeSinceTc++;
    }
}

/// Written out over the indices of the machine table, so that every call is a direct one.
template <size_t... i>
uint32_t sweep(port_t *port, std::index_sequence<i...>)
{
    uint32_t moved = 0;
    const auto check = [port, &moved](size_t index, const stp_machine_t &machine) {
        if (machine.check_conditions(&(port->*machine.mach)))
            moved |= 1u << index;
    };
    const auto enter = [port, &moved](size_t index, const stp_machine_t &machine) {
        if (moved >> index & 1)
            machine.enter_state(&(port->*machine.mach));
    };

    (check(i, STP_port_machines[i]), ...);
    if (moved)
        (enter(i, STP_port_machines[i]), ...);
    return moved;
}

} // namespace

uint32_t STP_port_sweep(port_t *port) { return sweep(port, std::make_index_sequence<STP_PORT_MACHINES>()); }

void lvt_rstp_more_work()
{
    if (!current_stpm)
        return;

    stpm_t *bridge = current_stpm;
    if (bridge->admin_state && current_port && !boring_port(current_port))
        for (uint32_t sweep = 0; sweep < STP_SWEEPS_MAX && STP_port_sweep(current_port); sweep++) {
        }

    if (current_port)
        current_port = next_interesting_port(current_port->next);
    if (!current_port) {
        finish_bridge(bridge);
        set_cursor(next_bridge_with_ports(bridge->next));
    }

    STP_ASSERT(!current_stpm == !current_port,
               "(current_stpm == ((void *)0) && current_port == ((void *)0)) || "
               "(current_stpm != ((void *)0) && current_port != ((void *)0))",
               "lvt_rstp", 316, "lvt_rstp_more_work");
}

void lvt_rstp_run_pending()
{
    while (current_stpm)
        lvt_rstp_more_work();
}

void STP_stpm_update()
{
    lvt_rstp_run_pending();
    STP_ASSERT(current_stpm == nullptr && current_port == nullptr,
               "current_stpm == ((void *)0) && current_port == ((void *)0)", "lvt_rstp", 332, "STP_stpm_update");

    if (STP_OUT_rapid()) {
        STP_rapid_event();
        return;
    }
    set_cursor(next_bridge_with_ports(*STP_OUT_bridges()));
    lvt_rstp_more_work();
}
