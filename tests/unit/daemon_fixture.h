/// What the tests of the daemon share: a daemon that starts anew for each test on a board of its
/// own, and short ways to send it what other processes and neighbours would.
#pragma once

#include <array>
#include <initializer_list>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/messages.h"
#include "daemon_board.h"
#include "lvt_rstp.h"
#include "tools/messages.h"

/// Status words of the link monitor.
constexpr uint32_t LINK_1000_FULL = 0x142;
constexpr uint32_t LINK_100_HALF = 0x101;

class daemon_test : public testing::Test {
protected:
    daemon_test();
    ~daemon_test() override;

    /// Starts the adaptation layer and the mirrors as the main thread does, with link at full
    /// 1000 Mbit/s on the ports named, and clears the log.
    void boot(std::initializer_list<uint32_t> ports_up = {});

    /// Writes octets into the control pipe; nothing reads them yet.
    void write_control(const octets_t &octets) const;
    void write_debug(const std::string &text) const;

    /// Lets the daemon wait for input once and act on it. Returns what rstp_msg_recv did.
    int serve();

    /// Both: the message passes through the pipe and is acted upon.
    int control(const octets_t &octets);

    // Messages, each through the pipe. The members keep what was sent last.
    void send_links(std::initializer_list<uint32_t> ports_up);
    void send_links();
    void send_groups(const aggr_status_t &groups);
    void send_system(const lvt_rstp_system_config_t &config);
    void send_ports(uint8_t type = RSTP_MSG_PORT_CONFIG);
    void send_enabled(std::initializer_list<uint32_t> ports);
    void send_group_settings(const lvt_rstp_port_config_t &config);
    void send_lacp(const lacp_enables_t &enables);
    /// A frame received by front port 1 to 6.
    void send_bpdu(uint32_t port, const octets_t &frame);

    /// What the daemon prints on the console for a debug command.
    std::string debug(const std::string &text);

    /// Seconds pass, and the last pass is finished.
    void seconds(uint32_t count);

    /// What the link-aggregation daemon received since the last call.
    octets_t lacp_received() const;

    std::string path(const std::string &name) const { return board.folder + "/" + name; }

    port_statuses_t links = {};
    port_configs_t ports = default_port_configs();

    int control_fd = -1;
    int debug_fd = -1;
    int lacp_reader = -1;
};

/// Logical port 1 to 9.
inline port_t &record(uint32_t l2port) { return lvt_rstp_vars.ports[l2port - 1]; }

/// The ports for which a group stands, in the adaptation layer.
inline std::vector<uint32_t> members(uint32_t group)
{
    std::vector<uint32_t> numbers;
    for (uint32_t port = 1; port <= 6; port++)
        if (lvt_rstp_vars.representative[port - 1] == &record(group))
            numbers.push_back(port);
    return numbers;
}

/// The octets as text of gmock's ElementsAre, for logs.
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using log_t = std::vector<std::string>;

log_t operator+(log_t a, const log_t &b);

/// "state P C" and the multiplexer's message of it.
log_t state_written(uint32_t port, uint32_t code);

/// What an assertion prints.
std::string assertion(const std::string &source_and_line, const std::string &function, const std::string &text);

/// An assertion of the ports and frames, on whatever line.
inline auto asserts(const std::string &function, const std::string &text)
{
    return testing::AllOf(HasSubstr("l2_proto_utility/os_api:"),
                          HasSubstr(": " + function + ": Assertion `" + text + "' failed."));
}

/// Runs `action` and gives what it wrote to a standard stream.
std::string stdout_of(const std::function<void()> &action);
std::string stderr_of(const std::function<void()> &action);
