#include "tools/explain.h"

#include <algorithm>
#include <cstring>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/decode.h"
#include "tools/hex.h"
#include "tools/messages.h"
#include "tools/words.h"

namespace {

/// The body's record, zero where the body is too short, as the daemon reads it.
template <typename record_t>
record_t record_of(std::span<const uint8_t> body)
{
    record_t record{};
    std::memcpy(&record, body.data(), std::min(body.size(), sizeof record));
    return record;
}

std::string explain_system_config(std::span<const uint8_t> body)
{
    const auto config = record_of<lvt_rstp_system_config_t>(body);
    return fmt::format(
        "  priority       {}\n"
        "  max age        {} s\n"
        "  hello time     {} s\n"
        "  forward delay  {} s\n"
        "  force version  {} ({})\n",
        config.bridge_priority, config.max_age, config.hello_time, config.forward_delay, config.force_version,
        force_version_word(config.force_version));
}

std::string port_config_heading(const char *first)
{
    return fmt::format("  {:<6}  {:<13}  {:>9}  {:>8}  {:<4}  {}\n", first, "spanning tree", "path cost", "priority",
                       "edge", "point-to-point");
}

std::string port_config_line(const std::string &first, const lvt_rstp_port_config_t &config, const char *edge)
{
    return fmt::format("  {:<6}  {:<13}  {:>9}  {:>8}  {:<4}  {}\n", first, on_off(config.adminEnable),
                       path_cost_word(config.adminPathCost), config.port_priority, edge,
                       point_to_point_word(config.adminPointToPoint));
}

std::string explain_port_configs(std::span<const uint8_t> body)
{
    const auto configs = record_of<port_configs_t>(body);
    std::string text = port_config_heading("port");
    for (size_t port = 1; port <= FRONT_PORTS; port++)
        text += port_config_line(fmt::to_string(port), configs[port], on_off(configs[port].adminEdge));
    return text;
}

/// A group's edge the daemon takes from its members, whatever the message says.
std::string explain_aggr_config(std::span<const uint8_t> body)
{
    return port_config_heading("groups") + port_config_line("7 to 9", record_of<lvt_rstp_port_config_t>(body), "-");
}

std::string explain_aggr_status(std::span<const uint8_t> body)
{
    const auto groups = record_of<aggr_status_t>(body);
    std::string text;
    for (size_t port = 1; port <= FRONT_PORTS; port++)
        text += fmt::format("  port {}  {}\n", port, group_word(groups[port]));
    return text;
}

std::string explain_lacp_enable(std::span<const uint8_t> body)
{
    const auto enables = record_of<lacp_enables_t>(body);
    std::string text;
    for (size_t port = 1; port <= FRONT_PORTS; port++)
        text += fmt::format("  port {}  {}\n", port, on_off(enables[port - 1]));
    return text;
}

std::string explain_port_statuses(std::span<const uint8_t> body)
{
    const auto ports = record_of<port_statuses_t>(body);
    std::string text;
    for (size_t i = 0; i < FRONT_PORTS; i++)
        text += ports[i].link ? fmt::format("  port {}  up, {}, {} duplex\n", i + 1, speed_word(ports[i].speed),
                                            ports[i].duplex == 1 ? "full" : "half")
                              : fmt::format("  port {}  down\n", i + 1);
    return text;
}

std::string explain_body(const rstp_msg_header_t &header, std::span<const uint8_t> body)
{
    switch (header.type) {
    case RSTP_MSG_BPDU:
        return fmt::format("  port octet {}\n  {}\n", received_on(header.port), frame_summary(body));
    case RSTP_MSG_PORT_STATUS:
        return explain_port_statuses(body);
    case RSTP_MSG_AGGR_STATUS:
        return explain_aggr_status(body);
    case RSTP_MSG_SYSTEM_CONFIG:
        return explain_system_config(body);
    case RSTP_MSG_AGGR_CONFIG:
        return explain_aggr_config(body);
    case RSTP_MSG_PORT_CONFIG:
    case RSTP_MSG_PORT_CONFIG_ONLY:
        return explain_port_configs(body);
    case RSTP_MSG_LACP_ENABLE:
        return explain_lacp_enable(body);
    default:
        return fmt::format("  body of {} octets\n", body.size());
    }
}

} // namespace

std::string explain_message(std::span<const uint8_t> frame)
{
    constexpr size_t headers = sizeof(rstp_frame_header_t) + sizeof(rstp_msg_header_t);
    if (frame.size() < headers)
        return fmt::format("no message: {} octets are less than its headers\n", frame.size());

    const auto header = record_of<rstp_msg_header_t>(frame.subspan(sizeof(rstp_frame_header_t)));
    const auto body = frame.subspan(headers);
    return fmt::format("{} (type {})\n{}", message_name(header.type), header.type, explain_body(header, body));
}

std::string hex_lines(std::span<const uint8_t> octets)
{
    constexpr size_t per_line = 16;
    std::string text;
    while (!octets.empty()) {
        const auto line = octets.first(std::min(octets.size(), per_line));
        text += fmt::format("  {}\n", hex(line));
        octets = octets.subspan(line.size());
    }
    return text;
}
