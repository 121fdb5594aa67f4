#include "group_net.h"

#include <algorithm>
#include <sstream>

namespace lab {

namespace {

/// The numbers in column `column` of a report's lines for ports 1 to 6.
std::vector<int> column_of(const std::string &report, size_t column)
{
    std::vector<int> numbers;
    std::istringstream lines(report);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::vector<int> row;
        for (int number; words >> number;)
            row.push_back(number);
        if (row.size() > column && row[0] == static_cast<int>(numbers.size()) + 1)
            numbers.push_back(row[column]);
    }
    EXPECT_EQ(numbers.size(), RSTP_PHYSICAL_PORTS) << report;
    return numbers;
}

} // namespace

aggr_status_t groups(std::initializer_list<uint8_t> of_ports)
{
    aggr_status_t status = AGGR_STATUS_ALONE;
    size_t port = 1;
    for (const uint8_t group : of_ports) {
        if (group != 0)
            status.at(port) = group;
        port++;
    }
    return status;
}

std::vector<int> told_groups(const switch_t &device)
{
    std::vector<int> numbers = column_of(e2e::ask(device, "debug show aggr_status"), 1);
    for (size_t i = 0; i < numbers.size(); i++)
        if (numbers[i] == static_cast<int>(i) + 1)
            numbers[i] = 0;
    return numbers;
}

std::vector<int> engine_groups(const switch_t &device)
{
    return column_of(e2e::ask(device, "debug show rstp_aggr_status"), 1);
}

std::vector<int> written_states(const switch_t &device)
{
    return column_of(e2e::ask(device, "debug show rstp_stp_state"), 1);
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

void group_test_t::expect_states_together(const switch_t &device, double since)
{
    for (const int state : {HW_DISCARDING, HW_LEARNING, HW_FORWARDING}) {
        const auto firsts = times_of_state(device, 1, state, since);
        const auto seconds = times_of_state(device, 2, state, since);
        ASSERT_FALSE(firsts.empty()) << "state " << state;
        ASSERT_EQ(firsts.size(), seconds.size()) << "state " << state;
        for (size_t i = 0; i < firsts.size(); i++)
            EXPECT_NEAR(firsts[i], seconds[i], 0.3) << "state " << state;
    }
}

} // namespace lab
