#include "ruled_net.h"

#include <algorithm>
#include <iostream>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace lab {

// ---- a stream ---------------------------------------------------------------------------------

stream_t::stream_t(station_t &from, std::vector<station_t *> to) : from_(from), to_(std::move(to))
{
    thread_ = std::thread([this] {
        auto due = std::chrono::steady_clock::now();
        while (!ended_) {
            from_.send(from_.mac(), EVERYBODY, ++sent_);
            if (sent_ % 100 == 0)
                take_in();
            std::this_thread::sleep_until(due += 1ms);
        }
    });
}

stream_t::~stream_t() { stop(); }

void stream_t::take_in()
{
    from_.received();
    for (station_t *station : to_)
        station->received();
}

void stream_t::stop()
{
    if (!thread_.joinable())
        return;
    ended_ = true;
    thread_.join();
    const auto heard = [&] {
        size_t count = from_.received().size();
        for (station_t *station : to_)
            count += station->received().size();
        return count;
    };
    size_t before = heard(), now = before;
    do { // until there is quiet
        before = now;
        std::this_thread::sleep_for(100ms);
        now = heard();
    } while (now != before);
}

std::vector<unsigned> stream_t::times_heard(station_t &at) const
{
    std::vector<unsigned> times(sent_ + 1);
    for (const numbered_frame_t &frame : at.received())
        if (frame.from == from_.mac())
            times.at(frame.number)++;
    return times;
}

size_t stream_t::doubled() const
{
    const auto above = [](const std::vector<unsigned> &times, unsigned limit) {
        return static_cast<size_t>(std::ranges::count_if(times, [&](unsigned count) { return count > limit; }));
    };
    size_t count = above(times_heard(from_), 0);
    for (station_t *station : to_)
        count += above(times_heard(*station), 1);
    return count;
}

std::chrono::milliseconds stream_t::longest_gap(station_t &at) const
{
    const std::vector<unsigned> times = times_heard(at);
    int gap = 0, longest = 0;
    for (size_t number = 1; number < times.size(); number++) {
        gap = times[number] == 0 ? gap + 1 : 0;
        longest = std::max(longest, gap);
    }
    return std::chrono::milliseconds(longest);
}

// ---- networks ---------------------------------------------------------------------------------

ruled_bridge_t &ruled_test_t::add_ruled(int priority, int ports, std::initializer_list<int> to_bridges,
                                        std::vector<std::string> options)
{
    std::string settings = fmt::format("[bridge]\npriority = {}\nmax_age = {}\nhello_time = {}\nforward_delay = {}\n",
                                       priority, MAX_AGE, HELLO_TIME, FORWARD_DELAY);
    const first_net_t first = first_net();
    const int number = next_number_++;
    std::vector<std::string> names;
    for (int port = 1; port <= ports; port++) {
        const bool edge = std::ranges::find(to_bridges, port) == to_bridges.end();
        settings += fmt::format("[port.{}]\nspanning_tree = true\nedge = {}\n", port, edge);
        names.push_back(fmt::format("\"{}\"", first.name(number, fmt::format("lan{}", port))));
    }
    settings += fmt::format("[linux]\nports = [{}]\n", fmt::join(names, ", "));
    return ruled_.emplace_back(ruled_bridge_settings_t{.name = fmt::format("bridge {}", number - 100),
                                                       .number = number,
                                                       .settings = settings,
                                                       .options = std::move(options),
                                                       .first = first});
}

const cable_t &ruled_test_t::connect(const ruled_bridge_t &near, int near_port, const ruled_bridge_t &far, int far_port)
{
    const cable_t &cable = ruled_cables_.emplace_back(near.port(near_port), far.port(far_port));
    cable.pull();
    near.join(near_port);
    far.join(far_port);
    cable.plug();
    return cable;
}

const cable_t &ruled_test_t::connect(const ruled_bridge_t &near, int near_port, const switch_t &far, int far_port)
{
    const cable_t &cable = ruled_cables_.emplace_back(near.port(near_port), far.port(far_port));
    near.join(near_port);
    return cable;
}

const cable_t &ruled_test_t::connect(const ruled_bridge_t &near, int near_port, const kernel_bridge_t &far,
                                     int far_port)
{
    const std::string interface = fmt::format("port{}", far_port);
    const cable_t &cable =
        ruled_cables_.emplace_back(near.port(near_port), cable_end_t{&far.node(), interface, far.node().mac(far_port)});
    near.join(near_port);
    far.add_port(interface);
    return cable;
}

host_t &ruled_test_t::add_host_at(const ruled_bridge_t &at, int port)
{
    const int number = next_number_++;
    host_t &host = ruled_hosts_.emplace_back(fmt::format("host at {}", at.node().name()), number,
                                             fmt::format("10.0.0.{}", number));
    ruled_cables_.emplace_back(at.port(port), cable_end_t{&host.node(), "eth0", host.node().mac()});
    at.join(port);
    host.set_address();
    return host;
}

std::string ruled_test_t::ports_of(const ruled_bridge_t &bridge)
{
    const auto status = bridge.status();
    return status ? ports_text(*status) : "";
}

testing::AssertionResult ruled_test_t::becomes(const ruled_bridge_t &bridge, const std::string &wanted,
                                               std::chrono::milliseconds limit)
{
    return eventually(
               limit, [&] { return ports_of(bridge); }, wanted)
           << " at " << bridge.node().name();
}

void ruled_test_t::expect_each_once(stream_t &stream, const std::vector<std::pair<std::string, station_t *>> &hosts,
                                    const std::string &what)
{
    stream.stop();
    EXPECT_EQ(stream.doubled(), 0u) << what << ": of " << stream.sent() << " frames";
    for (const auto &[name, station] : hosts)
        fmt::print("{}: {} missed at most {} ms in a row of {} ms\n", what, name, stream.longest_gap(*station).count(),
                   stream.sent());
}

void ruled_test_t::TearDown()
{
    network_test_t::TearDown();
    for (const ruled_bridge_t &bridge : ruled_) {
        const std::string said = bridge.said();
        EXPECT_EQ(said.find("Sanitizer"), std::string::npos) << said;
        EXPECT_EQ(said.find("runtime error: "), std::string::npos) << said;
        if (HasFailure())
            std::cout << bridge.story() << std::flush;
    }
}

} // namespace lab
