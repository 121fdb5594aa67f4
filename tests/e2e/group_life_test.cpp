// How groups come, change and go, and what the link-aggregation daemon is told.
#include <filesystem>

#include <fcntl.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "group_net.h"
#include "tree_speaker.h"
#include "tree_traffic.h"

using namespace lab;

namespace {

using ports_t = std::vector<int>;

class group_life : public group_test_t {};

TEST_F(group_life, form_reform_dissolve_and_form_again)
{
    switch_t &a = add_group_bridge(4096, port_configs({1, 2, 3}, {6}));
    switch_t &b = add_group_bridge(8192, port_configs({1, 2, 3}, {6}));
    host_t &left = add_host(a, 6);
    host_t &right = add_host(b, 6);
    for (const int port : {1, 2, 3})
        connect(a, port, b, port);
    const auto report_to_both = [&](const aggr_status_t &status) {
        report(b, status);
        report(a, status);
    };

    report_to_both(groups({7, 7}));
    EXPECT_EQ(engine_groups(b), ports_t({7, 7, 0, 0, 0, 0}));
    EXPECT_TRUE(becomes(b, "3 alternate discards, 6 designated forwards, 7 root forwards", 8s));

    // Other members; port 1 gets its own place back.
    report_to_both(groups({0, 7, 7}));
    EXPECT_EQ(engine_groups(b), ports_t({0, 7, 7, 0, 0, 0}));
    EXPECT_TRUE(becomes(b, "1 alternate discards, 6 designated forwards, 7 root forwards", 8s));
    const double mark = now_of(a);
    EXPECT_TRUE(eventually(
        6s, [&] { return bpdu_events(a, "tx", 2, "rstp", mark).size(); }, Ge(2)));
    EXPECT_TRUE(bpdu_events(a, "tx", 3, "rstp", mark).empty());

    report_to_both(AGGR_STATUS_ALONE);
    EXPECT_EQ(engine_groups(b), ports_t({0, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(becomes(b, "1 root forwards, 2 alternate discards, 3 alternate discards, 6 designated forwards", 8s));
    EXPECT_EQ(status_of(b).port(7).role, ROLE_NON_STP);

    report_to_both(groups({8, 8, 8}));
    EXPECT_TRUE(becomes(b, "6 designated forwards, 8 root forwards", 8s));
    EXPECT_TRUE(becomes(a, "6 designated forwards, 8 designated forwards", BY_TIMERS));
    EXPECT_TRUE(left.reaches(right, AT_ONCE));
    for (const switch_t *device : {&a, &b})
        expect_tables_agree(*device);
}

TEST_F(group_life, any_member_hears_for_the_group)
{
    switch_t &ours = add_group_bridge(32768, port_configs({1, 2, 3}));
    speaker_t at_first(add_machine(ours, 1));
    speaker_t at_second(add_machine(ours, 2));
    report(ours, groups({9, 9}));

    at_second.say(rst_bpdu(root_bridge(0, 200)));
    EXPECT_TRUE(becomes(ours, "9 root forwards", 8s));
    EXPECT_TRUE(follows(ours, made_up_bridge(0, 200)));
    EXPECT_GE(status_of(ours).port(9).received.rstp, 1u);
    EXPECT_EQ(status_of(ours).port(2).received.all(), 0u);
    // What it says leaves by the first member, whoever is there.
    EXPECT_GE(at_first.count(is_rst), 1u);
    EXPECT_EQ(at_second.heard().size(), 0u);

    // A frame that is none counts for the group, too.
    bpdu_t broken = rst_bpdu(root_bridge(0, 200));
    broken.protocol[1] = 1;
    at_second.say_once(broken);
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return status_of(ours).port(9).illegal; }, 1));
    EXPECT_EQ(status_of(ours).port(2).illegal, 0u);

    // And the other member is heard just as well.
    at_second.be_silent();
    at_first.say(rst_bpdu(root_bridge(0, 100)));
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return bridge_id_text(status_of(ours).root); }, bridge_id_text(made_up_bridge(0, 100))));
}

TEST_F(group_life, first_member_fails_and_the_report_follows)
{
    switch_t &a = add_group_bridge(4096, port_configs({1, 2}));
    switch_t &b = add_group_bridge(8192, port_configs({1, 2}));
    report(a, groups({7, 7}));
    report(b, groups({7, 7}));
    const cable_t &first = connect(a, 1, b, 1);
    connect(a, 2, b, 2);
    ASSERT_TRUE(becomes(b, "7 root forwards", 10s));

    first.pull();
    const auto links = [&] { return std::array{a.client().port(1).link, b.client().port(1).link}; };
    ASSERT_TRUE(eventually(AT_ONCE, links, testing::Each(false)));
    const double mark = now_of(a);
    report(a, groups({0, 7}));
    report(b, groups({0, 7}));
    EXPECT_TRUE(becomes(b, "7 root forwards", 8s));
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return role_of(a, 7); }, ROLE_DESIGNATED));
    EXPECT_FALSE(bpdu_events(a, "tx", 2, "rstp", mark).empty());
    EXPECT_EQ(engine_groups(a), ports_t({0, 7, 0, 0, 0, 0}));
    EXPECT_EQ(role_of(a, 1), ROLE_DISABLED);

    // It comes back: first on its own, and preferred to the group of one for its number; then as a
    // member again.
    first.plug();
    EXPECT_TRUE(becomes(b, "1 root forwards, 7 alternate discards", 8s));
    report(b, groups({7, 7}));
    report(a, groups({7, 7}));
    EXPECT_TRUE(becomes(b, "7 root forwards", 8s));
}

TEST_F(group_life, reports_with_strange_values)
{
    switch_t &ours = add_group_bridge(32768, port_configs({1, 2, 3, 4, 5, 6}));

    // No group has a number above 9: such ports stand alone.
    report(ours, groups({10, 255, 7, 7, 128, 200}));
    EXPECT_EQ(told_groups(ours), ports_t({0, 0, 7, 7, 0, 0}));
    EXPECT_EQ(engine_groups(ours), ports_t({0, 0, 7, 7, 0, 0}));

    // Numbers of other ports are no groups either.
    report(ours, groups({6, 5, 7, 7, 2, 1}));
    EXPECT_EQ(engine_groups(ours), ports_t({0, 0, 7, 7, 0, 0}));

    // Three groups, and all gone in one report.
    report(ours, groups({7, 7, 8, 8, 9, 9}));
    EXPECT_EQ(engine_groups(ours), ports_t({7, 7, 8, 8, 9, 9}));
    report(ours, AGGR_STATUS_ALONE);
    EXPECT_EQ(told_groups(ours), ports_t({0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(engine_groups(ours), ports_t({0, 0, 0, 0, 0, 0}));

    // A report of zeros is taken, but does not touch the groups that are set up.
    report(ours, groups({7, 7, 8, 8, 9, 9}));
    report(ours, aggr_status_t{});
    EXPECT_EQ(told_groups(ours), ports_t({0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(engine_groups(ours), ports_t({7, 7, 8, 8, 9, 9}));
    report(ours, groups({7, 7, 8, 8, 9, 9}));
    report(ours, AGGR_STATUS_ALONE);
    EXPECT_EQ(engine_groups(ours), ports_t({0, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(is_alive(ours));
}

TEST_F(group_life, ports_that_move_leave_an_empty_group_until_it_is_told)
{
    switch_t &ours = add_group_bridge(32768, port_configs({1, 2, 3}));
    speaker_t neighbour(add_machine(ours, 1));
    report(ours, groups({7, 7}));
    report(ours, groups({8, 8}));
    EXPECT_EQ(engine_groups(ours), ports_t({8, 8, 0, 0, 0, 0}));
    EXPECT_TRUE(eventually(
        8s, [&] { return role_of(ours, 8); }, ROLE_DESIGNATED));
    EXPECT_EQ(role_of(ours, 7), ROLE_DESIGNATED);

    // Another port comes to the empty group and leaves it: now it is gone.
    report(ours, groups({8, 8, 7}));
    EXPECT_EQ(engine_groups(ours), ports_t({8, 8, 7, 0, 0, 0}));
    report(ours, groups({8, 8, 3}));
    EXPECT_EQ(engine_groups(ours), ports_t({8, 8, 0, 0, 0, 0}));
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return role_of(ours, 7); }, ROLE_NON_STP));
    EXPECT_TRUE(is_alive(ours));
}

TEST_F(group_life, spanning_tree_off_and_on_for_the_groups)
{
    switch_t &ours = add_group_bridge(4096, port_configs({1, 2}, {6}));
    speaker_t neighbour(add_machine(ours, 1));
    add_machine(ours, 2);
    report(ours, groups({7, 7}));
    ASSERT_TRUE(becomes(ours, "7 designated forwards", BY_TIMERS));

    // Off: both members forward without a spanning tree, at once, and nobody speaks for them.
    serve(ours, aggr_config_message(LVT_RSTP_PORT_DEFAULTS));
    for (const int port : {1, 2})
        EXPECT_EQ(chip_state(ours, port), HW_NO_STP);
    EXPECT_TRUE(becomes(ours, "", AT_ONCE));
    const auto since = std::chrono::steady_clock::now();
    EXPECT_TRUE(e2e::ticks(ours, 3));
    EXPECT_EQ(neighbour.count(is_rst, since), 0u);

    // On: they discard, and go through the delays together.
    const double mark = now_of(ours);
    lvt_rstp_port_config_t on = LVT_RSTP_PORT_DEFAULTS;
    on.adminEnable = 1;
    serve(ours, aggr_config_message(on));
    EXPECT_TRUE(eventually(
        AT_ONCE,
        [&] {
            return std::array{chip_state(ours, 1), chip_state(ours, 2)};
        },
        testing::Each(HW_DISCARDING)));
    EXPECT_TRUE(becomes(ours, "7 designated forwards", BY_TIMERS));
    expect_states_together(ours, mark);
}

TEST_F(group_life, spanning_tree_off_and_on_for_a_member)
{
    switch_t &ours = add_group_bridge(4096, port_configs({1, 2}));
    add_machine(ours, 1);
    add_machine(ours, 2);
    report(ours, groups({7, 7}));
    ASSERT_TRUE(becomes(ours, "7 designated forwards", BY_TIMERS));

    // A member without spanning tree of its own forwards whatever its group does.
    serve(ours, port_config_message(port_configs({1})));
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return chip_state(ours, 1); }, HW_DISCARDING));
    EXPECT_EQ(chip_state(ours, 2), HW_FORWARDING);
    EXPECT_EQ(engine_groups(ours), ports_t({7, 7, 0, 0, 0, 0}));
    EXPECT_TRUE(becomes(ours, "7 designated forwards", BY_TIMERS));

    serve(ours, port_config_message(port_configs({1, 2})));
    EXPECT_TRUE(eventually(
        AT_ONCE,
        [&] {
            return std::array{chip_state(ours, 1), chip_state(ours, 2)};
        },
        testing::Each(HW_DISCARDING)));
    EXPECT_EQ(engine_groups(ours), ports_t({7, 7, 0, 0, 0, 0}));
}

/// The members' own spanning tree is off. LACP then says who decides about their state.
class group_lacp : public group_test_t, public testing::WithParamInterface<bool> {};

TEST_P(group_lacp, decides_whether_members_are_forced_to_forward)
{
    const bool lacp = GetParam();
    switch_t &ours = add_group_bridge(4096, port_configs({3}));
    if (lacp)
        serve(ours, lacp_enable_message({1, 1, 0, 0, 0, 0}));
    add_machine(ours, 1);
    add_machine(ours, 2);
    const double mark = now_of(ours);
    report(ours, groups({7, 7}));
    ASSERT_TRUE(becomes(ours, "7 designated forwards", BY_TIMERS));
    report(ours, AGGR_STATUS_ALONE);
    EXPECT_EQ(engine_groups(ours), ports_t({0, 0, 0, 0, 0, 0}));

    for (const int port : {1, 2}) {
        for (const int state : {HW_DISABLED, HW_DISCARDING, HW_LEARNING, HW_NO_STP})
            EXPECT_TRUE(times_of_state(ours, port, state, mark).empty()) << "port " << port << ", state " << state;
        const auto forced = times_of_state(ours, port, HW_FORWARDING, mark);
        if (lacp)
            EXPECT_TRUE(forced.empty());
        else
            EXPECT_GE(forced.size(), 3u);
        EXPECT_EQ(chip_state(ours, port), HW_FORWARDING);
    }
}

INSTANTIATE_TEST_SUITE_P(lacp, group_lacp, testing::Bool(),
                         [](const auto &test) { return std::string(test.param ? "on" : "off"); });

// ---- the pipe to the link-aggregation daemon ------------------------------------------------

constexpr char FAILURE[] = "Setting lacp_rstp_status is fail";

size_t failures(const switch_t &device) { return e2e::count_of(device.node().read(DAEMON_OUTPUT_FILE), FAILURE); }

/// The ports with spanning tree that the link-aggregation daemon was told last.
ports_t told_to_lacp(const switch_t &device)
{
    ports_t told = {-1};
    for (const auto &message : device.client().messages())
        if (message.at("pipe") == "lacp" && message.contains("enabled"))
            told = message.at("enabled").get<ports_t>();
    return told;
}

TEST_F(group_life, lacp_daemon_hears_of_spanning_tree_with_every_configuration)
{
    switch_t &ours = add_group_bridge(32768, port_configs({1, 3}));
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return told_to_lacp(ours); }, ports_t({1, 3})));
    serve(ours, port_config_message(port_configs({2}, {6})));
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return told_to_lacp(ours); }, ports_t({2, 6})));

    // The same once more is told once more.
    const size_t before = e2e::diary(ours, "lacp").size();
    serve(ours, port_config_message(port_configs({2}, {6})));
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return e2e::diary(ours, "lacp").size(); }, before + 1));
    EXPECT_EQ(failures(ours), 0u);
}

TEST_F(group_life, missing_lacp_pipe_changes_nothing_else)
{
    switch_t &ours = add_group_bridge(32768, port_configs({1, 2}));
    std::filesystem::remove(ours.node().path(LACP_IF_PIPE));
    report(ours, groups({7, 7}));
    EXPECT_EQ(failures(ours), 0u);

    serve(ours, port_config_message(port_configs({1, 2, 3})));
    serve(ours, port_config_only_message(port_configs({1, 2, 3})));
    EXPECT_EQ(failures(ours), 2u);
    EXPECT_FALSE(std::filesystem::exists(ours.node().path(LACP_IF_PIPE)));
    EXPECT_EQ(engine_groups(ours), ports_t({7, 7, 0, 0, 0, 0}));
    add_machine(ours, 3);
    EXPECT_TRUE(eventually(
        8s, [&] { return role_of(ours, 3); }, ROLE_DESIGNATED));
    EXPECT_TRUE(is_alive(ours));
}

TEST_F(group_life, full_lacp_pipe_changes_nothing_else)
{
    switch_t &ours = add_group_bridge(32768, port_configs({1, 2}));
    ours.client().set_pipes_unread(true);
    {
        const std::array<uint8_t, 18> message = {0xAC, 0x01, 0x43, 0x52, 6, 0, 0, 0, 7};
        const fd_t pipe(
            checked(open(ours.node().path(LACP_IF_PIPE).c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC), LACP_IF_PIPE));
        while (write(pipe.number(), message.data(), message.size()) > 0)
            continue;
        ASSERT_EQ(errno, EAGAIN);
    }

    report(ours, groups({7, 7}));
    serve(ours, port_config_message(port_configs({1, 2, 3})));
    EXPECT_EQ(failures(ours), 1u);
    EXPECT_EQ(engine_groups(ours), ports_t({7, 7, 0, 0, 0, 0}));
    EXPECT_TRUE(is_alive(ours));

    ours.client().set_pipes_unread(false);
    ASSERT_TRUE(eventually(
        AT_ONCE, [&] { return e2e::octets_waiting(ours, LACP_IF_PIPE); }, 0));
    serve(ours, port_config_message(port_configs({1, 2, 4})));
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return told_to_lacp(ours); }, ports_t({1, 2, 4})));
    EXPECT_EQ(failures(ours), 1u);
}

} // namespace
