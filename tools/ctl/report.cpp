#include "tools/ctl/report.h"

#include <algorithm>
#include <cstdlib>
#include <optional>

#include <fmt/format.h>

#include "tools/ctl/status.h"
#include "tools/messages.h"

namespace {

cell_t number(uint32_t value) { return {.text = fmt::to_string(value), .right = true}; }

cell_t faint_if(bool faint, const std::string &text)
{
    return {.text = text, .tone = faint ? tone_t::faint : tone_t::plain};
}

cell_t title(const char *name, int spare = 0) { return {.text = name, .tone = tone_t::title, .spare = spare}; }

row_t named(const char *name, cell_t cell) { return {title(name), std::move(cell)}; }

bool takes_part(const port_status_t &port)
{
    return !port.group && port.role != ROLE_DISABLED && port.role != ROLE_NON_STP;
}

const char *yes_no(bool value) { return value ? "yes" : "no"; }

cell_t role_cell(const port_status_t &port) { return faint_if(!takes_part(port), role_name(port)); }

cell_t state_cell(const bridge_status_t &status, int port)
{
    const int state = state_of(status, port);
    const int role = status.port(port).role;
    const bool stays = role == ROLE_ALTERNATE || role == ROLE_BACKUP; // discards, and is as it should be
    const tone_t tone = state == HW_FORWARDING   ? tone_t::good
                        : state == HW_LEARNING   ? tone_t::passing
                        : state != HW_DISCARDING ? tone_t::faint
                        : stays                  ? tone_t::plain
                                                 : tone_t::passing;
    return {.text = state_name(status, port), .tone = tone};
}

// ---- bridge ----------------------------------------------------------------------------

std::string root_words(const bridge_status_t &status)
{
    if (status.is_root())
        return "this bridge";
    return fmt::format("{} through port {}", bridge_id_text(status.root), status.root_port);
}

std::string root_path_cost_words(const bridge_status_t &status)
{
    const auto cost = root_path_cost(status);
    return cost ? fmt::to_string(*cost)
                : fmt::format("not told, more than the {} of port {}", status.port(status.root_port).path_cost,
                              status.root_port);
}

/// The daemon counts passes since the change and takes them for seconds. As there is one at least in each
/// second, the change was not before that.
cell_t last_change_cell(const bridge_status_t &status)
{
    return {.text = fmt::format("by port {}, {} passes ago, at {} or later", status.changed_by, status.since_change,
                                status.changed_at),
            .identity = fmt::format("{} {}", status.changed_by, status.changed_at)};
}

table_t bridge_table(const bridge_status_t &status)
{
    table_t table = {
        named("bridge", {.text = bridge_id_text(status.bridge)}),
        named("root", {.text = root_words(status)}),
    };
    if (status.is_former_self_root())
        table.push_back(named("", {.text = "(this bridge's own former identifier, ages out)"}));
    else if (status.root.prio == LVT_RSTP_SYSTEM_DEFAULTS.bridge_priority)
        table.push_back(named("", {.text = "(with the default priority, so that the lowest address decided)"}));
    table.push_back(named("root path cost", {.text = root_path_cost_words(status)}));
    table.push_back(named("times", {.text = fmt::format("max age {} s, hello time {} s, forward delay {} s",
                                                        status.max_age, status.hello_time, status.forward_delay)}));
    table.push_back(named("topology change", {.text = status.topology_change ? "running" : "none",
                                              .tone = status.topology_change ? tone_t::passing : tone_t::plain}));
    if (status.has_changed())
        table.push_back(named("last change", last_change_cell(status)));
    return table;
}

// ---- ports -----------------------------------------------------------------------------

std::string port_name(const bridge_status_t &status, int port)
{
    const std::string members = members_text(status, port);
    return members.empty() ? fmt::to_string(port) : fmt::format("{} ({})", port, members);
}

cell_t neighbour_cell(const port_status_t &port)
{
    if (const auto other = looped_to(port))
        return {.text = fmt::format("own port {}", *other), .tone = tone_t::passing};
    const std::string name = neighbour_name(port);
    return faint_if(name == "none", name);
}

/// The state that the kernel gives to the interface, where it is another; nothing where it is not.
std::optional<cell_t> kernel_cell(const linux_ports_t &interfaces, int port)
{
    const auto found = interfaces.find(port);
    if (found == interfaces.end() || !found->second.differs)
        return {};
    return cell_t{.text = found->second.kernel, .tone = tone_t::bad};
}

/// Puts in what is known of the interfaces: their names, and states of which the daemon knows nothing.
void add_interfaces(table_t &table, const linux_ports_t &interfaces)
{
    constexpr long behind_port = 1, behind_state = 4;
    const auto number_of = [](const row_t &row) { return std::atoi(row[0].text.c_str()); };
    const bool differs = std::ranges::any_of(
        table, [&](const row_t &row) { return kernel_cell(interfaces, number_of(row)).has_value(); });
    for (row_t &row : table) {
        const bool heading = &row == &table.front();
        const auto member = interfaces.find(number_of(row));
        const std::string name = member != interfaces.end() ? member->second.interface : "";
        const auto kernel = kernel_cell(interfaces, number_of(row));
        row.resize(std::max<size_t>(row.size(), behind_state - 1));
        row.insert(row.begin() + behind_port, heading ? title("interface") : cell_t{.text = name});
        if (differs)
            row.insert(row.begin() + behind_state, heading ? title("kernel") : kernel.value_or(cell_t{}));
    }
}

row_t port_row(const bridge_status_t &status, int number_of_port)
{
    const port_status_t &port = status.port(number_of_port);
    row_t row = {{.text = port_name(status, number_of_port)}, role_cell(port), state_cell(status, number_of_port)};
    if (port.group)
        row.push_back(faint_if(true, fmt::format("of group {}", port.group)));
    if (!takes_part(port))
        return row;
    row.push_back(number(port.path_cost));
    row.push_back({.text = yes_no(port.edge)});
    row.push_back({.text = yes_no(port.point_to_point)});
    row.push_back(neighbour_cell(port));
    row.push_back({.text = bridge_id_text(port.designated_bridge)});
    row.push_back(number(static_cast<uint32_t>(port.designated_port)));
    return row;
}

template <typename make_row_t>
table_t shown_ports(const bridge_status_t &status, row_t heading, make_row_t make_row)
{
    table_t table = {std::move(heading)};
    for (int port = 1; port <= static_cast<int>(RSTP_PORTS); port++)
        if (is_shown(status, port))
            table.push_back(make_row(status, port));
    return table;
}

table_t ports_table(const bridge_status_t &status, const linux_ports_t &interfaces)
{
    table_t table =
        shown_ports(status,
                    {title("port"), title("role"), title("state"), title("cost"), title("edge", 3), title("p2p"),
                     title("neighbour", 4), title("designated bridge", 1), title("its port", 5)},
                    port_row);
    if (!interfaces.empty())
        add_interfaces(table, interfaces);
    return table;
}

// ---- statistics ------------------------------------------------------------------------

row_t statistics_row(const bridge_status_t &status, int number_of_port)
{
    const port_status_t &port = status.port(number_of_port);
    row_t row = {{.text = port_name(status, number_of_port)}};
    for (const uint32_t count : {port.sent.rstp, port.sent.stp, port.sent.tcn, port.received.rstp, port.received.stp,
                                 port.received.tcn, port.illegal, port.unknown})
        row.push_back(number(count));
    return row;
}

table_t statistics_table(const bridge_status_t &status)
{
    row_t heading = {title("port"),   title("sent RST"), title("config"),     title("TCN", 1),    title("received RST"),
                     title("config"), title("TCN", 2),   title("illegal", 3), title("unknown", 4)};
    for (cell_t &cell : heading)
        cell.right = cell.text != "port";
    return shown_ports(status, std::move(heading), statistics_row);
}

// ---- one port --------------------------------------------------------------------------

std::string counts_text(const frame_counts_t &counts)
{
    return fmt::format("{} RST, {} configuration, {} TCN", counts.rstp, counts.stp, counts.tcn);
}

table_t port_table(const bridge_status_t &status, int number_of_port, const linux_ports_t &interfaces)
{
    const port_status_t &port = status.port(number_of_port);
    table_t table = {
        named("port", {.text = fmt::to_string(number_of_port)}),
        named("role", role_cell(port)),
        named("state", state_cell(status, number_of_port)),
    };
    if (const auto member = interfaces.find(number_of_port); member != interfaces.end())
        table.insert(table.begin() + 1, named("interface", {.text = member->second.interface}));
    if (const auto kernel = kernel_cell(interfaces, number_of_port))
        table.push_back(named("kernel", *kernel));
    if (port.group)
        table.push_back(named("group", {.text = fmt::to_string(port.group)}));
    if (number_of_port > static_cast<int>(FRONT_PORTS)) {
        const std::string members = members_text(status, number_of_port);
        table.push_back(named("members", faint_if(members.empty(), members.empty() ? "none" : members)));
    }
    table.push_back(named("edge", {.text = yes_no(port.edge)}));
    table.push_back(named("point-to-point", {.text = yes_no(port.point_to_point)}));
    if (takes_part(port)) {
        table.push_back(named("cost", {.text = fmt::to_string(port.path_cost)}));
        table.push_back(named("priority", {.text = "not told"}));
        table.push_back(named("neighbour", neighbour_cell(port)));
        table.push_back(named("designated", {.text = fmt::format("{} port {}", bridge_id_text(port.designated_bridge),
                                                                 port.designated_port)}));
    }
    table.push_back(named("sent", {.text = counts_text(port.sent)}));
    table.push_back(named("received", {.text = fmt::format("{}, {} illegal, {} unknown", counts_text(port.received),
                                                           port.illegal, port.unknown)}));
    return table;
}

} // namespace

std::vector<table_t> report_of(const bridge_status_t &status, const subject_t &subject, const linux_ports_t &interfaces)
{
    std::vector<table_t> tables;
    for (const int port : subject.one_by_one)
        tables.push_back(port_table(status, port, interfaces));
    if (!tables.empty())
        return tables;
    if (subject.bridge)
        tables.push_back(bridge_table(status));
    if (subject.ports)
        tables.push_back(ports_table(status, interfaces));
    if (subject.statistics)
        tables.push_back(statistics_table(status));
    return tables;
}
