#include "cases.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "daemon/rstp_daemon.h"
#include "daemon/rstp_aggr.h"
#include "daemon/rstp_config.h"
#include "daemon/semaphores.h"
#include "l2_proto_utility/os_api.h"
#include "lvt_rstp.h"
#include "rstp/stpm.h"
#include "tools/bpdu_frame.h"
#include "tools/messages.h"

namespace {

bpdu_t neighbour;        // the BPDU that port 1 hears
uint32_t neighbour_cost; // its root path cost
rstp_msg_t message;

void set_message(const std::vector<uint8_t> &frame)
{
    memcpy(&message, frame.data() + sizeof(rstp_frame_header_t), frame.size() - sizeof(rstp_frame_header_t));
}

void set_link_everywhere()
{
    port_statuses_t up;
    up.fill(LINK_UP);
    set_message(port_status_message(up));
    rstp_dispatch(&message);
}

void start_daemon()
{
    static bool started = false;
    if (!std::exchange(started, true)) {
        sem_init(&rstp_core_sem, 0, 1);
        sem_init(&rstp_data_sem, 0, 1);
    }
    lvt_rstp_reset_config();
    rstp_aggr_init();
    lvt_rstp_init();
    rstp_global_conf_init();
    set_link_everywhere();
}

void ticks(int count)
{
    while (count--)
        lvt_rstp_tick();
}

void enable_ports(uint32_t count)
{
    port_configs_t configs = default_port_configs();
    for (uint32_t port = 1; port <= count; port++)
        configs[port].adminEnable = 1;
    set_message(port_config_message(configs));
    rstp_dispatch(&message);
    ticks(60);
}

void neighbour_is_root()
{
    start_daemon();
    enable_ports(RSTP_PHYSICAL_PORTS);

    neighbour_cost = 0x40000000;
    neighbour = bpdu_of(BPDU_TYPE_RST, {.root = {4096, {}}, .cost = neighbour_cost, .bridge = {8192, {}}},
                        bpdu_role_flags(BPDU_ROLE_DESIGNATED) | BPDU_FLAG_FORWARDING | BPDU_FLAG_LEARNING);
    for (int i = 0; i < 40; i++) {
        lvt_rstp_receive(1, reinterpret_cast<uint8_t *>(&neighbour), sizeof neighbour);
        ticks(1);
    }
    if (lvt_rstp_vars.ports[0].role != ROLE_ROOT || !lvt_rstp_vars.ports[0].forwarding)
        abort(); // the case would measure something else
}

void receive() { lvt_rstp_receive(1, reinterpret_cast<uint8_t *>(&neighbour), sizeof neighbour); }

void nothing() {}

void come_nearer() { bpdu_put32(neighbour.root_path_cost, --neighbour_cost); }

void prepare_malformed()
{
    neighbour_is_root();
    neighbour.protocol[1] = 1;
}

/// All nine logical ports, which a real board never has at once: groups as if they were ports.
void nine_designated_ports()
{
    start_daemon();
    for (uint32_t l2port = RSTP_PHYSICAL_PORTS + 1; l2port <= RSTP_PORTS; l2port++) {
        port_t *group = &lvt_rstp_vars.ports[l2port - 1];
        group->stpEnabled = 1;
        group->portEnabled = 1;
        lvt_rstp_vars.by_l2port[l2port - 1] = &lvt_rstp_vars.ports[0];
    }
    lvt_rstp_port_config_t config = LVT_RSTP_PORT_DEFAULTS;
    config.adminEnable = 1;
    lvt_rstp_set_portconfig(0, &config);
    enable_ports(RSTP_PHYSICAL_PORTS);
    for (const port_t &port : lvt_rstp_vars.ports)
        if (port.role != ROLE_DESIGNATED || !port.forwarding)
            abort();
}

void tick() { lvt_rstp_tick(); }

void dispatch() { rstp_dispatch(&message); }

void next_system_config()
{
    lvt_rstp_system_config_t config = lvt_rstp_vars.config;
    config.max_age = config.max_age == 20 ? 19 : 20;
    set_message(system_config_message(config));
}

void next_port_config()
{
    port_configs_t configs;
    memcpy(configs.data(), rstp_port_config, sizeof rstp_port_config);
    configs[3].adminPathCost ^= 1;
    set_message(port_config_message(configs));
}

constexpr bench_case_t cases[] = {
    {"bpdu_repeated", "received BPDU that repeats the root port's information", neighbour_is_root, nothing, receive},
    {"bpdu_superior", "received BPDU with better information", neighbour_is_root, come_nearer, receive},
    {"bpdu_malformed", "received BPDU that is malformed", prepare_malformed, nothing, receive},
    {"tick_nine_ports", "`lvt_rstp_tick`, nine designated ports", nine_designated_ports, nothing, tick},
    {"bridge_settings", "message with changed bridge settings", neighbour_is_root, next_system_config, dispatch},
    {"port_settings", "message with the settings of one port changed", neighbour_is_root, next_port_config, dispatch},
};

} // namespace

std::span<const bench_case_t> bench_cases() { return cases; }
