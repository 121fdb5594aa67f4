// Bridge identifiers, priority vectors and timer values.
#include "engine_world.h"

#include <cstring>

namespace {

constexpr prio_vector_t middle = {id_of(8192, 5), 1000, id_of(16384, 6), 0x8003, 0x8004};

// ---- bridge identifiers -----------------------------------------------------------------

TEST(bridge_id, equal_only_when_priority_and_every_octet_are)
{
    const bridge_id_t id = {32768, {1, 2, 3, 4, 5, 6}};
    bridge_id_t other = id;
    EXPECT_EQ(STP_VECT_eq_bridge_id(&id, &other), 1);

    other.prio = 32769;
    EXPECT_EQ(STP_VECT_eq_bridge_id(&id, &other), 0);
    for (size_t octet = 0; octet < 6; octet++) {
        other = id;
        other.addr[octet] ^= 0x80;
        EXPECT_EQ(STP_VECT_eq_bridge_id(&id, &other), 0) << "octet " << octet;
    }
}

// ---- priority vectors -------------------------------------------------------------------

TEST(vector, is_made_of_its_five_parts)
{
    prio_vector_t vector;
    const bridge_id_t root = id_of(1, 2);
    const bridge_id_t design = id_of(3, 4);
    STP_VECT_create(&vector, &root, 0xFFFFFFFF, &design, 0x12345678, 0x9ABCDEF0);
    EXPECT_TRUE(STP_VECT_eq_bridge_id(&vector.root_bridge, &root));
    EXPECT_EQ(vector.root_path_cost, 0xFFFFFFFFu);
    EXPECT_TRUE(STP_VECT_eq_bridge_id(&vector.design_bridge, &design));
    EXPECT_EQ(vector.design_port, 0x12345678u);
    EXPECT_EQ(vector.bridge_port, 0x9ABCDEF0u);
}

struct order_row_t {
    const char *label;
    prio_vector_t better;
    prio_vector_t worse;
};

std::ostream &operator<<(std::ostream &out, const order_row_t &row) { return out << row.label; }

/// `middle` with one part changed.
template <typename part_t>
constexpr prio_vector_t with(part_t prio_vector_t::*part, part_t value)
{
    prio_vector_t vector = middle;
    vector.*part = value;
    return vector;
}

constexpr prio_vector_t vector_of(uint16_t root, uint32_t cost, uint16_t bridge, uint32_t port, uint32_t own)
{
    return {id_of(root, 1), cost, id_of(bridge, 1), port, own};
}

constexpr bridge_id_t first_octet(uint8_t value) { return {8192, {value, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}}; }

const order_row_t order_rows[] = {
    {"root priority", with(&prio_vector_t::root_bridge, id_of(8191, 9)), middle},
    {"root priority is a number, not octets", with(&prio_vector_t::root_bridge, id_of(0x00FF, 5)),
     with(&prio_vector_t::root_bridge, id_of(0x0100, 5))},
    {"root priority of all ones is the worst", middle, with(&prio_vector_t::root_bridge, id_of(0xFFFF, 5))},
    {"root address", with(&prio_vector_t::root_bridge, id_of(8192, 4)), middle},
    {"first octets of an address weigh most", with(&prio_vector_t::root_bridge, first_octet(1)),
     with(&prio_vector_t::root_bridge, bridge_id_t{8192, {2, 0, 0, 0, 0, 0}})},
    {"octets have no sign", with(&prio_vector_t::root_bridge, first_octet(0x7F)),
     with(&prio_vector_t::root_bridge, first_octet(0x80))},
    {"path cost", with(&prio_vector_t::root_path_cost, 999u), middle},
    {"path cost has no sign", middle, with(&prio_vector_t::root_path_cost, 0x80000000u)},
    {"designated priority", with(&prio_vector_t::design_bridge, id_of(16383, 9)), middle},
    {"designated address", with(&prio_vector_t::design_bridge, id_of(16384, 5)), middle},
    {"designated port", with(&prio_vector_t::design_port, 0x8002u), middle},
    {"designated port has no sign", middle, with(&prio_vector_t::design_port, 0x80000000u)},
    {"own port", with(&prio_vector_t::bridge_port, 0x8003u), middle},
    {"own port has no sign", middle, with(&prio_vector_t::bridge_port, 0x80000000u)},
    {"root before cost", vector_of(1, 9, 9, 9, 9), vector_of(2, 1, 1, 1, 1)},
    {"cost before designated bridge", vector_of(1, 1, 9, 9, 9), vector_of(1, 2, 1, 1, 1)},
    {"designated bridge before its port", vector_of(1, 1, 1, 9, 9), vector_of(1, 1, 2, 1, 1)},
    {"designated port before own port", vector_of(1, 1, 1, 1, 9), vector_of(1, 1, 1, 2, 1)},
};

class vector_order : public testing::TestWithParam<order_row_t> {};

TEST_P(vector_order, decides)
{
    const order_row_t &row = GetParam();
    EXPECT_EQ(STP_VECT_compare_vector(&row.better, &row.worse), 1);
    EXPECT_EQ(STP_VECT_compare_vector(&row.worse, &row.better), 2);
    EXPECT_EQ(STP_VECT_eq_vector(&row.better, &row.worse), 0);
    EXPECT_EQ(STP_VECT_eq_vector(&row.worse, &row.better), 0);
}

INSTANTIATE_TEST_SUITE_P(by, vector_order, testing::ValuesIn(order_rows), label_of<order_row_t>);

TEST(vector, equals_its_copy)
{
    const prio_vector_t copy = middle;
    EXPECT_EQ(STP_VECT_compare_vector(&middle, &copy), 0);
    EXPECT_EQ(STP_VECT_eq_vector(&middle, &copy), 1);
}

// ---- BPDU form --------------------------------------------------------------------------

octets_t octets_of(const bpdu_t &bpdu, size_t first, size_t count)
{
    const auto *start = reinterpret_cast<const uint8_t *>(&bpdu) + first;
    return octets_t(start, start + count);
}

TEST(vector, lies_big_endian_at_octets_22_to_43)
{
    bpdu_t bpdu;
    memset(&bpdu, 0xEE, sizeof bpdu);
    const prio_vector_t vector = {
        {0x1234, {1, 2, 3, 4, 5, 6}}, 0xA1B2C3D4, {0x5678, {7, 8, 9, 10, 11, 12}}, 0x8102, 0xFFFF};
    STP_VECT_set_vector(&vector, &bpdu);
    EXPECT_EQ(hex(octets_of(bpdu, 22, 22)), "12 34 01 02 03 04 05 06 a1 b2 c3 d4 56 78 07 08 09 0a 0b 0c 81 02");
    EXPECT_EQ(octets_of(bpdu, 0, 22), octets_t(22, 0xEE)) << "before the vector";
    EXPECT_EQ(octets_of(bpdu, 44, 9), octets_t(9, 0xEE)) << "behind the vector";
}

TEST(vector, writes_the_low_16_bits_of_the_designated_port)
{
    bpdu_t bpdu = {};
    const prio_vector_t vector = with(&prio_vector_t::design_port, 0xABCD8102u);
    STP_VECT_set_vector(&vector, &bpdu);
    EXPECT_EQ(hex(octets_of(bpdu, 42, 4)), "81 02 00 00");
}

TEST(vector, is_read_as_it_was_written_but_for_the_own_port)
{
    bpdu_t bpdu = {};
    prio_vector_t vector;
    memset(&vector, 0xEE, sizeof vector);
    STP_VECT_set_vector(&middle, &bpdu);
    STP_VECT_get_vector(&bpdu, &vector);
    EXPECT_EQ(vector.bridge_port, 0xEEEEEEEEu) << "not carried in a BPDU";
    vector.bridge_port = middle.bridge_port;
    EXPECT_TRUE(STP_VECT_eq_vector(&vector, &middle));
}

TEST(vector, reads_a_designated_port_without_sign)
{
    const octets_t frame = frame_of({.port_id = 0x8001});
    prio_vector_t vector;
    STP_VECT_get_vector(reinterpret_cast<const bpdu_t *>(frame.data()), &vector);
    EXPECT_EQ(vector.design_port, 32769u);
}

// ---- timer values -----------------------------------------------------------------------

TEST(times, lie_at_octets_44_to_51_with_hello_before_forward_delay)
{
    bpdu_t bpdu;
    memset(&bpdu, 0xEE, sizeof bpdu);
    const timevalues_t times = {.MessageAge = 1, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 2};
    STP_set_times(&times, &bpdu);
    EXPECT_EQ(hex(octets_of(bpdu, 44, 8)), "01 00 14 00 02 00 0f 00");
    EXPECT_EQ(octets_of(bpdu, 0, 44), octets_t(44, 0xEE)) << "before the times";
    EXPECT_EQ(octets_of(bpdu, 52, 1), octets_t(1, 0xEE)) << "behind the times";
}

TEST(times, are_read_as_they_were_written)
{
    bpdu_t bpdu = {};
    const timevalues_t times = {.MessageAge = 0, .MaxAge = 255, .ForwardDelay = 254, .HelloTime = 253};
    timevalues_t read = {9, 9, 9, 9};
    STP_set_times(&times, &bpdu);
    STP_get_times(&bpdu, &read);
    EXPECT_TRUE(STP_eq_times(&times, &read));
    EXPECT_EQ(read.ForwardDelay, 254);
    EXPECT_EQ(read.HelloTime, 253);
}

TEST(times, fractions_are_dropped)
{
    octets_t frame = frame_of({.times = {.MessageAge = 2, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 2}});
    for (const size_t fraction : {45, 47, 49, 51})
        frame[fraction] = 128;
    timevalues_t read;
    STP_get_times(reinterpret_cast<const bpdu_t *>(frame.data()), &read);
    const timevalues_t whole = {.MessageAge = 2, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 2};
    EXPECT_TRUE(STP_eq_times(&read, &whole));
}

TEST(times, differ_when_any_of_the_four_does)
{
    const timevalues_t times = {1, 2, 3, 4};
    const timevalues_t others[] = {{0, 2, 3, 4}, {1, 0, 3, 4}, {1, 2, 0, 4}, {1, 2, 3, 0}};
    EXPECT_EQ(STP_eq_times(&times, &times), 1);
    for (const timevalues_t &other : others)
        EXPECT_EQ(STP_eq_times(&times, &other), 0);
}

} // namespace
