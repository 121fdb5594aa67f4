// What registers and operations mean, for people.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include "chip/chip.h"
#include "chip/registers.h"
#include "tools/hex.h"

namespace {

std::string port_words(unsigned port)
{
    if (port == CHIP_CPU_PORT)
        return "CPU port";
    if (port >= CHIP_PORTS)
        return fmt::format("no port (chip {})", port);
    return fmt::format("port {} (chip {})", front_port_of_chip(port), port);
}

std::string address_command_words(const chip_t &chip, std::uint32_t word)
{
    const auto station = [&] { return address_text(address_of_words(address_words(chip))); };
    switch (address_command(word)) {
    case address_command_t::delete_all:
        return "delete all learned";
    case address_command_t::flush_port:
        return "flush " + port_words(address_command_port(word));
    case address_command_t::install:
        return "trap " + station() + " to the CPU";
    case address_command_t::remove:
        return "no longer trap " + station();
    }
    return fmt::format("unknown command 0x{:08x}", word);
}

std::string rule_command_words(const chip_t &chip, std::uint32_t word)
{
    constexpr std::array parts = {"pattern", "mask", "action", "nothing"};
    return fmt::format("rule {}: write {} {:08x}", rule_command_entry(word), parts[rule_command_part(word)],
                       fmt::join(rule_words(chip), " "));
}

bool is_word_of(std::uint32_t reg, std::uint32_t first, unsigned words)
{
    return reg >= first && reg < first + 4 * words && (reg - first) % 4 == 0;
}

std::string write_words(const chip_t &chip, std::uint32_t reg, std::uint32_t word)
{
    const bool start = (word & REG_BUSY) != 0;
    if (reg == REG_ADDRESS_COMMAND && start)
        return "address table: " + address_command_words(chip, word);
    if (reg == REG_RULE_COMMAND && start)
        return rule_command_words(chip, word);
    if (is_word_of(reg, REG_ADDRESS_DATA, ADDRESS_WORDS))
        return fmt::format("address table: data word {} = {:08x}", (reg - REG_ADDRESS_DATA) / 4, word);
    if (is_word_of(reg, REG_RULE_DATA, RULE_WORDS))
        return fmt::format("rule table: data word {} = {:08x}", (reg - REG_RULE_DATA) / 4, word);
    if (const auto port = port_of_control_register(reg)) {
        const unsigned state = (word & PORT_STATE_MASK) >> PORT_STATE_SHIFT;
        return fmt::format("{}: control {:08x}, state {} {}", port_words(*port), word, state, chip_state_name(state));
    }
    return fmt::format("register 0x{:03x} = {:08x}", reg, word);
}

std::string modify_words(const mdio_op_t &op)
{
    if (const auto port = port_of_control_register(op.reg); port && op.mask == PORT_STATE_MASK) {
        const unsigned state = (op.value & PORT_STATE_MASK) >> PORT_STATE_SHIFT;
        return fmt::format("{}: state {} {}", port_words(*port), state, chip_state_name(state));
    }
    return fmt::format("register 0x{:03x}, bits {:08x} = {:08x}", op.reg, op.mask, op.value & op.mask);
}

std::string wait_words(const mdio_op_t &op)
{
    if (op.mask == REG_BUSY && op.value == 0 && op.reg == REG_ADDRESS_COMMAND)
        return "address table: wait until idle";
    if (op.mask == REG_BUSY && op.value == 0 && op.reg == REG_RULE_COMMAND)
        return "rule table: wait until idle";
    return fmt::format("register 0x{:03x}: wait until bits {:08x} are {:08x}", op.reg, op.mask, op.value);
}

} // namespace

std::string chip_describe(const chip_t &chip, const mdio_op_t &op)
{
    switch (op.op) {
    case MDIO_OP_WRITE:
        return write_words(chip, op.reg, op.value);
    case MDIO_OP_MODIFY:
        return modify_words(op);
    case MDIO_OP_WAIT:
        return wait_words(op);
    }
    return fmt::format("unknown operation {}", op.op);
}

const char *chip_state_name(unsigned state)
{
    switch (state) {
    case CHIP_DISABLED:
        return "disabled";
    case CHIP_DISCARDING:
        return "discarding";
    case CHIP_LEARNING:
        return "learning";
    case CHIP_FORWARDING:
        return "forwarding";
    case CHIP_NO_STP:
        return "forwarding (no spanning tree)";
    default:
        return "unknown";
    }
}

const char *chip_drop_name(chip_drop_t drop)
{
    switch (drop) {
    case chip_drop_t::none:
        return "not dropped";
    case chip_drop_t::runt:
        return "runt";
    case chip_drop_t::link_down:
        return "link down";
    case chip_drop_t::state:
        return "port state";
    case chip_drop_t::nowhere:
        return "nowhere to go";
    case chip_drop_t::untagged:
        return "untagged";
    }
    return "";
}
