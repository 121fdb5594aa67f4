/// A board whose chip is a Linux bridge: registers are the daemon's words for states that the kernel then has, frames
/// are forwarded by the kernel, and only BPDUs pass here.
#pragma once

#include <array>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "board/bridge/gate.h"
#include "board/bridge/numbers.h"
#include "board/netlink/netlink.h"
#include "lvt_board/board.h"

/// Who keeps the kernel from forwarding on its own when a link comes up.
enum class guard_t {
    user_stp, ///< the kernel itself, for the bridge is in its user-space STP mode
    gate,     ///< a table of the firewall
};

/// One of the bridge's ports.
struct member_t {
    interface_t now;                          ///< as the kernel told it last
    unsigned front = 0;                       ///< front port; 0: it has none
    std::optional<port_state_t> settled = {}; ///< the state that it was given, and had
    bool refused = false;                     ///< the kernel refused a state, which was told

    bool operator==(const member_t &) const = default;
};

struct linux_board_settings_t {
    interface_t bridge;
    guard_t guard;
    numbering_t numbering;
    int daemon_net; ///< network namespace in which the CPU's cable is
};

class linux_board_t : public board_t {
public:
    /// tell  takes what people should read, a line each.
    /// All arguments but the settings must outlive the board. Throws std::system_error.
    linux_board_t(const board_clock_t &clock, event_log_t &log, linux_board_settings_t settings, netlink_t &netlink,
                  gate_t *gate, std::function<void(const std::string &)> tell);

    int mdio(const mdio_multi_t &batch) override;
    void look_at_links() override;

    /// From then on the ports have the states that the daemon wrote; before, they block.
    void open_up();

    /// Lets no port pass anything, or all of them everything, whatever the daemon writes.
    void block_all();

    /// How often links changed. One that was lost stays so, whatever the kernel says, until the daemon has acted on
    /// it, or else it could come back, at another neighbour, without having been gone.
    unsigned link_changes() const { return link_changes_; }

    /// The daemon has acted on all that it was told of links.
    void settled();

    /// Which interface is which port; one that is gone keeps its number until another needs it.
    const numbers_t &numbers() const { return numbers_; }
    const std::map<int, member_t> &members() const { return members_; }

    /// Whether the kernel lets something else through a front port than the daemon said.
    bool differs(const member_t &member) const;

    /// Why the bridge can be ruled no longer; empty while it can.
    const std::string &trouble() const { return trouble_; }

    using board_t::links_told;

protected:
    link_t sample_link(unsigned plug, int &index) override;
    fd_t open_wire(unsigned plug, int index) override;
    bool concerns(const link_news_t &news) const override;
    void link_changed(unsigned front) override;
    void forward(std::uint8_t, wire_frame_t &) override {}

private:
    void refresh();
    void refresh_bridge();
    void admit(const std::vector<interface_t> &ports);
    void judge(member_t &member, const interface_t &now);
    unsigned code_for(const member_t &member) const;
    port_state_t kernel_state(unsigned code) const;
    gate_state_t gate_wanted() const;
    int put(member_t &member);
    int flush(unsigned fronts);
    int enforce();
    void enforce_or_tell();

    linux_board_settings_t settings_;
    netlink_t &netlink_;
    gate_t *gate_; ///< null where the kernel needs none
    gate_state_t passing_;
    std::function<void(const std::string &)> tell_;
    std::map<int, member_t> members_; ///< by interface number
    numbers_t numbers_;
    std::array<bool, BOARD_PORTS + 1> lost_{}; ///< the link was, and the daemon has not acted on that yet
    /// It did, but the state is the one from before: not to be believed of the link that comes back.
    std::array<bool, BOARD_PORTS + 1> awaited_{};
    bool opened_ = false;
    unsigned link_changes_ = 0;
    std::string trouble_;
    std::string told_; ///< the latest complaint, so that it is told once
};
