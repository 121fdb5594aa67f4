/// A board as a whole: the chip, its cables, its pipes and its socket. By itself it is the simulated one, whose chip
/// forwards frames; another kind says what is different about it.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "chip/chip.h"
#include "lvt_board/event_log.h"
#include "lvt_board/fd.h"
#include "lvt_board/links.h"
#include "lvt_board/pipes.h"
#include "lvt_board/wires.h"
#include "platform/link_mon_intf.h"

/// What the operator says about a port's PHY, instead of what its interface says.
struct speed_t {
    unsigned mbit;
    bool full_duplex;
};

using speeds_t = std::map<unsigned, speed_t>; ///< by front port

/// One of the board's sockets, with the interface that is plugged into it.
struct plug_t {
    std::string interface;
    int index = 0; ///< interface number, 0 while there is no such interface
    fd_t wire;
    link_t link;
};

/// The CPU's end of its cable to the chip; front port n is the interface portn.
constexpr char CPU_INTERFACE[] = "cpu0";

/// Faults to be played, for tests of the daemon.
struct faults_t {
    std::uint64_t mdio_failures = 0; ///< this many batches are refused, unexecuted
    bool mdio_fails = false;         ///< all of them are
    bool link_fails = false;         ///< the link monitor has no answer
    bool pipes_unread = false;       ///< LACP and multiplexer pipes fill up
};

struct board_counters_t {
    std::uint64_t batches;        ///< register batches asked for
    std::uint64_t batches_failed; ///< of these, without success
    std::uint64_t link_asked;     ///< questions to the link monitor
    std::uint64_t bpdus;          ///< trapped frames handed to the daemon
    std::uint64_t bpdus_lost;     ///< trapped frames that the control pipe did not take
    std::uint64_t link_reports;   ///< link messages handed to the daemon
    std::uint64_t send_failed;    ///< frames that an interface did not take
};

class board_t {
public:
    static constexpr std::size_t HEARD_MAX = 256;

    board_t(const board_clock_t &clock, event_log_t &log, speeds_t speeds);
    virtual ~board_t() = default;
    board_t(const board_t &) = delete;
    board_t &operator=(const board_t &) = delete;

    // ---- what the daemon and the network see ----------------------------------------------

    /// Register access; returns what mdio_intf_access_multi returns.
    virtual int mdio(const mdio_multi_t &batch);

    /// Fills in the present state of all front ports; returns 0, or -1.
    int link_monitor(link_mon_status_t &status);

    /// Takes all frames that wait at plug 0 (the CPU's) or at front port 1 to 6.
    void receive(unsigned plug);

    /// Reads the kernel's announcements, looks at all interfaces, binds to those that are new, and
    /// tells the daemon what changed.
    virtual void look_at_links();

    /// The same, if an announcement is about what concerns this board.
    void take_announcements();

    void read_lacp();
    void read_mux();

    /// Takes in what the daemon sent by any other way, so that what it asks for next comes after it.
    void catch_up_with_daemon();

    // ---- what the operator sees -----------------------------------------------------------

    chip_time_t now() const { return clock_.now(); }
    event_log_t &log() { return log_; }

    /// Overrides a front port's speed, or no longer does.
    void set_speed(unsigned front, std::optional<speed_t> speed);

    /// Makes exactly these front ports the members of trunk `group`.
    void set_trunk(std::uint8_t group, const std::vector<unsigned> &fronts);

    chip_t chip;
    std::array<plug_t, BOARD_PORTS + 1> plugs; ///< 0 is the CPU's
    faults_t faults;
    board_counters_t counters{};
    std::deque<heard_t> heard; ///< the latest messages from the daemon, oldest first
    pipes_t pipes;
    fd_t link_events;

protected:
    /// A board whose cables are looked at later, as that kind of board does.
    enum class later_t {};
    board_t(const board_clock_t &clock, event_log_t &log, later_t);

    /// The present link of a plug, and the number of its interface, or 0.
    virtual link_t sample_link(unsigned plug, int &index);

    /// A socket on the interface of a plug. Throws std::system_error.
    virtual fd_t open_wire(unsigned plug, int index);

    /// Whether to look at the links for this.
    virtual bool concerns(const link_news_t &) const { return true; }

    /// A front port's link is another one now.
    virtual void link_changed(unsigned) {}

    /// A frame from a front port that is not for the CPU leaves.
    virtual void forward(std::uint8_t chip_ports, wire_frame_t &frame);

    /// Whether the daemon was told of the links as they are.
    bool links_told() const { return !report_owed_; }

    std::vector<chip_step_t> steps_; ///< of the latest batch

private:
    void attach(unsigned number, int index);
    void observe_link(unsigned plug, const link_t &link);
    bool read_announcements();
    void report_links();
    void deliver_bpdu(unsigned front, std::span<const std::uint8_t> frame);
    void from_cpu(wire_frame_t &frame);
    void from_front(unsigned front, wire_frame_t &frame);
    void send(std::uint8_t chip_ports, const wire_offload_t &offload, std::span<const std::uint8_t> octets);
    void keep(heard_t &&message);

    const board_clock_t &clock_;
    event_log_t &log_;
    speeds_t speeds_;
    bool report_owed_ = false; ///< the daemon does not know the present links yet
    std::unique_ptr<wire_frame_t> frame_ = std::make_unique<wire_frame_t>();
};
