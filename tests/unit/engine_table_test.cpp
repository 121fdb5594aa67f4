// What a failing row, entry or rule of a machine's table tells.
#include "engine_table.h"

#include <gtest/gtest-spi.h>

namespace {

class table : public machine_test {
protected:
    /// What the failures of `act` say, all in one.
    template <typename act_t>
    std::string failures_of(act_t act)
    {
        testing::TestPartResultArray results;
        {
            const testing::ScopedFakeTestPartResultReporter reporter(
                testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &results);
            act();
        }
        std::string text;
        for (int i = 0; i < results.size(); i++)
            text += results.GetTestPartResult(i).message();
        return text;
    }
};

void expect_parts(const std::string &text, std::initializer_list<const char *> parts)
{
    for (const char *part : parts)
        EXPECT_NE(text.find(part), std::string::npos) << "nothing of \"" << part << "\" in\n" << text;
    EXPECT_EQ(text.find(" 0x"), std::string::npos) << "an address in\n" << text;
}

TEST_F(table, a_row_that_fails_tells_its_label_the_move_and_the_port)
{
    const move_row_t wrong = {
        "a message is waited for", INFO_CURRENT,
        [](port_t *p) { p->edgeDetected = p->rcvdMsg = 1, p->role = ROLE_ROOT, p->rcvdInfoWhile = 5; }, INFO_AGED};
    expect_parts(failures_of([&] { expect_move(&port_t::info, wrong); }),
                 {"info, \"a message is waited for\": CURRENT -> RECEIVE, expected CURRENT -> AGED\n",
                  "port 2: role 3 Root, selectedRole 0 Disabled, infoIs 0 Mine",
                  "flags: stpEnabled edgeDetected rcvdMsg\n", "timers: rcvdInfoWhile 5\n",
                  "port 3: ", "force version 2"});
}

TEST_F(table, a_row_that_should_stay_says_so)
{
    const move_row_t wrong = {"init rests", TOPOCH_INIT, nothing, STAYS};
    expect_parts(failures_of([&] { expect_move(&port_t::topoch, wrong); }),
                 {"topoch, \"init rests\": INIT -> INACTIVE, expected INIT stays\n"});
}

TEST_F(table, an_entry_that_fails_tells_its_label_and_what_differs)
{
    const entry_row_t wrong = {"agreement", INFO_AGREEMENT, nothing, [](port_t *p) { p->agreed = 1, p->tcWhile = 3; }};
    expect_parts(failures_of([&] { expect_entry(&port_t::info, wrong); }),
                 {"info, \"agreement\": enters AGREEMENT\n", "expected port 2 tcWhile: 3\n but    port 2 tcWhile: 0\n",
                  "expected port 2 proposing: 1\n but    port 2 proposing: 0\n", "timers: fdWhile 101 helloWhen 102"});
}

TEST_F(table, a_rule_that_fails_tells_its_condition_and_the_port)
{
    const rule_t begin = {STP_BEGIN, ALWAYS, STTRANS_DISCARDING};
    const rule_t learns = {STTRANS_DISCARDING, WHEN(p.learn != 0), STTRANS_LEARNING};
    const rule_t wrong = {STTRANS_DISCARDING, WHEN(p.forward || p.learn), STTRANS_FORWARDING};
    expect_parts(failures_of([&] {
                     expect_rules(&port_t::sttrans, {begin, wrong}, STTRANS_DISCARDING);
                 }),
                 {"sttrans, draw ", ": DISCARDING ", ", expected DISCARDING -> FORWARDING when p.forward || p.learn\n",
                  "flags: stpEnabled", "timers: "});
    expect_parts(failures_of([&] {
                     expect_rules(&port_t::sttrans, {begin, learns}, STTRANS_LEARNING);
                 }),
                 {"sttrans, draw ", ": LEARNING -> ", ", expected LEARNING stays, as no rule holds\n"});
}

TEST_F(table, a_rule_that_never_decided_is_named)
{
    expect_parts(failures_of([&] {
                     expect_rules(&port_t::p2p,
                                  {{STP_BEGIN, ALWAYS, P2P_STABLE},
                                   {P2P_INIT, ALWAYS, P2P_STABLE},
                                   {P2P_RECOMPUTE, ALWAYS, P2P_STABLE},
                                   {P2P_STABLE, WHEN(p.p2pRecompute != 0), P2P_RECOMPUTE},
                                   {P2P_STABLE, WHEN(p.p2pRecompute && p.learn), P2P_STABLE}},
                                  P2P_STABLE);
                 }),
                 {"hardly ever tried: STABLE -> STABLE when p.p2pRecompute && p.learn"});
}

TEST_F(table, records_are_shown_by_name)
{
    records_t other = world.records;
    other.ports[1].roletrns.State = ROLETRNS_ROOT_PORT;
    other.ports[1].owner = nullptr;
    const testing::AssertionResult result = same_records(other, world.records);
    expect_parts(result.message(), {"expected port 2 roletrns: ROOT_PORT of port 2\n but    port 2 roletrns: Begin",
                                    "expected port 2 owner: none\n but    port 2 owner: bridge "});
}

} // namespace
