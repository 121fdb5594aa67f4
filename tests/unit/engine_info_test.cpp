// The port information machine: recording, classification and ageing of what is heard.
#include "engine_table.h"

namespace {

// ---- moves ------------------------------------------------------------------------------

void up(port_t *p) { p->edgeDetected = 1; }

const move_row_t info_move_rows[] = {
    // Without a link the machine is DISABLED, wherever it was.
    {"link lost while begin", STP_BEGIN, [](port_t *p) { p->infoIs = INFO_IS_MINE; }, INFO_DISABLED},
    {"link lost while enabled", INFO_ENABLED, [](port_t *p) { p->infoIs = INFO_IS_MINE; }, INFO_DISABLED},
    {"link lost while aged", INFO_AGED, [](port_t *p) { p->infoIs = INFO_IS_AGED; }, INFO_DISABLED},
    {"link lost while current", INFO_CURRENT, [](port_t *p) { p->infoIs = INFO_IS_RECEIVED; }, INFO_DISABLED},
    {"link lost beats news", INFO_CURRENT, [](port_t *p) { p->infoIs = INFO_IS_MINE, p->selected = p->updtInfo = 1; },
     INFO_DISABLED},
    {"link lost beats a message", INFO_RECEIVE,
     [](port_t *p) { p->infoIs = INFO_IS_RECEIVED, p->rcvdInfo = RCVD_REPEATED; }, INFO_DISABLED},
    {"link lost while disabled with stale information", INFO_DISABLED, [](port_t *p) { p->infoIs = INFO_IS_MINE; },
     INFO_DISABLED},

    {"begin without link and information", STP_BEGIN, [](port_t *p) { p->infoIs = INFO_IS_DISABLED; }, INFO_DISABLED},
    {"begin with link", STP_BEGIN, up, INFO_DISABLED},

    {"disabled rests", INFO_DISABLED, [](port_t *p) { p->infoIs = INFO_IS_DISABLED; }, STAYS},
    {"disabled drops a request for news", INFO_DISABLED,
     [](port_t *p) { p->infoIs = INFO_IS_DISABLED, p->updtInfo = 1; }, INFO_DISABLED},
    {"disabled drops a request before it is enabled", INFO_DISABLED,
     [](port_t *p) { up(p), p->selected = p->updtInfo = 1; }, INFO_DISABLED},
    {"disabled is enabled when roles are selected", INFO_DISABLED, [](port_t *p) { up(p), p->selected = 1; },
     INFO_ENABLED},
    {"disabled is enabled before a message is dropped", INFO_DISABLED,
     [](port_t *p) { up(p), p->selected = p->rcvdMsg = 1; }, INFO_ENABLED},
    {"disabled waits for roles", INFO_DISABLED, up, STAYS},
    {"disabled waits for the link", INFO_DISABLED, [](port_t *p) { p->infoIs = INFO_IS_DISABLED, p->selected = 1; },
     STAYS},
    {"disabled drops a message", INFO_DISABLED, [](port_t *p) { up(p), p->rcvdMsg = 1; }, INFO_DISABLED},

    {"enabled goes on", INFO_ENABLED, up, INFO_AGED},
    {"enabled goes on without link while information is disabled", INFO_ENABLED,
     [](port_t *p) { p->infoIs = INFO_IS_DISABLED; }, INFO_AGED},

    {"aged takes news", INFO_AGED, [](port_t *p) { up(p), p->selected = p->updtInfo = 1; }, INFO_UPDATE},
    {"aged waits for roles", INFO_AGED, [](port_t *p) { up(p), p->updtInfo = 1; }, STAYS},
    {"aged waits for news", INFO_AGED, [](port_t *p) { up(p), p->selected = 1; }, STAYS},
    {"aged leaves a message alone", INFO_AGED, [](port_t *p) { up(p), p->rcvdMsg = 1; }, STAYS},

    {"update goes on", INFO_UPDATE, up, INFO_CURRENT},
    {"superior goes on", INFO_SUPERIOR, up, INFO_CURRENT},
    {"repeat goes on", INFO_REPEAT, up, INFO_CURRENT},
    {"agreement goes on", INFO_AGREEMENT, up, INFO_CURRENT},

    {"current rests", INFO_CURRENT, up, STAYS},
    {"current takes news", INFO_CURRENT, [](port_t *p) { up(p), p->selected = p->updtInfo = 1; }, INFO_UPDATE},
    {"current takes news before a message", INFO_CURRENT,
     [](port_t *p) { up(p), p->selected = p->updtInfo = p->rcvdMsg = 1; }, INFO_UPDATE},
    {"current waits for roles", INFO_CURRENT, [](port_t *p) { up(p), p->updtInfo = 1; }, STAYS},
    {"current keeps a message while news wait", INFO_CURRENT, [](port_t *p) { up(p), p->updtInfo = p->rcvdMsg = 1; },
     STAYS},
    {"current ages", INFO_CURRENT, [](port_t *p) { up(p), p->infoIs = INFO_IS_RECEIVED; }, INFO_AGED},
    {"current does not age while time is left", INFO_CURRENT,
     [](port_t *p) { up(p), p->infoIs = INFO_IS_RECEIVED, p->rcvdInfoWhile = 1; }, STAYS},
    {"current does not age while news wait", INFO_CURRENT,
     [](port_t *p) { up(p), p->infoIs = INFO_IS_RECEIVED, p->updtInfo = 1; }, STAYS},
    {"current hears a message before it ages", INFO_CURRENT,
     [](port_t *p) { up(p), p->infoIs = INFO_IS_RECEIVED, p->rcvdMsg = 1; }, INFO_RECEIVE},
    {"own information does not age", INFO_CURRENT, [](port_t *p) { up(p), p->infoIs = INFO_IS_MINE; }, STAYS},
    {"current hears a message", INFO_CURRENT, [](port_t *p) { up(p), p->rcvdMsg = 1; }, INFO_RECEIVE},

    {"received superior", INFO_RECEIVE, [](port_t *p) { up(p), p->rcvdInfo = 0; }, INFO_SUPERIOR},
    {"received repeated", INFO_RECEIVE, [](port_t *p) { up(p), p->rcvdInfo = 1; }, INFO_REPEAT},
    {"received agreement", INFO_RECEIVE, [](port_t *p) { up(p), p->rcvdInfo = 2; }, INFO_AGREEMENT},
    {"received other", INFO_RECEIVE, [](port_t *p) { up(p), p->rcvdInfo = 3; }, INFO_CURRENT},
};

class info_moves : public machine_test, public testing::WithParamInterface<move_row_t> {};

TEST_P(info_moves, row) { expect_move(&port_t::info, GetParam()); }

INSTANTIATE_TEST_SUITE_P(when, info_moves, testing::ValuesIn(info_move_rows), label_of<move_row_t>);

class info : public machine_test {
protected:
    /// Hands a BPDU to the machine and lets it classify.
    void hear(const heard_t &heard)
    {
        const octets_t frame = frame_of(heard);
        STP_info_rx_bpdu(port, reinterpret_cast<const bpdu_t *>(frame.data()), 36);
        port->info.State = INFO_RECEIVE;
        STP_info_enter_state(&port->info);
    }

    void enter(rstpstate_t state)
    {
        port->info.State = state;
        STP_info_enter_state(&port->info);
    }
};

TEST_F(info, follows_its_rules_whatever_the_port)
{
    expect_rules(
        &port_t::info,
        {
            {ANY, WHEN(!p.edgeDetected && p.infoIs != 3), INFO_DISABLED},
            {STP_BEGIN, ALWAYS, INFO_DISABLED},
            {INFO_DISABLED, WHEN(p.updtInfo != 0), INFO_DISABLED},
            {INFO_DISABLED, WHEN(p.edgeDetected && p.selected), INFO_ENABLED},
            {INFO_DISABLED, WHEN(p.rcvdMsg != 0), INFO_DISABLED},
            {INFO_ENABLED, ALWAYS, INFO_AGED},
            {INFO_AGED, WHEN(p.selected && p.updtInfo), INFO_UPDATE},
            {INFO_UPDATE, ALWAYS, INFO_CURRENT},
            {INFO_SUPERIOR, ALWAYS, INFO_CURRENT},
            {INFO_REPEAT, ALWAYS, INFO_CURRENT},
            {INFO_AGREEMENT, ALWAYS, INFO_CURRENT},
            {INFO_CURRENT, WHEN(p.selected && p.updtInfo), INFO_UPDATE},
            {INFO_CURRENT, WHEN(p.infoIs == 2 && p.rcvdInfoWhile == 0 && !p.updtInfo && !p.rcvdMsg), INFO_AGED},
            {INFO_CURRENT, WHEN(p.rcvdMsg && !p.updtInfo), INFO_RECEIVE},
            {INFO_RECEIVE, WHEN(p.rcvdInfo == 0), INFO_SUPERIOR},
            {INFO_RECEIVE, WHEN(p.rcvdInfo == 1), INFO_REPEAT},
            {INFO_RECEIVE, WHEN(p.rcvdInfo == 2), INFO_AGREEMENT},
            {INFO_RECEIVE, ALWAYS, INFO_CURRENT},
        },
        INFO_AGREEMENT);
}

// ---- entry actions ----------------------------------------------------------------------

void disabled(port_t *p)
{
    p->reselect = 1;
    p->selected = p->updtInfo = p->agreed = 0;
    p->proposed = p->proposing = p->rcvdMsg = p->rcvdRSTP = p->rcvdSTP = 0;
    p->infoIs = 3;
    p->rcvdInfoWhile = 0;
}

/// A message that asks for six seconds of patience.
void message(port_t *p)
{
    p->msgPrio = {{1, {1, 2, 3, 4, 5, 6}}, 7, {8, {9, 10, 11, 12, 13, 14}}, 15, 16};
    p->msgTimes = {.MessageAge = 1, .MaxAge = 20, .ForwardDelay = 14, .HelloTime = 2};
    p->rcvdRole = 3;
    p->rcvdFlags = 0x0E;
    p->operPointToPoint = 1;
}

const entry_row_t info_entry_rows[] = {
    {"begin", STP_BEGIN, nothing,
     [](port_t *p) {
         p->rcvdInfo = 3;
         p->rcvdType = 255;
         p->rcvdRole = 0;
         p->rcvdFlags = 0;
         disabled(p);
     }},
    {"disabled", INFO_DISABLED, nothing, disabled},
    {"enabled", INFO_ENABLED, nothing,
     [](port_t *p) { p->portPrio = p->designatedPrio, p->portTimes = p->designatedTimes; }},
    {"aged", INFO_AGED, nothing, [](port_t *p) { p->infoIs = 1, p->reselect = 1, p->selected = 0; }},
    {"update", INFO_UPDATE, nothing,
     [](port_t *p) {
         p->portPrio = p->designatedPrio;
         p->portTimes = p->designatedTimes;
         p->proposed = p->proposing = p->agreed = p->synced = p->updtInfo = 0;
         p->newInfo = 1;
         p->infoIs = 0;
     }},
    {"current", INFO_CURRENT, nothing, nothing},
    {"superior", INFO_SUPERIOR, message,
     [](port_t *p) {
         p->portPrio = p->msgPrio;
         p->portTimes = p->msgTimes;
         p->rcvdInfoWhile = 6;
         p->agreed = p->synced = p->proposing = 0;
         p->proposed = 1;
         p->reselect = 1;
         p->selected = 0;
         p->infoIs = 2;
     }},
    {"superior without proposal", INFO_SUPERIOR, [](port_t *p) { message(p), p->rcvdFlags = 0x0C; },
     [](port_t *p) {
         p->portPrio = p->msgPrio;
         p->portTimes = p->msgTimes;
         p->rcvdInfoWhile = 6;
         p->agreed = p->synced = p->proposing = p->proposed = 0;
         p->reselect = 1;
         p->selected = 0;
         p->infoIs = 2;
     }},
    {"repeat", INFO_REPEAT,
     [](port_t *p) {
         message(p), p->portTimes = {2, 20, 15, 5};
     },
     [](port_t *p) { p->proposed = 1, p->rcvdInfoWhile = 15; }},
    {"repeat without proposal", INFO_REPEAT,
     [](port_t *p) {
         message(p), p->rcvdFlags = 0xFD, p->portTimes = {2, 20, 15, 5};
     },
     [](port_t *p) { p->proposed = 0, p->rcvdInfoWhile = 15; }},
    {"agreement", INFO_AGREEMENT, nothing, [](port_t *p) { p->agreed = 1, p->proposing = 0; }},

    // RECEIVE, for what is not its classification.
    {"receive a notification", INFO_RECEIVE,
     [](port_t *p) { p->rcvdType = 128, p->rcvdVersion = 0, p->rcvdRole = 2, p->rcvdFlags = 0xFF; },
     [](port_t *p) { p->rcvdInfo = 3, p->rcvdSTP = p->rcvdTcn = 1, p->rcvdMsg = 0; }},
    {"receive a notification of a later version", INFO_RECEIVE,
     [](port_t *p) { p->rcvdType = 128, p->rcvdVersion = 2; },
     [](port_t *p) { p->rcvdInfo = 3, p->rcvdSTP = p->rcvdTcn = 1, p->rcvdMsg = 0; }},
    {"receive a configuration", INFO_RECEIVE,
     [](port_t *p) { message(p), p->rcvdType = 0, p->rcvdVersion = 0, p->rcvdFlags = 0x0C, p->portPrio = {}; },
     [](port_t *p) { p->rcvdInfo = 3, p->rcvdRole = 0, p->rcvdSTP = 1, p->rcvdMsg = 0; }},
    {"receive a configuration of version 2", INFO_RECEIVE,
     [](port_t *p) { message(p), p->rcvdType = 0, p->rcvdVersion = 2, p->rcvdFlags = 0, p->portPrio = {}; },
     [](port_t *p) { p->rcvdInfo = 3, p->rcvdRole = 0, p->rcvdMsg = 0; }},
    {"receive a configuration with topology change", INFO_RECEIVE,
     [](port_t *p) { message(p), p->rcvdType = 0, p->rcvdVersion = 1, p->rcvdFlags = 0x01, p->portPrio = {}; },
     [](port_t *p) { p->rcvdInfo = 3, p->rcvdRole = 0, p->rcvdSTP = p->rcvdTc = 1, p->rcvdMsg = 0; }},
    {"receive a configuration with acknowledgement", INFO_RECEIVE,
     [](port_t *p) { message(p), p->rcvdType = 0, p->rcvdVersion = 0, p->rcvdFlags = 0x80, p->portPrio = {}; },
     [](port_t *p) { p->rcvdInfo = 3, p->rcvdRole = 0, p->rcvdSTP = p->rcvdTcAck = 1, p->rcvdMsg = 0; }},
    {"receive a rst", INFO_RECEIVE,
     [](port_t *p) { message(p), p->rcvdType = 2, p->rcvdVersion = 2, p->rcvdFlags = 0x3C, p->portPrio = {}; },
     [](port_t *p) { p->rcvdInfo = 3, p->rcvdRole = 3, p->rcvdRSTP = 1, p->rcvdMsg = 0; }},
    {"receive a rst of a later version", INFO_RECEIVE,
     [](port_t *p) { message(p), p->rcvdType = 2, p->rcvdVersion = 3, p->rcvdFlags = 0x00, p->portPrio = {}; },
     [](port_t *p) { p->rcvdInfo = 3, p->rcvdRole = 0, p->rcvdRSTP = 1, p->rcvdMsg = 0; }},
    {"receive a rst of an earlier version", INFO_RECEIVE,
     [](port_t *p) { message(p), p->rcvdType = 2, p->rcvdVersion = 1, p->rcvdFlags = 0x08, p->portPrio = {}; },
     [](port_t *p) { p->rcvdInfo = 3, p->rcvdRole = 2, p->rcvdRSTP = p->rcvdSTP = 1, p->rcvdMsg = 0; }},
    {"receive a rst with both topology change flags", INFO_RECEIVE,
     [](port_t *p) { message(p), p->rcvdType = 2, p->rcvdVersion = 2, p->rcvdFlags = 0x85, p->portPrio = {}; },
     [](port_t *p) { p->rcvdInfo = 3, p->rcvdRole = 1, p->rcvdRSTP = p->rcvdTc = p->rcvdTcAck = 1, p->rcvdMsg = 0; }},
};

class info_entries : public machine_test, public testing::WithParamInterface<entry_row_t> {};

TEST_P(info_entries, row) { expect_entry(&port_t::info, GetParam()); }

INSTANTIATE_TEST_SUITE_P(of, info_entries, testing::ValuesIn(info_entry_rows), label_of<entry_row_t>);

// ---- classification ---------------------------------------------------------------------

/// What is heard after the first BPDU of `said` became the port's information.
struct class_row_t {
    const char *label;
    void (*heard)(heard_t &heard);
    uint8_t classified;
    change_t given = nothing;
};

std::ostream &operator<<(std::ostream &out, const class_row_t &row) { return out << row.label; }

enum : uint8_t { SUPERIOR = 0, REPEATED = 1, AGREEMENT = 2, OTHER = 3 };

const heard_t said = {.flags = 0x0C,
                      .root = {8192, {2, 0, 0, 0, 0, 0x55}},
                      .cost = 20000,
                      .bridge = {16384, {2, 0, 0, 0, 0, 0x66}},
                      .port_id = 0x8005,
                      .times = {.MessageAge = 2, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 2}};

constexpr uint8_t agreement_of_root = 0x48;

const class_row_t classes[] = {
    {"the same again", [](heard_t &) {}, REPEATED},
    {"better root", [](heard_t &h) { h.root.prio = 4096; }, SUPERIOR},
    {"better cost", [](heard_t &h) { h.cost = 19999; }, SUPERIOR},
    {"better bridge", [](heard_t &h) { h.bridge.addr[5] = 0x65; }, SUPERIOR},
    {"better port", [](heard_t &h) { h.port_id = 0x8004; }, SUPERIOR},
    {"better bridge with better times too", [](heard_t &h) { h.bridge.prio = 1, h.times.MaxAge = 6; }, SUPERIOR},

    {"same sender with new message age", [](heard_t &h) { h.times.MessageAge = 3; }, SUPERIOR},
    {"same sender with new max age", [](heard_t &h) { h.times.MaxAge = 21; }, SUPERIOR},
    {"same sender with new forward delay", [](heard_t &h) { h.times.ForwardDelay = 16; }, SUPERIOR},
    {"same sender with new hello time", [](heard_t &h) { h.times.HelloTime = 1; }, SUPERIOR},
    {"same sender worse with new times", [](heard_t &h) { h.cost = 20001, h.times.MessageAge = 3; }, SUPERIOR},
    {"same sender worse root with new times", [](heard_t &h) { h.root.prio = 40960, h.times.MessageAge = 3; },
     SUPERIOR},
    {"same sender worse with unchanged times", [](heard_t &h) { h.cost = 20001; }, OTHER},
    {"same sender worse root with unchanged times", [](heard_t &h) { h.root.prio = 40960; }, OTHER},
    {"worse port of the same bridge", [](heard_t &h) { h.port_id = 0x8006, h.times.MessageAge = 3; }, OTHER},
    {"worse bridge", [](heard_t &h) { h.bridge.addr[5] = 0x67, h.times.MessageAge = 3; }, OTHER},
    {"same sender of a worse bridge priority", [](heard_t &h) { h.bridge.prio = 20480, h.times.MessageAge = 3; },
     OTHER},
    {"same sender of a worse port priority", [](heard_t &h) { h.port_id = 0x9005, h.times.MessageAge = 3; }, OTHER},

    {"configuration the same again", [](heard_t &h) { h.type = 0, h.version = 0, h.flags = 0; }, REPEATED},
    {"configuration better", [](heard_t &h) { h.type = 0, h.version = 0, h.flags = 0, h.cost = 0; }, SUPERIOR},
    {"configuration with new times", [](heard_t &h) { h.type = 0, h.version = 0, h.times.MessageAge = 1; }, SUPERIOR},
    {"configuration worse", [](heard_t &h) { h.type = 0, h.version = 0, h.cost = 20001; }, OTHER},
    {"configuration cannot agree",
     [](heard_t &h) { h.type = 0, h.version = 0, h.flags = agreement_of_root, h.cost = 20001; }, OTHER},

    {"better from a root port", [](heard_t &h) { h.flags = 0x08, h.cost = 0; }, OTHER},
    {"better from an alternate port", [](heard_t &h) { h.flags = 0x04, h.cost = 0; }, OTHER},
    {"better from a port of unknown role", [](heard_t &h) { h.flags = 0x00, h.cost = 0; }, OTHER},
    {"the same from a root port", [](heard_t &h) { h.flags = 0x08; }, OTHER},
    {"new times from a root port", [](heard_t &h) { h.flags = 0x08, h.times.MessageAge = 3; }, OTHER},
    {"other flags do not hide the role", [](heard_t &h) { h.flags = 0x3E; }, REPEATED},

    {"agreement", [](heard_t &h) { h.flags = agreement_of_root; }, AGREEMENT},
    {"agreement by an alternate port", [](heard_t &h) { h.flags = 0x44; }, AGREEMENT},
    {"agreement about another vector of the same bridge",
     [](heard_t &h) { h.flags = agreement_of_root, h.root.prio = 1, h.cost = 9, h.port_id = 1; }, AGREEMENT},
    {"agreement by a worse designated port", [](heard_t &h) { h.flags = 0x4C, h.cost = 20001; }, AGREEMENT},
    {"superior before agreement", [](heard_t &h) { h.flags = 0x4C, h.cost = 0; }, SUPERIOR},
    {"repeated before agreement", [](heard_t &h) { h.flags = 0x4C; }, REPEATED},
    {"agreement on a shared link", [](heard_t &h) { h.flags = agreement_of_root; }, OTHER,
     [](port_t *p) { p->operPointToPoint = 0; }},
    {"agreement with another bridge", [](heard_t &h) { h.flags = agreement_of_root, h.bridge.addr[5] = 0x65; }, OTHER},
    {"no agreement bit", [](heard_t &h) { h.flags = 0xBB; }, OTHER},

    {"own port id improved", [](heard_t &) {}, SUPERIOR, [](port_t *p) { p->portPrio.bridge_port = 0x8003; }},
    {"own port id got worse", [](heard_t &) {}, OTHER, [](port_t *p) { p->portPrio.bridge_port = 0x8001; }},
    {"notification", [](heard_t &h) { h.type = 128, h.version = 0; }, OTHER},
};

class info_classes : public info, public testing::WithParamInterface<class_row_t> {};

TEST_P(info_classes, row)
{
    port->operPointToPoint = 1;
    hear(said);
    port->portPrio = port->msgPrio;
    port->portTimes = port->msgTimes;
    GetParam().given(port);

    heard_t heard = said;
    GetParam().heard(heard);
    hear(heard);
    EXPECT_EQ(port->rcvdInfo, GetParam().classified);
    if (heard.type == 2) {
        EXPECT_EQ(port->rcvdRole, heard.flags >> 2 & 3);
    } else {
        EXPECT_EQ(port->rcvdRole, heard.type == 0 ? 0 : 3) << "a notification leaves the role as it was";
    }
}

INSTANTIATE_TEST_SUITE_P(heard, info_classes, testing::ValuesIn(classes), label_of<class_row_t>);

// ---- the time that information lives ----------------------------------------------------

struct life_row_t {
    const char *label;
    timevalues_t times;
    uint8_t seconds;
};

std::ostream &operator<<(std::ostream &out, const life_row_t &row) { return out << row.label; }

const life_row_t lives[] = {
    {"three hellos", {.MessageAge = 1, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 2}, 6},
    {"from the root itself", {.MessageAge = 0, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 2}, 6},
    {"remaining age below three hellos", {.MessageAge = 15, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 2}, 4},
    {"last second", {.MessageAge = 18, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 2}, 1},
    {"just too old", {.MessageAge = 19, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 2}, 0},
    {"too old", {.MessageAge = 20, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 2}, 0},
    {"much too old for eight bits", {.MessageAge = 250, .MaxAge = 255, .ForwardDelay = 15, .HelloTime = 2}, 0},
    {"oldest there is", {.MessageAge = 255, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 2}, 0},
    {"step is at least one", {.MessageAge = 0, .MaxAge = 6, .ForwardDelay = 4, .HelloTime = 2}, 5},
    {"step of max age 15", {.MessageAge = 0, .MaxAge = 15, .ForwardDelay = 15, .HelloTime = 20}, 14},
    {"step of max age 16", {.MessageAge = 0, .MaxAge = 16, .ForwardDelay = 15, .HelloTime = 20}, 15},
    {"step of max age 24 is rounded down", {.MessageAge = 0, .MaxAge = 24, .ForwardDelay = 15, .HelloTime = 20}, 23},
    {"step of max age 31 is rounded down", {.MessageAge = 0, .MaxAge = 31, .ForwardDelay = 15, .HelloTime = 20}, 30},
    {"step of max age 32", {.MessageAge = 0, .MaxAge = 32, .ForwardDelay = 15, .HelloTime = 20}, 30},
    {"three hellos beyond eight bits", {.MessageAge = 0, .MaxAge = 255, .ForwardDelay = 15, .HelloTime = 86}, 240},
    {"no hello time", {.MessageAge = 0, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 0}, 0},
    {"no max age", {.MessageAge = 0, .MaxAge = 0, .ForwardDelay = 15, .HelloTime = 2}, 0},
    {"max age one", {.MessageAge = 0, .MaxAge = 1, .ForwardDelay = 15, .HelloTime = 2}, 0},
};

class info_lives : public info, public testing::WithParamInterface<life_row_t> {};

TEST_P(info_lives, row)
{
    port->msgTimes = GetParam().times;
    port->rcvdInfoWhile = 99;
    enter(INFO_SUPERIOR);
    EXPECT_EQ(port->rcvdInfoWhile, GetParam().seconds) << "superior information";

    port->msgTimes = {};
    port->rcvdInfoWhile = 99;
    enter(INFO_REPEAT);
    EXPECT_EQ(port->rcvdInfoWhile, GetParam().seconds) << "repeated: by the port's times, not the message's";
}

INSTANTIATE_TEST_SUITE_P(of, info_lives, testing::ValuesIn(lives), label_of<life_row_t>);

// ---- proposals --------------------------------------------------------------------------

TEST_F(info, notes_a_proposal_of_a_designated_port_on_a_point_to_point_link_only)
{
    for (const rstpstate_t state : {INFO_SUPERIOR, INFO_REPEAT})
        for (unsigned role = 0; role < 4; role++)
            for (const unsigned flags : {0x00, 0x02, 0xFD, 0xFF})
                for (const unsigned point_to_point : {0, 1})
                    for (const unsigned before : {0, 1}) {
                        port->rcvdRole = static_cast<uint8_t>(role);
                        port->rcvdFlags = static_cast<uint8_t>(flags);
                        port->operPointToPoint = point_to_point;
                        port->proposed = before;
                        enter(state);
                        EXPECT_EQ(port->proposed, role == 3 && (flags & 2) && point_to_point)
                            << "role " << role << " flags " << flags << " point-to-point " << point_to_point;
                    }
}

// ---- recording --------------------------------------------------------------------------

struct record_row_t {
    const char *label;
    uint8_t type;
    uint8_t version;
    change_t given;
    change_t then;
};

std::ostream &operator<<(std::ostream &out, const record_row_t &row) { return out << row.label; }

constexpr uint16_t own_port_id = 0x8002;

/// The values of the BPDU that every row hears.
void noted(port_t *p)
{
    p->rcvdMsg = 1;
    p->rcvdFlags = 0x0C;
    p->msgPrio = {said.root, said.cost, said.bridge, said.port_id, own_port_id};
    p->msgTimes = said.times;
}

void outside(port_t *p) { p->nonStp = 1; }

void forced(port_t *, uint8_t version) { world_now().force_version = version; }

const record_row_t recordings[] = {
    {"configuration", 0, 0, nothing,
     [](port_t *p) { p->stp_frame_recvs++, noted(p), p->rcvdType = 0, p->rcvdVersion = 0; }},
    {"configuration on a bridge forced to stp", 0, 0, [](port_t *p) { forced(p, 0); },
     [](port_t *p) { p->stp_frame_recvs++, noted(p), p->rcvdType = 0, p->rcvdVersion = 0; }},
    {"configuration outside the tree", 0, 0, outside, [](port_t *p) { p->stp_frame_recvs++; }},
    {"rst", 2, 2, nothing, [](port_t *p) { p->rstp_frame_recvs++, noted(p), p->rcvdType = 2, p->rcvdVersion = 2; }},
    {"rst of any version", 2, 99, nothing,
     [](port_t *p) { p->rstp_frame_recvs++, noted(p), p->rcvdType = 2, p->rcvdVersion = 99; }},
    {"rst on a bridge forced to version 0", 2, 2, [](port_t *p) { forced(p, 0); },
     [](port_t *p) { p->rstp_frame_recvs++; }},
    {"rst on a bridge forced to version 1", 2, 2, [](port_t *p) { forced(p, 1); },
     [](port_t *p) { p->rstp_frame_recvs++; }},
    {"rst on a bridge forced to version 3", 2, 2, [](port_t *p) { forced(p, 3); },
     [](port_t *p) { p->rstp_frame_recvs++, noted(p), p->rcvdType = 2, p->rcvdVersion = 2; }},
    {"rst outside the tree", 2, 2, outside, [](port_t *p) { p->rstp_frame_recvs++; }},
    {"notification", 128, 0, nothing,
     [](port_t *p) { p->tcn_frame_recvs++, p->rcvdMsg = 1, p->rcvdType = 128, p->rcvdVersion = 0; }},
    {"notification on a bridge forced to stp", 128, 7, [](port_t *p) { forced(p, 0); },
     [](port_t *p) { p->tcn_frame_recvs++, p->rcvdMsg = 1, p->rcvdType = 128, p->rcvdVersion = 7; }},
    {"notification outside the tree", 128, 0, outside, [](port_t *p) { p->tcn_frame_recvs++; }},
    {"type 1", 1, 0, nothing, [](port_t *p) { p->unknown_frame_recvs++; }},
    {"type 3", 3, 2, nothing, [](port_t *p) { p->unknown_frame_recvs++; }},
    {"type 129", 129, 0, nothing, [](port_t *p) { p->unknown_frame_recvs++; }},
    {"unknown type outside the tree", 255, 0, outside, [](port_t *p) { p->unknown_frame_recvs++; }},
};

class info_recordings : public machine_test, public testing::WithParamInterface<record_row_t> {};

TEST_P(info_recordings, row)
{
    const record_row_t &row = GetParam();
    heard_t heard = said;
    heard.type = row.type;
    heard.version = row.version;
    const octets_t frame = frame_of(heard);

    row.given(port);
    const records_t before = world.records;
    row.then(port);
    const records_t expected = world.records;
    world.records = before;

    STP_info_rx_bpdu(port, reinterpret_cast<const bpdu_t *>(frame.data()), static_cast<uint32_t>(frame.size() - 17));
    EXPECT_TRUE(same_records(expected, world.records));
    EXPECT_TRUE(world.actions.empty());
}

INSTANTIATE_TEST_SUITE_P(of, info_recordings, testing::ValuesIn(recordings), label_of<record_row_t>);

} // namespace
