// The ways into the engine: settings, links, received BPDUs.
#include "engine_table.h"

namespace {

constexpr const char *index_assertion = "((port_index) > 0 && (port_index) <= (((6) * 1)) + ((3 * 1)+(0 )))";

/// Ports 1 and 2 of an enabled bridge, ports 5 and 6 of a disabled one.
class stp_in : public engine_test {
protected:
    stp_in() : off(bridge_create(1)), bridge(bridge_start({1, 2}))
    {
        for (const uint32_t number : {5, 6})
            port_attach(off, number);
        tick(2);
        settle();
        for (const uint32_t number : {1, 2, 5, 6}) {
            port_of(number)->p2pRecompute = port_of(number)->reselect = 0;
            port_of(number)->selected = 1;
        }
        world_forget();
    }

    /// Compares with the records as they are now, but for the changes of one port.
    template <typename act_t>
    void expect_only(uint32_t number, change_t then, act_t act)
    {
        const records_t before = world.records;
        then(port_of(number));
        const records_t expected = world.records;
        world.records = before;
        act();
        EXPECT_TRUE(same_records(expected, world.records));
        EXPECT_EQ(current_stpm, nullptr) << "the engine is not run";
        EXPECT_TRUE(world.moves.empty());
    }

    stpm_t *off;
    stpm_t *bridge;
};

// ---- finding ports ----------------------------------------------------------------------

TEST_F(stp_in, finds_a_port_in_its_own_bridge_only)
{
    EXPECT_EQ(_stpapi_port_find(bridge, 1), port_of(1));
    EXPECT_EQ(_stpapi_port_find(off, 1), nullptr);
    EXPECT_EQ(_stpapi_port_find(off, 5), port_of(5));
    EXPECT_EQ(_stpapi_port_find(bridge, 9), nullptr) << "in no bridge";
    EXPECT_EQ(_stpapi_port_find(nullptr, 9), port_of(9));
}

using stp_in_DeathTest = stp_in;

TEST_F(stp_in_DeathTest, ports_are_numbered_from_1_to_9)
{
    for (const uint32_t index : {0u, 10u, 0xFFFFFFFFu}) {
        const std::string words = assertion(index_assertion, "stp_in", "_stpapi_port_find", 53);
        EXPECT_DEATH(_stpapi_port_find(bridge, index), words);
        EXPECT_DEATH(STP_IN_changed_port_duplex(index), words);
        EXPECT_DEATH(STP_IN_changed_port_speed(index, 10), words);
        EXPECT_DEATH(STP_IN_enable_port(index, 1), words);
    }
}

// ---- settings ---------------------------------------------------------------------------

TEST_F(stp_in, new_settings_of_a_port_begin_a_pass)
{
    port_of(1)->config.port_priority = 16;
    STP_IN_set_port_cfg(port_of(1));
    EXPECT_EQ(port_of(1)->port_id, 0x1001);
    EXPECT_EQ(current_stpm, bridge);
    settle();
    EXPECT_EQ(port_of(1)->designatedPrio.design_port, 0x1001u) << "roles were selected anew";
}

TEST_F(stp_in, new_settings_of_a_port_without_bridge_are_applied_and_no_more)
{
    port_t *alone = port_of(9);
    alone->config = LVT_RSTP_PORT_DEFAULTS;
    STP_IN_set_port_cfg(alone);
    EXPECT_EQ(alone->port_id, 0x8009);
    EXPECT_EQ(alone->operEdge, 1);
    EXPECT_EQ(alone->nonStp, 1);
    EXPECT_EQ(current_stpm, nullptr);
    EXPECT_TRUE(world.moves.empty());
}

// ---- facts of the link ------------------------------------------------------------------

TEST_F(stp_in, changed_duplex)
{
    expect_only(
        1, [](port_t *p) { p->p2pRecompute = 1, p->reselect = 1, p->selected = 0; },
        [] { EXPECT_EQ(STP_IN_changed_port_duplex(1), 0); });
}

TEST_F(stp_in, changed_speed)
{
    expect_only(
        2, [](port_t *p) { p->speed = 10, p->reselect = 1, p->selected = 0; },
        [] { EXPECT_EQ(STP_IN_changed_port_speed(2, 10), 0); });
}

TEST_F(stp_in, changes_of_a_port_of_a_disabled_bridge_are_ignored)
{
    expect_only(5, nothing, [] {
        EXPECT_EQ(STP_IN_changed_port_duplex(5), 0);
        EXPECT_EQ(STP_IN_changed_port_speed(5, 10), 0);
        EXPECT_EQ(STP_IN_enable_port(5, 0), 0);
    });
}

TEST_F(stp_in, changes_of_a_port_of_no_bridge_are_ignored)
{
    expect_only(9, nothing, [] {
        EXPECT_EQ(STP_IN_changed_port_duplex(9), 0);
        EXPECT_EQ(STP_IN_changed_port_speed(9, 10), 0);
        EXPECT_EQ(STP_IN_enable_port(9, 1), 0);
    });
}

TEST_F(stp_in, changes_reach_ports_outside_the_tree)
{
    port_of(1)->nonStp = 1;
    expect_only(
        1, [](port_t *p) { p->speed = 10, p->p2pRecompute = 1, p->reselect = 1, p->selected = 0; },
        [] {
            STP_IN_changed_port_speed(1, 10);
            STP_IN_changed_port_duplex(1);
        });
}

void initialised(port_t *p)
{
    p->sendRSTP = p->p2pRecompute = 1;
    p->fdWhile = p->helloWhen = p->mdelayWhile = p->rbWhile = 0;
    p->rcvdInfoWhile = p->rrWhile = p->tcWhile = p->txCount = 0;
    p->selectedRole = p->rcvdRole = 0;
    p->speed = 1000;
    p->reselect = 1;
    p->selected = 0;
}

TEST_F(stp_in, lost_link)
{
    ASSERT_EQ(port_of(1)->role, ROLE_DESIGNATED);
    expect_only(
        1, [](port_t *p) { initialised(p), p->portEnabled = 0; }, [] { EXPECT_EQ(STP_IN_enable_port(1, 0), 0); });
    EXPECT_EQ(port_of(1)->role, ROLE_DESIGNATED) << "for the parting BPDU";
}

TEST_F(stp_in, new_link)
{
    port_of(1)->portEnabled = 0;
    expect_only(
        1, [](port_t *p) { initialised(p), p->portEnabled = 1; }, [] { EXPECT_EQ(STP_IN_enable_port(1, 0x80), 0); });
}

// ---- received BPDUs ---------------------------------------------------------------------

TEST_F(stp_in, a_bpdu_begins_a_pass)
{
    const records_t before = world.records;
    EXPECT_EQ(receive(port_of(1), heard_t{}), 0);
    EXPECT_EQ(port_of(1)->rstp_frame_recvs, before.ports[0].rstp_frame_recvs + 1);
    EXPECT_EQ(port_of(1)->rcvdBpdu, 1);
    EXPECT_EQ(port_of(1)->rcvdMsg, 1) << "port 2, the head, has run; port 1 has not";
    EXPECT_EQ(current_stpm, bridge);
    EXPECT_EQ(current_port, port_of(1));
}

TEST_F(stp_in, a_bpdu_for_a_disabled_bridge_is_refused)
{
    port_of(5)->operEdge = 1;
    expect_only(5, nothing, [] { EXPECT_EQ(receive(port_of(5), heard_t{}), 21); });
}

TEST_F(stp_in_DeathTest, a_bpdu_for_a_port_without_bridge_is_a_programming_error)
{
    EXPECT_DEATH(receive(port_of(9), heard_t{}), assertion("this", "stp_in", "STP_IN_rx_bpdu", 156));
}

/// When a BPDU on a port counts as a change of the topology. Port 1 does not run before port 2.
struct edge_row_t {
    const char *label;
    bool edge;
    bool detected;
    uint8_t delay;
    bool tc;
};

std::ostream &operator<<(std::ostream &out, const edge_row_t &row) { return out << row.label; }

const edge_row_t edge_port_rows[] = {
    {"on an edge port", true, true, 0, true},
    {"on a port that is no edge port", false, true, 0, false},
    {"on an edge port within its delay", true, true, 1, false},
    {"on an edge port without link so far", true, false, 0, false},
};

class stp_in_edge : public stp_in, public testing::WithParamInterface<edge_row_t> {};

TEST_P(stp_in_edge, bpdu)
{
    const edge_row_t &row = GetParam();
    port_t *port = port_of(1);
    port->operEdge = row.edge;
    port->edgeDetected = row.detected;
    port->edgeDelayWhile = row.delay;
    port->tc = 0;
    receive(port, heard_t{});
    EXPECT_EQ(port->tc, row.tc);
    EXPECT_EQ(port->operEdge, 0);
    EXPECT_EQ(port->rcvdBpdu, 1);
}

INSTANTIATE_TEST_SUITE_P(heard, stp_in_edge, testing::ValuesIn(edge_port_rows), label_of<edge_row_t>);

class stp_in_early : public stp_in {
protected:
    /// The BPDU arrives before the link was seen.
    stp_in_early()
    {
        port_t *port = port_of(1);
        port->edgeDetected = port->portEnabled = 0;
        port->fdWhile = 9;
        port->selectedRole = ROLE_DESIGNATED;
    }
};

TEST_F(stp_in_early, a_bpdu_may_overtake_the_report_of_its_link)
{
    receive(port_of(1), heard_t{});
    EXPECT_EQ(port_of(1)->portEnabled, 1);
    EXPECT_EQ(port_of(1)->fdWhile, 0) << "the port was initialised";
    EXPECT_EQ(port_of(1)->selectedRole, ROLE_DISABLED);
    EXPECT_EQ(port_of(1)->reselect, 1);
    EXPECT_EQ(port_of(1)->selected, 0);
    EXPECT_EQ(port_of(1)->rcvdMsg, 1) << "and then the BPDU was recorded";
}

TEST_F(stp_in_early, a_bpdu_without_link_enables_nothing)
{
    world.links[1].up = 0;
    receive(port_of(1), heard_t{});
    EXPECT_EQ(port_of(1)->portEnabled, 0);
    EXPECT_EQ(port_of(1)->fdWhile, 9);
    EXPECT_EQ(port_of(1)->rcvdMsg, 1) << "but is recorded";
}

TEST_F(stp_in_early, a_port_that_has_seen_its_link_is_not_initialised)
{
    port_of(1)->edgeDetected = 1;
    receive(port_of(1), heard_t{});
    EXPECT_EQ(port_of(1)->portEnabled, 0);
    EXPECT_EQ(port_of(1)->fdWhile, 9);
}

TEST_F(stp_in, an_unknown_bpdu_tells_that_a_bridge_is_there_all_the_same)
{
    port_of(1)->operEdge = 1;
    EXPECT_EQ(receive(port_of(1), heard_t{.type = 1}), 0);
    EXPECT_EQ(port_of(1)->unknown_frame_recvs, 1u);
    EXPECT_EQ(port_of(1)->rcvdBpdu, 1);
    EXPECT_EQ(port_of(1)->operEdge, 0);
    EXPECT_EQ(port_of(1)->rcvdMsg, 0);
    EXPECT_EQ(current_stpm, bridge) << "a pass is begun";
}

TEST_F(stp_in, nothing_behind_the_last_octet_of_a_bpdu_is_read)
{
    // A notification ends with its type; the frame's memory ends there too, as the address sanitizer knows.
    const octets_t notification = frame_of({.type = 0x80, .version = 0});
    ASSERT_EQ(notification.size(), 21u);
    EXPECT_EQ(receive(port_of(1), notification), 0);
    const octets_t configuration = frame_of({.type = 0, .version = 0, .flags = 0});
    ASSERT_EQ(configuration.size(), 52u);
    EXPECT_EQ(receive(port_of(1), configuration), 0);
    EXPECT_EQ(port_of(1)->tcn_frame_recvs, 1u);
    EXPECT_EQ(port_of(1)->stp_frame_recvs, 1u);
}

} // namespace
