// What the engine derives from the link: point-to-point, edge, path cost.
#include "engine_table.h"

namespace {

link_facts_t &link_of(const port_t *port) { return world_now().links[port->port_number]; }

// ---- point-to-point ---------------------------------------------------------------------

const move_row_t p2p_rows[] = {
    {"begin", STP_BEGIN, nothing, P2P_STABLE},
    {"init goes on", P2P_INIT, nothing, P2P_STABLE},
    {"recompute goes on", P2P_RECOMPUTE, nothing, P2P_STABLE},
    {"recompute goes on although asked again", P2P_RECOMPUTE, [](port_t *p) { p->p2pRecompute = 1; }, P2P_STABLE},
    {"stable rests", P2P_STABLE, nothing, STAYS},
    {"stable is asked", P2P_STABLE, [](port_t *p) { p->p2pRecompute = 1; }, P2P_RECOMPUTE},
    {"stable does not watch the duplex", P2P_STABLE, [](port_t *p) { link_of(p).duplex = 0, p->operPointToPoint = 1; },
     STAYS},
};

class p2p_moves : public machine_test, public testing::WithParamInterface<move_row_t> {};

TEST_P(p2p_moves, row) { expect_move(&port_t::p2p, GetParam()); }

INSTANTIATE_TEST_SUITE_P(when, p2p_moves, testing::ValuesIn(p2p_rows), label_of<move_row_t>);

void point_to_point(port_t *p)
{
    p->operPointToPoint = 1;
    p->p2pRecompute = 0;
}

void shared(port_t *p)
{
    p->operPointToPoint = 0;
    p->p2pRecompute = 0;
}

void asked(port_t *p, uint8_t admin, int duplex)
{
    p->config.adminPointToPoint = admin;
    link_of(p).duplex = duplex;
}

const entry_row_t p2p_actions[] = {
    {"begin", STP_BEGIN, nothing, [](port_t *p) { p->p2pRecompute = 1; }},
    {"init", P2P_INIT, nothing, [](port_t *p) { p->p2pRecompute = 1; }},
    {"forced true on full duplex", P2P_RECOMPUTE, [](port_t *p) { asked(p, 0, 1); }, point_to_point},
    {"forced true on half duplex", P2P_RECOMPUTE, [](port_t *p) { asked(p, 0, 0); }, point_to_point},
    {"forced false on full duplex", P2P_RECOMPUTE, [](port_t *p) { asked(p, 1, 1); }, shared},
    {"forced false on half duplex", P2P_RECOMPUTE, [](port_t *p) { asked(p, 1, 0); }, shared},
    {"automatic on full duplex", P2P_RECOMPUTE, [](port_t *p) { asked(p, 2, 1); }, point_to_point},
    {"automatic on half duplex", P2P_RECOMPUTE, [](port_t *p) { asked(p, 2, 0); }, shared},
    {"any other setting is automatic on full duplex", P2P_RECOMPUTE, [](port_t *p) { asked(p, 255, 1); },
     point_to_point},
    {"any other setting is automatic on half duplex", P2P_RECOMPUTE, [](port_t *p) { asked(p, 3, 0); }, shared},
    {"only one is full duplex", P2P_RECOMPUTE, [](port_t *p) { asked(p, 2, 2); }, shared},
    {"stable", P2P_STABLE, nothing, nothing},
};

class p2p_entries : public machine_test, public testing::WithParamInterface<entry_row_t> {};

TEST_P(p2p_entries, row) { expect_entry(&port_t::p2p, GetParam()); }

INSTANTIATE_TEST_SUITE_P(of, p2p_entries, testing::ValuesIn(p2p_actions), label_of<entry_row_t>);

// ---- edge -------------------------------------------------------------------------------

const move_row_t edge_rows[] = {
    {"begin", STP_BEGIN, nothing, EDGE_DISABLED},
    {"begin with link", STP_BEGIN, [](port_t *p) { p->portEnabled = 1; }, EDGE_DISABLED},
    {"disabled rests", EDGE_DISABLED, nothing, STAYS},
    {"disabled does not mind a bpdu", EDGE_DISABLED, [](port_t *p) { p->rcvdBpdu = 1; }, STAYS},
    {"disabled sees the link", EDGE_DISABLED, [](port_t *p) { p->portEnabled = 1; }, EDGE_DETECTED},
    {"detected goes on", EDGE_DETECTED, nothing, EDGE_DELEAYED},
    {"delayed waits", EDGE_DELEAYED, [](port_t *p) { p->portEnabled = p->edgeDelayWhile = 1; }, STAYS},
    {"delayed has waited", EDGE_DELEAYED, [](port_t *p) { p->portEnabled = 1; }, EDGE_RESOLVED},
    {"delayed hears a bpdu", EDGE_DELEAYED, [](port_t *p) { p->portEnabled = p->rcvdBpdu = p->edgeDelayWhile = 1; },
     EDGE_RESOLVED},
    {"delayed is resolved before it loses the link", EDGE_DELEAYED, nothing, EDGE_RESOLVED},
    {"delayed hears a bpdu before it loses the link", EDGE_DELEAYED,
     [](port_t *p) { p->rcvdBpdu = p->edgeDelayWhile = 1; }, EDGE_RESOLVED},
    {"delayed loses the link", EDGE_DELEAYED, [](port_t *p) { p->edgeDelayWhile = 1; }, EDGE_DISABLED},
    {"resolved rests", EDGE_RESOLVED, [](port_t *p) { p->portEnabled = p->rcvdBpdu = 1; }, STAYS},
    {"resolved loses the link", EDGE_RESOLVED, nothing, EDGE_DISABLED},
};

class edge_moves : public machine_test, public testing::WithParamInterface<move_row_t> {};

TEST_P(edge_moves, row) { expect_move(&port_t::edge, GetParam()); }

INSTANTIATE_TEST_SUITE_P(when, edge_moves, testing::ValuesIn(edge_rows), label_of<move_row_t>);

const entry_row_t edge_actions[] = {
    {"begin", STP_BEGIN, nothing, nothing},
    {"disabled with edge setting", EDGE_DISABLED, [](port_t *p) { p->config.adminEdge = 1; },
     [](port_t *p) { p->operEdge = 1, p->edgeDelayWhile = 0, p->edgeDetected = p->rcvdBpdu = 0; }},
    {"any edge setting but zero", EDGE_DISABLED, [](port_t *p) { p->config.adminEdge = 0x80; },
     [](port_t *p) { p->operEdge = 1, p->edgeDelayWhile = 0, p->edgeDetected = p->rcvdBpdu = 0; }},
    {"disabled without edge setting", EDGE_DISABLED, [](port_t *p) { p->config.adminEdge = 0; },
     [](port_t *p) { p->operEdge = 0, p->edgeDelayWhile = 0, p->edgeDetected = p->rcvdBpdu = 0; }},
    {"detected", EDGE_DETECTED, [](port_t *p) { p->config.adminEdge = 1; },
     [](port_t *p) { p->edgeDelayWhile = 3, p->edgeDetected = 1, p->operEdge = 0; }},
    {"delayed", EDGE_DELEAYED, nothing, nothing},
    {"resolved as edge", EDGE_RESOLVED, [](port_t *p) { p->rcvdBpdu = 0, p->config.adminEdge = 2; },
     [](port_t *p) { p->operEdge = 1; }},
    {"resolved as no edge by setting", EDGE_RESOLVED, [](port_t *p) { p->rcvdBpdu = 0, p->config.adminEdge = 0; },
     [](port_t *p) { p->operEdge = 0; }},
    {"resolved by a bpdu", EDGE_RESOLVED, [](port_t *p) { p->rcvdBpdu = 1, p->config.adminEdge = 1; }, nothing},
};

class edge_entries : public machine_test, public testing::WithParamInterface<entry_row_t> {};

TEST_P(edge_entries, row) { expect_entry(&port_t::edge, GetParam()); }

INSTANTIATE_TEST_SUITE_P(of, edge_entries, testing::ValuesIn(edge_actions), label_of<entry_row_t>);

// ---- path cost --------------------------------------------------------------------------

void cost(port_t *p, uint32_t admin, uint32_t now, uint32_t speed, uint32_t used)
{
    p->config.adminPathCost = admin;
    p->pathCost = now;
    p->speed = speed;
    p->usedSpeed = used;
}

const move_row_t pcost_rows[] = {
    {"begin", STP_BEGIN, nothing, PCOST_AUTO},
    {"auto goes on", PCOST_AUTO, nothing, PCOST_STABLE},
    {"forced goes on", PCOST_FORSE, nothing, PCOST_STABLE},
    {"automatic cost in force", PCOST_STABLE, [](port_t *p) { cost(p, 0, 20000, 1000, 1000); }, STAYS},
    {"automatic cost does not mind the cost itself", PCOST_STABLE, [](port_t *p) { cost(p, 0, 77, 1000, 1000); },
     STAYS},
    {"speed changed", PCOST_STABLE, [](port_t *p) { cost(p, 0, 20000, 100, 1000); }, PCOST_AUTO},
    {"back from a set cost", PCOST_STABLE, [](port_t *p) { cost(p, 0, 20000, 1000, 0xFFFFFFFF); }, PCOST_AUTO},
    {"set cost in force", PCOST_STABLE, [](port_t *p) { cost(p, 77, 77, 1000, 0xFFFFFFFF); }, STAYS},
    {"set cost does not mind the speed", PCOST_STABLE, [](port_t *p) { cost(p, 77, 77, 100, 1000); }, STAYS},
    {"cost was set", PCOST_STABLE, [](port_t *p) { cost(p, 77, 20000, 1000, 1000); }, PCOST_FORSE},
    {"cost was set anew", PCOST_STABLE, [](port_t *p) { cost(p, 78, 77, 1000, 0xFFFFFFFF); }, PCOST_FORSE},
};

class pcost_moves : public machine_test, public testing::WithParamInterface<move_row_t> {};

TEST_P(pcost_moves, row) { expect_move(&port_t::pcost, GetParam()); }

INSTANTIATE_TEST_SUITE_P(when, pcost_moves, testing::ValuesIn(pcost_rows), label_of<move_row_t>);

const entry_row_t pcost_actions[] = {
    {"begin", STP_BEGIN, nothing, [](port_t *p) { p->usedSpeed = p->speed = 1000, p->pathCost = 20000; }},
    {"auto", PCOST_AUTO, [](port_t *p) { link_of(p).speed = 100; },
     [](port_t *p) { p->usedSpeed = p->speed = 100, p->pathCost = 200000; }},
    {"forced", PCOST_FORSE, [](port_t *p) { p->config.adminPathCost = 77; },
     [](port_t *p) { p->usedSpeed = 0xFFFFFFFF, p->pathCost = 77; }},
    {"stable", PCOST_STABLE, nothing, nothing},
};

class pcost_entries : public machine_test, public testing::WithParamInterface<entry_row_t> {};

TEST_P(pcost_entries, row) { expect_entry(&port_t::pcost, GetParam()); }

INSTANTIATE_TEST_SUITE_P(of, pcost_entries, testing::ValuesIn(pcost_actions), label_of<entry_row_t>);

struct speed_row_t {
    const char *label;
    uint32_t speed;
    uint32_t cost;
};

std::ostream &operator<<(std::ostream &out, const speed_row_t &row) { return out << row.label; }

const speed_row_t speeds[] = {
    {"unknown", 0, 200000000},           {"slowest", 1, 20000000},   {"10 megabit", 10, 2000000},
    {"100 megabit", 100, 200000},        {"1 gigabit", 1000, 20000}, {"rounded down", 3, 6666666},
    {"last cost above two", 6666666, 3}, {"two", 6666667, 2},        {"one is raised to two", 20000000, 2},
    {"just above", 20000001, 2},         {"highest", 0xFFFFFFFF, 2},
};

class pcost_speeds : public machine_test, public testing::WithParamInterface<speed_row_t> {};

TEST_P(pcost_speeds, cost)
{
    world.links[2].speed = GetParam().speed;
    port->pcost.State = PCOST_AUTO;
    STP_pcost_enter_state(&port->pcost);
    EXPECT_EQ(port->pathCost, GetParam().cost);
    EXPECT_EQ(port->speed, GetParam().speed);
    EXPECT_EQ(port->usedSpeed, GetParam().speed);
}

INSTANTIATE_TEST_SUITE_P(of, pcost_speeds, testing::ValuesIn(speeds), label_of<speed_row_t>);

// ---- all rules --------------------------------------------------------------------------

class link_machines : public machine_test {};

TEST_F(link_machines, p2p_follows_its_rules_whatever_the_port)
{
    expect_rules(&port_t::p2p,
                 {
                     {STP_BEGIN, ALWAYS, P2P_STABLE},
                     {P2P_INIT, ALWAYS, P2P_STABLE},
                     {P2P_RECOMPUTE, ALWAYS, P2P_STABLE},
                     {P2P_STABLE, WHEN(p.p2pRecompute != 0), P2P_RECOMPUTE},
                 },
                 P2P_STABLE);
}

TEST_F(link_machines, edge_follows_its_rules_whatever_the_port)
{
    expect_rules(&port_t::edge,
                 {
                     {STP_BEGIN, ALWAYS, EDGE_DISABLED},
                     {EDGE_DISABLED, WHEN(p.portEnabled != 0), EDGE_DETECTED},
                     {EDGE_DETECTED, ALWAYS, EDGE_DELEAYED},
                     {EDGE_DELEAYED, WHEN(p.rcvdBpdu || p.edgeDelayWhile == 0), EDGE_RESOLVED},
                     {EDGE_DELEAYED, WHEN(!p.portEnabled), EDGE_DISABLED},
                     {EDGE_RESOLVED, WHEN(!p.portEnabled), EDGE_DISABLED},
                 },
                 EDGE_RESOLVED);
}

TEST_F(link_machines, pcost_follows_its_rules_whatever_the_port)
{
    expect_rules(
        &port_t::pcost,
        {
            {STP_BEGIN, ALWAYS, PCOST_AUTO},
            {PCOST_AUTO, ALWAYS, PCOST_STABLE},
            {PCOST_FORSE, ALWAYS, PCOST_STABLE},
            {PCOST_STABLE, WHEN(p.config.adminPathCost == 0 && p.speed != p.usedSpeed), PCOST_AUTO},
            {PCOST_STABLE, WHEN(p.config.adminPathCost != 0 && p.pathCost != p.config.adminPathCost), PCOST_FORSE},
        },
        PCOST_STABLE);
}

} // namespace
