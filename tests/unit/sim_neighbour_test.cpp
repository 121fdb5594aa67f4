// One switch and neighbours played by the test: which language a port speaks, what it believes and for how
// long, what makes a designated port forward, and how long a topology change is told. Neighbours speak at half
// seconds, so that between two of their words there is one tick.
#include <algorithm>

#include <fmt/format.h>

#include "sim_net.h"
#include "tests/lies.h"
#include "tools/status_file.h"

namespace {

using namespace sim;

const told_t BETTER = root_bridge(0, 200);
const told_t WORSE = root_bridge(61440, 200); ///< than any switch of ours: never taken

/// Our switch, with neighbours at ports 1 and 2.
class sim_neighbour : public testing::Test {
protected:
    void start(uint16_t priority, const port_configs_t &configs)
    {
        ours = net.add_bridge(priority, configs);
        first = &net.add_neighbour(ours, 1);
        second = &net.add_neighbour(ours, 2);
        net.mark();
    }

    net_t net;
    node_id_t ours;
    neighbour_t *first, *second;
};

// ---- the language -----------------------------------------------------------------------------

TEST_F(sim_neighbour, language_follows_the_neighbour)
{
    start(4096, port_configs({1}));
    net.world.run_for(SECOND / 2);
    first->say(config_bpdu(WORSE));
    net.world.run_for(12 * SECOND);
    // The first tick sees the link; with the fourth the migration delay of three seconds has run out.
    EXPECT_EQ(net.sent(ours, 1, is_rst), "2 2 2.501 3.501");
    EXPECT_EQ(net.sent(ours, 1, is_config), "4.501 5.501 6.501 7.501 8.501 9.501 10.501 11.501");
    EXPECT_TRUE(net.status(ours, 1).stp_neigb);

    // The other way round.
    net.mark();
    first->say(rst_bpdu(WORSE));
    net.world.run_for(10 * SECOND);
    EXPECT_EQ(net.sent(ours, 1, is_config), "0.001");
    EXPECT_EQ(net.sent(ours, 1, is_rst), "1.001 2.001 3.001 4.001 5.001 6.001 7.001 8.001 9.001");
    EXPECT_FALSE(net.status(ours, 1).stp_neigb);

    // And back again; this time a notification is enough.
    first->be_silent();
    net.pass(5 * SECOND);
    first->say_once(tcn_bpdu());
    net.world.run_for(4 * SECOND);
    EXPECT_EQ(net.sent(ours, 1, is_rst), "0.001");
    EXPECT_EQ(net.sent(ours, 1, is_config), "1.5 2.5 3.5");
    EXPECT_TRUE(net.status(ours, 1).stp_neigb);
}

TEST_F(sim_neighbour, language_is_kept_until_the_third_tick_after_a_change)
{
    start(4096, port_configs({1}));
    net.pass(20 * SECOND + SECOND / 2);
    first->say_once(config_bpdu(WORSE)); // heard before the ticks at 0.5, 1.5 and 2.5
    net.world.run_for(SECOND);
    first->say_once(rst_bpdu(WORSE));
    net.world.run_for(SECOND);
    first->say_once(rst_bpdu(WORSE));
    net.world.run_for(4 * SECOND);
    first->say_once(rst_bpdu(WORSE));
    net.world.run_for(3 * SECOND);
    EXPECT_EQ(net.sent(ours, 1, is_config), "1.001 2.001 3.5 4.5 5.5 6.001") << "it was deaf for 1.001 and 2.001";
    EXPECT_EQ(net.sent(ours, 1, is_rst), "0.001 7.5 8.5");
}

// ---- what it believes, and for how long ---------------------------------------------------------

TEST_F(sim_neighbour, information_ages_out_after_three_hellos)
{
    start(4096, port_configs({1, 2}));
    net.world.run_for(SECOND / 2);
    first->say(rst_bpdu(BETTER));
    net.world.run_for(60 * SECOND);
    EXPECT_EQ(net.ports(ours), "1 root forwards, 2 designated forwards");
    EXPECT_EQ(net.roots(ours), "2 0/02:00:00:00:c8:00") << "as long as it speaks, it is believed";
    EXPECT_EQ(net.roles(ours, 1), "2 designated, 2.501 root");
    EXPECT_EQ(net.states(ours, 1), "2.501 learning, 2.501 forwarding");

    // Its last word is heard now. Three ticks pass, the fourth ends the pass that has seen it.
    net.mark();
    first->be_silent();
    net.world.run_for(8 * SECOND);
    EXPECT_EQ(net.roots(ours), "3.5 4096/02:00:00:00:01:00");
    EXPECT_EQ(net.roles(ours, 1), "4.5 designated");
    EXPECT_EQ(net.states(ours, 1), "");
    EXPECT_EQ(net.ports(ours), "1 designated forwards, 2 designated forwards");
    EXPECT_EQ(net.sent(ours, 1, [](const bpdu_t &bpdu) { return bpdu_get16(bpdu.root_priority) == 4096; }),
              "4.5 5.5 6.5 7.5");
}

TEST_F(sim_neighbour, information_that_is_nearly_too_old_ages_out_sooner)
{
    struct row_t {
        uint8_t age;
        const char *roots;
    };
    // One step more, of six at most, leaves so many seconds and three at most.
    constexpr row_t ROWS[] = {
        {0, "0.5 0/02:00:00:00:c8:00, 3.5 4096/02:00:00:00:01:00"},
        {1, "0.5 0/02:00:00:00:c8:00, 3.5 4096/02:00:00:00:01:00"},
        {2, "0.5 0/02:00:00:00:c8:00, 3.5 4096/02:00:00:00:01:00"},
        {3, "0.5 0/02:00:00:00:c8:00, 2.5 4096/02:00:00:00:01:00"},
        {4, "0.5 0/02:00:00:00:c8:00, 1.5 4096/02:00:00:00:01:00"},
        {5, ""},
        {6, ""},
        {255, ""},
    };
    start(4096, port_configs({1}));
    net.world.run_for(30 * SECOND + SECOND / 2);
    for (const row_t &row : ROWS) {
        told_t old = BETTER;
        old.times.MessageAge = row.age;
        net.mark();
        first->say_once(rst_bpdu(old));
        net.world.run_for(20 * SECOND);
        EXPECT_EQ(net.roots(ours), row.roots) << int{row.age};
        EXPECT_TRUE(net.is_root(ours)) << int{row.age};
    }
}

const told_t FOR_MINUTES =
    with_times(root_bridge(0, 200), {.MessageAge = 0, .MaxAge = 255, .ForwardDelay = 4, .HelloTime = 255});

TEST_F(sim_neighbour, longest_promise_is_kept_for_four_minutes)
{
    start(32768, port_configs({1}));
    net.pass(20 * SECOND + SECOND / 2);
    first->say_once(rst_bpdu(FOR_MINUTES));
    net.world.run_for(300 * SECOND);
    EXPECT_EQ(net.roots(ours), "0.5 0/02:00:00:00:c8:00, 240.5 32768/02:00:00:00:01:00");
}

TEST_F(sim_neighbour, cable_that_is_pulled_ends_the_longest_promise)
{
    start(32768, port_configs({1}));
    net.world.run_for(20 * SECOND + SECOND / 2);
    first->say_once(rst_bpdu(FOR_MINUTES));
    net.pass(100 * SECOND);
    EXPECT_FALSE(net.is_root(ours));
    EXPECT_EQ(net.bridge(ours).root_times.HelloTime, 255);

    net.world.pull(net.world.cable_at({ours, 1}));
    net.world.run_for(10 * SECOND);
    EXPECT_EQ(net.roots(ours), "1.5 32768/02:00:00:00:01:00");
    EXPECT_EQ(net.bridge(ours).root_times.HelloTime, HELLO_TIME);
    net.mark();
    net.world.plug(net.world.cable_at({ours, 1}));
    net.world.run_for(20 * SECOND);
    EXPECT_EQ(net.states(ours, 1), "6.5 learning, 10.5 forwarding");
    EXPECT_EQ(net.ports(ours), "1 designated forwards");
}

TEST_F(sim_neighbour, expired_information_is_not_believed)
{
    start(32768, port_configs({1, 2}));
    net.pass(30 * SECOND + SECOND / 2);
    told_t expired = root_bridge(0, 1);
    expired.times.MessageAge = MAX_AGE;
    first->say_once(rst_bpdu(expired));
    second->say_once(rst_bpdu(root_bridge(4096, 0x99)));
    net.world.run_for(20 * SECOND);
    EXPECT_EQ(net.roots(ours), "0.5 4096/02:00:00:00:99:00, 3.5 32768/02:00:00:00:01:00");
    EXPECT_EQ(net.status(ours, 1).rstp_frame_recvs, 1u);
}

// ---- agreements -------------------------------------------------------------------------------

struct agreement_t {
    const char *name;
    bool full_duplex;
    uint8_t point_to_point; ///< administrative: 0 true, 1 false, 2 from the duplex
    bool names_our_bridge;  ///< as designated bridge
    bool is_point_to_point;
    const char *states;
};

void PrintTo(const agreement_t &agreement, std::ostream *stream) { *stream << agreement.name; }

class sim_agreement : public testing::TestWithParam<agreement_t> {};

/// A designated port proposes. It forwards at once when the neighbour on a point-to-point link agrees
/// and names, as the designated bridge, the one that it agrees with; otherwise its timers decide.
TEST_P(sim_agreement, decides_how_fast_a_designated_port_forwards)
{
    port_configs_t configs = port_configs({1});
    configs[1].adminPointToPoint = GetParam().point_to_point;
    net_t net;
    const node_id_t ours = net.add_bridge(4096, configs);
    neighbour_t &neighbour = net.add_neighbour(ours, 1, 100, GetParam().full_duplex);
    net.mark();
    net.world.run_for(4 * SECOND + SECOND / 2);
    EXPECT_EQ(net.sent(ours, 1, [](const bpdu_t &bpdu) { return has_flag(bpdu, BPDU_FLAG_PROPOSAL); }), "4");

    const bridge_id_t us = net.bridge(ours).bridge;
    const told_t told = {.root = us,
                         .cost = 200000,
                         .bridge = GetParam().names_our_bridge ? us : made_up_bridge(32768, 200),
                         .times = SHORT_TIMES};
    neighbour.say_once(rst_bpdu(told, BPDU_FLAG_AGREEMENT, BPDU_ROLE_ROOT));
    net.world.run_for(20 * SECOND);
    EXPECT_EQ(net.states(ours, 1), GetParam().states);
    EXPECT_EQ(net.status(ours, 1).is_p2p, GetParam().is_point_to_point);
}

INSTANTIATE_TEST_SUITE_P(
    neighbours, sim_agreement,
    testing::Values(agreement_t{"full_duplex", true, 2, true, true, "5 learning, 5 forwarding"},
                    agreement_t{"half_duplex", false, 2, true, false, "7 learning, 11 forwarding"},
                    agreement_t{"half_duplex_forced", false, 0, true, true, "5 learning, 5 forwarding"},
                    agreement_t{"full_duplex_forbidden", true, 1, true, false, "7 learning, 11 forwarding"},
                    agreement_t{"other_bridge", true, 2, false, true, "7 learning, 11 forwarding"}),
    [](const auto &test) { return std::string(test.param.name); });

// ---- topology changes -------------------------------------------------------------------------

/// Our switch as root, with neighbours at ports 1 and 2 and a host at port 6 that it has learned.
class sim_topology : public sim_neighbour {
protected:
    void start(const bpdu_t &first_words, const bpdu_t &second_words)
    {
        sim_neighbour::start(4096, port_configs({1, 2}, {6}));
        host = &net.add_neighbour(ours, 6);
        net.world.run_for(SECOND / 2);
        first->say(first_words);
        second->say(second_words);
        net.world.run_for(39 * SECOND);
        ASSERT_EQ(net.ports(ours), "1 designated forwards, 2 designated forwards, 6 designated forwards");
    }

    void learn()
    {
        host->send_data();
        net.pass(SECOND);
        ASSERT_EQ(net.heard_at(ours, host->address()), 6u);
    }

    neighbour_t *host;
};

TEST_F(sim_topology, change_is_told_for_two_hellos_among_rstp_bridges)
{
    start(rst_bpdu(WORSE), rst_bpdu(WORSE));
    // Ports that began to forward have told it, and stopped.
    EXPECT_EQ(net.states(ours, 1), "4.501 learning, 8.501 forwarding");
    EXPECT_EQ(net.sent(ours, 1, tells_change), "8.501 9.501");
    EXPECT_EQ(net.sent(ours, 2, tells_change), "9.501");
    learn();

    first->say_once(rst_bpdu(WORSE, BPDU_FLAG_TC));
    net.world.run_for(20 * SECOND);
    EXPECT_EQ(net.flushes(ours), "0.5");
    EXPECT_EQ(net.sent(ours, 2, tells_change), "1.001 2.001");
    // Who told it is not told back, and an edge port has nobody to tell.
    EXPECT_EQ(net.sent(ours, 1, tells_change), "");
    EXPECT_EQ(net.sent(ours, 6, tells_change), "");
    EXPECT_EQ(net.heard_at(ours, host->address()), 0u);
}

TEST_F(sim_topology, what_is_no_change_flushes_nothing)
{
    start(rst_bpdu(WORSE), rst_bpdu(WORSE));
    learn();
    net.world.run_for(60 * SECOND);
    EXPECT_EQ(net.flushes(ours), "");
    EXPECT_EQ(net.heard_at(ours, host->address()), 6u);
}

TEST_F(sim_topology, notification_is_acknowledged)
{
    start(config_bpdu(WORSE), rst_bpdu(WORSE));
    EXPECT_TRUE(net.status(ours, 1).stp_neigb);
    EXPECT_EQ(net.sent(ours, 1, is_ack), "");
    EXPECT_EQ(net.sent(ours, 1, tells_change), "8.501 9.501 10.501 11.501 12.501 13.501 14.501 15.501 16.501 17.501");
    learn();

    first->say_once(tcn_bpdu());
    net.world.run_for(30 * SECOND);
    EXPECT_EQ(net.sent(ours, 1, is_ack), "1.001") << "one notification, one acknowledgement";
    EXPECT_EQ(net.flushes(ours), "0.5");
    EXPECT_EQ(net.status(ours, 1).tcn_frame_recvs, 1u);
    // Max age + forward delay on a legacy link, less the tick that began it, and two hellos on the other.
    EXPECT_EQ(net.sent(ours, 1, tells_change), "1.001 2.001 3.001 4.001 5.001 6.001 7.001 8.001 9.001");
    EXPECT_EQ(net.sent(ours, 2, tells_change), "1.001 2.001");
}

TEST_F(sim_topology, port_that_blocks_flushes)
{
    start(rst_bpdu(WORSE), rst_bpdu(WORSE));
    learn();

    // Both neighbours lead to a better root now; the second one becomes a spare way.
    told_t better = BETTER;
    first->say(rst_bpdu(better));
    better.port = 0x8002;
    second->say(rst_bpdu(better));
    net.world.run_for(5 * SECOND);
    EXPECT_EQ(net.ports(ours), "1 root forwards, 2 alternate discards, 6 designated forwards");
    EXPECT_EQ(net.states(ours, 2), "1.001 discarding");
    EXPECT_EQ(net.states(ours, 1), "");
    EXPECT_EQ(net.flushes(ours), "1.001");
    EXPECT_EQ(net.heard_at(ours, host->address()), 0u);
}

TEST_F(sim_neighbour, root_is_notified_until_it_acknowledges)
{
    start(32768, port_configs({1, 2}));
    net.world.run_for(SECOND / 2);
    first->say(config_bpdu(BETTER));
    net.world.run_for(11 * SECOND);
    EXPECT_EQ(net.states(ours, 2), "5.501 learning, 9.501 forwarding");
    first->say({config_bpdu(BETTER), config_bpdu(BETTER, BPDU_FLAG_TC_ACK), config_bpdu(BETTER)});
    net.world.run_for(20 * SECOND);
    EXPECT_EQ(net.sent(ours, 1, is_tcn), "10.501 11.501 12.501") << "the acknowledgement comes at 12.501";
}

TEST_F(sim_neighbour, root_that_never_acknowledges_is_notified_for_max_age_and_forward_delay)
{
    start(32768, port_configs({1, 2}));
    net.world.run_for(SECOND / 2);
    first->say(config_bpdu(BETTER));
    net.world.run_for(40 * SECOND);
    EXPECT_EQ(net.sent(ours, 1, is_tcn), "10.501 11.501 12.501 13.501 14.501 15.501 16.501 17.501 18.501");
}

// ---- lies and other odd words -----------------------------------------------------------------

class sim_liar : public testing::TestWithParam<lie_t> {};

TEST_P(sim_liar, does_no_lasting_harm)
{
    for (const unsigned lying : {1u, 20u}) {
        SCOPED_TRACE(fmt::format("{} s", lying));
        net_t net;
        const node_id_t ours = net.add_bridge(32768, port_configs({1}, {6}));
        net.add_neighbour(ours, 6);
        neighbour_t &liar = net.add_neighbour(ours, 1);
        net.mark();
        liar.say(GetParam().words(net.bridge(ours).bridge), 3 * MILLISECOND);
        for (unsigned ticks = 1; ticks <= lying; ticks++) {
            net.world.run_for(SECOND);
            for (const unsigned port : {1u, 6u})
                EXPECT_LE(net.bpdus_sent(ours, port).size(), 3 + ticks) << "whatever comes in";
        }
        liar.be_silent();
        net.pass(5 * SECOND);
        EXPECT_TRUE(net.is_root(ours));
        EXPECT_EQ(net.status(ours, 1).role, ROLE_DESIGNATED);
        net.pass(2 * FORWARD_DELAY * SECOND);
        EXPECT_EQ(net.ports(ours), "1 designated forwards, 6 designated forwards");
        const timevalues_t times = net.bridge(ours).root_times;
        EXPECT_EQ(times.HelloTime, HELLO_TIME);
        EXPECT_EQ(times.MaxAge, MAX_AGE);
        EXPECT_EQ(times.ForwardDelay, FORWARD_DELAY);

        net.world.run_for(30 * SECOND);
        EXPECT_EQ(net.states(ours, 1) + net.roots(ours), "") << "at rest";
        const lvt_rstp_port_status_t status = net.status(ours, 1);
        EXPECT_EQ(status.illegal_frame_recvs, 0u);
        EXPECT_EQ(status.rstp_frame_recvs + status.stp_frame_recvs + status.tcn_frame_recvs,
                  (lying * SECOND - MILLISECOND) / (3 * MILLISECOND) + 1);
    }
}

INSTANTIATE_TEST_SUITE_P(lies, sim_liar, testing::ValuesIn(LIES),
                         [](const auto &test) { return std::string(test.param.name); });

TEST_F(sim_neighbour, a_hello_time_of_0_counts_as_a_second)
{
    start(32768, port_configs({1, 2}));
    lvt_rstp_system_config_t config = bridge_config(32768);
    config.hello_time = 256; // kept to eight bits
    net.world.control(ours, system_config_message(config));
    net.pass(30 * SECOND);
    net.world.run_for(5 * SECOND);
    EXPECT_EQ(net.bridge(ours).root_times.HelloTime, 0);
    for (const unsigned port : {1u, 2u})
        EXPECT_EQ(net.sent(ours, port, is_rst), "1 2 3 4 5");
}

TEST_F(sim_neighbour, our_own_bpdu_comes_back)
{
    // A loop behind port 2: the better of the two ends stays designated, the other one backs it up.
    start(32768, port_configs({1, 2}));
    net.pass(30 * SECOND);
    const bridge_id_t us = net.bridge(ours).bridge;
    second->say(rst_bpdu({.root = us, .cost = 0, .bridge = us, .times = SHORT_TIMES}));
    net.world.run_for(20 * SECOND);
    EXPECT_EQ(net.roles(ours, 2), "1.001 backup");
    EXPECT_EQ(net.states(ours, 2), "1.001 discarding");
    EXPECT_EQ(net.ports(ours), "1 designated forwards, 2 backup discards");
    EXPECT_TRUE(net.is_root(ours));
}

/// What a BPDU may say although it is well formed.
struct odd_t {
    const char *what;
    std::function<void(bpdu_t &)> say;
};

void say_times(bpdu_t &bpdu, uint8_t message_age, uint8_t max_age, uint8_t hello_time, uint8_t forward_delay)
{
    bpdu.message_age[0] = message_age;
    bpdu.max_age[0] = max_age;
    bpdu.hello_time[0] = hello_time;
    bpdu.forward_delay[0] = forward_delay;
}

void say_bridge(uint8_t (&priority)[2], uint8_t (&address)[6], const bridge_id_t &id)
{
    bpdu_put16(priority, id.prio);
    std::copy(std::begin(id.addr), std::end(id.addr), address);
}

/// That of the first switch of a network.
const bridge_id_t OUR_OWN = {32768, {0x02, 0, 0, 0, 1, 0}};

const odd_t ODD[] = {
    {"hello time 0", [](bpdu_t &b) { say_times(b, 0, 20, 0, 15); }},
    {"all times 0", [](bpdu_t &b) { say_times(b, 0, 0, 0, 0); }},
    {"all times 255", [](bpdu_t &b) { say_times(b, 255, 255, 255, 255); }},
    {"message age equals max age", [](bpdu_t &b) { say_times(b, 20, 20, 2, 15); }},
    {"message age beyond max age", [](bpdu_t &b) { say_times(b, 40, 20, 2, 15); }},
    {"max age 0, age 255", [](bpdu_t &b) { say_times(b, 255, 0, 1, 1); }},
    {"fractions of seconds",
     [](bpdu_t &b) { b.message_age[1] = b.max_age[1] = b.hello_time[1] = b.forward_delay[1] = 255; }},
    {"our own bridge as sender", [](bpdu_t &b) { say_bridge(b.bridge_priority, b.bridge_address, OUR_OWN); }},
    {"our own bridge as root", [](bpdu_t &b) { say_bridge(b.root_priority, b.root_address, OUR_OWN); }},
    {"our own bridge as both",
     [](bpdu_t &b) {
         say_bridge(b.root_priority, b.root_address, OUR_OWN);
         say_bridge(b.bridge_priority, b.bridge_address, OUR_OWN);
     }},
    {"our own port",
     [](bpdu_t &b) {
         say_bridge(b.root_priority, b.root_address, OUR_OWN);
         say_bridge(b.bridge_priority, b.bridge_address, OUR_OWN);
         bpdu_put16(b.port_id, 0x8002);
     }},
    {"the highest cost", [](bpdu_t &b) { bpdu_put32(b.root_path_cost, 0xFFFFFFFF); }},
    {"port identifier 0", [](bpdu_t &b) { bpdu_put16(b.port_id, 0); }},
    {"all flags", [](bpdu_t &b) { b.flags = 0xFF; }},
    {"no flags", [](bpdu_t &b) { b.flags = 0; }},
    {"a version 1 length", [](bpdu_t &b) { b.version_1_length = 255; }},
    {"everything 0", [](bpdu_t &b) { std::fill(&b.flags, reinterpret_cast<uint8_t *>(&b) + sizeof b, uint8_t{0}); }},
    {"everything 255",
     [](bpdu_t &b) { std::fill(&b.flags, reinterpret_cast<uint8_t *>(&b) + sizeof b, uint8_t{255}); }},
};

TEST_F(sim_neighbour, whatever_a_well_formed_one_says_the_switch_goes_on)
{
    start(32768, port_configs({}, {1, 2}));
    neighbour_t *third = &net.add_neighbour(ours, 3); // where spanning tree is off
    net.world.run_for(20 * SECOND + SECOND / 2);
    unsigned ticks = 20;
    for (const odd_t &odd : ODD) {
        SCOPED_TRACE(odd.what);
        for (const bpdu_t &usual : {rst_bpdu(root_bridge(4096, 0x99)), config_bpdu(root_bridge(4096, 0x99))}) {
            bpdu_t bpdu = usual;
            odd.say(bpdu);
            for (neighbour_t *neighbour : {second, first, third})
                neighbour->say_once(bpdu);
            net.world.run_for(3 * SECOND);
            ticks += 3;
            for (const unsigned port : {1u, 2u})
                EXPECT_LE(net.bpdus_sent(ours, port).size(), 3 + ticks);
        }
    }
    // What it believed last has been promised for more than four minutes.
    net.pass(300 * SECOND);
    EXPECT_TRUE(net.is_root(ours));
    EXPECT_EQ(net.ports(ours), "1 designated forwards, 2 designated forwards");
    net.world.run_for(30 * SECOND);
    for (const unsigned port : {1u, 2u}) {
        EXPECT_EQ(net.states(ours, port), "");
        EXPECT_EQ(net.bpdus_sent(ours, port).size(), 30u);
        EXPECT_EQ(net.status(ours, port).illegal_frame_recvs, 0u);
        EXPECT_EQ(net.status(ours, port).rstp_frame_recvs, std::size(ODD));
        EXPECT_EQ(net.status(ours, port).stp_frame_recvs, std::size(ODD));
    }
    EXPECT_EQ(net.status(ours, 3).rstp_frame_recvs, std::size(ODD));
}

} // namespace
