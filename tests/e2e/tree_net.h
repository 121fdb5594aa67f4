/// The networks of the tree and group tests: machines, cables, and what one asks them.
#pragma once

#include <list>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "board/lab/neighbours.h"
#include "board/lab/switch_node.h"
#include "board/lab/within.h"
#include "fixture.h"
#include "tests/bpdus.h"
#include "tests/settings.h"
#include "tools/messages.h"

namespace lab {

using e2e::status_within;
using testing::AllOf;
using testing::Ge;
using testing::Gt;

/// A port that has to go through both of its delays, and a few ticks of the daemons.
constexpr auto BY_TIMERS = std::chrono::seconds(2 * FORWARD_DELAY + 5);

/// A few ticks: what needs no timer.
constexpr auto AT_ONCE = std::chrono::seconds(4);

/// A test with a network of switches, kernel bridges, hosts and cables. Switches are configured
/// before they get their cables.
class network_test_t : public e2e::switches_test_t {
protected:
    /// A running switch with the shortest times.
    switch_t &add_bridge(uint16_t priority, const port_configs_t &ports, bool rapid = false);

    /// A kernel bridge with the shortest times; `address` is that of the machine itself.
    kernel_bridge_t &add_kernel_bridge(int priority, const std::string &address = {});

    /// A host at a switch's port. The address is 10.0.0.N, with a number of its own.
    host_t &add_host(const switch_t &at, int port);

    /// A machine with one interface, eth0, at a switch's port, for a neighbour played by the test.
    const node_t &add_machine(const switch_t &at, int port);

    const cable_t &connect(const switch_t &near, int near_port, const switch_t &far, int far_port);

    /// The kernel bridge's end is its interface port1, port2 ..., as the number given.
    const cable_t &connect(const switch_t &near, int near_port, const kernel_bridge_t &far, int far_port);

    void TearDown() override;

private:
    int next_number_ = 1;
    std::list<kernel_bridge_t> bridges_;
    std::list<host_t> hosts_;
    std::list<node_t> machines_;
    std::list<cable_t> cables_;
};

// ---- what the daemon's status file says ---------------------------------------------------

/// The status, once there is a whole one: not before the first tick, nor while it is written anew.
/// Throws std::runtime_error when none comes.
bridge_status_t status_of(const switch_t &device);

int role_of(const switch_t &device, int port);
int state_of(const switch_t &device, int port);

/// "1 root forwards, 2 alternate discards": the ports that take part, for people and for comparing.
std::string ports_text(const bridge_status_t &status);
std::string ports_text(const switch_t &device);

/// Waits for ports_text to become `wanted`, and tells what it is instead.
testing::AssertionResult becomes(const switch_t &device, const std::string &wanted, std::chrono::milliseconds limit);

bool is_root(const switch_t &device);
bool follows(const switch_t &device, const bridge_id_t &root);

/// Whether the daemon runs and its clock goes on.
bool is_alive(switch_t &device);

// ---- what the chip does -------------------------------------------------------------------

/// The spanning tree state in the chip's register.
unsigned chip_state(const switch_t &device, int port);

/// The front port where the chip has heard an address; 0 when it does not know it.
unsigned heard_at(const switch_t &device, const std::string &mac);

// ---- what the board saw ---------------------------------------------------------------------

/// The board's clock; a mark to look from.
double now_of(const switch_t &device);

/// The events of a topic whose words contain `words`, from `since` seconds on, in order.
std::vector<e2e::event_t> events_with(const switch_t &device, const std::string &topic, const std::string &words,
                                      double since = 0);

/// BPDUs of a kind ("rstp", "config", "tcn") that came in (topic "rx") or left ("tx") at a port.
std::vector<e2e::event_t> bpdu_events(const switch_t &device, const std::string &topic, int port,
                                      const std::string &kind, double since = 0);

/// What the diary says when the daemon puts a port into a state, or empties the address table.
std::string state_words(int port, int state);
constexpr char FLUSH_WORDS[] = "address table: delete all learned";

} // namespace lab
