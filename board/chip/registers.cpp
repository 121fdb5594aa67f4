#include "chip/registers.h"

#include <algorithm>

#include "chip/chip.h"

namespace {

using namespace std::chrono_literals;

constexpr chip_time_t ACCESS_TIME = 5us;   // one register access over the bus
constexpr chip_time_t COMMAND_TIME = 40us; // a table is busy with a command
constexpr chip_time_t WAIT_MAX = 10ms;     // a wait gives up

std::uint32_t stored(const chip_t &chip, std::uint32_t reg)
{
    const auto found = chip.registers.find(reg);
    return found == chip.registers.end() ? 0 : found->second;
}

template <std::size_t N>
std::array<std::uint32_t, N> stored_words(const chip_t &chip, std::uint32_t first)
{
    std::array<std::uint32_t, N> words;
    for (std::uint32_t i = 0; i < N; i++)
        words[i] = stored(chip, first + 4 * i);
    return words;
}

void run_address_command(chip_t &chip, std::uint32_t word)
{
    const address_words_t words = address_words(chip);
    switch (address_command(word)) {
    case address_command_t::delete_all:
        address_flush(chip.addresses);
        break;
    case address_command_t::flush_port:
        address_flush_port(chip.addresses, address_command_port(word));
        break;
    case address_command_t::install:
        chip.addresses.trapped[address_of_words(words)] = words;
        break;
    case address_command_t::remove:
        chip.addresses.trapped.erase(address_of_words(words));
        break;
    }
}

void run_rule_command(chip_t &chip, std::uint32_t word)
{
    chip_rule_t &rule = chip.rules[rule_command_entry(word)];
    if (const unsigned part = rule_command_part(word); part < rule.parts.size())
        rule.parts[part] = rule_words(chip);
}

// A command that comes while its table is busy is lost, as software that does not wait finds out.
void write_command(chip_t &chip, std::uint32_t reg, std::uint32_t word, chip_time_t &busy_until,
                   void (*run)(chip_t &, std::uint32_t))
{
    if (chip.clock < busy_until) {
        chip.lost_commands++;
        return;
    }
    chip.registers[reg] = word & ~REG_BUSY;
    if ((word & REG_BUSY) != 0) {
        busy_until = chip.clock + COMMAND_TIME;
        run(chip, word);
    }
}

void write_register(chip_t &chip, std::uint32_t reg, std::uint32_t word)
{
    if (reg == REG_ADDRESS_COMMAND)
        write_command(chip, reg, word, chip.address_busy_until, run_address_command);
    else if (reg == REG_RULE_COMMAND)
        write_command(chip, reg, word, chip.rule_busy_until, run_rule_command);
    else
        chip.registers[reg] = word;
    if (const auto port = port_of_control_register(reg))
        chip.states[*port] = static_cast<std::uint8_t>((word & PORT_STATE_MASK) >> PORT_STATE_SHIFT);
}

bool wait_for(chip_t &chip, const mdio_op_t &op)
{
    const chip_time_t give_up = chip.clock + WAIT_MAX;
    while ((chip_read(chip, op.reg, chip.clock) & op.mask) != op.value) {
        if (chip.clock >= give_up)
            return false;
        chip.clock += ACCESS_TIME;
    }
    return true;
}

bool execute(chip_t &chip, const mdio_op_t &op)
{
    chip.clock += ACCESS_TIME;
    if (op.reg >= REG_SPACE)
        return false;
    switch (op.op) {
    case MDIO_OP_WRITE:
        write_register(chip, op.reg, op.value);
        return true;
    case MDIO_OP_MODIFY:
        write_register(chip, op.reg, (chip_read(chip, op.reg, chip.clock) & ~op.mask) | (op.value & op.mask));
        return true;
    case MDIO_OP_WAIT:
        return wait_for(chip, op);
    }
    return false;
}

bool is_known(const mdio_op_t &op)
{
    return op.op == MDIO_OP_WRITE || op.op == MDIO_OP_MODIFY || op.op == MDIO_OP_WAIT;
}

} // namespace

std::optional<unsigned> port_of_control_register(std::uint32_t reg)
{
    for (unsigned port = 0; port < CHIP_PORTS; port++)
        if (reg == port_control_register(port))
            return port;
    return std::nullopt;
}

address_words_t address_words(const chip_t &chip) { return stored_words<ADDRESS_WORDS>(chip, REG_ADDRESS_DATA); }

rule_words_t rule_words(const chip_t &chip) { return stored_words<RULE_WORDS>(chip, REG_RULE_DATA); }

mac_t address_of_words(const address_words_t &words)
{
    const auto octet = [](std::uint32_t word, unsigned shift) { return static_cast<std::uint8_t>(word >> shift); };
    return {octet(words[1], 8),  octet(words[1], 0), octet(words[0], 24),
            octet(words[0], 16), octet(words[0], 8), octet(words[0], 0)};
}

std::uint32_t chip_read(const chip_t &chip, std::uint32_t reg, chip_time_t now)
{
    const bool busy = (reg == REG_ADDRESS_COMMAND && now < chip.address_busy_until) ||
                      (reg == REG_RULE_COMMAND && now < chip.rule_busy_until);
    return stored(chip, reg) | (busy ? REG_BUSY : 0);
}

int chip_execute(chip_t &chip, const mdio_multi_t &batch, chip_time_t now, std::vector<chip_step_t> *steps)
{
    if (batch.count > MDIO_OPS_MAX)
        return -1;
    const std::span operations(batch.operations, batch.count);
    if (!std::all_of(operations.begin(), operations.end(), is_known))
        return -1;

    chip.clock = std::max(chip.clock, now);
    for (const mdio_op_t &op : operations) {
        std::string words = steps != nullptr ? chip_describe(chip, op) : std::string();
        const bool done = execute(chip, op);
        if (steps != nullptr)
            steps->push_back({op, std::move(words), done});
        if (!done)
            return -1;
    }
    return 0;
}

unsigned chip_port_state(const chip_t &chip, unsigned port) { return chip.states.at(port); }
