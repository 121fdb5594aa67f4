/// What end-to-end tests share: switches that tell their story when a test fails, and ways to talk
/// to a running daemon that never wait without a deadline.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <span>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "board/lab/switch_node.h"
#include "board/lab/within.h"
#include "tests/eventually.h"

namespace e2e {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Ge;
using testing::Gt;
using testing::HasSubstr;

/// For what happens at once, also in a sanitized daemon on a busy machine.
constexpr auto SOON = 10s;

/// A test that owns its switches. After a failure it prints what board and daemon said; a complaint
/// of a sanitizer in one of the daemons or boards is a failure.
class switches_test_t : public testing::Test {
protected:
    /// Makes a switch; it is not started yet. Its number is its place in the list, from 1, unless
    /// the settings give one above 1.
    lab::switch_t &add_switch(lab::switch_settings_t settings = {});

    void TearDown() override;

private:
    std::list<lab::switch_t> switches_;
};

/// Writes a frame into the control pipe and waits until the daemon has taken and handled all that
/// is in there. Throws std::runtime_error when it does not.
void serve(const lab::switch_t &device, std::span<const uint8_t> message);

/// Waits until the daemon has taken and handled all that is in its control pipe.
/// Throws std::runtime_error when it does not.
void serve_all(const lab::switch_t &device);

/// Gives a debug command ("debug show system_config"). Returns what the daemon printed on the
/// console for it. Throws std::runtime_error when the daemon does not take it.
std::string ask(const lab::switch_t &device, const std::string &command);

/// How many octets wait in a named pipe of the switch.
size_t octets_waiting(const lab::switch_t &device, const std::string &pipe);

/// Waits until the status file was written `count` more times: that many ticks have passed. Says how
/// many came when that takes longer than it should.
testing::AssertionResult ticks(const lab::switch_t &device, int count);

/// Waits until the status file says so. Shows the last one when it has not within `limit`.
testing::AssertionResult status_within(const lab::switch_t &device, std::chrono::milliseconds limit,
                                       const std::function<bool(const lab::bridge_status_t &)> &condition);

/// One line of the board's diary.
struct event_t {
    double seconds; ///< since the board's start
    std::string topic;
    std::map<std::string, std::string> values; ///< key=value
    std::string words;                         ///< for people
};

/// The whole lines of the board's diary until now, of one topic ("mdio", "mux", "lacp", "link",
/// "rx", "tx", "drop", "set", "board") or of all.
std::vector<event_t> diary(const lab::switch_t &device, const std::string &topic = {});

/// How often `part` is in `text`.
size_t count_of(const std::string &text, const std::string &part);

} // namespace e2e
