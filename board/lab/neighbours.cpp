#include "board/lab/neighbours.h"

#include <algorithm>
#include <cstdio>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "board/lab/within.h"

namespace lab {

namespace {

/// Reads "8000.2:0:0:0:2:0", the kernel's way to write a bridge identifier.
bridge_id_t bridge_id(const std::string &text)
{
    unsigned priority = 0, octets[RSTP_MAC_OCTETS] = {};
    std::sscanf(text.c_str(), "%x.%x:%x:%x:%x:%x:%x", &priority, &octets[0], &octets[1], &octets[2], &octets[3],
                &octets[4], &octets[5]);
    bridge_id_t id = {static_cast<uint16_t>(priority), {}};
    std::copy(std::begin(octets), std::end(octets), id.addr);
    return id;
}

} // namespace

kernel_bridge_t::kernel_bridge_t(std::string name, int number, const bridge_settings_t &settings)
    : node_(std::move(name), number)
{
    constexpr int TICKS = 100; // `ip` takes the times in hundredths of a second
    node_.ip(
        fmt::format("link add name br0 address {} type bridge stp_state 1 priority {} max_age {} hello_time {} "
                    "forward_delay {}\n"
                    "link set br0 addrgenmode none\n"
                    "link set br0 up",
                    node_.mac(), settings.priority, settings.max_age * TICKS, settings.hello_time * TICKS,
                    settings.forward_delay * TICKS));
}

void kernel_bridge_t::add_port(const std::string &interface) const
{
    node_.ip(fmt::format("link set {} master br0", interface));
}

kernel_view_t kernel_bridge_t::view() const
{
    kernel_view_t view = {};
    const outcome_t outcome = node_.run({.argv = {"ip", "-details", "-json", "link", "show"}});
    for (const auto &link : nlohmann::json::parse(outcome.output)) {
        if (!link.contains("linkinfo"))
            continue;
        const auto &info = link["linkinfo"];
        if (link["ifname"] == "br0") {
            const auto &bridge = info["info_data"];
            view.bridge = bridge_id(bridge["bridge_id"]);
            view.root_port = bridge["root_port"];
        } else if (link.value("master", "") == "br0") {
            const auto &port = info["info_slave_data"];
            const std::string number = port["no"];
            view.ports[link["ifname"]] = {std::stoi(number, nullptr, 16), port["state"], bridge_id(port["root_id"])};
        }
    }

    // The bridge's own "root_id" is of no use: older versions of `ip` print its "bridge_id" there.
    view.root = view.bridge;
    for (const auto &[interface, port] : view.ports) {
        if (port.number == view.root_port)
            view.root = port.root;
    }
    return view;
}

host_t::host_t(std::string name, int number, std::string address)
    : node_(std::move(name), number), address_(std::move(address))
{
}

void host_t::set_address() const { node_.ip(fmt::format("address add {}/24 dev eth0", address_)); }

bool host_t::reaches(const host_t &other, std::chrono::milliseconds patience) const
{
    const command_t one_ping = {.argv = {"ping", "-n", "-q", "-c", "1", "-W", "0.5", other.address()}};
    return within(patience, [&] { return node_.run(one_ping).exit_code == 0; });
}

} // namespace lab
