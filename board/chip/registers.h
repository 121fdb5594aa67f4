/// The switch chip's register map and the codes in it. This is a second reading, on purpose: nothing here
/// comes from the daemon, which has its own (src/switch/sw_cfg.cpp, HW_FORWARDING and its like), so that
/// a mistake in either shows when the two meet.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "chip/address_table.h"

struct chip_t;

constexpr std::uint32_t REG_SPACE = 0x10000; ///< addresses below it are registers

constexpr std::uint32_t REG_BUSY = 0x80000000; ///< of a command register: start, then busy

// ---- rule table: a command register and five data words ---------------------------------

constexpr std::uint32_t REG_RULE_COMMAND = 0x400;
constexpr std::uint32_t REG_RULE_DATA = 0x404;
constexpr unsigned RULE_WORDS = 5;

// ---- address table: a command register and three data words -----------------------------

constexpr std::uint32_t REG_ADDRESS_DATA = 0x600;
constexpr std::uint32_t REG_ADDRESS_COMMAND = 0x60C;
constexpr unsigned ADDRESS_WORDS = 3;

// ---- per-port control: bits 16 to 18 hold the spanning tree state ------------------------

constexpr std::uint32_t REG_PORT_CONTROL = 0x660;
constexpr std::uint32_t REG_PORT_STRIDE = 12;
constexpr unsigned PORT_STATE_SHIFT = 16;
constexpr std::uint32_t PORT_STATE_MASK = 0x7u << PORT_STATE_SHIFT;

/// What the state bits say; other codes pass no more than discarding does.
enum chip_state_t : unsigned {
    CHIP_DISABLED = 0,
    CHIP_DISCARDING = 1,
    CHIP_LEARNING = 3,
    CHIP_FORWARDING = 4,
    CHIP_NO_STP = 5, ///< forwarding, no spanning tree
};

constexpr std::uint32_t port_control_register(unsigned chip_port)
{
    return REG_PORT_CONTROL + REG_PORT_STRIDE * chip_port;
}

/// The chip port whose control register `reg` is, if it is one.
std::optional<unsigned> port_of_control_register(std::uint32_t reg);

// ---- commands ----------------------------------------------------------------------------

enum class address_command_t : std::uint8_t {
    delete_all = 0x04, ///< every learned entry
    flush_port = 0x05, ///< the learned entries of the port in bits 8 and up
    install = 0x22,    ///< a static entry, from the data words
    remove = 0x23,     ///< the static entry that the data words name
};

constexpr address_command_t address_command(std::uint32_t word) { return static_cast<address_command_t>(word & 0xFF); }

constexpr unsigned address_command_port(std::uint32_t word) { return word >> 8 & 0xFF; }

using address_words_t = std::array<std::uint32_t, ADDRESS_WORDS>;
using rule_words_t = std::array<std::uint32_t, RULE_WORDS>;

/// The data words that the next command of a table works on.
address_words_t address_words(const chip_t &chip);
rule_words_t rule_words(const chip_t &chip);

/// The address in the data words of a static entry: the first word holds its last four octets,
/// last octet lowest; the second word's lower half holds the first two.
mac_t address_of_words(const address_words_t &words);

constexpr unsigned rule_command_entry(std::uint32_t word) { return word & 0x7F; }

/// 0 pattern, 1 mask, 2 action; 3 is none.
constexpr unsigned rule_command_part(std::uint32_t word) { return word >> 8 & 0x3; }
