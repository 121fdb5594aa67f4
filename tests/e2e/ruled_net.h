/// Networks of Linux bridges that lvt_bridge rules and of whatever else there is, and what their hosts hear.
#pragma once

#include <atomic>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "board/lab/ruled_bridge.h"
#include "tree_net.h"
#include "tree_traffic.h"

namespace lab {

/// Numbered frames from one station to everybody, a thousand a second from its making on, and who heard them.
class stream_t {
public:
    /// All stations must outlive it; they are its own until stop().
    stream_t(station_t &from, std::vector<station_t *> to);
    ~stream_t();

    /// Ends it, and waits until what is under way has arrived.
    void stop();

    uint32_t sent() const { return sent_; }

    /// How many frames came more than once, or came back to their sender.
    size_t doubled() const;

    /// How long a station was cut off: the most frames in a row that it missed, of which a millisecond has one.
    std::chrono::milliseconds longest_gap(station_t &at) const;

private:
    std::vector<unsigned> times_heard(station_t &at) const;
    void take_in();

    station_t &from_;
    std::vector<station_t *> to_;
    std::atomic<bool> ended_ = false;
    std::atomic<uint32_t> sent_ = 0;
    std::thread thread_;
};

/// A test with ruled bridges, and whatever else a network has.
class ruled_test_t : public network_test_t {
protected:
    /// A ruled bridge with the shortest times, not started yet, whose ports to_bridges are no edges.
    ruled_bridge_t &add_ruled(int priority, int ports, std::initializer_list<int> to_bridges,
                              std::vector<std::string> options = {});

    /// Both have to be started before a cable closes a ring: until then they forward everything, and a storm takes
    /// the machine's processors from all that runs on it.
    const cable_t &connect(const ruled_bridge_t &near, int near_port, const ruled_bridge_t &far, int far_port);
    const cable_t &connect(const ruled_bridge_t &near, int near_port, const switch_t &far, int far_port);
    const cable_t &connect(const ruled_bridge_t &near, int near_port, const kernel_bridge_t &far, int far_port);
    using network_test_t::connect;

    /// A host at a port.
    host_t &add_host_at(const ruled_bridge_t &at, int port);

    /// "1 root forwards, 2 alternate discards", as its daemon says; empty while it says nothing.
    static std::string ports_of(const ruled_bridge_t &bridge);

    /// Waits for a bridge's ports to become so.
    static testing::AssertionResult becomes(const ruled_bridge_t &bridge, const std::string &wanted,
                                            std::chrono::milliseconds limit);

    /// That no frame came twice; prints how long each host was cut off meanwhile, after `what`.
    static void expect_each_once(stream_t &stream, const std::vector<std::pair<std::string, station_t *>> &hosts,
                                 const std::string &what);

    void TearDown() override;

private:
    int next_number_ = 101;
    std::list<ruled_bridge_t> ruled_;
    std::list<host_t> ruled_hosts_;
    std::list<cable_t> ruled_cables_;
};

} // namespace lab
