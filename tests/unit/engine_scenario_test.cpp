// The whole engine through its ways in: one bridge that is told what it hears, then bridges that are
// wired to each other in one process.
#include "engine_world.h"

#include <algorithm>
#include <memory>
#include <random>

#include "tests/seed.h"

namespace {

constexpr unsigned FORWARD_DELAY = 15; ///< forward delay, the default
constexpr unsigned HELLO = 2;          ///< hello time, the default

using texts_t = std::vector<std::string>;

/// The hardware's part of what was done, without frames.
texts_t hardware_actions()
{
    texts_t texts;
    for (const std::string &action : world_now().actions)
        if (!action.starts_with("send"))
            texts.push_back(action);
    return texts;
}

std::vector<sent_frame_t> sent_by(uint32_t port)
{
    std::vector<sent_frame_t> frames;
    for (const sent_frame_t &frame : world_now().sent)
        if (frame.port == port)
            frames.push_back(frame);
    return frames;
}

uint8_t type_of(const sent_frame_t &frame) { return frame.octets.at(TYPE_AT); }

uint8_t flags_of(const sent_frame_t &frame) { return frame.octets.at(FLAGS_AT); }

/// Seconds until `done`, or more than `limit`.
template <typename done_t>
unsigned seconds_until(done_t done, unsigned limit = 100)
{
    unsigned seconds = 0;
    for (; seconds <= limit && !done(); seconds++) {
        tick();
        settle();
    }
    return seconds;
}

/// Reports a link as the adaptation layer does.
void link_set(uint32_t number, bool up)
{
    settle();
    world_now().links[number].up = up;
    if (up) {
        STP_IN_changed_port_duplex(number);
        STP_IN_changed_port_speed(number, world_now().links[number].speed);
    }
    STP_IN_enable_port(number, up);
}

// ---- one bridge -------------------------------------------------------------------------

/// A bridge of two ports, both designated and forwarding since long.
class one_bridge : public engine_test {
protected:
    one_bridge() : bridge(bridge_start({1, 2})), port(port_of(1)), other(port_of(2))
    {
        tick(50);
        settle();
        EXPECT_TRUE(port->forwarding && other->forwarding);
        world_forget();
    }

    /// A better bridge, the root, proposes on port 1.
    const heard_t proposal = {.flags = 0x0E};
    const heard_t hello = {.flags = 0x3C};

    void follow_root()
    {
        for (unsigned i = 0; i < 50; i++) {
            settle();
            receive(port, hello);
            tick();
        }
        settle();
        ASSERT_EQ(port->role, ROLE_ROOT);
        ASSERT_TRUE(port->forwarding && other->forwarding);
        ASSERT_EQ(port->tcWhile + other->tcWhile, 0);
        world_forget();
    }

    stpm_t *bridge;
    port_t *port;
    port_t *other;
};

/// A bridge that has just started.
using from_start = engine_test;

/// Starts a bridge with port 1, which is configured as an edge port.
port_t *start_with_edge_port()
{
    stpm_t *bridge = bridge_create();
    port_t *port = port_attach(bridge, 1);
    port->config.adminEdge = 1;
    STP_port_cfg(port);
    STP_stpm_enable(bridge, 1);
    return port;
}

TEST_F(from_start, a_port_alone_forwards_after_twice_the_forward_delay)
{
    bridge_start({1});
    const port_t *port = port_of(1);
    const unsigned learns = seconds_until([=] { return port->learning; });
    EXPECT_GE(learns, FORWARD_DELAY);
    EXPECT_LE(learns, FORWARD_DELAY + 5) << "some passes go by before the port has its role";
    EXPECT_EQ(seconds_until([=] { return port->forwarding; }), FORWARD_DELAY);
    EXPECT_EQ(port->role, ROLE_DESIGNATED);
    EXPECT_EQ(hardware_actions(), (texts_t{"flush 0 0 1 1", "flush 1 0 1 2", "state 1 1", "flush 1 0 1 2", "state 1 1",
                                           "state 1 3", "state 1 4", "flush 1 0 1 2"}))
        << "start, first state, learning, forwarding, and the topology change that this is";
    ASSERT_GE(world.sent.size(), 2u);
    EXPECT_EQ(flags_of(world.sent[0]), 0x0C) << "first its role, in the sweep in which it decides to propose";
    for (size_t i = 1; i < world.sent.size(); i++)
        EXPECT_EQ(flags_of(world.sent[i]) & 0x0E, 0x0E) << "then its proposal, frame " << i;
}

TEST_F(from_start, an_edge_port_forwards_when_nothing_was_heard_for_three_seconds)
{
    port_t *port = start_with_edge_port();
    settle();
    const unsigned seconds = seconds_until([=] { return port->forwarding; });
    EXPECT_GE(seconds, 3u);
    EXPECT_LE(seconds, 5u);
    EXPECT_EQ(port->operEdge, 1);
    EXPECT_EQ(port->tcWhile, 0) << "an edge port that forwards is no topology change";
}

TEST_F(from_start, an_edge_port_that_hears_a_bpdu_in_time_stays_none_until_its_link_returns)
{
    port_t *port = start_with_edge_port();
    tick(2);
    receive(port, heard_t{.root = {61440, {2}}, .bridge = {61440, {2}}});
    tick(20);
    settle();
    EXPECT_EQ(port->operEdge, 0);
    EXPECT_EQ(port->forwarding, 0);
    link_set(1, false);
    tick(2);
    settle();
    EXPECT_EQ(port->operEdge, 1) << "an edge port while it is down";
    link_set(1, true);
    EXPECT_LE(seconds_until([=] { return port->forwarding; }), 6u);
    EXPECT_EQ(port->operEdge, 1);
}

TEST_F(from_start, a_bpdu_on_a_settled_edge_port_is_a_topology_change)
{
    port_t *port = start_with_edge_port();
    tick(10);
    settle();
    ASSERT_TRUE(port->operEdge && port->forwarding);
    world_forget();
    receive(port, heard_t{.root = {61440, {2}}, .bridge = {61440, {2}}});
    settle();
    EXPECT_EQ(moves_to(1, "topoch", "DETECTED"), 1u);
    EXPECT_EQ(port->tcWhile, 2 * HELLO);
    EXPECT_EQ(hardware_actions(), texts_t{"flush 1 0 1 2"});
}

TEST_F(one_bridge, says_hello_every_two_seconds_as_the_root)
{
    tick(20);
    settle();
    const std::vector<sent_frame_t> frames = sent_by(1);
    EXPECT_EQ(frames.size(), 10u);
    for (const sent_frame_t &frame : frames) {
        EXPECT_EQ(type_of(frame), 2);
        EXPECT_EQ(flags_of(frame), 0x7E) << "proposing since long, designated, learning, forwarding, synced";
    }
}

TEST_F(one_bridge, agrees_to_a_proposal_and_forwards_to_the_new_root_at_once)
{
    receive(port, proposal);
    settle();
    EXPECT_EQ(port->selectedRole, ROLE_ROOT);
    tick();
    settle();
    EXPECT_EQ(port->role, ROLE_ROOT);
    EXPECT_EQ(other->sync, 1) << "the other port is asked to make the tree safe";
    EXPECT_TRUE(sent_by(1).empty()) << "no agreement before that";
    tick();
    settle();
    EXPECT_TRUE(port->forwarding);
    EXPECT_EQ(other->forwarding, 0);
    const texts_t &done = world.actions;
    EXPECT_LT(std::find(done.begin(), done.end(), "state 2 1"), std::find(done.begin(), done.end(), "send 1 rst"));
    ASSERT_FALSE(sent_by(1).empty());
    EXPECT_EQ(flags_of(sent_by(1)[0]), 0x78) << "the agreement of a root port that forwards";
    tick();
    settle();
    ASSERT_FALSE(sent_by(2).empty());
    EXPECT_EQ(flags_of(sent_by(2).back()) & 0x0E, 0x0E) << "the other port proposes in turn";
    EXPECT_EQ(bridge->rootPortId, 0x8001u);
    EXPECT_EQ(bridge->rootTimes.MessageAge, 1);
}

TEST_F(one_bridge, gets_its_other_port_back_when_its_neighbour_agrees)
{
    receive(port, proposal);
    for (unsigned i = 0; i < 3; i++) {
        tick();
        settle();
        receive(port, hello);
    }
    settle();
    ASSERT_EQ(other->forwarding, 0);
    // The neighbour behind port 2 agrees to what port 2 said.
    receive(other, heard_t{.flags = 0x48,
                           .root = other->portPrio.root_bridge,
                           .cost = other->portPrio.root_path_cost,
                           .bridge = other->portPrio.design_bridge,
                           .port_id = static_cast<uint16_t>(other->portPrio.design_port)});
    settle();
    EXPECT_EQ(other->agreed, 1);
    EXPECT_TRUE(other->forwarding);
}

TEST_F(one_bridge, does_not_hurry_on_a_shared_link)
{
    port->config.adminPointToPoint = 1;
    STP_IN_set_port_cfg(port);
    tick(1);
    world_forget();
    receive(port, proposal);
    tick(3);
    settle();
    EXPECT_EQ(port->role, ROLE_ROOT);
    EXPECT_EQ(port->proposed, 0);
    EXPECT_EQ(other->forwarding, 1) << "nobody asked it to sync";
}

TEST_F(one_bridge, is_root_again_when_the_root_falls_silent_for_three_hellos)
{
    follow_root();
    receive(port, hello);
    settle();
    ASSERT_EQ(port->rcvdInfoWhile, 3 * HELLO);
    tick(3 * HELLO - 1);
    settle();
    EXPECT_EQ(port->infoIs, INFO_IS_RECEIVED);
    EXPECT_EQ(port->role, ROLE_ROOT);
    tick(1);
    settle();
    EXPECT_EQ(port->infoIs, INFO_IS_AGED);
    EXPECT_EQ(bridge->rootPortId, 0u);
    tick(1);
    settle();
    EXPECT_EQ(port->infoIs, INFO_IS_MINE);
    EXPECT_EQ(port->role, ROLE_DESIGNATED);
}

TEST_F(one_bridge, drops_information_that_is_too_old)
{
    receive(port, heard_t{.times = {.MessageAge = 20, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 2}});
    settle();
    tick(3);
    settle();
    EXPECT_EQ(bridge->rootPortId, 0u);
    EXPECT_EQ(port->role, ROLE_DESIGNATED);
}

TEST_F(one_bridge, takes_over_the_times_of_the_root)
{
    receive(port, heard_t{.times = {.MessageAge = 0, .MaxAge = 40, .ForwardDelay = 30, .HelloTime = 1}});
    tick(3);
    settle();
    ASSERT_FALSE(sent_by(2).empty());
    EXPECT_EQ(hex(sent_by(2).back().octets).substr(44 * 3, 8 * 3 - 1), "03 00 28 00 01 00 1e 00");
}

TEST_F(one_bridge, passes_a_topology_change_on)
{
    follow_root();
    heard_t change = hello;
    change.flags |= 0x01;
    receive(port, change);
    settle();
    tick(1);
    settle();
    EXPECT_EQ(hardware_actions(), texts_t{"flush 1 0 1 3"});
    EXPECT_EQ(port->tcWhile, 0) << "not back to where it came from";
    EXPECT_NE(other->tcWhile, 0);
    EXPECT_EQ(bridge->topoChange, 1);
    EXPECT_EQ(bridge->lastTcPort, 2u);

    for (unsigned i = 0; i < 2 * HELLO + 2; i++) {
        settle();
        receive(port, hello);
        tick(1);
    }
    settle();
    size_t told = 0;
    for (const sent_frame_t &frame : sent_by(2))
        told += flags_of(frame) & 0x01;
    EXPECT_GE(told, 2u);
    EXPECT_EQ(flags_of(sent_by(2).back()) & 0x01, 0) << "and then no more";
    EXPECT_EQ(bridge->topoChange, 0);
}

TEST_F(one_bridge, parts_with_one_bpdu_of_unknown_role_when_a_designated_port_loses_its_link)
{
    link_set(1, false);
    EXPECT_TRUE(world.sent.empty()) << "a link change alone runs nothing";
    tick(10);
    settle();
    ASSERT_EQ(sent_by(1).size(), 1u);
    EXPECT_EQ(type_of(sent_by(1)[0]), 2);
    EXPECT_EQ(flags_of(sent_by(1)[0]) & 0x0C, 0);
    EXPECT_EQ(port->role, ROLE_DISABLED);
    EXPECT_EQ(hardware_actions(), (texts_t{"flush 1 0 1 2", "state 1 1"}));
}

TEST_F(one_bridge, never_sends_more_than_three_bpdus_between_two_ticks)
{
    const unsigned sent_before = port->txCount;
    for (unsigned i = 0; i < 10; i++) {
        port->newInfo = 1;
        STP_stpm_update();
        settle();
    }
    EXPECT_EQ(sent_by(1).size(), 3u - sent_before);
    EXPECT_EQ(port->newInfo, 1);
    world_forget();
    tick();
    settle();
    EXPECT_EQ(sent_by(1).size(), 1u) << "the one that waited, and no more";
}

// ---- older bridges ----------------------------------------------------------------------

constexpr bridge_id_t worse = {61440, {2, 0, 0, 0, 0, 0x77}};
const heard_t old_worse = {.type = 0, .version = 0, .flags = 0, .root = worse, .bridge = worse};
const heard_t old_root = {.type = 0, .version = 0, .flags = 0};

TEST_F(one_bridge, speaks_stp_to_an_stp_bridge_and_rstp_again_when_that_does)
{
    receive(port, old_worse);
    settle();
    EXPECT_EQ(port->sendRSTP, 0);
    world_forget();
    tick(2 * HELLO);
    settle();
    ASSERT_FALSE(sent_by(1).empty());
    for (const sent_frame_t &frame : sent_by(1))
        EXPECT_EQ(type_of(frame), 0);
    for (const sent_frame_t &frame : sent_by(2))
        EXPECT_EQ(type_of(frame), 2) << "the other port goes on as before";

    receive(port, heard_t{.root = worse, .bridge = worse});
    settle();
    EXPECT_EQ(port->sendRSTP, 1);
}

TEST_F(one_bridge, disregards_what_is_heard_within_three_seconds_of_a_change)
{
    receive(port, old_worse);
    settle();
    ASSERT_EQ(port->sendRSTP, 0);
    for (unsigned second = 0; second < 3; second++) {
        receive(port, heard_t{.root = worse, .bridge = worse});
        settle();
        EXPECT_EQ(port->sendRSTP, 0) << "second " << second;
        tick();
    }
    settle();
    receive(port, heard_t{.root = worse, .bridge = worse});
    settle();
    EXPECT_EQ(port->sendRSTP, 1);
}

TEST_F(one_bridge, restarts_migration_when_its_settings_change)
{
    receive(port, old_worse);
    settle();
    ASSERT_EQ(port->sendRSTP, 0);
    STP_IN_set_port_cfg(port);
    settle();
    EXPECT_EQ(port->sendRSTP, 1);
}

TEST_F(one_bridge, notifies_an_stp_root_until_that_acknowledges)
{
    for (unsigned i = 0; i < 80; i++) {
        settle();
        receive(port, old_root);
        tick();
    }
    settle();
    ASSERT_EQ(port->role, ROLE_ROOT);
    ASSERT_EQ(port->sendRSTP, 0);
    ASSERT_EQ(port->tcWhile, 0);
    world_forget();
    tick(2);
    EXPECT_TRUE(sent_by(1).empty()) << "a root port has nothing to say";

    other->tc = 1;
    for (unsigned i = 0; i < 8; i++) {
        receive(port, old_root);
        tick();
        settle();
    }
    EXPECT_EQ(port->tcWhile, 35 - 8) << "max age and forward delay, on an STP link";
    ASSERT_EQ(sent_by(1).size(), 8 / HELLO);
    for (const sent_frame_t &frame : sent_by(1))
        EXPECT_EQ(type_of(frame), 0x80);

    heard_t acknowledgement = old_root;
    acknowledgement.flags = 0x80;
    receive(port, acknowledgement);
    settle();
    EXPECT_EQ(port->tcWhile, 0);
    world_forget();
    tick(3 * HELLO - 1);
    EXPECT_TRUE(sent_by(1).empty());
}

TEST_F(one_bridge, acknowledges_the_notification_of_an_stp_bridge_once)
{
    receive(port, heard_t{.type = 0x80, .version = 0});
    settle();
    tick(3);
    settle();
    size_t acknowledgements = 0;
    for (const sent_frame_t &frame : sent_by(1))
        acknowledgements += type_of(frame) == 0 && (flags_of(frame) & 0x80);
    EXPECT_EQ(acknowledgements, 1u);
    EXPECT_NE(other->tcWhile, 0) << "and passes it on";
}

TEST_F(from_start, a_bridge_forced_to_version_0_speaks_stp_only_and_takes_its_time)
{
    world.force_version = 0;
    bridge_start({1, 2});
    port_t *root = port_of(1);
    unsigned learns = 0;
    unsigned forwards = 0;
    for (unsigned second = 1; second <= 60; second++) {
        settle();
        receive(root, old_root);
        receive(root, heard_t{.cost = 0, .port_id = 1}); // better, but RSTP
        tick();
        learns = learns || !root->learning ? learns : second;
        forwards = forwards || !root->forwarding ? forwards : second;
    }
    EXPECT_EQ(root->role, ROLE_ROOT);
    EXPECT_EQ(root->portPrio.design_port, 0x8001u);
    EXPECT_EQ(root->rstp_frame_recvs, 60u) << "counted and dropped";
    EXPECT_GE(learns, FORWARD_DELAY);
    EXPECT_GE(forwards, learns + FORWARD_DELAY);
    EXPECT_TRUE(root->forwarding);
    for (const sent_frame_t &frame : world.sent)
        EXPECT_NE(type_of(frame), 2);
}

// ---- in and out of the tree -------------------------------------------------------------

TEST_F(from_start, a_port_that_joins_the_tree_first_passes_through_learning)
{
    stpm_t *bridge = bridge_create();
    port_t *port = boring_port_attach(bridge, 1);
    STP_stpm_enable(bridge, 1);
    settle();
    ASSERT_EQ(port->role, ROLE_NON_STP);
    ASSERT_TRUE(port->learn && port->forward);
    tick(3);
    world_forget();

    port->config.adminEnable = 1;
    STP_IN_set_port_cfg(port);
    settle();
    EXPECT_EQ(hardware_actions(), (texts_t{"flush 1 0 1 2", "state 1 1", "state 1 3", "flush 1 0 1 2", "state 1 1"}));
}

TEST_F(one_bridge, a_port_that_leaves_the_tree_is_frozen_and_returns_as_it_was)
{
    port->config.adminEnable = 0;
    STP_IN_set_port_cfg(port);
    settle();
    EXPECT_EQ(port->role, ROLE_DESIGNATED) << "no port of the tree has asked for roles";
    STP_IN_changed_port_duplex(2);
    STP_stpm_update();
    settle();
    EXPECT_EQ(port->role, ROLE_NON_STP);

    world_forget();
    records_t expected = world.records;
    tick(20);
    settle();
    expected.bridges = world.records.bridges;
    expected.ports[1] = world.records.ports[1];
    EXPECT_TRUE(same_records(expected, world.records)) << "machines and timers stand still";
    EXPECT_TRUE(sent_by(1).empty());

    port->config.adminEnable = 1;
    STP_IN_set_port_cfg(port);
    tick(5);
    settle();
    EXPECT_EQ(port->role, ROLE_DESIGNATED);
    EXPECT_TRUE(port->forwarding);
    EXPECT_EQ(hardware_actions(), texts_t{}) << "the hardware was not touched at all";
}

TEST_F(one_bridge, a_changed_path_cost_is_used_at_once)
{
    follow_root();
    port->config.adminPathCost = 77;
    STP_IN_set_port_cfg(port);
    settle();
    EXPECT_EQ(bridge->rootPrio.root_path_cost, 77u);
    port->config.adminPathCost = 0;
    STP_IN_set_port_cfg(port);
    settle();
    EXPECT_EQ(bridge->rootPrio.root_path_cost, 20000u);
    world.links[1].speed = 100;
    STP_IN_changed_port_speed(1, 100);
    STP_stpm_update();
    settle();
    EXPECT_EQ(bridge->rootPrio.root_path_cost, 200000u);
}

// ---- bridges wired to each other --------------------------------------------------------

struct end_t {
    size_t bridge; ///< from 0
    uint32_t port;
    bool operator==(const end_t &) const = default;
};

/// Switches, each in a world of its own, and the wires between them. Bridge 0 has the best identifier.
class lab : public testing::Test {
protected:
    void add_bridges(size_t count, std::initializer_list<uint32_t> ports, uint8_t force_version = 2)
    {
        for (size_t i = 0; i < count; i++) {
            worlds.push_back(std::make_unique<world_t>(static_cast<uint8_t>(worlds.size() + 1)));
            worlds.back()->force_version = force_version;
            world_enter(worlds.back().get());
            for (link_facts_t &link : worlds.back()->links)
                link.up = 0;
            bridge_start(ports);
        }
    }

    void wire(end_t a, end_t b)
    {
        wires.emplace_back(a, b);
        set_wire(wires.size() - 1, true);
    }

    void set_wire(size_t index, bool up)
    {
        for (const end_t &end : {wires[index].first, wires[index].second}) {
            world_enter(worlds[end.bridge].get());
            link_set(end.port, up);
        }
    }

    /// Carries frames until none is under way; each event finishes the pass of the one before.
    void deliver()
    {
        for (bool busy = true; busy;) {
            busy = false;
            for (size_t i = 0; i < worlds.size(); i++) {
                const std::vector<sent_frame_t> frames = std::exchange(worlds[i]->sent, {});
                for (const sent_frame_t &frame : frames)
                    if (const end_t *to = other_end({i, frame.port})) {
                        world_enter(worlds[to->bridge].get());
                        settle();
                        receive(port_of(to->port), frame.octets);
                        busy = true;
                    }
            }
        }
    }

    void seconds(unsigned count)
    {
        for (; count; count--) {
            for (const auto &each : worlds) {
                world_enter(each.get());
                tick();
                deliver();
            }
        }
    }

    template <typename done_t>
    unsigned seconds_to(done_t done, unsigned limit = 120)
    {
        unsigned passed = 0;
        for (; passed <= limit && !done(); passed++)
            seconds(1);
        return passed;
    }

    const port_t &at(size_t bridge, uint32_t port) const { return worlds[bridge]->records.ports[port - 1]; }

    bool forwards(size_t bridge, uint32_t port) const { return at(bridge, port).forwarding; }

    bool wire_forwards(size_t index) const
    {
        const auto &[a, b] = wires[index];
        return forwards(a.bridge, a.port) && forwards(b.bridge, b.port);
    }

    std::vector<std::unique_ptr<world_t>> worlds;
    std::vector<std::pair<end_t, end_t>> wires;

private:
    const end_t *other_end(end_t from) const
    {
        if (!worlds[from.bridge]->links[from.port].up)
            return nullptr;
        for (const auto &[a, b] : wires)
            if (a == from || b == from)
                return a == from ? &b : &a;
        return nullptr;
    }
};

TEST_F(lab, of_two_bridges_the_root_port_hurries_and_the_designated_port_waits)
{
    // An agreement counts when it names the receiver as the designated bridge. Bridges of this kind name
    // themselves, so between two of them the designated port forwards when its time is out.
    add_bridges(2, {1, 2});
    wire({0, 1}, {1, 1});
    EXPECT_LE(seconds_to([this] { return forwards(1, 1); }), 6u);
    EXPECT_EQ(at(1, 1).role, ROLE_ROOT);
    EXPECT_EQ(at(1, 1).synced, 1);
    const unsigned passed = seconds_to([this] { return forwards(0, 1); });
    EXPECT_GE(passed, 2 * FORWARD_DELAY - 6);
    EXPECT_LE(passed, 2 * FORWARD_DELAY);
    EXPECT_EQ(at(0, 1).role, ROLE_DESIGNATED);
    EXPECT_EQ(at(0, 1).agreed, 0);
}

TEST_F(lab, of_two_wires_one_is_kept_and_stands_in_for_the_other)
{
    add_bridges(2, {1, 2});
    wire({0, 1}, {1, 1});
    wire({0, 2}, {1, 2});
    seconds(60);
    EXPECT_EQ(at(1, 1).role, ROLE_ROOT);
    EXPECT_EQ(at(1, 2).role, ROLE_ALTERNATE);
    EXPECT_TRUE(wire_forwards(0));
    EXPECT_FALSE(forwards(1, 2));

    set_wire(0, false);
    EXPECT_LE(seconds_to([this] { return wire_forwards(1); }), 3u);
    EXPECT_EQ(at(1, 2).role, ROLE_ROOT);

    set_wire(0, true);
    EXPECT_LE(seconds_to([this] { return wire_forwards(0) && !forwards(1, 2); }), 2 * FORWARD_DELAY + 5);
    EXPECT_EQ(at(1, 1).role, ROLE_ROOT);
}

TEST_F(lab, a_ring_is_cut_in_one_place_and_heals)
{
    // 0 --- 1
    // |     |
    // 3 --- 2
    add_bridges(4, {1, 2});
    wire({0, 1}, {1, 1});
    wire({1, 2}, {2, 1});
    wire({2, 2}, {3, 1});
    wire({3, 2}, {0, 2});
    const auto wires_that_forward = [this] {
        size_t count = 0;
        for (size_t i = 0; i < wires.size(); i++)
            count += wire_forwards(i);
        return count;
    };
    seconds(60);
    EXPECT_EQ(wires_that_forward(), 3u);

    for (size_t broken = 0; broken < wires.size(); broken++) {
        set_wire(broken, false);
        EXPECT_LE(seconds_to([&] { return wires_that_forward() == 3; }), 60u) << "without wire " << broken;
        set_wire(broken, true);
        seconds(60);
        EXPECT_EQ(wires_that_forward(), 3u) << "with wire " << broken << " back";
    }
}

TEST_F(lab, a_bridge_that_hears_itself_keeps_one_port_back)
{
    add_bridges(1, {1, 2});
    wire({0, 1}, {0, 2});
    seconds(40);
    EXPECT_EQ(at(0, 1).role, ROLE_DESIGNATED);
    EXPECT_EQ(at(0, 2).role, ROLE_BACKUP);
    EXPECT_TRUE(forwards(0, 1));
    EXPECT_FALSE(forwards(0, 2));
    EXPECT_EQ(at(0, 2).rbWhile, 2 * HELLO) << "wound up again after each tick";
}

TEST_F(lab, an_old_root_makes_its_neighbour_speak_stp_and_wait)
{
    add_bridges(1, {1}, 0);
    add_bridges(1, {1}, 2);
    wire({0, 1}, {1, 1});
    const unsigned passed = seconds_to([this] { return wire_forwards(0); });
    EXPECT_GE(passed, 2 * FORWARD_DELAY);
    EXPECT_LE(passed, 2 * FORWARD_DELAY + 10);
    EXPECT_EQ(at(1, 1).role, ROLE_ROOT);
    EXPECT_EQ(at(1, 1).sendRSTP, 0);
    EXPECT_EQ(at(0, 1).sendRSTP, 0);

    worlds[0]->force_version = 2;
    world_enter(worlds[0].get());
    STP_stpm_update_after_bridge_management(worlds[0]->bridges);
    seconds(10);
    EXPECT_EQ(at(0, 1).sendRSTP, 1);
    EXPECT_EQ(at(1, 1).sendRSTP, 1);
    EXPECT_TRUE(wire_forwards(0));
}

TEST_F(lab, a_new_root_takes_over)
{
    add_bridges(3, {1, 2});
    wire({0, 1}, {1, 1});
    wire({1, 2}, {2, 1});
    seconds(40);
    ASSERT_TRUE(STP_VECT_eq_bridge_id(&worlds[2]->bridges->rootPrio.root_bridge, &worlds[0]->bridges->BrId));

    worlds[2]->bridges->BrId.prio = 4096;
    world_enter(worlds[2].get());
    STP_stpm_update_after_bridge_management(worlds[2]->bridges);
    seconds(10);
    for (const auto &each : worlds)
        EXPECT_TRUE(STP_VECT_eq_bridge_id(&each->bridges->rootPrio.root_bridge, &worlds[2]->bridges->BrId));
    EXPECT_EQ(at(0, 1).role, ROLE_ROOT);
    EXPECT_TRUE(wire_forwards(0));
    EXPECT_TRUE(wire_forwards(1));
}

// ---- anything at all --------------------------------------------------------------------

/// What has to hold whatever a bridge was told.
void expect_sound(const world_t &world)
{
    ASSERT_EQ(current_stpm == nullptr, current_port == nullptr);
    for (const port_t &port : world.records.ports) {
        ASSERT_TRUE(!port.forwarding || port.learning) << "port " << port.port_number;
        ASSERT_LE(port.txCount, 3) << "port " << port.port_number;
        ASSERT_LE(port.role, ROLE_NON_STP) << "port " << port.port_number;
    }
    for (const sent_frame_t &frame : world.sent)
        ASSERT_EQ(frame.octets.size(), type_of(frame) == 2 ? 53u : type_of(frame) == 0 ? 52u : 21u);
}

class storm : public engine_test, public testing::WithParamInterface<unsigned> {};

TEST_P(storm, leaves_a_sound_bridge_that_finds_back_to_rest)
{
    const test_seed_t seed(GetParam());
    std::mt19937 random(seed.value);
    stpm_t *bridge = bridge_start({1, 2, 3, 4});
    const auto octet = [&random] {
        const unsigned values[] = {0, 0, 1, 2, 6, 15, 20, 130, 200, 255};
        return static_cast<uint8_t>(values[random() % 10]);
    };

    for (unsigned event = 0; event < 5000; event++) {
        port_t *port = port_of(1 + random() % 4);
        switch (random() % 8) {
        case 0:
            tick();
            break;
        case 1:
            link_set(port->port_number, random() & 1);
            break;
        case 2:
            settle();
            port->config.adminEdge = random() & 1;
            port->config.adminEnable = random() % 4 != 0;
            port->config.adminPointToPoint = random() % 3;
            port->config.adminPathCost = random() % 3 * 100;
            port->config.port_priority = static_cast<uint16_t>(random() % 16 * 16);
            STP_IN_set_port_cfg(port);
            break;
        case 3:
            world.force_version = random() % 3;
            bridge->BrTimes = {0, octet(), octet(), octet()};
            STP_stpm_update_after_bridge_management(bridge);
            break;
        default:
            settle();
            receive(port, heard_t{.type = static_cast<uint8_t>(random() % 3 == 0 ? 0
                                                               : random() % 4    ? 2
                                                                                 : 0x80),
                                  .version = static_cast<uint8_t>(random() % 4),
                                  .flags = static_cast<uint8_t>(random()),
                                  .root = {static_cast<uint16_t>(random() % 9 * 8192), {2, 0, 0, 0, 0, 1}},
                                  .cost = static_cast<uint32_t>(random() % 4 * 10000),
                                  .bridge = {32768, {2, 0, 0, 0, 0, static_cast<uint8_t>(random() % 4)}},
                                  .port_id = static_cast<uint16_t>(0x8000 | random() % 5),
                                  .times = {octet(), octet(), octet(), octet()}});
        }
        expect_sound(world);
        if (HasFailure())
            FAIL() << "event " << event;
        world_forget();
    }

    world.force_version = 2;
    bridge->BrTimes = {.MessageAge = 0, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 2};
    for (const uint32_t number : {1, 2, 3, 4}) {
        link_set(number, true);
        port_of(number)->config.adminEnable = 1;
        STP_IN_set_port_cfg(port_of(number));
    }
    STP_stpm_update_after_bridge_management(bridge);
    tick(300 + 255);
    settle();
    EXPECT_EQ(bridge->rootPortId, 0u);
    for (const uint32_t number : {1, 2, 3, 4})
        EXPECT_TRUE(port_of(number)->role == ROLE_DESIGNATED && port_of(number)->forwarding) << "port " << number;
}

INSTANTIATE_TEST_SUITE_P(seed, storm, testing::Range(1u, 9u));

} // namespace
