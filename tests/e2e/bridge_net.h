/// Networks of Linux bridges that lvt_bridge rules, with hosts.
#pragma once

#include <list>
#include <string>
#include <thread>
#include <vector>

#include "board/lab/neighbours.h"
#include "board/lab/ruled_bridge.h"
#include "fixture.h"
#include "tree_traffic.h"

namespace e2e {

/// The shortest times, and spanning tree at all ports.
std::string fast_settings(int priority = 32768);

/// A port that has to go through both delays of these, and some ticks.
constexpr auto BY_TIMERS = 14s;

class bridges_test_t : public testing::Test {
protected:
    /// A machine with a bridge without ports; it is not ruled yet.
    lab::ruled_bridge_t &add_bridge(lab::ruled_bridge_settings_t settings = {.settings = fast_settings()});

    /// A host with address 10.0.0.N, at the interface lan`port`, which joins the bridge.
    lab::host_t &add_host(const lab::ruled_bridge_t &at, int port);

    /// A cable between two bridges; both ends join.
    const lab::cable_t &connect(const lab::ruled_bridge_t &near, int near_port, const lab::ruled_bridge_t &far,
                                int far_port);

    /// A bridge with `hosts` hosts at lan1, lan2 ..., ruled.
    lab::ruled_bridge_t &bridge_with_hosts(int hosts,
                                           lab::ruled_bridge_settings_t settings = {.settings = fast_settings()});

    void TearDown() override;

    std::list<lab::ruled_bridge_t> bridges_;
    std::list<lab::host_t> hosts_;

private:
    int next_number_ = 1;
    std::list<lab::cable_t> cables_;
};

/// Sends numbered broadcast frames from one host, a thousand a second, until it goes.
class counting_t {
public:
    explicit counting_t(const lab::host_t &from);
    ~counting_t();

    const std::string &mac() const { return station_.mac(); }

private:
    lab::station_t station_;
    std::jthread thread_;
};

/// The numbers that came more than once.
std::vector<uint32_t> doubles(lab::station_t &station, const std::string &from);

} // namespace e2e
