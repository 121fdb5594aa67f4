// Where the engine departs from IEEE 802.1D-2004 and no rule of a machine shows it alone.
// docs/conformance.md has all departures.
#include "engine_table.h"

namespace {

/// A bridge of two ports that both forward since long, and the root that it may hear on port 1.
class departures : public engine_test {
protected:
    departures() : bridge(bridge_start({1, 2})), port(port_of(1)), other(port_of(2))
    {
        tick(50);
        settle();
        EXPECT_TRUE(port->forwarding && other->forwarding);
        world_forget();
    }

    void hear_root(unsigned seconds)
    {
        for (; seconds; seconds--) {
            settle();
            receive(port, root);
            tick();
        }
        settle();
    }

    void follow_root()
    {
        hear_root(50);
        ASSERT_TRUE(port->role == ROLE_ROOT && port->forwarding && other->forwarding);
        ASSERT_EQ(port->tcWhile + other->tcWhile, 0);
        world_forget();
    }

    const heard_t root = {};
    stpm_t *bridge;
    port_t *port;
    port_t *other;
};

TEST_F(departures, a_root_port_whose_own_identifier_gets_worse_is_alternate_until_its_information_ages)
{
    follow_root();
    port->config.port_priority = 240;
    STP_IN_set_port_cfg(port);
    hear_root(3);
    EXPECT_EQ(port->role, ROLE_ALTERNATE) << "although the root speaks on";
    EXPECT_EQ(port->forwarding, 0);
    EXPECT_EQ(bridge->rootPortId, 0x8001u) << "the identifier that no port has any more";
    hear_root(5);
    EXPECT_EQ(port->role, ROLE_ROOT);
    EXPECT_EQ(bridge->rootPortId, 0xF001u);
}

TEST_F(departures, a_root_path_cost_beyond_32_bits_begins_anew_at_zero)
{
    heard_t far = root;
    far.cost = 0xFFFFFFFF;
    receive(port, far);
    settle();
    EXPECT_EQ(bridge->rootPrio.root_path_cost, 19999u);
}

TEST_F(departures, a_topology_change_is_told_with_the_next_hello)
{
    for (unsigned second = 0; second < 2 && port->helloWhen != 2; second++) {
        tick();
        settle();
    }
    ASSERT_EQ(port->helloWhen, 2) << "a hello has just gone";
    world_forget();
    port->tc = 1;
    for (int pass = 0; pass < 3; pass++) {
        STP_stpm_update();
        settle();
    }
    EXPECT_NE(port->tcWhile, 0);
    EXPECT_TRUE(world.sent.empty());
    tick(2);
    settle();
    ASSERT_EQ(world.sent.size(), 2u) << "a hello from each port";
    for (const sent_frame_t &frame : world.sent)
        EXPECT_EQ(frame.octets.at(21) & 0x01, 1);
}

TEST_F(departures, a_worse_designated_neighbour_that_learns_is_not_disputed)
{
    for (unsigned second = 0; second < 40; second++) {
        receive(port, heard_t{.root = id_of(61440, 0x77), .bridge = id_of(61440, 0x77)});
        tick();
        settle();
        ASSERT_TRUE(port->role == ROLE_DESIGNATED && port->forwarding) << "second " << second;
    }
}

TEST_F(departures, a_link_that_returns_before_the_next_pass_was_never_lost)
{
    follow_root();
    STP_IN_enable_port(1, 0);
    STP_IN_enable_port(1, 1);
    tick(5);
    settle();
    EXPECT_TRUE(path_of(1, "edge").empty()) << "the machine that watches the link";
    EXPECT_TRUE(path_of(1, "sttrans").empty());
    EXPECT_EQ(port->role, ROLE_DESIGNATED) << "its information is lost all the same";
    EXPECT_TRUE(port->forwarding) << "and forwards as the root port did";
}

TEST_F(departures, a_bpdu_replaces_one_that_waits)
{
    for (const bool replaced : {true, false}) {
        port->info.State = INFO_AGED; // waits for roles, and so does what it hears
        port->infoIs = INFO_IS_AGED;
        STP_port_reselect(port);
        receive(port, root);
        settle();
        ASSERT_EQ(port->rcvdMsg, 1) << "it waits";
        if (replaced)
            receive(port, heard_t{.type = 0x80, .version = 0});
        tick(2);
        settle();
        EXPECT_EQ(port->rcvdMsg, 0);
        EXPECT_EQ(bridge->rootPortId, replaced ? 0u : 0x8001u);
    }
}

TEST_F(departures, a_bridge_forced_to_stp_parts_with_an_rst_bpdu)
{
    world.force_version = 0;
    STP_stpm_update_after_bridge_management(bridge);
    tick(10);
    settle();
    ASSERT_EQ(port->sendRSTP, 0);
    world_forget();
    STP_IN_enable_port(1, 0);
    tick(5);
    settle();
    size_t parting = 0;
    for (const sent_frame_t &frame : world.sent)
        if (frame.port == 1) {
            EXPECT_EQ(frame.octets.at(20), 2);
            parting++;
        }
    EXPECT_EQ(parting, 1u);
}

TEST_F(departures, a_new_root_cuts_designated_ports_that_went_by_their_timers)
{
    receive(port, heard_t{.flags = 0x0E}); // the new root proposes
    hear_root(3);
    EXPECT_EQ(port->role, ROLE_ROOT);
    EXPECT_EQ(other->role, ROLE_DESIGNATED);
    EXPECT_EQ(other->agreed, 0);
    EXPECT_EQ(other->forwarding, 0);
    hear_root(24);
    EXPECT_EQ(other->forwarding, 0);
    hear_root(8);
    EXPECT_EQ(other->forwarding, 1) << "after twice the forward delay";
}

} // namespace
