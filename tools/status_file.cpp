#include "tools/status_file.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <sstream>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/hex.h"

namespace {

/// Takes a line apart from left to right. After one piece that is not as expected, all is over.
class pieces_t {
public:
    explicit pieces_t(const std::string &line) : line_(line), next_(line_.data()) {}
    pieces_t(const pieces_t &) = delete;
    pieces_t &operator=(const pieces_t &) = delete;

    /// The whole line, and nothing more, was as expected.
    bool complete() const { return sound_ && next_ == end(); }

    pieces_t &literal(std::string_view text)
    {
        if (std::string_view(next_, end()).starts_with(text))
            next_ += text.size();
        else
            sound_ = false;
        return *this;
    }

    template <typename number_t>
    pieces_t &number(number_t &value, int64_t min, int64_t max, int base = 10)
    {
        int64_t read = 0;
        const auto [stop, error] = std::from_chars(next_, end(), read, base);
        sound_ = sound_ && error == std::errc{} && read >= min && read <= max;
        next_ = stop;
        value = static_cast<number_t>(read);
        return *this;
    }

    /// Nonzero is on: settings are shown as they came.
    pieces_t &flag(bool &value) { return number(value, 0, UINT8_MAX); }

    /// An unsigned number, which the daemon writes as a signed one of 32 bits.
    pieces_t &count(uint32_t &value) { return number(value, INT32_MIN, UINT32_MAX); }

    /// "32768:02-00-00-00-01-00"
    pieces_t &bridge_id(bridge_id_t &id)
    {
        number(id.prio, 0, UINT16_MAX);
        for (size_t i = 0; i < RSTP_MAC_OCTETS; i++)
            literal(i == 0 ? ":" : "-").number(id.addr[i], 0, UINT8_MAX, 16);
        return *this;
    }

    pieces_t &check(bool good)
    {
        sound_ = sound_ && good;
        return *this;
    }

    /// "2026/11/20 14:08:15" or nothing
    pieces_t &time(std::string &value)
    {
        constexpr std::string_view form = "0000/00/00 00:00:00";
        const std::string_view rest(next_, end());
        if (rest.starts_with(','))
            return *this;
        value = rest.substr(0, form.size());
        next_ += value.size();
        return check(std::ranges::equal(value, form, [](char letter, char place) {
            return place == '0' ? letter >= '0' && letter <= '9' : letter == place;
        }));
    }

private:
    const char *end() const { return line_.data() + line_.size(); }

    const std::string line_;
    const char *next_;
    bool sound_ = true;
};

/// Takes the file's lines one by one and remembers the first that is not as expected.
class lines_t {
public:
    explicit lines_t(const std::string &text) : stream_(text) {}

    /// Empty when every line was as expected, and none follows.
    const std::string &fault()
    {
        if (stream_.peek() != std::istringstream::traits_type::eof())
            blame(fmt::format("something follows line {}", number_));
        return fault_;
    }

    pieces_t next()
    {
        std::string line;
        number_++;
        // A last line without its end is a part of one.
        if (!std::getline(stream_, line) || stream_.eof())
            blame(fmt::format("the file ends in line {}", number_));
        return pieces_t(line);
    }

    void expect(const std::string &line) { judge(next().literal(line), "\"" + line + "\""); }

    void judge(const pieces_t &line, const std::string &expected)
    {
        if (!line.complete())
            blame(fmt::format("line {} is not {}", number_, expected));
    }

private:
    void blame(const std::string &fault)
    {
        if (fault_.empty())
            fault_ = fault;
    }

    std::istringstream stream_;
    int number_ = 0;
    std::string fault_;
};

constexpr int LISTENING = 2; // a state of the older protocol; no port is ever in it
constexpr int FRONT_PORT_MAX = RSTP_PHYSICAL_PORTS;
constexpr int64_t LAST_PORT = RSTP_PORTS;

void read_overview(lines_t &lines, bridge_status_t &status)
{
    pieces_t line = lines.next();
    line.literal("bridge_overview=").bridge_id(status.bridge);
    line.literal(",").number(status.max_age, 0, INT_MAX);
    line.literal(",").number(status.hello_time, 0, INT_MAX);
    line.literal(",").number(status.forward_delay, 0, INT_MAX);
    line.literal(",").flag(status.topology_change);
    line.literal(",").bridge_id(status.root);
    line.literal(",").number(status.root_port, 0, LAST_PORT);
    lines.judge(line, "the bridge's overview");
}

void read_time(lines_t &lines, bridge_status_t &status)
{
    pieces_t line = lines.next();
    line.literal("bridge_time=").time(status.changed_at);
    line.literal(",").number(status.changed_by, 0, LAST_PORT);
    line.literal(",").number(status.since_change, 0, UINT16_MAX);
    lines.judge(line, "the time of the last topology change");
}

void read_port(lines_t &lines, int number, port_status_t &port)
{
    pieces_t line = lines.next();
    line.literal(fmt::format("port{:02}=", number)).count(port.path_cost);
    line.literal(",").flag(port.edge);
    line.literal(",").flag(port.point_to_point);
    line.literal(",").flag(port.stp_neighbour);
    line.literal(",").number(port.role, ROLE_DISABLED, ROLE_NON_STP);
    line.literal(",").number(port.state, HW_DISABLED, HW_NO_STP).check(port.state != LISTENING);
    line.literal(",").number(port.group, 0, LAST_PORT).check(port.group == 0 || port.group > FRONT_PORT_MAX);
    line.literal(",").bridge_id(port.designated_bridge);
    line.literal("/").number(port.designated_port, 0, UINT16_MAX);
    lines.judge(line, fmt::format("the state of port {}", number));
}

void read_counts(lines_t &lines, int number, port_status_t &port)
{
    pieces_t line = lines.next();
    line.literal(fmt::format("port{:02}=", number)).count(port.sent.rstp);
    for (uint32_t *value : {&port.sent.stp, &port.sent.tcn, &port.received.rstp, &port.received.stp, &port.received.tcn,
                            &port.illegal, &port.unknown})
        line.literal(",").count(*value);
    lines.judge(line, fmt::format("the counters of port {}", number));
}

} // namespace

std::optional<bridge_status_t> parse_status(const std::string &text, std::string *fault)
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
    for (size_t i = 0; i < RSTP_PORTS; i++)
        read_port(lines, static_cast<int>(i) + 1, status.ports[i]);
    lines.expect("");
    lines.expect("@rstp_statistics");
    for (size_t i = 0; i < RSTP_PORTS; i++)
        read_counts(lines, static_cast<int>(i) + 1, status.ports[i]);
    lines.expect("!");

    const std::string &found = lines.fault();
    if (found.empty())
        return status;
    if (fault)
        *fault = found;
    return {};
}

std::string bridge_id_text(const bridge_id_t &id) { return fmt::format("{}/{}", id.prio, address_text(id.addr)); }

bool bridge_status_t::is_former_self_root() const
{
    return !is_root() && root.prio != bridge.prio && std::ranges::equal(root.addr, bridge.addr);
}

bool same_bridge(const bridge_id_t &a, const bridge_id_t &b)
{
    return a.prio == b.prio && std::equal(a.addr, a.addr + RSTP_MAC_OCTETS, b.addr);
}
