// How groups come, change and go, and what the link-aggregation daemon is told. To the tick:
// tests/unit/sim_group_test.cpp.
#include <filesystem>

#include <fcntl.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "group_net.h"

using namespace lab;

namespace {

using ports_t = std::vector<int>;

class group_life : public group_test_t {};

TEST_F(group_life, form_reform_dissolve_and_form_again)
{
    switch_t &a = add_group_bridge(4096, port_configs({1, 2, 3}, {6}));
    switch_t &b = add_group_bridge(8192, port_configs({1, 2, 3}, {6}));
    add_host(a, 6);
    add_host(b, 6);
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
    for (const switch_t *device : {&a, &b})
        expect_tables_agree(*device);
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
