// Two switches joined by two cables that are one: how the group speaks, and what it carries.
#include "group_net.h"
#include "tools/hex.h"
#include "tree_speaker.h"
#include "tree_traffic.h"

#include <map>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

using namespace lab;

namespace {

/// Ports 1 and 2 of both switches are group 7; a host is at port 6 of each.
class group_pair : public group_test_t {
protected:
    void SetUp() override
    {
        a = &add_group_bridge(4096, port_configs({1, 2}, {6}));
        b = &add_group_bridge(8192, port_configs({1, 2}, {6}));
        left = std::make_unique<station_t>(add_host(*a, 6).node());
        right = std::make_unique<station_t>(add_host(*b, 6).node());
        for (const unsigned port : {1u, 2u})
            for (const switch_t *device : {a, b})
                device->client().set_speed(port, 1000);
        first = &connect(*a, 1, *b, 1);
        second = &connect(*a, 2, *b, 2);
        for (const switch_t *device : {a, b}) {
            ASSERT_TRUE(eventually(
                AT_ONCE, [&] { return links(*device); }, testing::Each(true)));
            report(*device, groups({7, 7}));
        }
        ASSERT_TRUE(becomes(*b, "6 designated forwards, 7 root forwards", BY_TIMERS));
        expect_tables_agree(*b);
    }

    static std::array<bool, 2> links(const switch_t &device)
    {
        return {device.client().port(1).link, device.client().port(2).link};
    }

    switch_t *a, *b;
    std::unique_ptr<station_t> left, right;
    const cable_t *first, *second;
};

TEST_F(group_pair, speaks_by_its_first_member_and_hears_by_all)
{
    const listener_t at_first(b->node(), "port1");
    const listener_t at_second(b->node(), "port2");
    const bridge_status_t a_before = status_of(*a), b_before = status_of(*b);
    ASSERT_TRUE(eventually(
        6s, [&] { return at_first.count(is_rst); }, Ge(3)));
    EXPECT_EQ(at_second.heard().size(), 0u);

    const bpdu_t bpdu = at_first.heard().back().bpdu;
    EXPECT_EQ(address_text(bpdu.source), a->node().mac(1));
    EXPECT_EQ(bpdu_get16(bpdu.port_id), 128 << 8 | 7);

    ASSERT_TRUE(eventually(
        AT_ONCE, [&] { return status_of(*a).port(1).sent.rstp; }, Ge(a_before.port(1).sent.rstp + 2)));
    const bridge_status_t a_after = status_of(*a), b_after = status_of(*b);
    EXPECT_EQ(a_after.port(2).sent.all(), a_before.port(2).sent.all());
    EXPECT_EQ(a_after.port(7).sent.all(), 0u);
    EXPECT_GE(b_after.port(7).received.rstp, b_before.port(7).received.rstp + 2);
    EXPECT_EQ(b_after.port(1).received.all(), b_before.port(1).received.all());
    EXPECT_EQ(b_after.port(2).received.all(), b_before.port(2).received.all());

    EXPECT_EQ(b_after.root_port, 7);
    EXPECT_EQ(b_after.port(7).path_cost, 10000u); // 2 x 1000 Mbit/s
    EXPECT_TRUE(b_after.port(7).point_to_point);
    for (const int port : {1, 2})
        EXPECT_EQ(b_after.port(port).group, 7);
}

TEST_F(group_pair, carries_every_flow_once_and_in_order)
{
    ASSERT_TRUE(becomes(*a, "6 designated forwards, 7 designated forwards", BY_TIMERS));
    expect_tables_agree(*a);

    constexpr uint32_t FLOWS = 8, ROUNDS = 50, BURST = 10;
    std::vector<std::string> sources;
    for (uint32_t flow = 0; flow < FLOWS; flow++)
        sources.push_back(fmt::format("02:f0:00:00:00:{:02x}", flow));

    const auto received_at = [&](int port) {
        const auto ports = b->client().show("counters").at("ports");
        return ports.at(static_cast<size_t>(port) - 1).at("received").get<int>();
    };
    const auto carry = [&](uint32_t from, const std::string &to) {
        for (uint32_t round = 0; round < ROUNDS; round += BURST) {
            for (uint32_t i = 0; i < BURST; i++)
                for (const std::string &source : sources)
                    left->send(source, to, from + round + i);
            const uint32_t last = from + round + BURST - 1;
            const auto arrived = [&] {
                return std::ranges::count_if(
                    sources, [&](const std::string &source) { return right->times_received(source, last) > 0; });
            };
            ASSERT_TRUE(eventually(5s, arrived, sources.size())) << "frame " << last << " to " << to;
        }
    };

    const int first_before = received_at(1), second_before = received_at(2);
    carry(1000, EVERYBODY);
    carry(2000, "02:0f:ff:00:00:01"); // nobody knows where that is
    // The return way, so that the switches learn where the answers go.
    right->send(right->mac(), EVERYBODY, 1);
    ASSERT_TRUE(eventually(
        5s, [&] { return left->times_received(right->mac(), 1); }, 1));
    carry(3000, right->mac());
    EXPECT_GT(received_at(1) - first_before, 100);
    EXPECT_GT(received_at(2) - second_before, 100);

    // A member goes; the flows go on by the other one, and the tree notices nothing.
    const double mark_a = now_of(*a);
    second->pull();
    for (const switch_t *device : {a, b})
        ASSERT_TRUE(eventually(
            AT_ONCE, [&] { return links(*device); }, testing::ElementsAre(true, false)));
    carry(4000, right->mac());
    second->plug();
    for (const switch_t *device : {a, b})
        ASSERT_TRUE(eventually(
            AT_ONCE, [&] { return links(*device); }, testing::Each(true)));
    carry(5000, right->mac());
    EXPECT_TRUE(e2e::ticks(*a, 2));
    EXPECT_EQ(ports_text(*a), "6 designated forwards, 7 designated forwards");
    for (const int state : {HW_DISABLED, HW_DISCARDING, HW_LEARNING, HW_FORWARDING})
        EXPECT_TRUE(times_of_state(*a, 1, state, mark_a).empty()) << state;

    // Once and in order, each flow.
    std::map<std::string, uint32_t> latest;
    std::map<std::string, size_t> count;
    for (const numbered_frame_t &frame : right->received()) {
        EXPECT_GT(frame.number, latest[frame.from]) << frame.from;
        latest[frame.from] = frame.number;
        count[frame.from]++;
    }
    for (const std::string &source : sources)
        EXPECT_EQ(count[source], 5 * ROUNDS);
    // Nothing came back.
    EXPECT_EQ(left->received().size(), 1u);
}

} // namespace
