/// A model of the board's switch chip: its registers, as software programs them, and what it does
/// with frames. It has no clock, no thread and no socket of its own; the caller brings the time,
/// which is that since the chip was switched on.
///
/// A chip that was just switched on passes nothing on any port.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "chip/address_table.h"
#include "chip/ports.h"
#include "platform/mdio_intf.h"

/// One entry of the rule table. The chip keeps what is written; its parts are the pattern, the
/// mask and the action.
struct chip_rule_t {
    std::array<std::array<std::uint32_t, 5>, 3> parts;
};

constexpr unsigned CHIP_RULES = 128;

struct chip_port_counters_t {
    std::uint64_t received; ///< frames that came in
    std::uint64_t sent;     ///< frames that went out
    std::uint64_t trapped;  ///< received frames handed to the CPU
    std::uint64_t dropped;  ///< received frames that went nowhere
};

struct chip_cpu_counters_t {
    std::uint64_t tagged;        ///< frames from the CPU that named ports
    std::uint64_t untagged;      ///< frames from the CPU without a tag: dropped
    std::uint64_t undeliverable; ///< tagged, but no port named could send
};

struct chip_t {
    std::map<std::uint32_t, std::uint32_t> registers; ///< as written; the rest are 0
    chip_time_t clock{0};                             ///< latest register access
    chip_time_t address_busy_until{0};
    chip_time_t rule_busy_until{0};
    std::uint64_t lost_commands = 0; ///< table commands written while their table was busy

    address_table_t addresses;
    std::map<unsigned, chip_rule_t> rules; ///< entries that were written, below CHIP_RULES

    std::array<std::uint8_t, CHIP_PORTS> states{}; ///< spanning tree state codes, as the control registers have them
    std::array<bool, CHIP_PORTS> link{};
    std::array<std::uint8_t, CHIP_PORTS> trunk{}; ///< 0: the port stands alone
    std::array<chip_port_counters_t, CHIP_PORTS> counters{};
    chip_cpu_counters_t cpu{};
};

// ---- registers -------------------------------------------------------------------------

/// One executed operation of a batch.
struct chip_step_t {
    mdio_op_t op;
    std::string words; ///< what it means, for people
    bool done;         ///< false: a wait that ran out, an address that is none
};

/// Executes a batch in order. Every access takes a little of the chip's time, so that a wait sees
/// a busy bit become clear.
///
/// steps  when given, receives each operation that was tried, in words.
///
/// Returns 0, or -1: a count above 44 or an unknown operation executes nothing; a wait that runs
/// out or an address outside the chip ends the batch there.
int chip_execute(chip_t &chip, const mdio_multi_t &batch, chip_time_t now, std::vector<chip_step_t> *steps = nullptr);

/// The word that reading register `reg` gives at `now`, busy bit included.
std::uint32_t chip_read(const chip_t &chip, std::uint32_t reg, chip_time_t now);

/// What executing `op` now would do, in words: "port 3 (chip 3): state 4 forwarding".
std::string chip_describe(const chip_t &chip, const mdio_op_t &op);

// ---- ports -----------------------------------------------------------------------------

/// Spanning tree state of chip port 0 to 6, a code from 0 to 7.
unsigned chip_port_state(const chip_t &chip, unsigned port);

/// "disabled", "discarding", "learning", "forwarding", "forwarding (no spanning tree)"; other
/// codes are "unknown" and pass no more than "discarding" does.
const char *chip_state_name(unsigned state);

/// Tells the chip that the cable of chip port 1 to 6 carries a link, or no longer does.
void chip_link_set(chip_t &chip, unsigned port, bool up);

/// Makes chip port 1 to 6 a member of trunk `group` (any nonzero number), or lets it stand alone
/// with group 0. The members of a trunk are one port for learning and flooding; a frame leaves by
/// one of them, chosen by its two addresses, and never goes back into the trunk that it came from.
void chip_trunk_set(chip_t &chip, unsigned port, std::uint8_t group);

// ---- frames ----------------------------------------------------------------------------

enum class chip_drop_t {
    none,
    runt,      ///< too short for addresses and type
    link_down, ///< the port has no link
    state,     ///< the port's state does not let it in
    nowhere,   ///< no port leads to the destination but the one that the frame came from
    untagged,  ///< from the CPU, without a valid tag
};

const char *chip_drop_name(chip_drop_t drop);

/// Where a frame goes.
struct chip_verdict_t {
    std::uint8_t ports = 0;               ///< bit p: it leaves through chip port p
    bool trapped = false;                 ///< it goes to the CPU, and nowhere else
    chip_drop_t drop = chip_drop_t::none; ///< why it goes nowhere
};

/// Takes a frame that came in at chip port 1 to 6, without its check sequence.
chip_verdict_t chip_receive(chip_t &chip, unsigned port, std::span<const std::uint8_t> frame, chip_time_t now);

/// Takes a frame from the CPU. Its tag names the ports by which it leaves, whatever their state
/// is, but a disabled port sends nothing. The tag is still in `frame`: see chip_untag.
chip_verdict_t chip_receive_from_cpu(chip_t &chip, std::span<const std::uint8_t> frame);

/// Takes the CPU tag out of a frame that chip_receive_from_cpu let pass; returns what is left.
std::span<std::uint8_t> chip_untag(std::span<std::uint8_t> frame);
