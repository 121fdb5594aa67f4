/// Asking and telling a running board, for the demo, the tests and the command line.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

/// The board is not there, does not answer, or refuses.
struct board_error_t : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// It refuses.
struct board_refusal_t : board_error_t {
    using board_error_t::board_error_t;
};

struct board_port_t {
    unsigned port; ///< front port, 1 to 6
    unsigned chip; ///< the chip's number for it
    bool present;  ///< its interface exists
    bool link;
    unsigned mbit; ///< 0 without link
    bool full_duplex;
    unsigned state; ///< spanning tree state in the chip: 0, 1, 3, 4 or 5
    std::string state_name;
    unsigned trunk; ///< group 7 to 9, or 0
};

struct board_address_t {
    std::string address; ///< as in 02:00:00:00:00:0a
    unsigned port;       ///< front port
    double age;          ///< seconds since it was heard
};

/// The board's socket: what the environment says (LVT_BOARD_SOCKET), or the usual path.
std::string board_socket_path();

/// A connection to a running board. All calls throw board_error_t.
class board_client_t {
public:
    explicit board_client_t(const std::string &path = board_socket_path());
    ~board_client_t();
    board_client_t(board_client_t &&other) noexcept;
    board_client_t &operator=(board_client_t &&) = delete;

    /// One of the reports "ports", "addresses", "registers", "rules", "counters", "messages".
    nlohmann::json show(const std::string &what);

    std::vector<board_port_t> ports();
    board_port_t port(unsigned front);
    std::uint32_t register_value(std::uint32_t reg);
    std::vector<board_address_t> addresses();

    /// Whether frames to this address go to the CPU.
    bool is_trapped(const std::string &address);

    /// The latest messages that the daemon sent to its neighbours, oldest first:
    /// {"seconds": 1.5, "pipe": "mux", "type": 2, "port": 3, "forwarding": true, "raw": "b206..."} or
    /// {"seconds": 1.5, "pipe": "lacp", "type": 7, "enabled": [1, 2], "raw": "ac01..."}.
    nlohmann::json messages();

    /// Makes the PHY of a front port report this speed, in Mbit/s, while it has link.
    void set_speed(unsigned front, unsigned mbit, bool full_duplex = true);
    /// Lets it report that of its interface again.
    void clear_speed(unsigned front);

    /// Makes exactly these front ports the members of trunk 7, 8 or 9; none dissolves it.
    void set_trunk(unsigned group, const std::vector<unsigned> &fronts);

    /// Refuses the next `batches` register batches; all of them with set_mdio_fail(true).
    void set_mdio_failures(std::uint64_t batches);
    void set_mdio_fail(bool on);
    /// Leaves the link monitor without an answer.
    void set_link_fail(bool on);
    /// Leaves the LACP and multiplexer pipes unread, so that they fill up.
    void set_pipes_unread(bool on);

private:
    nlohmann::json ask(const nlohmann::json &request);

    int fd_ = -1;
};
