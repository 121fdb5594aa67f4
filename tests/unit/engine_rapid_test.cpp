// What a bridge does that is asked to be rapid: each rule by itself, and beside it what is done without.
#include "engine_table.h"

namespace {

constexpr uint8_t PROPOSES = 0x0E;                             ///< a designated port
constexpr uint8_t ROOT_AGREES = 0x48;                          ///< a root port
constexpr uint8_t ALTERNATE_AGREES = 0x44;                     ///< an alternate port
constexpr size_t NUMBER_AT = FLAGS_AT + 1 + 8 + 4 + 8 + 2 + 1; ///< the fraction of the message age
constexpr uint32_t COST = 20000;                               ///< of a port of 1000 Mbit/s

/// A bridge whose port 1 leads to the root; ports 2 and 3 are designated and propose.
class rapid_bridge : public engine_test {
protected:
    rapid_bridge()
    {
        world.rapid = true;
        bridge = bridge_start({1, 2, 3});
        STP_stpm_update(); // of the links
        receive(up, proposal);
        EXPECT_TRUE(up->forwarding && down->proposing && !down->forwarding) << port_text(*up) << port_text(*down);
        world_forget();
    }

    /// The words of a designated neighbour that are in force at `port`, or those that it tells itself.
    static heard_t words_of(const port_t *port, uint8_t flags)
    {
        const prio_vector_t &told = port->portPrio;
        return {.flags = flags,
                .root = told.root_bridge,
                .cost = told.root_path_cost,
                .bridge = told.design_bridge,
                .port_id = static_cast<uint16_t>(told.design_port)};
    }

    /// What a neighbour that follows the standard says below `down`: its own vector. Its agreement counts when it is
    /// given twice.
    heard_t below(uint8_t flags, uint32_t cost) const
    {
        heard_t words = words_of(down, flags);
        words.cost += cost;
        words.bridge = id_of(61440, 0x77);
        return words;
    }

    std::vector<octets_t> sent_by(const port_t *port) const
    {
        std::vector<octets_t> frames;
        for (const sent_frame_t &frame : world.sent)
            if (frame.port == port->port_number)
                frames.push_back(frame.octets);
        return frames;
    }

    /// An agreement by a neighbour of our kind: with what the port told last, or with something else.
    static void agree(port_t *port, uint8_t flags, int cost_more = 0, int words_ago = 0)
    {
        heard_t words = words_of(port, flags);
        words.cost += static_cast<uint32_t>(cost_more);
        octets_t frame = frame_of(words);
        frame.at(NUMBER_AT) = static_cast<uint8_t>(port->wordTold - words_ago);
        receive(port, frame);
    }

    static uint8_t flags_of(const octets_t &frame) { return frame.at(FLAGS_AT); }

    const heard_t proposal = {.flags = PROPOSES};
    stpm_t *bridge;
    port_t *up = port_of(1);
    port_t *down = port_of(2);
    port_t *side = port_of(3);
};

// ---- agreements -------------------------------------------------------------------------

TEST_F(rapid_bridge, agrees_by_repeating_what_it_agrees_with)
{
    heard_t better = proposal;
    better.cost = 0;
    better.bridge = id_of(4096, 0x10);
    better.root = better.bridge;
    octets_t number_7 = frame_of(better);
    number_7.at(NUMBER_AT) = 7;
    receive(up, number_7);
    ASSERT_EQ(sent_by(up).size(), 1u);
    const octets_t expected = number_7;
    const octets_t agreement = sent_by(up).front();
    EXPECT_EQ(flags_of(agreement) & 0x4C, ROOT_AGREES);
    const size_t vector = FLAGS_AT + 1, octets = 8 + 4 + 8 + 2;
    EXPECT_EQ(octets_t(agreement.begin() + vector, agreement.begin() + vector + octets),
              octets_t(expected.begin() + vector, expected.begin() + vector + octets));
    EXPECT_EQ(agreement.at(NUMBER_AT), 7);
}

TEST_F(rapid_bridge, agrees_with_a_word_without_a_number_by_its_own_vector)
{
    heard_t better = proposal;
    better.root.prio = 0;
    receive(up, better);
    ASSERT_EQ(sent_by(up).size(), 1u);
    const octets_t own = frame_of({.flags = flags_of(sent_by(up).front()),
                                   .root = better.root,
                                   .cost = COST,
                                   .bridge = bridge->BrId,
                                   .port_id = up->port_id});
    const octets_t agreement = sent_by(up).front();
    EXPECT_EQ(flags_of(agreement) & 0x4C, ROOT_AGREES);
    const size_t octets = 1 + 8 + 4 + 8 + 2;
    EXPECT_EQ(octets_t(agreement.begin() + FLAGS_AT, agreement.begin() + FLAGS_AT + octets),
              octets_t(own.begin() + FLAGS_AT, own.begin() + FLAGS_AT + octets));
    EXPECT_EQ(agreement.at(NUMBER_AT), 0);
}

TEST_F(rapid_bridge, numbers_what_it_tells)
{
    const uint8_t number = down->wordTold;
    for (uint8_t word = 1; word <= 3; word++) {
        receive(up, heard_t{.flags = PROPOSES, .cost = word});
        EXPECT_EQ(sent_by(down).back().at(NUMBER_AT), static_cast<uint8_t>(number + word));
    }
    down->wordTold = 255;
    receive(up, heard_t{.flags = PROPOSES, .cost = 4});
    EXPECT_EQ(sent_by(down).back().at(NUMBER_AT), 1) << "0 is that of other bridges";
}

TEST_F(rapid_bridge, forwards_when_what_it_tells_now_is_repeated)
{
    agree(down, ROOT_AGREES, 1);
    EXPECT_FALSE(down->forwarding) << "an agreement with what it told before";
    agree(down, ROOT_AGREES, 0, 1);
    EXPECT_FALSE(down->forwarding) << "with the same, which it told before something else";
    agree(down, ROOT_AGREES & ~0x40);
    EXPECT_FALSE(down->forwarding) << "no agreement";
    agree(down, ROOT_AGREES);
    EXPECT_TRUE(down->forwarding);
    agree(side, ALTERNATE_AGREES);
    EXPECT_TRUE(side->forwarding);
}

TEST_F(rapid_bridge, takes_no_agreement_on_a_shared_link)
{
    tick(5);
    down->operPointToPoint = 0;
    world_forget();
    agree(down, ROOT_AGREES);
    for (unsigned i = 0; i < 2; i++)
        receive(down, below(ROOT_AGREES, COST));
    EXPECT_FALSE(down->forwarding);
    EXPECT_EQ(sent_by(down).size(), 0u) << "nor asks for another";
}

TEST_F(rapid_bridge, takes_the_agreement_of_a_root_port_that_follows_the_standard_when_that_repeats_it)
{
    tick(5);
    receive(up, heard_t{.flags = 0x3C});
    tick();
    receive(up, heard_t{.flags = 0x3C, .cost = 1}); // a new word, after some silence
    receive(down, below(ROOT_AGREES, COST + 1));
    receive(down, below(ALTERNATE_AGREES, COST));
    EXPECT_FALSE(down->agreed) << "it may agree with what was told before";
    receive(down, below(ROOT_AGREES, COST));
    EXPECT_FALSE(down->agreed) << "for the first time";
    tick(5);
    receive(up, heard_t{.flags = 0x3C, .cost = 2});
    world_forget();
    receive(down, below(ROOT_AGREES & ~0x40, COST));
    EXPECT_EQ(sent_by(down).size(), 0u) << "no agreement";
    receive(down, below(ROOT_AGREES, COST));
    EXPECT_FALSE(down->agreed) << "its other ports may not be settled";
    ASSERT_EQ(sent_by(down).size(), 1u) << "it is asked again";
    EXPECT_EQ(flags_of(sent_by(down).front()) & 0x3E, PROPOSES);
    receive(down, below(ROOT_AGREES, COST));
    EXPECT_TRUE(down->agreed && down->forwarding);
}

TEST_F(rapid_bridge, asks_once_for_each_word)
{
    tick(5);
    receive(up, heard_t{.flags = 0x3C});
    tick();
    receive(up, heard_t{.flags = 0x3C, .cost = 1});
    receive(down, below(ROOT_AGREES, COST));
    tick();
    world_forget();
    receive(down, below(ROOT_AGREES, COST));
    EXPECT_FALSE(down->agreed) << "that may be what it says each hello time";
    EXPECT_EQ(sent_by(down).size(), 0u);
    heard_t worse = below(0x3C, 0);
    worse.root = worse.bridge;
    receive(down, worse);
    receive(down, below(ROOT_AGREES, COST));
    EXPECT_EQ(sent_by(down).size(), 0u) << "it was designated for a moment";
    tick(4);
    receive(up, heard_t{.flags = 0x3C, .cost = 2});
    world_forget();
    receive(down, below(ROOT_AGREES, COST));
    EXPECT_EQ(sent_by(down).size(), 1u);
}

TEST_F(rapid_bridge, takes_none_of_another_kind_while_one_with_an_earlier_word_may_come)
{
    tick(6);
    for (const uint32_t cost : {1u, 2u, 1u}) // the same word again
        receive(up, heard_t{.flags = 0x3C, .cost = cost});
    for (unsigned second = 0; second < 3; second++) {
        receive(down, below(ROOT_AGREES, COST));
        receive(down, below(ROOT_AGREES, COST));
        EXPECT_FALSE(down->agreed) << second;
        tick();
    }
    receive(down, below(ROOT_AGREES, COST));
    receive(down, below(ROOT_AGREES, COST));
    EXPECT_TRUE(down->agreed);
}

TEST_F(rapid_bridge, takes_any_that_is_no_better_once_what_was_told_before_is_old)
{
    for (const heard_t &words : {below(ROOT_AGREES, COST + 1), below(ALTERNATE_AGREES, 7)}) {
        down->agreed = 0;
        down->rcvdInfoWhile = 2;
        receive(down, words);
        EXPECT_FALSE(down->agreed);
        down->rcvdInfoWhile = 1;
        receive(down, words);
        EXPECT_TRUE(down->agreed);
    }
}

TEST_F(rapid_bridge, takes_none_with_another_root_nor_one_that_knows_better)
{
    heard_t other_root = below(ROOT_AGREES, COST);
    other_root.root = id_of(8192, 0x99);
    heard_t better = below(ROOT_AGREES, 0);
    better.cost--;
    tick(10);
    receive(down, other_root);
    receive(down, better);
    EXPECT_FALSE(down->agreed);
}

// ---- what an agreement is worth -----------------------------------------------------------

TEST_F(rapid_bridge, an_agreement_lasts_while_what_is_told_gets_better)
{
    agree(down, ROOT_AGREES);
    world_forget();
    heard_t better = proposal;
    better.root = better.bridge = id_of(4096, 0x10);
    receive(up, better);
    EXPECT_TRUE(down->forwarding && down->agreed && down->synced);
    EXPECT_EQ(world.actions, (std::vector<std::string>{"send 3 rst", "send 2 rst", "send 1 rst"}));
}

TEST_F(rapid_bridge, an_agreement_of_another_kind_lasts_for_one_word)
{
    tick(10);
    receive(down, below(ALTERNATE_AGREES, COST));
    ASSERT_TRUE(down->agreed && down->forwarding);
    agree(side, ROOT_AGREES);
    world_forget();
    heard_t better = proposal;
    better.flags = 0x3C;
    better.root.prio = 0;
    receive(up, better);
    EXPECT_TRUE(down->forwarding && !down->agreed) << "it goes on";
    EXPECT_TRUE(side->forwarding && side->agreed);
    better.flags = PROPOSES;
    receive(up, better);
    EXPECT_FALSE(down->forwarding) << "until this bridge is to agree to something";
    EXPECT_TRUE(side->forwarding);
    EXPECT_EQ(flags_of(sent_by(up).back()) & 0x4C, ROOT_AGREES);
}

TEST_F(rapid_bridge, a_port_that_was_agreed_blocks_when_what_it_tells_gets_worse)
{
    agree(down, ROOT_AGREES);
    world_forget();
    heard_t worse = proposal;
    worse.flags = 0x3C;
    worse.cost = 10;
    receive(up, worse);
    EXPECT_FALSE(down->forwarding);
    ASSERT_EQ(sent_by(down).size(), 1u) << "what it tells, once";
    EXPECT_EQ(flags_of(sent_by(down).front()) & 0x3E, PROPOSES);
    agree(down, ROOT_AGREES);
    EXPECT_TRUE(down->forwarding);
}

TEST_F(rapid_bridge, a_port_that_forwards_by_its_timers_goes_on_where_no_bridge_is)
{
    for (unsigned i = 0; i < 40; i++) {
        receive(up, heard_t{.flags = 0x3C});
        tick();
    }
    ASSERT_TRUE(down->forwarding && !down->agreed);
    receive(up, heard_t{.flags = 0x3C, .cost = 10});
    EXPECT_TRUE(down->forwarding);
    receive(down, below(ALTERNATE_AGREES & ~0x40, COST));
    receive(up, heard_t{.flags = 0x3C, .cost = 9});
    EXPECT_TRUE(down->forwarding && side->forwarding);
    receive(up, heard_t{.flags = 0x3C, .cost = 10});
    EXPECT_TRUE(!down->forwarding && side->forwarding) << "but not to a bridge that may count on the better word";
}

TEST_F(rapid_bridge, a_new_word_brings_its_hello_time)
{
    heard_t other = proposal;
    other.root = other.bridge = id_of(4096, 0x10);
    other.times.HelloTime = 126;
    receive(up, other);
    other.root.prio = 0;
    other.times.HelloTime = 2;
    receive(up, other);
    EXPECT_LE(down->helloWhen, 2);
}

// ---- news ---------------------------------------------------------------------------------

TEST_F(rapid_bridge, a_worse_word_of_the_same_port_replaces_its_last_at_once)
{
    receive(up, heard_t{.flags = 0x3C, .cost = 1234});
    EXPECT_EQ(up->portPrio.root_path_cost, 1234u);
    EXPECT_EQ(down->portPrio.root_path_cost, 1234u + COST);
    receive(up, heard_t{.flags = 0x7C, .cost = 5678});
    EXPECT_EQ(up->portPrio.root_path_cost, 5678u) << "whatever it agrees with";
}

TEST_F(rapid_bridge, a_neighbour_that_is_no_longer_designated_takes_its_word_back)
{
    const uint8_t told[] = {ROOT_AGREES, ALTERNATE_AGREES};
    for (const uint8_t flags : told) {
        receive(up, proposal);
        ASSERT_EQ(up->role, ROLE_ROOT);
        receive(up, heard_t{.flags = flags, .cost = 500, .bridge = id_of(61440, 0x77)});
        EXPECT_EQ(up->role, ROLE_ROOT) << "it may change its mind";
        tick();
        EXPECT_EQ(up->role, ROLE_DESIGNATED);
        EXPECT_EQ(bridge->rootPortId, 0u);
    }
    receive(up, proposal);
    up->operPointToPoint = 0; // here another neighbour may have said it
    receive(up, heard_t{.flags = ROOT_AGREES, .cost = 500, .bridge = id_of(61440, 0x77)});
    tick();
    EXPECT_EQ(up->role, ROLE_ROOT);
}

TEST_F(rapid_bridge, an_alternate_port_answers_a_proposal)
{
    heard_t other = proposal;
    other.bridge = id_of(4096, 0x20);
    receive(side, other);
    ASSERT_EQ(side->role, ROLE_ALTERNATE);
    ASSERT_EQ(sent_by(side).size(), 1u);
    EXPECT_EQ(flags_of(sent_by(side).front()) & 0x7E, ALTERNATE_AGREES);
    world_forget();
    receive(side, other);
    EXPECT_EQ(sent_by(side).size(), 1u) << "each one";
    for (const uint8_t flags : {0x3C, 0x3E}) {
        world_forget();
        other.flags = flags;
        receive(side, other);
        EXPECT_EQ(sent_by(side).size(), 0u) << "it forwards already";
    }
}

TEST_F(rapid_bridge, a_port_that_has_heard_a_bridge_is_no_edge_port_when_it_is_set_so)
{
    down->config.adminEdge = side->config.adminEdge = 1;
    agree(down, ROOT_AGREES);
    for (port_t *port : {down, side})
        STP_IN_set_port_cfg(port);
    EXPECT_FALSE(down->operEdge);
    EXPECT_TRUE(side->operEdge);
    STP_IN_enable_port(2, 0);
    STP_stpm_update();
    EXPECT_TRUE(down->operEdge) << "another may follow";
}

TEST_F(rapid_bridge, an_event_is_finished_when_it_is_finished)
{
    EXPECT_EQ(current_stpm, nullptr);
    world.links[1].up = 0;
    STP_IN_enable_port(1, 0);
    STP_stpm_update();
    EXPECT_EQ(current_stpm, nullptr);
    EXPECT_EQ(up->role, ROLE_DISABLED);
    EXPECT_EQ(bridge->rootPortId, 0u);
    EXPECT_EQ(sent_by(up).size(), 0u) << "there is nobody any more";
    EXPECT_EQ(sent_by(down).size(), 1u) << "what is so at the end";
    const records_t before = world.records;
    lvt_rstp_more_work();
    EXPECT_TRUE(same_records(before, world.records));
}

TEST_F(rapid_bridge, is_held_back_after_24_bpdus)
{
    for (uint32_t cost = 1; cost <= 80; cost++)
        receive(up, heard_t{.flags = 0x3C, .cost = cost});
    EXPECT_LE(sent_by(down).size(), 24u);
    EXPECT_GE(sent_by(down).size(), 14u) << "less those before";
    EXPECT_FALSE(down->forwarding);
    tick();
    world_forget();
    for (uint32_t cost = 1; cost <= 80; cost++)
        receive(up, heard_t{.flags = 0x3C, .cost = cost});
    EXPECT_LE(sent_by(down).size(), 9u);
    EXPECT_GE(sent_by(down).size(), 7u);
}

TEST_F(rapid_bridge, an_alternate_port_is_held_back_too)
{
    heard_t other = proposal;
    other.bridge = id_of(4096, 0x20);
    for (unsigned i = 0; i < 80; i++)
        receive(side, other);
    EXPECT_LE(sent_by(side).size(), 24u);
    EXPECT_EQ(side->txCount, 3);
    world_forget();
    tick();
    EXPECT_EQ(sent_by(side).size(), 1u) << "the answer that is due";
}

TEST_F(rapid_bridge, a_root_port_agrees_when_every_port_has_its_role)
{
    agree(down, ROOT_AGREES);
    world_forget();
    heard_t better = proposal;
    better.root = better.bridge = id_of(4096, 0x10);
    receive(side, better); // so that the root port becomes designated, and has to ask its neighbour first
    EXPECT_EQ(world.actions, (std::vector<std::string>{"flush 1 0 1 2", "state 1 1", "state 3 3", "state 3 4",
                                                       "flush 1 0 1 2", "send 3 rst", "send 2 rst", "send 1 rst"}));
    EXPECT_EQ(flags_of(sent_by(side).front()) & 0x4C, ROOT_AGREES);
    EXPECT_EQ(flags_of(sent_by(up).front()) & 0x3E, PROPOSES);
}

} // namespace
