// Where the simulated switch chip sends frames.
#include <gtest/gtest.h>

#include <bit>
#include <numeric>

#include "board_chip.h"

namespace {

using namespace std::chrono_literals;

constexpr mac_t host_a = {0x02, 0, 0, 0, 0, 0x0A};
constexpr mac_t host_b = {0x02, 0, 0, 0, 0, 0x0B};
constexpr mac_t broadcast = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

using frame_t = std::vector<std::uint8_t>;

frame_t frame(const mac_t &to, const mac_t &from)
{
    frame_t octets(60);
    std::copy(to.begin(), to.end(), octets.begin());
    std::copy(from.begin(), from.end(), octets.begin() + 6);
    octets[12] = 0x08;
    return octets;
}

frame_t tagged_frame(std::uint8_t last_octet)
{
    frame_t octets(64);
    std::iota(octets.begin(), octets.end(), std::uint8_t{0});
    octets[12] = 0x88;
    octets[13] = 0x99;
    octets[14] = 0x84;
    octets[15] = last_octet;
    return octets;
}

constexpr std::uint8_t bits(std::initializer_list<unsigned> ports)
{
    unsigned all = 0;
    for (const unsigned port : ports)
        all |= 1u << port;
    return static_cast<std::uint8_t>(all);
}

/// A chip with link on every port, all of them in `state`.
chip_t chip_in_state(std::uint32_t state)
{
    chip_t chip;
    for (unsigned port = 1; port < CHIP_PORTS; port++) {
        chip_link_set(chip, port, true);
        EXPECT_EQ(set_state(chip, port, state), 0);
    }
    return chip;
}

// ---- states ----------------------------------------------------------------------------

struct state_row_t {
    std::uint32_t state;
    bool traps, learns, lets_in, lets_out, cpu_sends;
};

std::ostream &operator<<(std::ostream &out, const state_row_t &row) { return out << "state " << row.state; }

class chip_state : public testing::TestWithParam<state_row_t> {};

TEST_P(chip_state, decides_what_a_port_does)
{
    const state_row_t row = GetParam();
    chip_t chip = chip_in_state(4);
    ASSERT_EQ(trap(chip, 0x20022), 0);
    ASSERT_EQ(set_state(chip, 2, row.state), 0);

    EXPECT_EQ(chip_receive(chip, 2, frame(bridge_group, host_b), 0us).trapped, row.traps);

    const chip_verdict_t in = chip_receive(chip, 2, frame(broadcast, host_a), 0us);
    EXPECT_EQ(in.ports, row.lets_in ? bits({1, 3, 4, 5, 6}) : 0);
    EXPECT_EQ(in.drop, row.lets_in ? chip_drop_t::none : chip_drop_t::state);
    EXPECT_EQ(address_find(chip.addresses, host_a, 0us).has_value(), row.learns);

    const chip_verdict_t out = chip_receive(chip, 1, frame(broadcast, host_b), 0us);
    EXPECT_EQ(out.ports, row.lets_out ? bits({2, 3, 4, 5, 6}) : bits({3, 4, 5, 6}));

    EXPECT_EQ(chip_receive_from_cpu(chip, tagged_frame(0x80 | 1 << 2)).ports, row.cpu_sends ? bits({2}) : 0);
}

INSTANTIATE_TEST_SUITE_P(
    codes, chip_state,
    testing::Values(state_row_t{0, false, false, false, false, false}, state_row_t{1, true, false, false, false, true},
                    state_row_t{2, true, false, false, false, true}, state_row_t{3, true, true, false, false, true},
                    state_row_t{4, true, true, true, true, true}, state_row_t{5, true, true, true, true, true},
                    state_row_t{6, true, false, false, false, true}, state_row_t{7, true, false, false, false, true}),
    [](const auto &row) { return std::to_string(row.param.state); });

// ---- learning and forwarding -------------------------------------------------------------

TEST(chip_forwarding, a_fresh_chip_passes_nothing)
{
    chip_t chip;
    for (unsigned port = 1; port < CHIP_PORTS; port++)
        chip_link_set(chip, port, true);
    EXPECT_EQ(chip_receive(chip, 1, frame(broadcast, host_a), 0us).drop, chip_drop_t::state);
}

TEST(chip_forwarding, an_unknown_address_is_flooded_but_not_back)
{
    chip_t chip = chip_in_state(4);
    EXPECT_EQ(chip_receive(chip, 3, frame(host_b, host_a), 0us).ports, bits({1, 2, 4, 5, 6}));
}

TEST(chip_forwarding, a_known_address_gets_its_frames_alone)
{
    chip_t chip = chip_in_state(5);
    chip_receive(chip, 1, frame(broadcast, host_a), 0us);
    EXPECT_EQ(chip_receive(chip, 6, frame(host_a, host_b), 0us).ports, bits({1}));
    EXPECT_EQ(chip_receive(chip, 1, frame(host_b, host_a), 0us).ports, bits({6}));
}

TEST(chip_forwarding, a_frame_for_its_own_port_is_dropped)
{
    chip_t chip = chip_in_state(4);
    chip_receive(chip, 1, frame(broadcast, host_a), 0us);
    const chip_verdict_t verdict = chip_receive(chip, 1, frame(host_a, host_b), 0us);
    EXPECT_EQ(verdict.ports, 0);
    EXPECT_EQ(verdict.drop, chip_drop_t::nowhere);
}

TEST(chip_forwarding, an_address_moves_with_its_station)
{
    chip_t chip = chip_in_state(4);
    chip_receive(chip, 1, frame(broadcast, host_a), 0us);
    chip_receive(chip, 2, frame(broadcast, host_a), 1s);
    EXPECT_EQ(chip_receive(chip, 3, frame(host_a, host_b), 1s).ports, bits({2}));
}

TEST(chip_forwarding, an_aged_address_is_flooded_again)
{
    chip_t chip = chip_in_state(4);
    chip_receive(chip, 1, frame(broadcast, host_a), 0us);
    EXPECT_EQ(chip_receive(chip, 3, frame(host_a, host_b), 299s).ports, bits({1}));
    EXPECT_EQ(chip_receive(chip, 3, frame(host_a, host_b), 300s).ports, bits({1, 2, 4, 5, 6}));
}

TEST(chip_forwarding, a_known_address_behind_a_blocked_port_gets_nothing)
{
    chip_t chip = chip_in_state(4);
    chip_receive(chip, 1, frame(broadcast, host_a), 0us);
    ASSERT_EQ(set_state(chip, 1, 1), 0);
    EXPECT_EQ(chip_receive(chip, 3, frame(host_a, host_b), 0us).drop, chip_drop_t::nowhere);
}

TEST(chip_forwarding, ports_without_link_take_and_give_nothing)
{
    chip_t chip = chip_in_state(4);
    chip_link_set(chip, 2, false);
    EXPECT_EQ(chip_receive(chip, 1, frame(broadcast, host_a), 0us).ports, bits({3, 4, 5, 6}));
    EXPECT_EQ(chip_receive(chip, 2, frame(broadcast, host_b), 0us).drop, chip_drop_t::link_down);
    EXPECT_EQ(address_find(chip.addresses, host_b, 0us), std::nullopt);
    EXPECT_EQ(chip_receive_from_cpu(chip, tagged_frame(0x80 | 1 << 2)).drop, chip_drop_t::nowhere);
}

TEST(chip_forwarding, runts_are_dropped)
{
    chip_t chip = chip_in_state(4);
    const frame_t whole = frame(broadcast, host_a);
    for (const std::size_t octets : {0u, 6u, 13u})
        EXPECT_EQ(chip_receive(chip, 1, std::span(whole).first(octets), 0us).drop, chip_drop_t::runt);
    EXPECT_NE(chip_receive(chip, 1, std::span(whole).first(14), 0us).ports, 0);
}

TEST(chip_forwarding, frames_are_counted_where_they_come_and_go)
{
    chip_t chip = chip_in_state(4);
    ASSERT_EQ(trap(chip, 0x20022), 0);
    ASSERT_EQ(set_state(chip, 2, 1), 0);
    chip_receive(chip, 1, frame(broadcast, host_a), 0us);
    chip_receive(chip, 1, frame(bridge_group, host_a), 0us);
    chip_receive(chip, 2, frame(broadcast, host_b), 0us);
    EXPECT_EQ(chip.counters[1].received, 2u);
    EXPECT_EQ(chip.counters[1].trapped, 1u);
    EXPECT_EQ(chip.counters[1].dropped, 0u);
    EXPECT_EQ(chip.counters[2].dropped, 1u);
    EXPECT_EQ(chip.counters[2].sent, 0u);
    EXPECT_EQ(chip.counters[3].sent, 1u);
}

// ---- trap --------------------------------------------------------------------------------

TEST(chip_trap, without_its_entry_the_group_address_is_an_ordinary_multicast)
{
    chip_t chip = chip_in_state(4);
    const chip_verdict_t verdict = chip_receive(chip, 1, frame(bridge_group, host_a), 0us);
    EXPECT_FALSE(verdict.trapped);
    EXPECT_EQ(verdict.ports, bits({2, 3, 4, 5, 6}));
    ASSERT_EQ(set_state(chip, 1, 1), 0);
    EXPECT_EQ(chip_receive(chip, 1, frame(bridge_group, host_a), 0us).drop, chip_drop_t::state);
}

TEST(chip_trap, a_trapped_frame_goes_nowhere_else_and_teaches_nothing)
{
    chip_t chip = chip_in_state(4);
    ASSERT_EQ(trap(chip, 0x20022), 0);
    const chip_verdict_t verdict = chip_receive(chip, 1, frame(bridge_group, host_a), 0us);
    EXPECT_TRUE(verdict.trapped);
    EXPECT_EQ(verdict.ports, 0);
    EXPECT_EQ(address_find(chip.addresses, host_a, 0us), std::nullopt);
    ASSERT_EQ(trap(chip, 0x20023), 0);
    EXPECT_FALSE(chip_receive(chip, 1, frame(bridge_group, host_a), 0us).trapped);
}

TEST(chip_trap, neighbouring_group_addresses_are_not_trapped)
{
    chip_t chip = chip_in_state(4);
    ASSERT_EQ(trap(chip, 0x20022), 0);
    EXPECT_FALSE(chip_receive(chip, 1, frame({0x01, 0x80, 0xC2, 0, 0, 2}, host_a), 0us).trapped);
}

// ---- the CPU's frames ----------------------------------------------------------------------

TEST(chip_cpu, a_tag_names_chip_ports)
{
    chip_t chip = chip_in_state(1);
    EXPECT_EQ(chip_receive_from_cpu(chip, tagged_frame(0x82)).ports, bits({1}));
    EXPECT_EQ(chip_receive_from_cpu(chip, tagged_frame(0xC0)).ports, bits({6}));
    EXPECT_EQ(chip_receive_from_cpu(chip, tagged_frame(0xA2)).ports, bits({1, 5}));
    EXPECT_EQ(chip.cpu.tagged, 3u);
    EXPECT_EQ(chip.counters[1].sent, 2u);
}

TEST(chip_cpu, a_tag_without_a_port_that_can_send_is_undeliverable)
{
    chip_t chip = chip_in_state(1);
    EXPECT_EQ(chip_receive_from_cpu(chip, tagged_frame(0x80)).drop, chip_drop_t::nowhere);
    EXPECT_EQ(chip_receive_from_cpu(chip, tagged_frame(0x81)).drop, chip_drop_t::nowhere);
    EXPECT_EQ(chip.cpu.undeliverable, 2u);
}

TEST(chip_cpu, what_is_not_a_tag_is_dropped_and_counted)
{
    chip_t chip = chip_in_state(4);
    EXPECT_EQ(chip_receive_from_cpu(chip, frame(broadcast, host_a)).drop, chip_drop_t::untagged);
    EXPECT_EQ(chip_receive_from_cpu(chip, tagged_frame(0x02)).drop, chip_drop_t::untagged);
    const frame_t whole = tagged_frame(0x82);
    for (const std::size_t octets : {0u, 12u, 15u, 17u})
        EXPECT_EQ(chip_receive_from_cpu(chip, std::span(whole).first(octets)).drop, chip_drop_t::untagged);
    EXPECT_EQ(chip.cpu.untagged, 6u);
    EXPECT_EQ(chip.cpu.tagged, 0u);
}

TEST(chip_cpu, the_tag_comes_out_and_the_rest_closes_up)
{
    frame_t octets = tagged_frame(0x82);
    const auto left = chip_untag(octets);
    ASSERT_EQ(left.size(), 60u);
    for (std::size_t i = 0; i < left.size(); i++)
        EXPECT_EQ(left[i], i < 12 ? i : i + 4);
}

// ---- trunks --------------------------------------------------------------------------------

mac_t host(std::uint8_t number) { return {0x02, 0, 0, 0, 1, number}; }

/// Ports 1 and 2 are trunk 7, 3 and 4 trunk 8; 5 and 6 stand alone.
chip_t chip_with_trunks()
{
    chip_t chip = chip_in_state(4);
    chip_trunk_set(chip, 1, 7);
    chip_trunk_set(chip, 2, 7);
    chip_trunk_set(chip, 3, 8);
    chip_trunk_set(chip, 4, 8);
    return chip;
}

TEST(chip_trunk, a_flooded_frame_leaves_once_per_trunk)
{
    chip_t chip = chip_with_trunks();
    for (std::uint8_t i = 0; i < 16; i++) {
        const std::uint8_t ports = chip_receive(chip, 5, frame(broadcast, host(i)), 0us).ports;
        EXPECT_EQ(std::popcount(static_cast<unsigned>(ports & bits({1, 2}))), 1);
        EXPECT_EQ(std::popcount(static_cast<unsigned>(ports & bits({3, 4}))), 1);
        EXPECT_EQ(ports & bits({5, 6}), bits({6}));
    }
}

TEST(chip_trunk, a_frame_does_not_go_back_into_its_trunk)
{
    chip_t chip = chip_with_trunks();
    EXPECT_EQ(chip_receive(chip, 1, frame(broadcast, host_a), 0us).ports & bits({1, 2}), 0);
    EXPECT_EQ(chip_receive(chip, 2, frame(host_a, host_b), 0us).drop, chip_drop_t::nowhere);
}

TEST(chip_trunk, both_members_are_used_and_a_flow_keeps_to_one)
{
    chip_t chip = chip_with_trunks();
    chip_receive(chip, 2, frame(broadcast, host_a), 0us);
    std::uint8_t used = 0;
    for (std::uint8_t i = 0; i < 16; i++) {
        const std::uint8_t ports = chip_receive(chip, 5, frame(host_a, host(i)), 0us).ports;
        EXPECT_EQ(chip_receive(chip, 5, frame(host_a, host(i)), 1s).ports, ports);
        EXPECT_EQ(std::popcount(static_cast<unsigned>(ports)), 1);
        used |= ports;
    }
    EXPECT_EQ(used, bits({1, 2}));
}

TEST(chip_trunk, members_that_cannot_send_are_left_out)
{
    chip_t chip = chip_with_trunks();
    chip_receive(chip, 2, frame(broadcast, host_a), 0us);
    chip_link_set(chip, 2, false);
    ASSERT_EQ(set_state(chip, 3, 1), 0);
    for (std::uint8_t i = 0; i < 16; i++) {
        EXPECT_EQ(chip_receive(chip, 5, frame(host_a, host(i)), 0us).ports, bits({1}));
        EXPECT_EQ(chip_receive(chip, 5, frame(broadcast, host(i)), 0us).ports, bits({1, 4, 6}));
    }
    chip_link_set(chip, 1, false);
    EXPECT_EQ(chip_receive(chip, 5, frame(host_a, host_b), 0us).drop, chip_drop_t::nowhere);
}

TEST(chip_trunk, a_dissolved_trunk_leaves_single_ports)
{
    chip_t chip = chip_with_trunks();
    chip_trunk_set(chip, 1, 0);
    chip_trunk_set(chip, 2, 0);
    EXPECT_EQ(chip_receive(chip, 1, frame(broadcast, host_a), 0us).ports & bits({1, 2}), bits({2}));
}

} // namespace
