/// Short ways to drive a simulated switch chip in tests.
#pragma once

#include <initializer_list>

#include "chip/chip.h"
#include "chip/registers.h"

constexpr mac_t bridge_group = {0x01, 0x80, 0xC2, 0, 0, 0}; ///< where BPDUs go

inline mdio_op_t op_write(std::uint32_t reg, std::uint32_t value) { return {MDIO_OP_WRITE, reg, 0, value}; }

inline mdio_op_t op_modify(std::uint32_t reg, std::uint32_t mask, std::uint32_t value)
{
    return {MDIO_OP_MODIFY, reg, mask, value};
}

inline mdio_op_t op_wait(std::uint32_t reg, std::uint32_t mask, std::uint32_t value)
{
    return {MDIO_OP_WAIT, reg, mask, value};
}

inline mdio_multi_t batch_of(std::initializer_list<mdio_op_t> operations)
{
    mdio_multi_t batch = {};
    for (const mdio_op_t &op : operations)
        batch.operations[batch.count++] = op;
    return batch;
}

/// Runs operations on the chip; later batches follow on the chip's own clock.
inline int run(chip_t &chip, std::initializer_list<mdio_op_t> operations, std::vector<chip_step_t> *steps = nullptr)
{
    return chip_execute(chip, batch_of(operations), chip.clock, steps);
}

inline int set_state(chip_t &chip, unsigned chip_port, std::uint32_t state)
{
    return run(chip, {op_modify(port_control_register(chip_port), 0x70000, state << 16)});
}

/// Waits for the address table, then starts a command.
inline int address_command_run(chip_t &chip, std::uint32_t command)
{
    return run(chip, {op_wait(0x60C, 0x80000000, 0), op_write(0x60C, 0x80000000 | command)});
}

/// The batch by which spanning tree frames are trapped (0x20022) or no longer are (0x20023).
inline int trap(chip_t &chip, std::uint32_t command)
{
    return run(chip, {op_wait(0x60C, 0x80000000, 0), op_write(0x600, 0xC2000000), op_write(0x604, 0x00800180),
                      op_write(0x608, 0x12F), op_write(0x60C, 0x80000000 | command)});
}
