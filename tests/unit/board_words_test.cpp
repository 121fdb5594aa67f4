// Register operations of the simulated board in words.
#include <gtest/gtest.h>

#include "board_chip.h"

namespace {

struct words_row_t {
    mdio_op_t op;
    const char *words;
};

std::ostream &operator<<(std::ostream &out, const words_row_t &row) { return out << row.words; }

class chip_words : public testing::TestWithParam<words_row_t> {};

TEST_P(chip_words, say_what_an_operation_does)
{
    chip_t chip;
    ASSERT_EQ(
        run(chip, {op_write(0x600, 0xC2000000), op_write(0x604, 0x00800180), op_write(0x608, 0x12F),
                   op_write(0x404, 0xC2000000), op_write(0x408, 0x0102180), op_write(0x40C, 3), op_write(0x414, 201)}),
        0);
    EXPECT_EQ(chip_describe(chip, GetParam().op), GetParam().words);
}

INSTANTIATE_TEST_SUITE_P(
    operations, chip_words,
    testing::Values(
        words_row_t{op_modify(0x684, 0x70000, 0x40000), "port 3 (chip 3): state 4 forwarding"},
        words_row_t{op_modify(0x6A8, 0x70000, 0x10000), "port 5 (chip 6): state 1 discarding"},
        words_row_t{op_modify(0x69C, 0x70000, 0x00000), "port 6 (chip 5): state 0 disabled"},
        words_row_t{op_modify(0x66C, 0x70000, 0x30000), "port 1 (chip 1): state 3 learning"},
        words_row_t{op_modify(0x66C, 0x70000, 0x50000), "port 1 (chip 1): state 5 forwarding (no spanning tree)"},
        words_row_t{op_modify(0x66C, 0x70000, 0x70000), "port 1 (chip 1): state 7 unknown"},
        words_row_t{op_modify(0x660, 0x70000, 0x40000), "CPU port: state 4 forwarding"},
        words_row_t{op_modify(0x66C, 0x30000, 0x30000), "register 0x66c, bits 00030000 = 00030000"},
        words_row_t{op_write(0x66C, 0x00040001), "port 1 (chip 1): control 00040001, state 4 forwarding"},
        words_row_t{op_wait(0x60C, 0x80000000, 0), "address table: wait until idle"},
        words_row_t{op_wait(0x400, 0x80000000, 0), "rule table: wait until idle"},
        words_row_t{op_wait(0x700, 0x3, 0x1), "register 0x700: wait until bits 00000003 are 00000001"},
        words_row_t{op_write(0x60C, 0x80000004), "address table: delete all learned"},
        words_row_t{op_write(0x60C, 0x80000605), "address table: flush port 5 (chip 6)"},
        words_row_t{op_write(0x60C, 0x80000905), "address table: flush no port (chip 9)"},
        words_row_t{op_write(0x60C, 0x80020022), "address table: trap 01:80:c2:00:00:00 to the CPU"},
        words_row_t{op_write(0x60C, 0x80020023), "address table: no longer trap 01:80:c2:00:00:00"},
        words_row_t{op_write(0x60C, 0x80000099), "address table: unknown command 0x80000099"},
        words_row_t{op_write(0x604, 0x00800180), "address table: data word 1 = 00800180"},
        words_row_t{op_write(0x400, 0x80000025), "rule 37: write pattern c2000000 00102180 00000003 00000000 000000c9"},
        words_row_t{op_write(0x400, 0x8000012A), "rule 42: write mask c2000000 00102180 00000003 00000000 000000c9"},
        words_row_t{op_write(0x400, 0x80000225), "rule 37: write action c2000000 00102180 00000003 00000000 000000c9"},
        words_row_t{op_write(0x414, 201), "rule table: data word 4 = 000000c9"},
        words_row_t{op_write(0x123, 0x45), "register 0x123 = 00000045"},
        words_row_t{{12, 0x123, 0, 0}, "unknown operation 12"}));

TEST(chip_steps, tell_each_operation_as_it_was_when_it_ran)
{
    chip_t chip;
    std::vector<chip_step_t> steps;
    ASSERT_EQ(trap(chip, 0x20022), 0);
    ASSERT_EQ(
        run(chip, {op_write(0x600, 0xC2000001), op_wait(0x60C, 0x80000000, 0), op_write(0x60C, 0x80020022)}, &steps),
        0);
    ASSERT_EQ(steps.size(), 3u);
    EXPECT_EQ(steps[0].words, "address table: data word 0 = c2000001");
    EXPECT_EQ(steps[1].words, "address table: wait until idle");
    EXPECT_EQ(steps[2].words, "address table: trap 01:80:c2:00:00:01 to the CPU");
    EXPECT_EQ(steps[2].op.value, 0x80020022u);
    EXPECT_TRUE(steps[2].done);
}

} // namespace
