// The simulated switch chip's registers, busy bits and tables.
#include <gtest/gtest.h>

#include "board_chip.h"

namespace {

using namespace std::chrono_literals;

constexpr mac_t station_a = {0x02, 0, 0, 0, 0, 0x0A};
constexpr mac_t station_b = {0x02, 0, 0, 0, 0, 0x0B};

TEST(chip_wiring, ports_5_and_6_are_crossed_both_ways)
{
    constexpr unsigned chip_ports[] = {1, 2, 3, 4, 6, 5};
    for (unsigned front = 1; front <= BOARD_PORTS; front++) {
        EXPECT_EQ(chip_port_of_front(front), chip_ports[front - 1]);
        EXPECT_EQ(front_port_of_chip(chip_port_of_front(front)), front);
    }
}

TEST(chip_registers, start_as_zero)
{
    const chip_t chip;
    for (const std::uint32_t reg : {0x0u, 0x60Cu, 0x684u, 0xFFFCu})
        EXPECT_EQ(chip_read(chip, reg, 0us), 0u);
}

TEST(chip_registers, write_stores_any_register)
{
    chip_t chip;
    EXPECT_EQ(run(chip, {op_write(0x1234, 0xDEADBEEF), op_write(0x0, 7)}), 0);
    EXPECT_EQ(chip_read(chip, 0x1234, chip.clock), 0xDEADBEEF);
    EXPECT_EQ(chip_read(chip, 0x0, chip.clock), 7u);
}

TEST(chip_registers, write_ignores_the_mask)
{
    chip_t chip;
    EXPECT_EQ(run(chip, {{MDIO_OP_WRITE, 0x700, 0x80000000, 0x12345678}}), 0);
    EXPECT_EQ(chip_read(chip, 0x700, chip.clock), 0x12345678u);
}

TEST(chip_registers, modify_touches_only_the_masked_bits)
{
    chip_t chip;
    EXPECT_EQ(run(chip, {op_write(0x684, 0xFFFFFFFF), op_modify(0x684, 0x70000, 0x40000)}), 0);
    EXPECT_EQ(chip_read(chip, 0x684, chip.clock), 0xFFFCFFFF);
    EXPECT_EQ(run(chip, {op_modify(0x684, 0x0000F000, 0xFFFFFFFF)}), 0);
    EXPECT_EQ(chip_read(chip, 0x684, chip.clock), 0xFFFCFFFF);
}

TEST(chip_registers, each_port_has_its_own_state_bits)
{
    chip_t chip;
    constexpr std::uint32_t registers[] = {0x660, 0x66C, 0x678, 0x684, 0x690, 0x69C, 0x6A8};
    for (unsigned port = 1; port < CHIP_PORTS; port++)
        EXPECT_EQ(run(chip, {op_modify(registers[port], 0x70000, port << 16)}), 0);
    for (unsigned port = 0; port < CHIP_PORTS; port++)
        EXPECT_EQ(chip_port_state(chip, port), port);
}

TEST(chip_batches, count_above_44_executes_nothing)
{
    chip_t chip;
    mdio_multi_t batch = batch_of({op_write(0x700, 1)});
    batch.count = 45;
    std::vector<chip_step_t> steps;
    EXPECT_EQ(chip_execute(chip, batch, 0us, &steps), -1);
    batch.count = 0xFFFFFFFF;
    EXPECT_EQ(chip_execute(chip, batch, 0us, &steps), -1);
    EXPECT_EQ(chip_read(chip, 0x700, chip.clock), 0u);
    EXPECT_TRUE(steps.empty());
}

TEST(chip_batches, all_44_operations_are_executed)
{
    chip_t chip;
    mdio_multi_t batch = {};
    for (; batch.count < MDIO_OPS_MAX; batch.count++)
        batch.operations[batch.count] = op_write(0x1000 + 4 * batch.count, batch.count + 1);
    EXPECT_EQ(chip_execute(chip, batch, 0us), 0);
    for (std::uint32_t i = 0; i < MDIO_OPS_MAX; i++)
        EXPECT_EQ(chip_read(chip, 0x1000 + 4 * i, chip.clock), i + 1);
}

TEST(chip_batches, an_empty_batch_succeeds)
{
    chip_t chip;
    EXPECT_EQ(run(chip, {}), 0);
}

TEST(chip_batches, an_unknown_operation_executes_nothing)
{
    for (const std::uint32_t code : {0u, 8u, 12u, 0xFFFFFFFFu}) {
        chip_t chip;
        EXPECT_EQ(run(chip, {op_write(0x700, 1), {code, 0x704, 0, 0}}), -1) << code;
        EXPECT_EQ(chip_read(chip, 0x700, chip.clock), 0u) << code;
    }
}

TEST(chip_batches, an_address_outside_the_chip_ends_the_batch)
{
    chip_t chip;
    std::vector<chip_step_t> steps;
    EXPECT_EQ(run(chip, {op_write(0x700, 1), op_write(0x10000, 2), op_write(0x704, 3)}, &steps), -1);
    EXPECT_EQ(chip_read(chip, 0x700, chip.clock), 1u);
    EXPECT_EQ(chip_read(chip, 0x704, chip.clock), 0u);
    ASSERT_EQ(steps.size(), 2u);
    EXPECT_TRUE(steps[0].done);
    EXPECT_FALSE(steps[1].done);
}

TEST(chip_batches, a_wait_for_what_never_comes_fails)
{
    chip_t chip;
    const chip_time_t before = chip.clock;
    EXPECT_EQ(run(chip, {op_wait(0x700, 1, 1), op_write(0x704, 1)}), -1);
    EXPECT_EQ(chip_read(chip, 0x704, chip.clock), 0u);
    EXPECT_GT(chip.clock, before);
    EXPECT_LT(chip.clock - before, 100ms);
}

TEST(chip_batches, the_clock_never_runs_back)
{
    chip_t chip;
    EXPECT_EQ(chip_execute(chip, batch_of({op_write(0x700, 1)}), 5s), 0);
    EXPECT_EQ(chip_execute(chip, batch_of({op_write(0x700, 2)}), 1s), 0);
    EXPECT_GE(chip.clock, 5s);
}

struct command_register_t {
    const char *name;
    std::uint32_t reg;
    std::uint32_t command;
};

std::ostream &operator<<(std::ostream &out, const command_register_t &row) { return out << row.name; }

class chip_busy : public testing::TestWithParam<command_register_t> {};

TEST_P(chip_busy, becomes_busy_and_clears)
{
    chip_t chip;
    const auto [name, reg, command] = GetParam();
    EXPECT_EQ(run(chip, {op_write(reg, command)}), 0);
    EXPECT_EQ(chip_read(chip, reg, chip.clock), command);
    EXPECT_EQ(chip_read(chip, reg, chip.clock + 1ms), command & 0x7FFFFFFF);

    const chip_time_t before = chip.clock;
    EXPECT_EQ(run(chip, {op_wait(reg, 0x80000000, 0)}), 0);
    EXPECT_EQ(chip_read(chip, reg, chip.clock), command & 0x7FFFFFFF);
    EXPECT_GT(chip.clock - before, 10us) << "the wait must have waited";
}

TEST_P(chip_busy, a_command_written_too_early_is_lost)
{
    chip_t chip;
    const auto [name, reg, command] = GetParam();
    EXPECT_EQ(run(chip, {op_write(reg, command), op_write(reg, command)}), 0);
    EXPECT_EQ(chip.lost_commands, 1u);
    EXPECT_EQ(run(chip, {op_wait(reg, 0x80000000, 0), op_write(reg, command)}), 0);
    EXPECT_EQ(chip.lost_commands, 1u);
}

TEST_P(chip_busy, without_the_start_bit_nothing_starts)
{
    chip_t chip;
    const auto [name, reg, command] = GetParam();
    EXPECT_EQ(run(chip, {op_write(reg, command & 0x7FFFFFFF)}), 0);
    EXPECT_EQ(chip_read(chip, reg, chip.clock), command & 0x7FFFFFFF);
    EXPECT_EQ(run(chip, {op_write(reg, command)}), 0);
    EXPECT_EQ(chip.lost_commands, 0u);
}

INSTANTIATE_TEST_SUITE_P(tables, chip_busy,
                         testing::Values(command_register_t{"address", 0x60C, 0x80000004},
                                         command_register_t{"rule", 0x400, 0x80000125}),
                         [](const auto &row) { return row.param.name; });

TEST(chip_addresses, deleting_all_keeps_static_entries)
{
    chip_t chip;
    EXPECT_EQ(trap(chip, 0x20022), 0);
    address_learn(chip.addresses, station_a, 1, 0us);
    address_learn(chip.addresses, station_b, 2, 0us);
    EXPECT_EQ(address_command_run(chip, 0x04), 0);
    EXPECT_TRUE(chip.addresses.learned.empty());
    EXPECT_TRUE(chip.addresses.trapped.contains(bridge_group));
}

TEST(chip_addresses, flushing_one_port_keeps_the_others)
{
    chip_t chip;
    address_learn(chip.addresses, station_a, 5, 0us);
    address_learn(chip.addresses, station_b, 6, 0us);
    EXPECT_EQ(address_command_run(chip, 0x05 | 6 << 8), 0);
    EXPECT_EQ(address_find(chip.addresses, station_a, 0us), 5u);
    EXPECT_EQ(address_find(chip.addresses, station_b, 0us), std::nullopt);
}

TEST(chip_addresses, the_trap_entry_is_installed_and_removed)
{
    chip_t chip;
    EXPECT_EQ(trap(chip, 0x20022), 0);
    ASSERT_EQ(chip.addresses.trapped.size(), 1u);
    EXPECT_TRUE(chip.addresses.trapped.contains(bridge_group));
    EXPECT_EQ(trap(chip, 0x20022), 0);
    EXPECT_EQ(chip.addresses.trapped.size(), 1u);
    EXPECT_EQ(trap(chip, 0x20023), 0);
    EXPECT_TRUE(chip.addresses.trapped.empty());
}

TEST(chip_addresses, removing_one_static_entry_keeps_another)
{
    chip_t chip;
    EXPECT_EQ(trap(chip, 0x20022), 0);
    EXPECT_EQ(run(chip, {op_wait(0x60C, 0x80000000, 0), op_write(0x600, 0xC200000E), op_write(0x60C, 0x80020023)}), 0);
    EXPECT_TRUE(chip.addresses.trapped.contains(bridge_group));
}

TEST(chip_addresses, an_entry_ages_after_300_seconds_of_silence)
{
    chip_t chip;
    address_learn(chip.addresses, station_a, 1, 10s);
    EXPECT_EQ(address_find(chip.addresses, station_a, 309s), 1u);
    EXPECT_EQ(address_find(chip.addresses, station_a, 310s), std::nullopt);
    address_age(chip.addresses, 309s);
    EXPECT_EQ(chip.addresses.learned.size(), 1u);
    address_learn(chip.addresses, station_a, 1, 309s);
    address_age(chip.addresses, 310s);
    EXPECT_EQ(address_find(chip.addresses, station_a, 608s), 1u);
    address_age(chip.addresses, 609s);
    EXPECT_TRUE(chip.addresses.learned.empty());
}

TEST(chip_addresses, a_full_table_learns_again_once_entries_have_aged)
{
    address_table_t table;
    mac_t station = {2, 1};
    for (unsigned i = 0; i < ADDRESSES_MAX; i++) {
        station[4] = static_cast<std::uint8_t>(i >> 8);
        station[5] = static_cast<std::uint8_t>(i);
        address_learn(table, station, 1, 0us);
    }
    address_learn(table, station_a, 2, 1s);
    EXPECT_EQ(address_find(table, station_a, 1s), std::nullopt);
    EXPECT_EQ(table.learned.size(), ADDRESSES_MAX);
    address_learn(table, {2, 1, 0, 0, 0, 0}, 3, 1s);
    EXPECT_EQ(address_find(table, {2, 1, 0, 0, 0, 0}, 1s), 3u) << "a known address may still move";
    address_learn(table, station_a, 2, 300s);
    EXPECT_EQ(address_find(table, station_a, 300s), 2u);
}

TEST(chip_addresses, group_addresses_are_not_learned)
{
    address_table_t table;
    address_learn(table, bridge_group, 1, 0us);
    EXPECT_TRUE(table.learned.empty());
}

TEST(chip_rules, parts_are_kept_apart_per_entry)
{
    chip_t chip;
    const auto write_part = [&](std::uint32_t command, std::uint32_t first) {
        return run(chip, {op_wait(0x400, 0x80000000, 0), op_write(0x404, first), op_write(0x408, first + 1),
                          op_write(0x40C, first + 2), op_write(0x410, first + 3), op_write(0x414, first + 4),
                          op_write(0x400, 0x80000000 | command)});
    };
    EXPECT_EQ(write_part(37, 10), 0);
    EXPECT_EQ(write_part(0x100 | 37, 20), 0);
    EXPECT_EQ(write_part(0x200 | 37, 30), 0);
    EXPECT_EQ(write_part(42, 40), 0);
    EXPECT_EQ(write_part(0x300 | 42, 50), 0);

    const rule_words_t none = {};
    EXPECT_EQ(chip.rules[37].parts[0], (rule_words_t{10, 11, 12, 13, 14}));
    EXPECT_EQ(chip.rules[37].parts[1], (rule_words_t{20, 21, 22, 23, 24}));
    EXPECT_EQ(chip.rules[37].parts[2], (rule_words_t{30, 31, 32, 33, 34}));
    EXPECT_EQ(chip.rules[42].parts[0], (rule_words_t{40, 41, 42, 43, 44}));
    EXPECT_EQ(chip.rules[42].parts[1], none);
    EXPECT_EQ(chip.rules[42].parts[2], none);
    EXPECT_EQ(chip.rules[36].parts[0], none);
}

TEST(chip_rules, the_last_entry_is_127)
{
    chip_t chip;
    EXPECT_EQ(run(chip, {op_write(0x404, 99), op_write(0x400, 0x80000000 | 127)}), 0);
    EXPECT_EQ(chip.rules[127].parts[0][0], 99u);
}

} // namespace
