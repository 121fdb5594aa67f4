#include "board/lab/surroundings.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <net/if.h>

#include "tools/number.h"
#include "tools/printable.h"
#include "tools/rules.h"

namespace lab {

namespace {

int port_number(const std::string &text)
{
    int port = 0;
    if (read_number(text, port) != std::errc() || port < 1 || port > 6)
        throw std::invalid_argument(fmt::format("there is no port '{}', only 1 to 6", text));
    return port;
}

std::string namespace_path(const std::string &pid, const node_t &node)
{
    return fmt::format("/proc/{}/fd/{}", pid, node.place().net);
}

} // namespace

surroundings_t::surroundings_t(const switch_t &device, const world_t &world, int number)
    : device_(device), world_(world), first_number_(number * 256)
{
}

void surroundings_t::claim(int port, const neighbour_t &neighbour)
{
    if (!neighbours_.emplace(port, neighbour).second)
        throw std::invalid_argument(fmt::format("port {} has a cable already", port));
}

void surroundings_t::add_outside(const std::string &text)
{
    const size_t colon = text.find(':');
    if (colon == std::string::npos || colon + 1 == text.size())
        throw std::invalid_argument(printable(fmt::format("'{}' is not N:IFNAME, as in 1:sw1p1", text)));
    const int port = port_number(text.substr(0, colon));
    const std::string interface = text.substr(colon + 1);
    if (!is_interface_name(interface))
        throw std::invalid_argument(
            printable(fmt::format("'{}' is no name for an interface: it has 1 to {} letters, digits or signs, "
                                  "not / : % # \" ' or \\, and is not . or ..",
                                  interface, IFNAMSIZ - 1)));
    if (world_.unprivileged)
        throw std::runtime_error("--port puts an interface into this machine's network: run it as root");

    claim(port, {fmt::format("the interface {} of this machine", interface), "", nullptr});

    const int net = world_.caller_net.number();
    const cable_end_t near = device_.port(port);
    near.node->ip(fmt::format("link add name {0} address {1} type veth peer name {2} netns /proc/self/fd/{3}\n"
                              "link set {0} addrgenmode none\n"
                              "link set {0} up",
                              near.interface, near.mac, interface, net),
                  {net});
    lab::run({.argv = {"ip", "link", "set", "dev", interface, "up"}, .place = {.net = net}});
}

void surroundings_t::add_host(int port)
{
    const std::string address = fmt::format("10.0.0.{}", port);
    const host_t &host = hosts_.emplace_back(fmt::format("host {}", port), first_number_ + port, address);
    claim(port, {fmt::format("a host with address {}", address), "LVT_HOST", &host.node()});
    cable(port, host.node(), "eth0", 0);
    host.set_address();
}

void surroundings_t::add_bridge(const std::string &ports)
{
    const int number = first_number_ + 16 + port_number(ports.substr(0, ports.find(',')));
    const kernel_bridge_t &bridge = bridges_.emplace_back("bridge " + ports, number, bridge_settings_t());
    std::istringstream words(ports);
    for (std::string word; std::getline(words, word, ',');) {
        const int port = port_number(word);
        const std::string interface = fmt::format("port{}", port);
        claim(port, {fmt::format("a Linux bridge with STP, its {}", interface), "LVT_BRIDGE", &bridge.node()});
        cable(port, bridge.node(), interface, port);
        bridge.add_port(interface);
    }
}

void surroundings_t::cable(int port, const node_t &node, const std::string &interface, int mac)
{
    cables_.emplace_back(device_.port(port), cable_end_t{&node, interface, node.mac(mac)});
}

std::string surroundings_t::ports() const
{
    std::vector<int> ports;
    for (const auto &[port, neighbour] : neighbours_)
        ports.push_back(port);
    return ports.empty() ? "1-6" : fmt::format("{}", fmt::join(ports, ","));
}

std::vector<std::string> surroundings_t::lines(const std::string &pid) const
{
    std::vector<std::string> lines;
    for (const auto &[port, neighbour] : neighbours_) {
        std::string line = fmt::format("port {}: {}", port, neighbour.what);
        if (neighbour.node != nullptr)
            line += fmt::format(" (--net={})", namespace_path(pid, *neighbour.node));
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> surroundings_t::variables(const std::string &pid) const
{
    std::vector<std::string> variables;
    for (const auto &[port, neighbour] : neighbours_) {
        if (neighbour.node != nullptr)
            variables.push_back(
                fmt::format("{}_{}={}", neighbour.variable, port, namespace_path(pid, *neighbour.node)));
    }
    return variables;
}

} // namespace lab
