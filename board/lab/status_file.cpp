#include "board/lab/status_file.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace lab {

namespace {

/// Takes the file's lines one by one. After one that is not as expected, all is over.
class lines_t {
public:
    explicit lines_t(const std::string &text) : stream_(text) {}

    bool sound() const { return sound_; }

    std::string next()
    {
        std::string line;
        // A last line without its end is a part of one.
        sound_ = sound_ && std::getline(stream_, line) && !stream_.eof();
        return line;
    }

    void expect(const std::string &line) { sound_ = next() == line && sound_; }

    void judge(bool good) { sound_ = sound_ && good; }

private:
    std::istringstream stream_;
    bool sound_ = true;
};

bridge_id_t bridge_id(int priority, const std::array<unsigned, RSTP_MAC_OCTETS> &octets)
{
    bridge_id_t id = {static_cast<uint16_t>(priority), {}};
    std::copy(octets.begin(), octets.end(), id.addr);
    return id;
}

void read_overview(lines_t &lines, bridge_status_t &status)
{
    int priority = 0, root_priority = 0, topology_change = 0;
    std::array<unsigned, RSTP_MAC_OCTETS> mac = {}, root_mac = {};
    const int read =
        std::sscanf(lines.next().c_str(),
                    "bridge_overview=%d:%2x-%2x-%2x-%2x-%2x-%2x,%d,%d,%d,%d,%d:%2x-%2x-%2x-%2x-%2x-%2x,%d",
                    &priority, &mac[0], &mac[1], &mac[2], &mac[3], &mac[4], &mac[5], &status.max_age,
                    &status.hello_time, &status.forward_delay, &topology_change, &root_priority, &root_mac[0],
                    &root_mac[1], &root_mac[2], &root_mac[3], &root_mac[4], &root_mac[5], &status.root_port);
    lines.judge(read == 19);
    status.bridge = bridge_id(priority, mac);
    status.root = bridge_id(root_priority, root_mac);
    status.topology_change = topology_change != 0;
}

void read_time(lines_t &lines, bridge_status_t &status)
{
    constexpr char NAME[] = "bridge_time=";
    const std::string line = lines.next();
    const size_t comma = line.find(',');
    lines.judge(line.starts_with(NAME) && comma != std::string::npos);
    if (!lines.sound())
        return;
    status.changed_at = line.substr(sizeof NAME - 1, comma - (sizeof NAME - 1));
    lines.judge(std::sscanf(&line[comma], ",%d,%u", &status.changed_by, &status.since_change) == 2);
}

void read_port(lines_t &lines, int number, port_status_t &port)
{
    int line_number = 0, edge = 0, point_to_point = 0, stp_neighbour = 0, priority = 0;
    long path_cost = 0;
    std::array<unsigned, RSTP_MAC_OCTETS> mac = {};
    const int read = std::sscanf(
        lines.next().c_str(), "port%2d=%ld,%d,%d,%d,%d,%d,%d,%d:%2x-%2x-%2x-%2x-%2x-%2x/%d", &line_number,
        &path_cost, &edge, &point_to_point, &stp_neighbour, &port.role, &port.state, &port.group, &priority,
        &mac[0], &mac[1], &mac[2], &mac[3], &mac[4], &mac[5], &port.designated_port);
    lines.judge(read == 16 && line_number == number);
    port.path_cost = static_cast<uint32_t>(path_cost);
    port.edge = edge != 0;
    port.point_to_point = point_to_point != 0;
    port.stp_neighbour = stp_neighbour != 0;
    port.designated_bridge = bridge_id(priority, mac);
}

void read_counts(lines_t &lines, int number, port_status_t &port)
{
    int line_number = 0;
    std::array<long, 8> counts = {};
    const int read =
        std::sscanf(lines.next().c_str(), "port%2d=%ld,%ld,%ld,%ld,%ld,%ld,%ld,%ld", &line_number, &counts[0],
                    &counts[1], &counts[2], &counts[3], &counts[4], &counts[5], &counts[6], &counts[7]);
    lines.judge(read == 9 && line_number == number);
    std::array<uint32_t, 8> values;
    std::transform(counts.begin(), counts.end(), values.begin(),
                   [](long count) { return static_cast<uint32_t>(count); });
    port.sent = {values[0], values[1], values[2]};
    port.received = {values[3], values[4], values[5]};
    port.illegal = values[6];
    port.unknown = values[7];
}

} // namespace

std::optional<bridge_status_t> parse_status(const std::string &text)
{
    lines_t lines(text);
    bridge_status_t status = {};

    lines.expect("@rstp_bridge_overview");
    read_overview(lines, status);
    lines.expect("");
    lines.expect("@rstp_bridge_time");
    read_time(lines, status);
    lines.expect("");
    lines.expect("@rstp_port_status");
    for (int number = 1; number <= static_cast<int>(RSTP_PORTS); number++)
        read_port(lines, number, status.ports[static_cast<size_t>(number) - 1]);
    lines.expect("");
    lines.expect("@rstp_statistics");
    for (int number = 1; number <= static_cast<int>(RSTP_PORTS); number++)
        read_counts(lines, number, status.ports[static_cast<size_t>(number) - 1]);
    lines.expect("!");

    if (!lines.sound())
        return {};
    return status;
}

const char *role_word(int role)
{
    switch (role) {
    case ROLE_DISABLED: return "disabled";
    case ROLE_ALTERNATE: return "alternate";
    case ROLE_BACKUP: return "backup";
    case ROLE_ROOT: return "root";
    case ROLE_DESIGNATED: return "designated";
    case ROLE_NON_STP: return "no STP";
    default: return "?";
    }
}

const char *state_word(int state)
{
    switch (state) {
    case STATE_DISABLED: return "down";
    case STATE_BLOCKING: return "blocks";
    case STATE_LEARNING: return "learns";
    case STATE_FORWARDING: return "forwards";
    case STATE_NON_STP: return "forwards";
    default: return "?";
    }
}

std::string bridge_id_text(const bridge_id_t &id)
{
    return fmt::format("{}/{:02x}", id.prio, fmt::join(id.addr, ":"));
}

bool same_bridge(const bridge_id_t &a, const bridge_id_t &b)
{
    return a.prio == b.prio && std::equal(a.addr, a.addr + RSTP_MAC_OCTETS, b.addr);
}

} // namespace lab
