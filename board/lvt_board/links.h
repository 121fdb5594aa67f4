/// The state of network interfaces: who exists, who has carrier, how fast.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "platform/messages.h"
#include "lvt_board/fd.h"
#include "platform/link_mon_intf.h"

/// What a port's PHY reports. Without link, speed and duplex are 0.
struct link_t {
    bool up = false;
    unsigned mbit = 0;
    bool full_duplex = false;

    bool operator==(const link_t &) const = default;
};

/// What the board's PHYs can do, in Mbit/s, by speed code.
constexpr std::span<const std::uint32_t> PHY_SPEEDS = std::span(RSTP_SPEEDS).first(LINK_MON_SPEED_MASK + 1);

/// The speed code of link monitor and driver messages; between two speeds, that of the lower one.
std::uint8_t link_speed_code(unsigned mbit);

/// Looks at the interface called `name` now. `index` becomes its number, or 0 when there is none.
/// What tells no speed counts as 1000 Mbit/s full duplex; what is faster than the PHYs, as theirs.
link_t link_sample(const std::string &name, int &index);

/// A socket on which the kernel announces changes of interfaces; throws std::system_error.
fd_t link_events_open();

/// What was announced of an interface.
struct link_news_t {
    int index;    ///< its number; 0: announcements were lost, and nobody knows of which
    bool carrier; ///< at that moment
    int master;   ///< the bridge, or the like, that it belongs to; 0: to none
};

/// Reads what was announced, in order, so that a short interruption is not missed.
void link_events_read(const fd_t &events, const std::function<void(const link_news_t &)> &take);
