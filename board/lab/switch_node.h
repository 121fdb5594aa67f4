/// A whole simulated switch: a node with the board, its chip and front ports, and the daemon.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "board/client/board_client.h"
#include "board/lab/cable.h"
#include "tools/messages.h"
#include "tools/status_file.h"

namespace lab {

// What a status file tells, as the tools read it.
using ::bridge_id_text;
using ::bridge_status_t;
using ::parse_status;
using ::port_status_t;
using ::same_bridge;

/// Files in the switch's /tmp that the lab has written there.
constexpr char CONSOLE_FILE[] = "/tmp/console";          ///< the daemon's console
constexpr char DAEMON_OUTPUT_FILE[] = "/tmp/daemon.out"; ///< its standard output
constexpr char DAEMON_ERROR_FILE[] = "/tmp/daemon.err";  ///< its standard error; the traced one's trace
constexpr char BOARD_LOG_FILE[] = "/tmp/board.log";      ///< what the board saw
constexpr char BOARD_OUTPUT_FILE[] = "/tmp/board.out";   ///< its own complaints
constexpr char STATUS_FILE[] = "/tmp/rstp_monitor";      ///< the daemon's status file

struct switch_settings_t {
    std::string name = "switch";
    int number = 1;                                   ///< as node_t takes it; the bridge's MAC address is the node's
    std::string board = {};                           ///< programs; empty: what the environment names in LVT_BOARD and
    std::string daemon = {};                          ///< LVT_RSTPD, or those beside the running program
    bool trace = false;                               ///< the daemon that prints every transition of its machines
    std::vector<std::string> daemon_wrapper = {};     ///< words before the daemon's name, say valgrind's
    std::vector<std::string> daemon_environment = {}; ///< NAME=value, say LD_PRELOAD's
    bool rapid = false;                               ///< the daemon is asked to be rapid
    std::vector<std::string> daemon_options = {};     ///< further words of its command line
    int board_log = -1;                               ///< what the board saw goes there instead of BOARD_LOG_FILE
};

/// A program by the name that it has in a node, where the working folder and /tmp are others.
std::string where(const std::string &program);

/// Throws cannot_run_t, which tells how it is built, when there is no such program.
void require_program(const std::filesystem::path &path);

class switch_t {
public:
    /// Throws cannot_run_t when a program is missing.
    explicit switch_t(switch_settings_t settings);

    const node_t &node() const { return node_; }

    /// Where to plug a cable into front port `number`, 1 to 6.
    cable_end_t port(int number) const;

    /// Starts board and daemon and waits until both are ready. A port without a cable has no link.
    /// Throws std::runtime_error, with what the process said, when one is not ready in time.
    void start();

    void start_board();
    void start_daemon();

    process_t &board() { return board_; }
    process_t &daemon() { return daemon_; }

    /// A connection to the board, to ask it and to play faults. Throws board_error_t.
    board_client_t client() const;

    /// Writes a frame into the daemon's control pipe. Throws std::runtime_error.
    void send(std::span<const uint8_t> message) const;

    /// Joins front ports into groups, as the link-aggregation daemon of the board does: first in the
    /// chip, then with a report to the daemon.
    ///
    /// groups  octet p is the group of port p, 7 to 9; with any other value the port stands alone in
    ///         the chip. The daemon gets all octets as they are.
    ///
    /// Throws board_error_t, std::runtime_error.
    void group(const aggr_status_t &groups) const;

    /// The daemon's status file; nothing while there is none, or only a part of one.
    std::optional<bridge_status_t> status() const;

    /// All that board and daemon said, for the report of a failure.
    std::string story() const;

private:
    process_t launch(std::vector<std::string> argv, std::vector<std::string> environment, const char *output,
                     const char *error, std::vector<int> keep_open = {}) const;

    switch_settings_t settings_;
    node_t node_;
    process_t board_;
    process_t daemon_;
};

} // namespace lab
