// Protocol migration, and when which BPDU is sent.
#include "engine_table.h"

namespace {

void forced(uint8_t version) { world_now().force_version = version; }

// ---- migration: moves -------------------------------------------------------------------

void up(port_t *p) { p->edgeDetected = 1; }

const move_row_t migrate_rows[] = {
    // Without a link and not initialised the machine is INIT, wherever it was.
    {"begin", STP_BEGIN, nothing, MIGRATE_INIT},
    {"begin with link", STP_BEGIN, up, MIGRATE_INIT},
    {"begin initialised", STP_BEGIN, [](port_t *p) { p->initPm = 1; }, MIGRATE_INIT},
    {"init enters itself", MIGRATE_INIT, nothing, MIGRATE_INIT},
    {"link lost while starting rstp", MIGRATE_SEND_RSTP, nothing, MIGRATE_INIT},
    {"link lost while sending rstp", MIGRATE_SENDING_RSTP, [](port_t *p) { p->rstpVersion = 1; }, MIGRATE_INIT},
    {"link lost while starting stp", MIGRATE_SEND_STP, nothing, MIGRATE_INIT},
    {"link lost while sending stp", MIGRATE_SENDING_STP, [](port_t *p) { p->rstpVersion = 1; }, MIGRATE_INIT},

    {"init waits for the link", MIGRATE_INIT, [](port_t *p) { p->initPm = 1; }, STAYS},
    {"init starts rstp", MIGRATE_INIT, up, MIGRATE_SEND_RSTP},
    {"init starts rstp by version 3", MIGRATE_INIT, [](port_t *p) { up(p), forced(3); }, MIGRATE_SEND_RSTP},
    {"init starts stp by version 1", MIGRATE_INIT, [](port_t *p) { up(p), forced(1); }, MIGRATE_SEND_STP},
    {"init starts stp by version 0", MIGRATE_INIT, [](port_t *p) { up(p), forced(0); }, MIGRATE_SEND_STP},

    {"send rstp goes on", MIGRATE_SEND_RSTP, up, MIGRATE_SENDING_RSTP},
    {"sending rstp rests", MIGRATE_SENDING_RSTP, up, STAYS},
    {"sending rstp restarts", MIGRATE_SENDING_RSTP, [](port_t *p) { up(p), p->rstpVersion = 1; }, MIGRATE_SEND_RSTP},
    {"sending rstp restarts before it heeds stp", MIGRATE_SENDING_RSTP,
     [](port_t *p) { up(p), p->rstpVersion = p->rcvdSTP = 1; }, MIGRATE_SEND_RSTP},
    {"sending rstp disregards stp at first", MIGRATE_SENDING_RSTP,
     [](port_t *p) { up(p), p->rcvdSTP = 1, p->mdelayWhile = 1; }, MIGRATE_SENDING_RSTP},
    {"sending rstp disregards rstp at first", MIGRATE_SENDING_RSTP,
     [](port_t *p) { up(p), p->rcvdRSTP = 1, p->mdelayWhile = 3; }, MIGRATE_SENDING_RSTP},
    {"sending rstp heeds stp later", MIGRATE_SENDING_RSTP, [](port_t *p) { up(p), p->rcvdSTP = 1; }, MIGRATE_SEND_STP},
    {"sending rstp does not mind rstp later", MIGRATE_SENDING_RSTP, [](port_t *p) { up(p), p->rcvdRSTP = 1; }, STAYS},
    {"sending rstp is forced to stp", MIGRATE_SENDING_RSTP, [](port_t *p) { up(p), forced(1); }, MIGRATE_SEND_STP},
    {"sending rstp is forced to stp in the delay", MIGRATE_SENDING_RSTP,
     [](port_t *p) { up(p), p->mdelayWhile = 2, forced(0); }, MIGRATE_SEND_STP},
    {"sending rstp disregards before it is forced", MIGRATE_SENDING_RSTP,
     [](port_t *p) { up(p), p->mdelayWhile = 2, p->rcvdSTP = 1, forced(0); }, MIGRATE_SENDING_RSTP},
    {"sending rstp goes on initialised without link", MIGRATE_SENDING_RSTP,
     [](port_t *p) { p->initPm = p->rcvdSTP = 1; }, MIGRATE_SEND_STP},

    {"send stp goes on", MIGRATE_SEND_STP, up, MIGRATE_SENDING_STP},
    {"sending stp rests", MIGRATE_SENDING_STP, up, STAYS},
    {"sending stp rests by version 0", MIGRATE_SENDING_STP, [](port_t *p) { up(p), forced(0); }, STAYS},
    {"sending stp restarts", MIGRATE_SENDING_STP, [](port_t *p) { up(p), p->rstpVersion = 1; }, MIGRATE_SEND_RSTP},
    {"sending stp restarts before it disregards", MIGRATE_SENDING_STP,
     [](port_t *p) { up(p), p->rstpVersion = p->rcvdSTP = 1, p->mdelayWhile = 1; }, MIGRATE_SEND_RSTP},
    {"sending stp heeds rstp later", MIGRATE_SENDING_STP, [](port_t *p) { up(p), p->rcvdRSTP = 1; }, MIGRATE_SEND_RSTP},
    {"sending stp does not mind stp later", MIGRATE_SENDING_STP, [](port_t *p) { up(p), p->rcvdSTP = 1; }, STAYS},
    {"sending stp disregards rstp at first", MIGRATE_SENDING_STP,
     [](port_t *p) { up(p), p->rcvdRSTP = 1, p->mdelayWhile = 1; }, MIGRATE_SENDING_STP},
    {"sending stp disregards stp at first", MIGRATE_SENDING_STP,
     [](port_t *p) { up(p), p->rcvdSTP = 1, p->mdelayWhile = 1; }, MIGRATE_SENDING_STP},
};

class migrate_moves : public machine_test, public testing::WithParamInterface<move_row_t> {};

TEST_P(migrate_moves, row) { expect_move(&port_t::migrate, GetParam()); }

INSTANTIATE_TEST_SUITE_P(when, migrate_moves, testing::ValuesIn(migrate_rows), label_of<move_row_t>);

class migrate : public machine_test {};

TEST_F(migrate, follows_its_rules_whatever_the_port)
{
    expect_rules(
        &port_t::migrate,
        {
            {ANY, WHEN(!p.edgeDetected && !p.initPm), MIGRATE_INIT},
            {STP_BEGIN, ALWAYS, MIGRATE_INIT},
            {MIGRATE_INIT, WHEN(p.edgeDetected && world_now().force_version < 2), MIGRATE_SEND_STP},
            {MIGRATE_INIT, WHEN(p.edgeDetected && world_now().force_version >= 2), MIGRATE_SEND_RSTP},
            {MIGRATE_SEND_RSTP, ALWAYS, MIGRATE_SENDING_RSTP},
            {MIGRATE_SENDING_RSTP, WHEN(p.rstpVersion != 0), MIGRATE_SEND_RSTP},
            {MIGRATE_SENDING_RSTP, WHEN(p.mdelayWhile != 0 && (p.rcvdSTP || p.rcvdRSTP)), MIGRATE_SENDING_RSTP},
            {MIGRATE_SENDING_RSTP, WHEN(p.mdelayWhile == 0 && p.rcvdSTP), MIGRATE_SEND_STP},
            {MIGRATE_SENDING_RSTP, WHEN(world_now().force_version < 2), MIGRATE_SEND_STP},
            {MIGRATE_SEND_STP, ALWAYS, MIGRATE_SENDING_STP},
            {MIGRATE_SENDING_STP, WHEN(p.rstpVersion != 0), MIGRATE_SEND_RSTP},
            {MIGRATE_SENDING_STP, WHEN(p.mdelayWhile == 0 && p.rcvdRSTP), MIGRATE_SEND_RSTP},
            {MIGRATE_SENDING_STP, WHEN(p.mdelayWhile != 0 && (p.rcvdSTP || p.rcvdRSTP)), MIGRATE_SENDING_STP},
        },
        MIGRATE_SENDING_STP);
}

// ---- migration: entries -----------------------------------------------------------------

const entry_row_t migrate_actions[] = {
    {"begin", STP_BEGIN, nothing, [](port_t *p) { p->initPm = 1, p->rstpVersion = 0; }},
    {"init", MIGRATE_INIT, nothing, [](port_t *p) { p->initPm = 1, p->rstpVersion = 0; }},
    {"send rstp", MIGRATE_SEND_RSTP, nothing,
     [](port_t *p) { p->sendRSTP = 1, p->mdelayWhile = 3, p->initPm = p->rstpVersion = 0; }},
    {"sending rstp", MIGRATE_SENDING_RSTP, nothing, [](port_t *p) { p->rcvdRSTP = p->rcvdSTP = 0; }},
    {"send stp keeps a request to restart", MIGRATE_SEND_STP, nothing,
     [](port_t *p) { p->sendRSTP = 0, p->mdelayWhile = 3, p->initPm = 0; }},
    {"sending stp", MIGRATE_SENDING_STP, nothing, [](port_t *p) { p->rcvdRSTP = p->rcvdSTP = 0; }},
};

class migrate_entries : public machine_test, public testing::WithParamInterface<entry_row_t> {};

TEST_P(migrate_entries, row) { expect_entry(&port_t::migrate, GetParam()); }

INSTANTIATE_TEST_SUITE_P(of, migrate_entries, testing::ValuesIn(migrate_actions), label_of<entry_row_t>);

// ---- transmit: moves --------------------------------------------------------------------

/// A port that has something to say and may.
void ready(port_t *p, lvt_rstp_port_role_t role, bool rstp)
{
    p->newInfo = 1;
    p->helloWhen = 1;
    p->role = role;
    p->sendRSTP = rstp;
}

const move_row_t transmit_rows[] = {
    {"begin", STP_BEGIN, nothing, TRANSMIT_INIT},
    {"init goes on", TRANSMIT_INIT, nothing, TRANSMIT_IDLE},
    {"periodic goes on", TRANSMIT_PERIODIC, nothing, TRANSMIT_IDLE},
    {"tcn goes on", TRANSMIT_TCN, nothing, TRANSMIT_IDLE},
    {"config goes on", TRANSMIT_CONFIG, nothing, TRANSMIT_IDLE},
    {"rstp goes on", TRANSMIT_RSTP, nothing, TRANSMIT_IDLE},
    {"hello time is over", TRANSMIT_IDLE, nothing, TRANSMIT_PERIODIC},
    {"hello time is over before news are sent", TRANSMIT_IDLE,
     [](port_t *p) { ready(p, ROLE_DESIGNATED, true), p->helloWhen = 0; }, TRANSMIT_PERIODIC},
    {"hello time is over for a port that may not send", TRANSMIT_IDLE,
     [](port_t *p) { ready(p, ROLE_DESIGNATED, true), p->helloWhen = 0, p->txCount = 3; }, TRANSMIT_PERIODIC},
    {"nothing to say", TRANSMIT_IDLE, [](port_t *p) { ready(p, ROLE_DESIGNATED, true), p->newInfo = 0; }, STAYS},

    {"rstp from a designated port", TRANSMIT_IDLE, [](port_t *p) { ready(p, ROLE_DESIGNATED, true); }, TRANSMIT_RSTP},
    {"rstp from a root port", TRANSMIT_IDLE, [](port_t *p) { ready(p, ROLE_ROOT, true); }, TRANSMIT_RSTP},
    {"configuration from a designated port", TRANSMIT_IDLE, [](port_t *p) { ready(p, ROLE_DESIGNATED, false); },
     TRANSMIT_CONFIG},
    {"notification from a root port", TRANSMIT_IDLE, [](port_t *p) { ready(p, ROLE_ROOT, false); }, TRANSMIT_TCN},

    {"disabled never sends rstp", TRANSMIT_IDLE, [](port_t *p) { ready(p, ROLE_DISABLED, true); }, STAYS},
    {"alternate never sends rstp", TRANSMIT_IDLE, [](port_t *p) { ready(p, ROLE_ALTERNATE, true); }, STAYS},
    {"backup never sends rstp", TRANSMIT_IDLE, [](port_t *p) { ready(p, ROLE_BACKUP, true); }, STAYS},
    {"non stp never sends rstp", TRANSMIT_IDLE, [](port_t *p) { ready(p, ROLE_NON_STP, true); }, STAYS},
    {"disabled never sends stp", TRANSMIT_IDLE, [](port_t *p) { ready(p, ROLE_DISABLED, false); }, STAYS},
    {"alternate never sends stp", TRANSMIT_IDLE, [](port_t *p) { ready(p, ROLE_ALTERNATE, false); }, STAYS},
    {"backup never sends stp", TRANSMIT_IDLE, [](port_t *p) { ready(p, ROLE_BACKUP, false); }, STAYS},

    {"third in a second", TRANSMIT_IDLE, [](port_t *p) { ready(p, ROLE_ROOT, true), p->txCount = 2; }, TRANSMIT_RSTP},
    {"fourth in a second waits", TRANSMIT_IDLE, [](port_t *p) { ready(p, ROLE_ROOT, true), p->txCount = 3; }, STAYS},
    {"fourth configuration in a second waits", TRANSMIT_IDLE,
     [](port_t *p) { ready(p, ROLE_DESIGNATED, false), p->txCount = 3; }, STAYS},
    {"fourth notification in a second waits", TRANSMIT_IDLE,
     [](port_t *p) { ready(p, ROLE_ROOT, false), p->txCount = 3; }, STAYS},
    {"far too many in a second wait", TRANSMIT_IDLE, [](port_t *p) { ready(p, ROLE_ROOT, true), p->txCount = 255; },
     STAYS},
};

class transmit_moves : public machine_test, public testing::WithParamInterface<move_row_t> {};

TEST_P(transmit_moves, row) { expect_move(&port_t::transmit, GetParam()); }

INSTANTIATE_TEST_SUITE_P(when, transmit_moves, testing::ValuesIn(transmit_rows), label_of<move_row_t>);

class transmit : public machine_test {};

TEST_F(transmit, follows_its_rules_whatever_the_port)
{
    expect_rules(&port_t::transmit,
                 {
                     {STP_BEGIN, ALWAYS, TRANSMIT_INIT},
                     {TRANSMIT_INIT, ALWAYS, TRANSMIT_IDLE},
                     {TRANSMIT_PERIODIC, ALWAYS, TRANSMIT_IDLE},
                     {TRANSMIT_TCN, ALWAYS, TRANSMIT_IDLE},
                     {TRANSMIT_CONFIG, ALWAYS, TRANSMIT_IDLE},
                     {TRANSMIT_RSTP, ALWAYS, TRANSMIT_IDLE},
                     {TRANSMIT_IDLE, WHEN(p.helloWhen == 0), TRANSMIT_PERIODIC},
                     {TRANSMIT_IDLE, WHEN(p.newInfo && p.txCount < 3 && (p.role == 3 || p.role == 4) && p.sendRSTP),
                      TRANSMIT_RSTP},
                     {TRANSMIT_IDLE, WHEN(p.newInfo && p.txCount < 3 && p.role == 3 && !p.sendRSTP), TRANSMIT_TCN},
                     {TRANSMIT_IDLE, WHEN(p.newInfo && p.txCount < 3 && p.role == 4 && !p.sendRSTP), TRANSMIT_CONFIG},
                 },
                 TRANSMIT_RSTP);
}

// ---- transmit: entries ------------------------------------------------------------------

void hello(port_t *p) { p->helloWhen = 2; }

void hello_with_news(port_t *p)
{
    p->helloWhen = 2;
    p->newInfo = 1;
}

void may_be_told(port_t *p)
{
    p->selectedRole = ROLE_DESIGNATED;
    p->txCount = 1;
}

const entry_row_t transmit_actions[] = {
    {"begin", STP_BEGIN, nothing, [](port_t *p) { p->newInfo = 0, p->helloWhen = p->txCount = 0; }},
    {"init", TRANSMIT_INIT, nothing, [](port_t *p) { p->newInfo = 0, p->helloWhen = p->txCount = 0; }},
    {"idle", TRANSMIT_IDLE, nothing, nothing},
    {"periodic of a designated port", TRANSMIT_PERIODIC, [](port_t *p) { p->role = ROLE_DESIGNATED; }, hello_with_news},
    {"periodic of a designated port without topology change", TRANSMIT_PERIODIC,
     [](port_t *p) { p->role = ROLE_DESIGNATED, p->tcWhile = 0; }, hello_with_news},
    {"periodic of a root port", TRANSMIT_PERIODIC, [](port_t *p) { p->role = ROLE_ROOT, p->tcWhile = 0; }, hello},
    {"periodic of a root port that tells a topology change", TRANSMIT_PERIODIC,
     [](port_t *p) { p->role = ROLE_ROOT, p->tcWhile = 1; }, hello_with_news},
    {"periodic of a disabled port", TRANSMIT_PERIODIC, [](port_t *p) { p->role = ROLE_DISABLED, p->tcWhile = 1; },
     hello},
    {"periodic of an alternate port", TRANSMIT_PERIODIC, [](port_t *p) { p->role = ROLE_ALTERNATE, p->tcWhile = 1; },
     hello},
    {"periodic of a backup port", TRANSMIT_PERIODIC, [](port_t *p) { p->role = ROLE_BACKUP, p->tcWhile = 1; }, hello},
    {"periodic by the root's hello time", TRANSMIT_PERIODIC,
     [](port_t *p) { p->role = ROLE_BACKUP, p->owner->rootTimes.HelloTime = 255; },
     [](port_t *p) { p->helloWhen = 255; }},
    {"periodic with a hello time of zero", TRANSMIT_PERIODIC,
     [](port_t *p) { p->role = ROLE_BACKUP, p->owner->rootTimes.HelloTime = 0; }, [](port_t *p) { p->helloWhen = 1; }},
    {"tcn keeps the acknowledgement",
     TRANSMIT_TCN,
     may_be_told,
     [](port_t *p) { p->txCount = 2, p->newInfo = 0; },
     {"send 2 tcn"}},
    {"config",
     TRANSMIT_CONFIG,
     may_be_told,
     [](port_t *p) { p->txCount = 2, p->newInfo = p->tcAck = 0; },
     {"send 2 config"}},
    {"rstp", TRANSMIT_RSTP, may_be_told, [](port_t *p) { p->txCount = 2, p->newInfo = p->tcAck = 0; }, {"send 2 rst"}},
    {"rstp of a port outside the tree", TRANSMIT_RSTP, [](port_t *p) { may_be_told(p), p->nonStp = 1; },
     [](port_t *p) { p->txCount = 2, p->newInfo = p->tcAck = 0; }},
    {"rstp that is lost",
     TRANSMIT_RSTP,
     [](port_t *p) { may_be_told(p), world_now().send_result = -1; },
     [](port_t *p) { p->txCount = 2, p->newInfo = p->tcAck = 0; },
     {"send 2 rst"}},
    {"config that finds no buffer", TRANSMIT_CONFIG,
     [](port_t *p) { may_be_told(p), world_now().short_of_memory = true; },
     [](port_t *p) { p->txCount = 2, p->newInfo = p->tcAck = 0; }},
};

class transmit_entries : public machine_test, public testing::WithParamInterface<entry_row_t> {};

TEST_P(transmit_entries, row) { expect_entry(&port_t::transmit, GetParam()); }

INSTANTIATE_TEST_SUITE_P(of, transmit_entries, testing::ValuesIn(transmit_actions), label_of<entry_row_t>);

} // namespace
