#include "diag/monitor.h"

#include <cstdio>
#include <ctime>

#include "daemon/diag_out.h"
#include "diag/numbers.h"
#include "lvt_rstp.h"
#include "platform/lvt_com.h"
#include "platform/messages.h"
#include "process/process.h"
#include "state.h"

namespace {

constexpr char TEMPORARY_FILE[] = "/tmp/rstp_monitor.tmp";

LVT_STATE int32_t old_sec;

void write_bridge_id(FILE *file, const bridge_id_t &id)
{
    fprintf(file, "%d:%02x-%02x-%02x-%02x-%02x-%02x", id.prio, id.addr[0], id.addr[1], id.addr[2], id.addr[3],
            id.addr[4], id.addr[5]);
}

void write_overview(FILE *file, const lvt_rstp_bridge_status_t &bridge)
{
    fprintf(file, "@rstp_bridge_overview\nbridge_overview=");
    write_bridge_id(file, bridge.bridge);
    fprintf(file, ",%d,%d,%d,%d,", bridge.root_times.MaxAge, bridge.root_times.HelloTime,
            bridge.root_times.ForwardDelay, bridge.in_tc);
    write_bridge_id(file, bridge.designated_root);
    fprintf(file, ",%d\n", port_id_number(bridge.root_port));
}

void write_tc_time(FILE *file, uint16_t time_since_tc)
{
    if (time_since_tc == 0) {
        old_sec = 0;
        return;
    }
    const time_t shown = monitor_tc_time(static_cast<int32_t>(process_now()), time_since_tc, &old_sec);
    // Looks at the machine's zone anew, which localtime_r need not. Only the tick thread asks.
    if (const tm *when = localtime(&shown))
        fprintf(file, "%d/%02d/%02d %02d:%02d:%02d", when->tm_year + 1900, when->tm_mon + 1, when->tm_mday,
                when->tm_hour, when->tm_min, when->tm_sec);
}

void write_time(FILE *file, const lvt_rstp_bridge_status_t &bridge)
{
    fprintf(file, "\n@rstp_bridge_time\nbridge_time=");
    write_tc_time(file, bridge.time_since_tc);
    fprintf(file, ",%d,%d\n", bridge.in_tc ? 0 : static_cast<int>(bridge.last_tc_port), bridge.time_since_tc);
}

void write_port(FILE *file, int number, const lvt_rstp_port_status_t &port)
{
    const bool outside = port.role == ROLE_DISABLED || port.role == ROLE_NON_STP;
    const bridge_id_t designated = outside ? bridge_id_t{} : port.designated_bridge;

    fprintf(file, "port%02d=%ld,%d,%d,%d,%d,%d,%d,", number, outside ? 0 : long_of(port.oper_pathcost), port.is_edge,
            port.is_p2p, port.stp_neigb, port.role, port.state, static_cast<int>(port.part_of_aggr));
    write_bridge_id(file, designated);
    fprintf(file, "/%d\n", outside ? 0 : port_id_number(port.designated_port));
}

/// In another order than the console report: sent before received, malformed before unknown.
void write_counters(FILE *file, int number, const lvt_rstp_port_status_t &port)
{
    fprintf(file, "port%02d=%ld,%ld,%ld,%ld,%ld,%ld,%ld,%ld\n", number, long_of(port.rstp_frame_xmits),
            long_of(port.stp_frame_xmits), long_of(port.tcn_frame_xmits), long_of(port.rstp_frame_recvs),
            long_of(port.stp_frame_recvs), long_of(port.tcn_frame_recvs), long_of(port.illegal_frame_recvs),
            long_of(port.unknown_frame_recvs));
}

void write_status(FILE *file)
{
    lvt_rstp_bridge_status_t bridge;
    lvt_rstp_port_status_t ports[RSTP_PORTS];
    lvt_rstp_read_bridge_status(&bridge);
    for (uint32_t i = 0; i < RSTP_PORTS; i++)
        lvt_rstp_read_port_status(i + 1, &ports[i]);

    write_overview(file, bridge);
    write_time(file, bridge);
    fprintf(file, "\n@rstp_port_status\n");
    for (uint32_t i = 0; i < RSTP_PORTS; i++)
        write_port(file, static_cast<int>(i + 1), ports[i]);
    fprintf(file, "\n@rstp_statistics\n");
    for (uint32_t i = 0; i < RSTP_PORTS; i++)
        write_counters(file, static_cast<int>(i + 1), ports[i]);
    fprintf(file, "!\n");
}

int fail()
{
    osPrintfConsole("rstp_monitor open failure");
    return -1;
}

} // namespace

int32_t monitor_tc_time(int32_t now, uint16_t time_since_tc, int32_t *shown_before)
{
    // Unsigned, since a clock of 32 bits goes round.
    const uint32_t exact = static_cast<uint32_t>(now) - time_since_tc;
    const bool close = static_cast<uint32_t>(*shown_before) - exact + 2 < 5;

    if (*shown_before == 0 || !close)
        *shown_before = static_cast<int32_t>(exact);
    return *shown_before;
}

int lvt_rstp_monitor_info_write()
{
    FILE *file = process_create_file(TEMPORARY_FILE);
    if (!file)
        return fail();
    write_status(file);
    return process_place_file(file, TEMPORARY_FILE, RSTP_MONITOR_FILE) == 0 ? 0 : fail();
}
