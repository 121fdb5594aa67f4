#include "diag/reports.h"

#include <cstdio>

#include "daemon/rstp_aggr.h"
#include "diag/numbers.h"
#include "lvt_rstp.h"
#include "platform/lvt_com.h"

namespace {

constexpr char RULE64[] = "================================================================\n";
constexpr char RULE68[] = "====================================================================\n";
constexpr char THIN_RULE[] = "----------------------------------------------------------------\n";

/// The ruled frame of a report, its title inside.
struct report_frame_t {
    explicit report_frame_t(const char *title, const char *ruler = RULE64) : rule(ruler)
    {
        osPrintfConsole("%s", rule);
        osPrintfConsole("%s", title);
    }
    ~report_frame_t() { osPrintfConsole("%s", rule); }
    report_frame_t(const report_frame_t &) = delete;
    report_frame_t &operator=(const report_frame_t &) = delete;

    const char *rule;
};

void show_bridge_id(const char *name, const bridge_id_t &id)
{
    osPrintfConsole("%s: Prio=%d, ID=%02x:%02x:%02x:%02x:%02x:%02x\n", name, id.prio, id.addr[0], id.addr[1],
                    id.addr[2], id.addr[3], id.addr[4], id.addr[5]);
}

} // namespace

void lvt_show_rstp_system_config()
{
    lvt_rstp_system_config_t config;
    lvt_rstp_get_config(&config);

    report_frame_t frame("RSTP SYSTEM CONFIG:\n");
    osPrintfConsole("Bridge_Prio | Max_Age | Hello_Time | Fwd_Delay | Force_Ver\n");
    osPrintfConsole("%11d   %7d   %10d   %9d   %9d\n", config.bridge_priority, config.max_age, config.hello_time,
                    config.forward_delay, config.force_version);
}

void lvt_show_rstp_port_config()
{
    report_frame_t frame("RSTP PORT CONFIG:\n");
    osPrintfConsole("Port | Path_Cost | Port_Prio | Enable | Edge | P2P\n");

    lvt_rstp_port_config_t config;
    lvt_rstp_get_portconfig(0, &config);
    osPrintfConsole("Aggr Port:\n");
    osPrintfConsole("Aggr   %9ld   %9d   %6d   %4d   %3d\n", long_of(config.adminPathCost), config.port_priority,
                    config.adminEnable, config.adminEdge, config.adminPointToPoint);
    osPrintfConsole(THIN_RULE);
    for (uint32_t port = 1; port <= RSTP_PHYSICAL_PORTS; port++) {
        lvt_rstp_get_portconfig(port, &config);
        osPrintfConsole("%4d   %9ld   %9d   %6d   %4d   %3d\n", static_cast<int>(port), long_of(config.adminPathCost),
                        config.port_priority, config.adminEnable, config.adminEdge, config.adminPointToPoint);
    }
}

void lvt_show_rstp_bridge_status()
{
    lvt_rstp_bridge_status_t status;
    lvt_rstp_read_bridge_status(&status);

    report_frame_t frame("RSTP BRIDGE STATUS:\n");
    osPrintfConsole("admin_enabled=%d\n", status.admin_enabled);
    osPrintfConsole("vlan_id=%d\n", status.vlan_id);
    show_bridge_id("This Bridge", status.bridge);
    show_bridge_id("designated_root", status.designated_root);
    osPrintfConsole("root_cost=%ld\n", long_of(status.root_cost));
    osPrintfConsole("root_port=%d\n", port_id_number(status.root_port));
    osPrintfConsole("root_port_prio=%d\n", port_id_priority(status.root_port));
    osPrintfConsole("max_age=%d\n", status.root_times.MaxAge);
    osPrintfConsole("hello_time=%d\n", status.root_times.HelloTime);
    osPrintfConsole("forward_delay=%d\n", status.root_times.ForwardDelay);
    osPrintfConsole("in_tc=%d\n", status.in_tc);
    osPrintfConsole("tc_count=%ld\n", long_of(status.tc_count));
    osPrintfConsole("secs_since_last_tc=%d\n", status.secs_since_last_tc);
    osPrintfConsole("num_active_ports=%d\n", static_cast<int>(status.num_active_ports));
}

void lvt_show_rstp_port_status(uint32_t poag)
{
    lvt_rstp_port_status_t status;
    lvt_rstp_read_port_status(poag, &status);
    const int number = static_cast<int>(poag);
    char title[40];
    snprintf(title, sizeof title, "RSTP PORT STATUS: PoAG=%d\n", number);

    report_frame_t frame(title);
    osPrintfConsole("poag_number=%d\n", number);
    osPrintfConsole("vlan_id=%d\n", status.vlan_id);
    show_bridge_id("designated_root", status.designated_root);
    osPrintfConsole("designated_root_cost=%ld\n", long_of(status.designated_root_cost));
    show_bridge_id("designated_bridge", status.designated_bridge);
    osPrintfConsole("designated_port=%d\n", port_id_number(status.designated_port));
    osPrintfConsole("rstp_role=%d\n", status.role);
    osPrintfConsole("port_state=%d\n", status.state);
    osPrintfConsole("is_p2p=%d\n", status.is_p2p);
    osPrintfConsole("is_edge=%d\n", status.is_edge);
    osPrintfConsole("stp_neigb=%d\n", status.stp_neigb);
    osPrintfConsole("oper_pathcost=%ld\n", long_of(status.oper_pathcost));
    osPrintfConsole("part_of_aggr=%d\n", static_cast<int>(status.part_of_aggr));
    osPrintfConsole("stp_viewable=%d\n", status.stp_viewable);
    osPrintfConsole("port statistcs:\n");
    osPrintfConsole("stp_frame_xmits=%ld\n", long_of(status.stp_frame_xmits));
    osPrintfConsole("stp_frame_recvs=%ld\n", long_of(status.stp_frame_recvs));
    osPrintfConsole("rstp_frame_xmits=%ld\n", long_of(status.rstp_frame_xmits));
    osPrintfConsole("rstp_frame_recvs=%ld\n", long_of(status.rstp_frame_recvs));
    osPrintfConsole("tcn_frame_xmits=%ld\n", long_of(status.tcn_frame_xmits));
    osPrintfConsole("tcn_frame_recvs=%ld\n", long_of(status.tcn_frame_recvs));
    osPrintfConsole("unknown_frame_recvs=%ld\n", long_of(status.unknown_frame_recvs));
    osPrintfConsole("illegal_frame_recvs=%ld\n", long_of(status.illegal_frame_recvs));
}

void lvt_show_rstp_statistics()
{
    report_frame_t frame("RSTP Statistics:\n");
    osPrintfConsole(
        "1.stp_frame_xmits, 2.stp_frame_recvs, 3.rstp_frame_xmits,    4.rstp_frame_recvs \n"
        "5.tcn_frame_xmits, 6.tcn_frame_recvs, 7.unknown_frame_recvs, 8.illegal_frame_recvs\n");
    for (uint32_t port = 1; port <= RSTP_PORTS; port++) {
        lvt_rstp_port_status_t status;
        lvt_rstp_read_port_status(port, &status);
        osPrintfConsole("port%02d=%ld,%ld,%ld,%ld,%ld,%ld,%ld,%ld\n", static_cast<int>(port),
                        long_of(status.stp_frame_xmits), long_of(status.stp_frame_recvs),
                        long_of(status.rstp_frame_xmits), long_of(status.rstp_frame_recvs),
                        long_of(status.tcn_frame_xmits), long_of(status.tcn_frame_recvs),
                        long_of(status.unknown_frame_recvs), long_of(status.illegal_frame_recvs));
    }
}

void lvt_show_aggr_status()
{
    report_frame_t frame("RSTP Aggr Status:\n", RULE68);
    osPrintfConsole("PORT NO | AGGR ID\n");
    for (uint32_t port = 1; port <= RSTP_PHYSICAL_PORTS; port++)
        osPrintfConsole("%7d   %7d\n", static_cast<int>(port), aggr_port_status[port]);
}

void lvt_show_rstp_aggr_status()
{
    report_frame_t frame("RSTP AGGR STATUS:\n");
    osPrintfConsole("Port | Aggr_No\n");
    for (uint32_t port = 1; port <= RSTP_PHYSICAL_PORTS; port++) {
        lvt_rstp_port_status_t status;
        lvt_rstp_read_port_status(port, &status);
        osPrintfConsole("%4d   %7d\n", static_cast<int>(port), static_cast<int>(status.part_of_aggr));
    }
}

void lvt_show_rstp_stp_state()
{
    report_frame_t frame("RSTP STP STATE:\n");
    osPrintfConsole("Port | STP State | Fwd State\n");
    for (uint32_t port = 1; port <= RSTP_PHYSICAL_PORTS; port++) {
        uint8_t stpstate, fwdstate;
        lvt_rstp_read_hw_state(port, &stpstate, &fwdstate);
        osPrintfConsole("%4d   %9d   %9d\n", static_cast<int>(port), stpstate, fwdstate);
    }
}

void lvt_rstp_lacp_enable_port_show()
{
    report_frame_t frame("RSTP LACP PORT STATE:\n");
    osPrintfConsole("Port | LACP State \n");
    // Numbered from 0, unlike every other report.
    for (uint32_t index = 0; index < RSTP_PHYSICAL_PORTS; index++)
        osPrintfConsole("%4d   %9d\n", static_cast<int>(index), lvt_rstp_lacp_enable_port_check(index));
}
