#include "tree_net.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "board/chip/ports.h"
#include "tools/words.h"

namespace lab {

// ---- the network ------------------------------------------------------------------------------

switch_t &network_test_t::add_bridge(uint16_t priority, const port_configs_t &ports, bool rapid)
{
    switch_t &device = add_switch({.number = next_number_++, .rapid = rapid});
    device.start();
    e2e::serve(device, system_config_message(bridge_config(priority)));
    e2e::serve(device, port_config_message(ports));
    return device;
}

kernel_bridge_t &network_test_t::add_kernel_bridge(int priority, const std::string &address)
{
    const bridge_settings_t settings = {
        .priority = priority, .max_age = MAX_AGE, .hello_time = HELLO_TIME, .forward_delay = FORWARD_DELAY};
    kernel_bridge_t &bridge = bridges_.emplace_back("kernel bridge", next_number_++, settings);
    if (!address.empty())
        bridge.node().ip(fmt::format("address add {}/24 dev br0", address));
    return bridge;
}

host_t &network_test_t::add_host(const switch_t &at, int port)
{
    const int number = next_number_++;
    host_t &host = hosts_.emplace_back(fmt::format("host {}", number), number, fmt::format("10.0.0.{}", number));
    cables_.emplace_back(at.port(port), cable_end_t{&host.node(), "eth0", host.node().mac()});
    host.set_address();
    return host;
}

const cable_t &network_test_t::connect(const switch_t &near, int near_port, const switch_t &far, int far_port)
{
    return cables_.emplace_back(near.port(near_port), far.port(far_port));
}

const cable_t &network_test_t::connect(const switch_t &near, int near_port, const kernel_bridge_t &far, int far_port)
{
    const std::string interface = fmt::format("port{}", far_port);
    const cable_t &cable =
        cables_.emplace_back(near.port(near_port), cable_end_t{&far.node(), interface, far.node().mac(far_port)});
    far.add_port(interface);
    return cable;
}

const node_t &network_test_t::add_machine(const switch_t &at, int port)
{
    const int number = next_number_++;
    const node_t &node = machines_.emplace_back(fmt::format("machine {}", number), number);
    cables_.emplace_back(at.port(port), cable_end_t{&node, "eth0", node.mac()});
    return node;
}

void network_test_t::TearDown()
{
    switches_test_t::TearDown();
    if (!HasFailure())
        return;
    for (const kernel_bridge_t &bridge : bridges_) {
        const kernel_view_t view = bridge.view();
        fmt::print("--- {} is {}, its root {} at port {}\n", bridge.node().name(), bridge_id_text(view.bridge),
                   bridge_id_text(view.root), view.root_port);
        for (const auto &[interface, port] : view.ports)
            fmt::print("{}: {}\n", interface, port.state);
    }
}

// ---- the status file --------------------------------------------------------------------------

bridge_status_t status_of(const switch_t &device)
{
    std::optional<bridge_status_t> status;
    if (!within(
            e2e::SOON, [&] { return (status = device.status()).has_value(); }, 5ms))
        throw std::runtime_error(device.node().name() + ": no status file");
    return *status;
}

int role_of(const switch_t &device, int port) { return status_of(device).port(port).role; }

int state_of(const switch_t &device, int port) { return status_of(device).port(port).state; }

std::string ports_text(const bridge_status_t &status)
{
    std::vector<std::string> texts;
    for (int number = 1; number <= static_cast<int>(RSTP_PORTS); number++)
        if (const port_status_t &port = status.port(number); port.role != ROLE_DISABLED && port.role != ROLE_NON_STP)
            texts.push_back(fmt::format("{} {} {}", number, role_word(port.role), state_verb(port.state)));
    return fmt::format("{}", fmt::join(texts, ", "));
}

std::string ports_text(const switch_t &device) { return ports_text(status_of(device)); }

testing::AssertionResult becomes(const switch_t &device, const std::string &wanted, std::chrono::milliseconds limit)
{
    return eventually(
               limit, [&] { return ports_text(device); }, wanted)
           << " at " << device.node().name();
}

bool is_root(const switch_t &device) { return status_of(device).is_root(); }

bool follows(const switch_t &device, const bridge_id_t &root) { return same_bridge(status_of(device).root, root); }

bool is_alive(switch_t &device)
{
    return device.daemon().running() && e2e::ticks(device, 1) && device.daemon().running();
}

// ---- the chip ---------------------------------------------------------------------------------

unsigned chip_state(const switch_t &device, int port)
{
    return device.client().port(static_cast<unsigned>(port)).state;
}

unsigned heard_at(const switch_t &device, const std::string &mac)
{
    for (const board_address_t &entry : device.client().addresses())
        if (entry.address == mac)
            return entry.port;
    return 0;
}

// ---- the board's diary ------------------------------------------------------------------------

double now_of(const switch_t &device)
{
    // Asking for it leaves an event behind.
    device.client().set_link_fail(false);
    return e2e::diary(device).back().seconds;
}

std::vector<e2e::event_t> events_with(const switch_t &device, const std::string &topic, const std::string &words,
                                      double since)
{
    std::vector<e2e::event_t> events = e2e::diary(device, topic);
    std::erase_if(events, [&](const e2e::event_t &event) {
        return event.seconds < since || event.words.find(words) == std::string::npos;
    });
    return events;
}

std::vector<e2e::event_t> bpdu_events(const switch_t &device, const std::string &topic, int port,
                                      const std::string &kind, double since)
{
    std::vector<e2e::event_t> events = e2e::diary(device, topic);
    const std::string key = topic == "tx" ? "ports" : "port";
    std::erase_if(events, [&](const e2e::event_t &event) {
        return event.seconds < since || event.values.at("bpdu") != kind || event.values.at(key) != std::to_string(port);
    });
    return events;
}

std::string state_words(int port, int state)
{
    const unsigned chip_port = chip_port_of_front(static_cast<unsigned>(port));
    return fmt::format("port {} (chip {}): state {} ", port, chip_port, state);
}

} // namespace lab
