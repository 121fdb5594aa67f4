/// What the tests of a single daemon share: its counters, its settings, received BPDUs.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

#include "board/lab/switch_node.h"
#include "fixture.h"
#include "tools/bpdu_frame.h"
#include "tools/hex.h"
#include "tools/messages.h"

namespace e2e {

/// One line of the statistics report, in its order.
struct counts_t {
    long stp_sent = 0, stp_received = 0;
    long rstp_sent = 0, rstp_received = 0;
    long tcn_sent = 0, tcn_received = 0;
    long unknown = 0, illegal = 0;

    bool operator==(const counts_t &) const = default;
};

void PrintTo(const counts_t &counts, std::ostream *stream);

/// The counters of all nine ports at this moment; entry i belongs to port i + 1.
std::array<counts_t, 9> counts(const lab::switch_t &device);
counts_t counts(const lab::switch_t &device, int port);

/// All reports that do not change by themselves while nothing happens.
std::string all_reports(const lab::switch_t &device);

/// Settings with spanning tree on at these ports, else defaults.
port_configs_t enabled(std::initializer_list<int> ports);

/// A type 1 message's entries: 1 Gbit/s, full duplex and link at these ports.
port_statuses_t linked(std::initializer_list<int> ports);

/// A BPDU's frame, cut or filled with zeros to so many octets.
std::vector<uint8_t> octets_of(const bpdu_t &bpdu, size_t count);

/// An RST BPDU of a bridge that is better than every bridge of the tests.
bpdu_t superior_bpdu();

/// Sends a BPDU to the daemon as if it came in at a front port, and waits until it is handled.
void hear(const lab::switch_t &device, unsigned port, const bpdu_t &bpdu);

/// Whether the daemon still serves messages, answers questions and ticks.
testing::AssertionResult is_sound(lab::switch_t &device);

} // namespace e2e
