#include "daemon_support.h"
#include "tests/bpdus.h"

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <stdexcept>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace e2e {

void PrintTo(const counts_t &c, std::ostream *stream)
{
    *stream << fmt::format("sent: stp {} rstp {} tcn {}; received: stp {} rstp {} tcn {}, unknown {} illegal {}",
                           c.stp_sent, c.rstp_sent, c.tcn_sent, c.stp_received, c.rstp_received, c.tcn_received,
                           c.unknown, c.illegal);
}

std::array<counts_t, 9> counts(const lab::switch_t &device)
{
    const std::string report = ask(device, "debug show rstp_statistics");
    std::array<counts_t, 9> all = {};
    for (size_t i = 0; i < all.size(); i++) {
        const size_t line = report.find(fmt::format("port{:02}=", i + 1));
        counts_t &c = all[i];
        if (line == std::string::npos ||
            std::sscanf(&report[line], "port%*d=%ld,%ld,%ld,%ld,%ld,%ld,%ld,%ld", &c.stp_sent, &c.stp_received,
                        &c.rstp_sent, &c.rstp_received, &c.tcn_sent, &c.tcn_received, &c.unknown, &c.illegal) != 8)
            throw std::runtime_error("no statistics: " + report);
    }
    return all;
}

counts_t counts(const lab::switch_t &device, int port) { return counts(device).at(static_cast<size_t>(port) - 1); }

std::string all_reports(const lab::switch_t &device)
{
    std::string reports;
    for (const char *report : {"system_config", "port_config", "rstp_statistics", "port_status", "aggr_status",
                               "rstp_aggr_status", "rstp_stp_state", "lacp_port_config"})
        reports += ask(device, fmt::format("debug show {}", report));
    for (int port = 1; port <= 9; port++)
        reports += ask(device, fmt::format("debug show rstp_port_status {}", port));
    return reports;
}

port_configs_t enabled(std::initializer_list<int> ports)
{
    port_configs_t configs = default_port_configs();
    for (const int port : ports)
        configs.at(static_cast<size_t>(port)).adminEnable = 1;
    return configs;
}

port_statuses_t linked(std::initializer_list<int> ports)
{
    port_statuses_t statuses = {};
    for (const int port : ports)
        statuses.at(static_cast<size_t>(port) - 1) = LINK_UP;
    return statuses;
}

std::vector<uint8_t> octets_of(const bpdu_t &bpdu, size_t count)
{
    std::vector<uint8_t> frame = frame_of(bpdu);
    frame.resize(count);
    return frame;
}

bpdu_t superior_bpdu() { return rst_bpdu(root_bridge(4096, 0x99)); }

void hear(const lab::switch_t &device, unsigned port, const bpdu_t &bpdu)
{
    serve(device, received_message(port, frame_of(bpdu)));
}

testing::AssertionResult is_sound(lab::switch_t &device)
{
    if (!device.daemon().running())
        return testing::AssertionFailure() << "the daemon ended with status " << *device.daemon().exit_code();
    serve_all(device);
    return ticks(device, 1) << " in a daemon that serves";
}

} // namespace e2e
