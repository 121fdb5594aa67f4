#include "group_net.h"

#include <sstream>

namespace lab {

namespace {

/// The numbers beside those of ports 1 to 6 in a report.
std::vector<int> column_of(const std::string &report)
{
    std::vector<int> numbers;
    std::istringstream lines(report);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::vector<int> row;
        for (int number; words >> number;)
            row.push_back(number);
        if (row.size() > 1 && row[0] == static_cast<int>(numbers.size()) + 1)
            numbers.push_back(row[1]);
    }
    EXPECT_EQ(numbers.size(), RSTP_PHYSICAL_PORTS) << report;
    return numbers;
}

/// The state that the daemon last wrote for each port.
std::vector<int> written_states(const switch_t &device)
{
    return column_of(e2e::ask(device, "debug show rstp_stp_state"));
}

} // namespace

std::vector<int> engine_groups(const switch_t &device)
{
    return column_of(e2e::ask(device, "debug show rstp_aggr_status"));
}

std::vector<double> times_of_state(const switch_t &device, int port, int state, double since)
{
    std::vector<double> times;
    for (const e2e::event_t &event : events_with(device, "mdio", state_words(port, state), since))
        times.push_back(event.seconds);
    return times;
}

switch_t &group_test_t::add_group_bridge(uint16_t priority, const port_configs_t &ports)
{
    switch_t &device = add_bridge(priority, ports);
    lvt_rstp_port_config_t config = LVT_RSTP_PORT_DEFAULTS;
    config.adminEnable = 1;
    serve(device, aggr_config_message(config));
    return device;
}

void group_test_t::report(const switch_t &device, const aggr_status_t &status)
{
    device.group(status);
    e2e::serve_all(device);
    expect_tables_agree(device);
}

void group_test_t::serve(const switch_t &device, const std::vector<uint8_t> &message)
{
    e2e::serve(device, message);
    expect_tables_agree(device);
}

void group_test_t::expect_tables_agree(const switch_t &device)
{
    std::vector<int> engine, written, chip, shown;
    const bool agree = within(AT_ONCE, [&] {
        // The daemon's clock may change a state between two questions.
        engine = engine_groups(device);
        written = written_states(device);
        chip.clear();
        shown.clear();
        for (const board_port_t &port : device.client().ports())
            chip.push_back(static_cast<int>(port.state));
        const bridge_status_t status = status_of(device);
        for (int port = 1; port <= static_cast<int>(RSTP_PHYSICAL_PORTS); port++)
            shown.push_back(status.port(port).group);
        return written == chip && shown == engine;
    });
    EXPECT_TRUE(agree) << testing::PrintToString(written) << " were written, the chip has "
                       << testing::PrintToString(chip) << "; the engine has groups " << testing::PrintToString(engine)
                       << ", the status file " << testing::PrintToString(shown);
}

} // namespace lab
