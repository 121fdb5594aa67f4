// State transition, which moves the hardware, and topology change, which makes it forget.
#include "engine_table.h"

namespace {

// ---- state transition: moves ------------------------------------------------------------

const move_row_t sttrans_rows[] = {
    {"begin", STP_BEGIN, nothing, STTRANS_DISCARDING},
    {"begin does not skip discarding", STP_BEGIN, [](port_t *p) { p->learn = p->forward = 1; }, STTRANS_DISCARDING},
    {"discarding rests", STTRANS_DISCARDING, nothing, STAYS},
    {"discarding learns", STTRANS_DISCARDING, [](port_t *p) { p->learn = 1; }, STTRANS_LEARNING},
    {"discarding learns before it forwards", STTRANS_DISCARDING, [](port_t *p) { p->learn = p->forward = 1; },
     STTRANS_LEARNING},
    {"discarding does not forward without learning", STTRANS_DISCARDING, [](port_t *p) { p->forward = 1; }, STAYS},
    {"learning rests", STTRANS_LEARNING, [](port_t *p) { p->learn = 1; }, STAYS},
    {"learning forwards", STTRANS_LEARNING, [](port_t *p) { p->learn = p->forward = 1; }, STTRANS_FORWARDING},
    {"learning forwards although it shall not learn", STTRANS_LEARNING, [](port_t *p) { p->forward = 1; },
     STTRANS_FORWARDING},
    {"learning discards", STTRANS_LEARNING, nothing, STTRANS_DISCARDING},
    {"forwarding rests", STTRANS_FORWARDING, [](port_t *p) { p->learn = p->forward = 1; }, STAYS},
    {"forwarding does not mind learning", STTRANS_FORWARDING, [](port_t *p) { p->forward = 1; }, STAYS},
    {"forwarding discards", STTRANS_FORWARDING, [](port_t *p) { p->learn = 1; }, STTRANS_DISCARDING},
};

class sttrans_moves : public machine_test, public testing::WithParamInterface<move_row_t> {};

TEST_P(sttrans_moves, row) { expect_move(&port_t::sttrans, GetParam()); }

INSTANTIATE_TEST_SUITE_P(when, sttrans_moves, testing::ValuesIn(sttrans_rows), label_of<move_row_t>);

class sttrans : public machine_test {};

TEST_F(sttrans, follows_its_rules_whatever_the_port)
{
    expect_rules(&port_t::sttrans,
                 {
                     {STP_BEGIN, ALWAYS, STTRANS_DISCARDING},
                     {STTRANS_DISCARDING, WHEN(p.learn != 0), STTRANS_LEARNING},
                     {STTRANS_LEARNING, WHEN(p.forward != 0), STTRANS_FORWARDING},
                     {STTRANS_LEARNING, WHEN(!p.learn), STTRANS_DISCARDING},
                     {STTRANS_FORWARDING, WHEN(!p.forward), STTRANS_DISCARDING},
                 },
                 STTRANS_FORWARDING);
}

// ---- state transition: entries ----------------------------------------------------------

const entry_row_t sttrans_actions[] = {
    {"begin", STP_BEGIN, nothing, [](port_t *p) { p->learning = p->forwarding = 0; }, {"flush 2 0 1 2", "state 2 1"}},
    {"discarding",
     STTRANS_DISCARDING,
     nothing,
     [](port_t *p) { p->learning = p->forwarding = 0; },
     {"flush 2 0 1 2", "state 2 1"}},
    {"learning", STTRANS_LEARNING, nothing, [](port_t *p) { p->learning = 1; }, {"state 2 3"}},
    {"forwarding",
     STTRANS_FORWARDING,
     [](port_t *p) { p->operEdge = 0; },
     [](port_t *p) { p->tc = 1, p->forwarding = 1; },
     {"state 2 4"}},
    {"forwarding of an edge port forgets a topology change",
     STTRANS_FORWARDING,
     [](port_t *p) { p->operEdge = 1; },
     [](port_t *p) { p->tc = 0, p->forwarding = 1; },
     {"state 2 4"}},
};

class sttrans_entries : public machine_test, public testing::WithParamInterface<entry_row_t> {};

TEST_P(sttrans_entries, row) { expect_entry(&port_t::sttrans, GetParam()); }

INSTANTIATE_TEST_SUITE_P(of, sttrans_entries, testing::ValuesIn(sttrans_actions), label_of<entry_row_t>);

// ---- topology change: moves -------------------------------------------------------------

void as_root(port_t *p) { p->role = ROLE_ROOT; }

void as_designated(port_t *p) { p->role = ROLE_DESIGNATED; }

void everything(port_t *p) { p->tc = p->rcvdTcn = p->rcvdTc = p->tcProp = p->rcvdTcAck = 1; }

const move_row_t topoch_rows[] = {
    {"begin", STP_BEGIN, nothing, TOPOCH_INIT},
    {"init goes on", TOPOCH_INIT, nothing, TOPOCH_INACTIVE},
    {"inactive rests", TOPOCH_INACTIVE, nothing, STAYS},
    {"inactive becomes root", TOPOCH_INACTIVE, as_root, TOPOCH_TCACTIVE},
    {"inactive becomes designated", TOPOCH_INACTIVE, as_designated, TOPOCH_TCACTIVE},
    {"inactive becomes active before it forgets", TOPOCH_INACTIVE, [](port_t *p) { as_root(p), everything(p); },
     TOPOCH_TCACTIVE},
    {"inactive alternate rests", TOPOCH_INACTIVE, [](port_t *p) { p->role = ROLE_ALTERNATE; }, STAYS},
    {"inactive backup rests", TOPOCH_INACTIVE, [](port_t *p) { p->role = ROLE_BACKUP; }, STAYS},
    {"inactive non stp rests", TOPOCH_INACTIVE, [](port_t *p) { p->role = ROLE_NON_STP; }, STAYS},
    {"inactive forgets rcvdTc", TOPOCH_INACTIVE, [](port_t *p) { p->rcvdTc = 1; }, TOPOCH_INACTIVE},
    {"inactive forgets rcvdTcAck", TOPOCH_INACTIVE, [](port_t *p) { p->rcvdTcAck = 1; }, TOPOCH_INACTIVE},
    {"inactive forgets rcvdTcn", TOPOCH_INACTIVE, [](port_t *p) { p->rcvdTcn = 1; }, TOPOCH_INACTIVE},
    {"inactive forgets tc", TOPOCH_INACTIVE, [](port_t *p) { p->tc = 1; }, TOPOCH_INACTIVE},
    {"inactive forgets tcProp", TOPOCH_INACTIVE, [](port_t *p) { p->tcProp = 1; }, TOPOCH_INACTIVE},
    {"inactive keeps tcAck", TOPOCH_INACTIVE, [](port_t *p) { p->tcAck = 1; }, STAYS},

    {"active root rests", TOPOCH_TCACTIVE, as_root, STAYS},
    {"active designated rests", TOPOCH_TCACTIVE, as_designated, STAYS},
    {"active disabled ends", TOPOCH_TCACTIVE, nothing, TOPOCH_INIT},
    {"active alternate ends before all else", TOPOCH_TCACTIVE,
     [](port_t *p) { everything(p), p->role = ROLE_ALTERNATE; }, TOPOCH_INIT},
    {"active backup ends", TOPOCH_TCACTIVE, [](port_t *p) { p->role = ROLE_BACKUP; }, TOPOCH_INIT},
    {"active non stp ends", TOPOCH_TCACTIVE, [](port_t *p) { p->role = ROLE_NON_STP; }, TOPOCH_INIT},
    {"first a change of its own", TOPOCH_TCACTIVE, [](port_t *p) { as_root(p), everything(p); }, TOPOCH_DETECTED},
    {"second a notification", TOPOCH_TCACTIVE, [](port_t *p) { as_root(p), everything(p), p->tc = 0; },
     TOPOCH_NOTIFIED_TCN},
    {"third a received change", TOPOCH_TCACTIVE, [](port_t *p) { as_root(p), everything(p), p->tc = p->rcvdTcn = 0; },
     TOPOCH_NOTIFIED_TC},
    {"fourth a change of another port", TOPOCH_TCACTIVE, [](port_t *p) { as_root(p), p->tcProp = p->rcvdTcAck = 1; },
     TOPOCH_PROPAGATING},
    {"last an acknowledgement", TOPOCH_TCACTIVE, [](port_t *p) { as_root(p), p->rcvdTcAck = 1; }, TOPOCH_ACKNOWLEDGED},
    {"an edge port does not propagate", TOPOCH_TCACTIVE,
     [](port_t *p) { as_designated(p), p->tcProp = p->operEdge = 1; }, STAYS},
    {"an edge port may be acknowledged", TOPOCH_TCACTIVE,
     [](port_t *p) { as_designated(p), p->tcProp = p->operEdge = p->rcvdTcAck = 1; }, TOPOCH_ACKNOWLEDGED},

    {"detected goes on", TOPOCH_DETECTED, nothing, TOPOCH_TCACTIVE},
    {"notified tc goes on", TOPOCH_NOTIFIED_TC, nothing, TOPOCH_TCACTIVE},
    {"propagating goes on", TOPOCH_PROPAGATING, nothing, TOPOCH_TCACTIVE},
    {"acknowledged goes on", TOPOCH_ACKNOWLEDGED, nothing, TOPOCH_TCACTIVE},
    {"notified tcn goes on as a topology change", TOPOCH_NOTIFIED_TCN, nothing, TOPOCH_NOTIFIED_TC},
};

class topoch_moves : public machine_test, public testing::WithParamInterface<move_row_t> {};

TEST_P(topoch_moves, row) { expect_move(&port_t::topoch, GetParam()); }

INSTANTIATE_TEST_SUITE_P(when, topoch_moves, testing::ValuesIn(topoch_rows), label_of<move_row_t>);

class topoch : public machine_test {};

TEST_F(topoch, follows_its_rules_whatever_the_port)
{
    expect_rules(&port_t::topoch,
                 {
                     {STP_BEGIN, ALWAYS, TOPOCH_INIT},
                     {TOPOCH_INIT, ALWAYS, TOPOCH_INACTIVE},
                     {TOPOCH_INACTIVE, WHEN(p.role == 3 || p.role == 4), TOPOCH_TCACTIVE},
                     {TOPOCH_INACTIVE, WHEN(p.rcvdTc || p.rcvdTcAck || p.rcvdTcn || p.tc || p.tcProp), TOPOCH_INACTIVE},
                     {TOPOCH_TCACTIVE, WHEN(p.role != 3 && p.role != 4), TOPOCH_INIT},
                     {TOPOCH_TCACTIVE, WHEN(p.tc != 0), TOPOCH_DETECTED},
                     {TOPOCH_TCACTIVE, WHEN(p.rcvdTcn != 0), TOPOCH_NOTIFIED_TCN},
                     {TOPOCH_TCACTIVE, WHEN(p.rcvdTc != 0), TOPOCH_NOTIFIED_TC},
                     {TOPOCH_TCACTIVE, WHEN(p.tcProp && !p.operEdge), TOPOCH_PROPAGATING},
                     {TOPOCH_TCACTIVE, WHEN(p.rcvdTcAck != 0), TOPOCH_ACKNOWLEDGED},
                     {TOPOCH_DETECTED, ALWAYS, TOPOCH_TCACTIVE},
                     {TOPOCH_NOTIFIED_TC, ALWAYS, TOPOCH_TCACTIVE},
                     {TOPOCH_PROPAGATING, ALWAYS, TOPOCH_TCACTIVE},
                     {TOPOCH_ACKNOWLEDGED, ALWAYS, TOPOCH_TCACTIVE},
                     {TOPOCH_NOTIFIED_TCN, ALWAYS, TOPOCH_NOTIFIED_TC},
                 },
                 TOPOCH_NOTIFIED_TCN);
}

// ---- topology change: entries -----------------------------------------------------------

void rstp_link(port_t *p) { p->sendRSTP = p->operPointToPoint = 1; }

void edges(std::initializer_list<uint32_t> numbers)
{
    for (const uint32_t number : {1, 2, 3, 4})
        port_of(number)->operEdge = 0;
    for (const uint32_t number : numbers)
        port_of(number)->operEdge = 1;
}

void init(port_t *p)
{
    p->tcWhile = 0;
    p->tc = p->tcAck = p->tcProp = 0;
}

/// The bench's ports are listed 4, 3, 2, 1, and 4 takes no part: the last that is no edge port gives the
/// flush its number.
const entry_row_t topoch_actions[] = {
    {"begin", STP_BEGIN, nothing, init},
    {"init", TOPOCH_INIT, nothing, init},
    {"inactive", TOPOCH_INACTIVE, nothing,
     [](port_t *p) { p->tc = p->tcProp = p->rcvdTc = p->rcvdTcAck = p->rcvdTcn = 0; }},
    {"active", TOPOCH_TCACTIVE, nothing, nothing},
    {"detected",
     TOPOCH_DETECTED,
     [](port_t *p) { rstp_link(p), edges({}); },
     [](port_t *p) { p->tcWhile = 4, port_of(1)->tcProp = port_of(3)->tcProp = 1, p->tc = 0; },
     {"flush 1 0 1 2"}},
    {"detected beside an edge port",
     TOPOCH_DETECTED,
     [](port_t *p) {
         rstp_link(p), edges({1, 2});
     },
     [](port_t *p) { p->tcWhile = 4, port_of(1)->tcProp = port_of(3)->tcProp = 1, p->tc = 0; },
     {"flush 3 0 1 2"}},
    {"detected on the only port that is no edge port",
     TOPOCH_DETECTED,
     [](port_t *p) {
         rstp_link(p), edges({1, 3});
     },
     [](port_t *p) { p->tcWhile = 4, port_of(1)->tcProp = port_of(3)->tcProp = 1, p->tc = 0; },
     {"flush 2 0 1 2"}},
    {"detected among edge ports",
     TOPOCH_DETECTED,
     [](port_t *p) {
         rstp_link(p), edges({1, 2, 3});
     },
     [](port_t *p) { p->tcWhile = 4, port_of(1)->tcProp = port_of(3)->tcProp = 1, p->tc = 0; },
     {}},
    {"detected on an stp link",
     TOPOCH_DETECTED,
     [](port_t *p) { rstp_link(p), edges({}), p->sendRSTP = 0; },
     [](port_t *p) { p->tcWhile = 35, port_of(1)->tcProp = port_of(3)->tcProp = 1, p->tc = 0; },
     {"flush 1 0 1 2"}},
    {"detected on a shared link",
     TOPOCH_DETECTED,
     [](port_t *p) { rstp_link(p), edges({}), p->operPointToPoint = 0; },
     [](port_t *p) { p->tcWhile = 35, port_of(1)->tcProp = port_of(3)->tcProp = 1, p->tc = 0; },
     {"flush 1 0 1 2"}},
    {"notified tc",
     TOPOCH_NOTIFIED_TC,
     [](port_t *p) { as_root(p), edges({}); },
     [](port_t *p) { p->rcvdTc = p->rcvdTcn = 0, port_of(1)->tcProp = port_of(3)->tcProp = 1; },
     {"flush 1 0 1 3"}},
    {"notified tc of a designated port is acknowledged",
     TOPOCH_NOTIFIED_TC,
     [](port_t *p) { as_designated(p), edges({}); },
     [](port_t *p) { p->rcvdTc = p->rcvdTcn = 0, p->tcAck = 1, port_of(1)->tcProp = port_of(3)->tcProp = 1; },
     {"flush 1 0 1 3"}},
    {"notified tc among edge ports",
     TOPOCH_NOTIFIED_TC,
     [](port_t *p) {
         as_root(p), edges({1, 2, 3});
     },
     [](port_t *p) { p->rcvdTc = p->rcvdTcn = 0, port_of(1)->tcProp = port_of(3)->tcProp = 1; },
     {}},
    {"propagating", TOPOCH_PROPAGATING, rstp_link, [](port_t *p) { p->tcWhile = 4, p->tcProp = 0; }},
    {"propagating on an stp link", TOPOCH_PROPAGATING, [](port_t *p) { p->sendRSTP = 0, p->operPointToPoint = 1; },
     [](port_t *p) { p->tcWhile = 35, p->tcProp = 0; }},
    {"acknowledged", TOPOCH_ACKNOWLEDGED, nothing, [](port_t *p) { p->tcWhile = 0, p->rcvdTcAck = 0; }},
    {"notified tcn", TOPOCH_NOTIFIED_TCN, rstp_link, [](port_t *p) { p->tcWhile = 4; }},
    {"notified tcn on an stp link", TOPOCH_NOTIFIED_TCN, [](port_t *p) { p->sendRSTP = 0, p->operPointToPoint = 1; },
     [](port_t *p) { p->tcWhile = 35; }},
};

class topoch_entries : public machine_test, public testing::WithParamInterface<entry_row_t> {};

TEST_P(topoch_entries, row) { expect_entry(&port_t::topoch, GetParam()); }

INSTANTIATE_TEST_SUITE_P(of, topoch_entries, testing::ValuesIn(topoch_actions), label_of<entry_row_t>);

// ---- how long a change is told ----------------------------------------------------------

struct while_row_t {
    const char *label;
    bool rstp_point_to_point;
    timevalues_t root_times;
    uint8_t seconds;
};

std::ostream &operator<<(std::ostream &out, const while_row_t &row) { return out << row.label; }

const while_row_t whiles[] = {
    {"two hellos", true, {.MessageAge = 0, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 3}, 6},
    {"two hellos kept to eight bits", true, {.MessageAge = 0, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 130}, 4},
    {"max age and forward delay", false, {.MessageAge = 9, .MaxAge = 6, .ForwardDelay = 4, .HelloTime = 1}, 10},
    {"largest sum", false, {.MessageAge = 0, .MaxAge = 200, .ForwardDelay = 55, .HelloTime = 2}, 255},
    {"sum kept to eight bits", false, {.MessageAge = 0, .MaxAge = 200, .ForwardDelay = 100, .HelloTime = 2}, 44},
};

class topoch_whiles : public topoch, public testing::WithParamInterface<while_row_t> {};

TEST_P(topoch_whiles, row)
{
    const while_row_t &row = GetParam();
    bridge->rootTimes = row.root_times;
    port->sendRSTP = port->operPointToPoint = row.rstp_point_to_point;
    for (const rstpstate_t state : {TOPOCH_DETECTED, TOPOCH_PROPAGATING, TOPOCH_NOTIFIED_TCN}) {
        port->tcWhile = 99;
        port->topoch.State = state;
        STP_topoch_enter_state(&port->topoch);
        EXPECT_EQ(port->tcWhile, row.seconds) << STP_topoch_state_name(state);
    }
}

INSTANTIATE_TEST_SUITE_P(of, topoch_whiles, testing::ValuesIn(whiles), label_of<while_row_t>);

} // namespace
