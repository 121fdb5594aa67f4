// Switches that are asked to be rapid: how fast rings of them settle and heal, and what they do beside neighbours
// that follow the standard's handshake, or none.
#ifdef LVT_RAPID
#include <fmt/format.h>

#include "sim/judge.h"
#include "sim_net.h"

namespace {

using namespace sim;

// ---- rings ------------------------------------------------------------------------------------

/// A ring of rapid switches with links of a millisecond, not yet cabled: the first is the root. Its max age lets a
/// ring be as long as one may be: what a root tells lives for 23 cables.
struct ring_t {
    explicit ring_t(unsigned length) : world(length), loops(world)
    {
        world.watch(&loops);
        for (node_id_t i = 0; i < length; i++)
            world.add_switch();
        for (node_id_t i = 0; i < length; i++)
            world.pull(world.connect({i, 1}, {(i + 1) % length, 2}));
        for (node_id_t i = 0; i < length; i++) {
            world.device(i).rapid = true;
            world.power_on(i, SECOND / 2 + i * SECOND / length / 3);
            lvt_rstp_system_config_t bridge = LVT_RSTP_SYSTEM_DEFAULTS;
            bridge.bridge_priority = i ? 32768 : 4096;
            bridge.max_age = 23;
            world.control(i, system_config_message(bridge));
            world.control(i, port_config_message(port_configs({1, 2})));
        }
        for (cable_id_t i = 0; i < length; i++)
            world.plug(i);
    }

    /// Until every port is as it should be for a second: the last moment at which one was not.
    moment_t settle()
    {
        const moment_t begin = world.now();
        moment_t wrong = begin;
        while (world.now() < wrong + SECOND && wrong < begin + 60 * SECOND) {
            if (!wrong_ports(world).empty())
                wrong = world.now();
            world.run_for(MILLISECOND);
        }
        return wrong - begin;
    }

    world_t world;
    loop_watcher_t loops;
};

class rapid_ring : public testing::TestWithParam<unsigned> {};

TEST_P(rapid_ring, settles_heals_and_mends_in_milliseconds)
{
    const unsigned length = GetParam();
    const moment_t bound = (4 * length + 4) * MILLISECOND;
    ring_t ring(length);
    EXPECT_LE(ring.settle(), bound);
    for (cable_id_t cut = 0; cut < length; cut++) {
        ring.world.pull(cut);
        EXPECT_LE(ring.settle(), bound) << "cable " << cut << " is cut";
        ring.world.plug(cut);
        EXPECT_LE(ring.settle(), bound) << "cable " << cut << " is mended";
    }
    EXPECT_EQ(ring.loops.ring(), "");
}

INSTANTIATE_TEST_SUITE_P(of, rapid_ring, testing::Values(3, 5, 10, 15, 20, 21, 22));

TEST(sim_rapid, a_long_ring_settles_and_mends_as_fast)
{
    // A cut would leave a line that is longer than what a root tells can reach.
    ring_t ring(40);
    EXPECT_LE(ring.settle(), 4 * 40 * MILLISECOND);
    EXPECT_EQ(ring.loops.ring(), "");
}

// ---- beside others ----------------------------------------------------------------------------

/// A neighbour's port, its tables written from clauses 17.21 and 17.29 of the standard's 2004 edition: a root port
/// that answers a proposal by the agreement of a bridge whose other ports are synced, or a designated port that
/// proposes and forwards once a root or alternate port has agreed.
class standard_port_t {
public:
    standard_port_t(net_t &net, node_id_t at, unsigned port, const told_t &own, bool proposes)
        : world_(net.world), own_(own), proposes_(proposes)
    {
        node_ = world_.add_speaker([this](const frame_t &frame) { hear(frame); });
        world_.connect({at, port}, {node_, 1});
        if (proposes_)
            hello();
    }

    moment_t agreed = 0;   ///< as designated port; 0: not yet
    moment_t proposed = 0; ///< as root port: when it was asked first

private:
    void say(uint8_t flags, uint8_t role)
    {
        const bpdu_t bpdu = rst_bpdu(own_, flags, role);
        world_.send(node_, {reinterpret_cast<const uint8_t *>(&bpdu), sizeof bpdu});
    }

    /// A designated port's, each hello time.
    void hello()
    {
        say(agreed ? BPDU_FLAG_LEARNING | BPDU_FLAG_FORWARDING : BPDU_FLAG_PROPOSAL, BPDU_ROLE_DESIGNATED);
        world_.at(world_.now() + SECOND, [this] { hello(); });
    }

    void hear(const frame_t &frame)
    {
        const bpdu_t bpdu = read_bpdu({frame.octets.data(), frame.length});
        const unsigned role = bpdu.flags >> BPDU_FLAG_ROLE_SHIFT & 3;
        if (!is_rst(bpdu))
            return;
        if (proposes_) {
            // InferiorRootAlternateInfo: not better than what it tells. recordAgreement asks for the flag alone.
            const bool below = role == BPDU_ROLE_ROOT || role == BPDU_ROLE_ALTERNATE_BACKUP;
            if (below && has_flag(bpdu, BPDU_FLAG_AGREEMENT) && bpdu_get32(bpdu.root_path_cost) >= own_.cost &&
                memcmp(bpdu.root_address, own_.root.addr, sizeof bpdu.root_address) == 0 && !agreed)
                agreed = world_.now();
        } else if (role == BPDU_ROLE_DESIGNATED && has_flag(bpdu, BPDU_FLAG_PROPOSAL)) {
            proposed = proposed ? proposed : world_.now();
            own_.root.prio = bpdu_get16(bpdu.root_priority);
            memcpy(own_.root.addr, bpdu.root_address, sizeof own_.root.addr);
            own_.cost = bpdu_get32(bpdu.root_path_cost) + 20000; // of its port of 1000 Mbit/s
            say(BPDU_FLAG_AGREEMENT, BPDU_ROLE_ROOT);
        }
    }

    world_t &world_;
    told_t own_;
    bool proposes_;
    node_id_t node_;
};

TEST(sim_rapid, a_designated_port_forwards_within_the_handshake_of_a_standard_root_port)
{
    net_t net;
    net.rapid = true;
    const node_id_t ours = net.add_bridge(4096, port_configs({1}));
    net.world.run_for(SECOND / 2);
    net.mark();
    const standard_port_t theirs(net, ours, 1, root_bridge(61440, 0x77), false);
    net.world.run_for(SECOND / 4);
    EXPECT_EQ(seconds(theirs.proposed - SECOND / 2), "0.001");
    EXPECT_EQ(net.states(ours, 1), "0.004 learning, 0.004 forwarding") << "asked twice, over two cables there and back";
}

TEST(sim_rapid, a_root_port_agrees_within_the_handshake_of_a_standard_designated_port)
{
    net_t net;
    net.rapid = true;
    const node_id_t ours = net.add_bridge(32768, port_configs({1}));
    net.world.run_for(SECOND / 2);
    net.mark();
    const standard_port_t theirs(net, ours, 1, root_bridge(4096, 0x77), true);
    net.world.run_for(SECOND / 4);
    EXPECT_EQ(net.states(ours, 1), "0.001 learning, 0.001 forwarding");
    EXPECT_EQ(seconds(theirs.agreed - SECOND / 2), "0.002");
}

TEST(sim_rapid, does_not_count_on_an_agreement_of_another_kind_when_there_is_a_new_root)
{
    // The rapid ones, r1 and r2, are blocked between them, for that link is dear. The leaf becomes the root, and the
    // news reach r1 by way of r2 first: d2 turns from below r1 to above it, and takes its time to tell.
    //
    //   r1 === r2
    //   |      |
    //   d2 --- d1 --- leaf
    net_t net;
    loop_watcher_t loops(net.world);
    net.world.watch(&loops);
    net.rapid = true;
    const node_id_t r1 = net.add_bridge(4096, port_configs({1, 2}), SECOND);
    port_configs_t dear = port_configs({1, 2});
    dear[1].adminPathCost = 200000;
    const node_id_t r2 = net.add_bridge(32768, dear, SECOND);
    net.rapid = false;
    const node_id_t d1 = net.add_bridge(32768, port_configs({1, 2, 3}), SECOND);
    const node_id_t d2 = net.add_bridge(32768, port_configs({1, 2}), SECOND);
    const node_id_t leaf = net.add_bridge(61440, port_configs({1}), SECOND);
    net.connect(r1, 1, r2, 1);
    net.connect(r2, 2, d1, 1);
    net.connect(d1, 2, d2, 1);
    net.connect(d2, 2, r1, 2);
    net.connect(d1, 3, leaf, 1);
    net.world.run_for(30 * SECOND);
    ASSERT_EQ(net.ports(r2), "1 alternate discards, 2 root forwards");
    ASSERT_EQ(net.ports(d2), "1 designated forwards, 2 root forwards");
    net.world.control(leaf, system_config_message(bridge_config(0)));
    net.world.run_for(30 * SECOND);
    EXPECT_EQ(loops.ring(), "");
    EXPECT_EQ(net.ports(r2), "1 designated forwards, 2 root forwards");
}

TEST(sim_rapid, beside_a_bridge_that_speaks_stp_the_timers_decide_as_ever)
{
    for (const bool rapid : {false, true}) {
        net_t net;
        net.rapid = rapid;
        const node_id_t ours = net.add_bridge(4096, port_configs({1}));
        neighbour_t &theirs = net.add_neighbour(ours, 1);
        net.world.run_for(SECOND / 2);
        theirs.say(config_bpdu(root_bridge(61440, 0x77)));
        net.world.run_for(5 * SECOND);
        EXPECT_TRUE(net.status(ours, 1).stp_neigb);
        EXPECT_NE(net.state(ours, 1), unsigned{HW_FORWARDING});
        net.world.run_for(2 * FORWARD_DELAY * SECOND);
        EXPECT_EQ(net.state(ours, 1), unsigned{HW_FORWARDING}) << rapid;
    }
}

} // namespace
#endif
