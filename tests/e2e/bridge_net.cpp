#include "bridge_net.h"

#include <iostream>
#include <map>

#include <fmt/format.h>

namespace e2e {

std::string fast_settings(int priority)
{
    std::string text =
        fmt::format("[bridge]\npriority = {}\nmax_age = 6\nhello_time = 1\nforward_delay = 4\n", priority);
    for (int port = 1; port <= 6; port++)
        text += fmt::format("[port.{}]\nspanning_tree = true\n", port);
    return text;
}

lab::ruled_bridge_t &bridges_test_t::add_bridge(lab::ruled_bridge_settings_t settings)
{
    settings.number = next_number_++;
    settings.name = fmt::format("bridge {}", bridges_.size() + 1);
    return bridges_.emplace_back(std::move(settings));
}

lab::host_t &bridges_test_t::add_host(const lab::ruled_bridge_t &at, int port)
{
    const int number = next_number_++;
    lab::host_t &host = hosts_.emplace_back(fmt::format("host {}", number), number, fmt::format("10.0.0.{}", number));
    cables_.emplace_back(at.port(port), lab::cable_end_t{&host.node(), "eth0", host.node().mac()});
    host.set_address();
    at.join(port);
    return host;
}

const lab::cable_t &bridges_test_t::connect(const lab::ruled_bridge_t &near, int near_port,
                                            const lab::ruled_bridge_t &far, int far_port)
{
    const lab::cable_t &cable = cables_.emplace_back(near.port(near_port), far.port(far_port));
    near.join(near_port);
    far.join(far_port);
    return cable;
}

lab::ruled_bridge_t &bridges_test_t::bridge_with_hosts(int hosts, lab::ruled_bridge_settings_t settings)
{
    lab::ruled_bridge_t &bridge = add_bridge(std::move(settings));
    for (int port = 1; port <= hosts; port++)
        add_host(bridge, port);
    bridge.start();
    return bridge;
}

void bridges_test_t::TearDown()
{
    for (const lab::ruled_bridge_t &bridge : bridges_) {
        EXPECT_EQ(bridge.said().find("Sanitizer"), std::string::npos) << bridge.said();
        EXPECT_EQ(bridge.said().find("runtime error: "), std::string::npos) << bridge.said();
        if (HasFailure())
            std::cout << bridge.story() << std::flush;
    }
}

counting_t::counting_t(const lab::host_t &from)
    : station_(from.node()), thread_([this](const std::stop_token &stop) {
          auto next = std::chrono::steady_clock::now();
          for (uint32_t number = 1; !stop.stop_requested(); number++) {
              station_.send(station_.mac(), lab::EVERYBODY, number);
              std::this_thread::sleep_until(next += 1ms);
          }
      })
{
}

counting_t::~counting_t() = default;

std::vector<uint32_t> doubles(lab::station_t &station, const std::string &from)
{
    std::map<uint32_t, int> counts;
    for (const lab::numbered_frame_t &frame : station.received())
        if (frame.from == from)
            counts[frame.number]++;
    std::vector<uint32_t> more;
    for (const auto &[number, count] : counts)
        if (count > 1)
            more.push_back(number);
    return more;
}

} // namespace e2e
