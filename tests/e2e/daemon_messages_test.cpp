// Every type of control message, by what it does outside.
#include <gmock/gmock.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "daemon_actions.h"
#include "daemon_support.h"
#include "fixture.h"
#include "tests/bpdus.h"
#include "tools/messages.h"

namespace {

using namespace e2e;
using testing::Contains;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// A running daemon that has just ticked: what is served now is served before the next tick.
class daemon_messages : public switches_test_t {
protected:
    void SetUp() override
    {
        device.start();
        ASSERT_TRUE(ticks(device, 1));
        watch.news();
    }

    std::vector<std::string> lacp_messages() const
    {
        std::vector<std::string> raw;
        for (const auto &message : device.client().messages())
            if (message.at("pipe") == "lacp")
                raw.push_back(message.at("raw"));
        return raw;
    }

    lab::switch_t &device = add_switch();
    watch_t watch{device};
};

/// What a port without link writes when it takes part for the first time.
actions_t joins(int port)
{
    return {flushes(), writes_state(port, 1), tells_mux(port, false), writes_state(port, 3), tells_mux(port, false),
            flushes(), writes_state(port, 1), tells_mux(port, false)};
}

/// What a port writes when spanning tree is switched off on it.
actions_t leaves(int port) { return {disarms_trap(), writes_state(port, 4), tells_mux(port, true)}; }

// ---- type 0 -----------------------------------------------------------------------------------

TEST_F(daemon_messages, bpdu_is_counted_at_the_front_port_behind_the_chip_port)
{
    constexpr std::array<int, 8> front_port = {0, 0, 1, 2, 3, 4, 6, 5}; // by port octet
    for (size_t octet = 2; octet < front_port.size(); octet++)
        for (size_t time = 0; time < octet; time++) // each another number of times
            serve(device, bpdu_message(static_cast<uint8_t>(octet), frame_of(superior_bpdu())));

    const auto all = counts(device);
    for (size_t octet = 2; octet < front_port.size(); octet++)
        EXPECT_EQ(all[static_cast<size_t>(front_port[octet]) - 1], counts_t{.rstp_received = static_cast<long>(octet)})
            << "port octet " << octet;
    for (size_t group = 6; group < 9; group++)
        EXPECT_EQ(all[group], counts_t{});
}

TEST_F(daemon_messages, bpdu_makes_its_port_the_root_port)
{
    serve(device, port_status_message(linked({2, 6})));
    serve(device, port_config_message(enabled({2, 6})));
    ASSERT_TRUE(ticks(device, 2));

    hear(device, 6, superior_bpdu());

    ASSERT_TRUE(status_within(device, SOON, [](const lab::bridge_status_t &status) {
        return status.port(6).role == ROLE_ROOT && status.port(2).role == ROLE_DESIGNATED;
    }));
    const lab::bridge_status_t status = *device.status();
    EXPECT_EQ(lab::bridge_id_text(status.root), "4096/02:00:00:00:99:00");
    EXPECT_EQ(status.root_port, 6);
    EXPECT_EQ(status.max_age, 6);
    EXPECT_EQ(status.port(6).received.rstp, 1u);
}

// ---- type 1 -----------------------------------------------------------------------------------

TEST_F(daemon_messages, port_status_is_stored_as_it_comes)
{
    serve(device, port_status_message(
                      {{{9, 1, 0, 1}, {9, 0, 1, 0}, {9, 7, 2, 2}, {9, 255, 255, 255}, {9, 1, 3, 0}, {9, 0, 0, 0}}}));
    EXPECT_EQ(ask(device, "debug show port_status"),
              "====================================================================\n"
              "Port Status:\n"
              "Port | Link | Speed | Fdx\n"
              "   1      1       0     1\n"
              "   2      0       1     0\n"
              "   3      7       2     2\n"
              "   4    255     255   255\n"
              "   5      1       3     0\n"
              "   6      0       0     0\n"
              "====================================================================\n");
    EXPECT_THAT(watch.news(), IsEmpty()) << "spanning tree is off";
}

TEST_F(daemon_messages, port_status_sets_path_costs_and_point_to_point)
{
    // Any link octet but 0 means up, duplex 1 alone means full; speed 6 is no speed, above is 1 Mbit/s.
    serve(device, port_config_message(enabled({1, 2, 3, 4, 5, 6})));
    serve(device, port_status_message(
                      {{{0, 1, 0, 1}, {0, 9, 1, 0}, {0, 1, 2, 2}, {0, 1, 3, 1}, {0, 1, 6, 1}, {0, 1, 200, 1}}}));

    ASSERT_TRUE(status_within(device, SOON, [](const lab::bridge_status_t &status) {
        return status.port(1).role == ROLE_DESIGNATED && status.port(6).role == ROLE_DESIGNATED;
    }));
    const lab::bridge_status_t status = *device.status();
    constexpr uint32_t costs[] = {2000000, 200000, 20000, 8000, 200000000, 20000000};
    constexpr bool point_to_point[] = {true, false, false, true, true, true};
    for (int port = 1; port <= 6; port++) {
        EXPECT_EQ(status.port(port).path_cost, costs[port - 1]) << port;
        EXPECT_EQ(status.port(port).point_to_point, point_to_point[port - 1]) << port;
    }
}

// ---- type 2 -----------------------------------------------------------------------------------

TEST_F(daemon_messages, aggregation_status_forms_and_dissolves_groups)
{
    serve(device, aggr_status_message({0, 7, 2, 7, 9, 0, 200}));
    EXPECT_EQ(ask(device, "debug show aggr_status"),
              "====================================================================\n"
              "RSTP Aggr Status:\n"
              "PORT NO | AGGR ID\n"
              "      1         7\n"
              "      2         2\n"
              "      3         7\n"
              "      4         9\n"
              "      5         5\n"
              "      6         6\n"
              "====================================================================\n")
        << "0 means alone, and so does what is no group";
    EXPECT_EQ(ask(device, "debug show rstp_aggr_status"),
              "================================================================\n"
              "RSTP AGGR STATUS:\n"
              "Port | Aggr_No\n"
              "   1         7\n"
              "   2         0\n"
              "   3         7\n"
              "   4         9\n"
              "   5         0\n"
              "   6         0\n"
              "================================================================\n");

    serve(device, aggr_status_message(AGGR_STATUS_ALONE));
    EXPECT_THAT(ask(device, "debug show rstp_aggr_status"), Not(HasSubstr("7\n")));
    EXPECT_TRUE(is_sound(device));
}

// ---- type 3 -----------------------------------------------------------------------------------

TEST_F(daemon_messages, system_configuration_reaches_the_bridge)
{
    serve(device, port_status_message(linked({1})));
    serve(device, port_config_message(enabled({1})));
    ASSERT_TRUE(ticks(device, 3));
    const size_t lacp_before = lacp_messages().size();
    watch.news();

    serve(device, system_config_message({.bridge_priority = 4096 + 7,
                                         .max_age = 10,
                                         .hello_time = 1,
                                         .forward_delay = 6,
                                         .force_version = 0,
                                         .reserved = 0x77}));
    EXPECT_EQ(ask(device, "debug show system_config"),
              "================================================================\n"
              "RSTP SYSTEM CONFIG:\n"
              "Bridge_Prio | Max_Age | Hello_Time | Fwd_Delay | Force_Ver\n"
              "       4103        10            1           6           0\n"
              "================================================================\n");
    ASSERT_TRUE(status_within(device, SOON, [](const lab::bridge_status_t &status) {
        return status.bridge.prio == 4096 && status.root.prio == 4096;
    }));
    const lab::bridge_status_t status = *device.status();
    EXPECT_EQ(status.max_age, 10);
    EXPECT_EQ(status.hello_time, 1);
    EXPECT_EQ(status.forward_delay, 6);
    EXPECT_THAT(watch.news(), IsEmpty());
    EXPECT_EQ(lacp_messages().size(), lacp_before);
}

// ---- type 4 -----------------------------------------------------------------------------------

TEST_F(daemon_messages, aggregation_configuration_concerns_the_groups_only)
{
    const std::string ports_before = ask(device, "debug show rstp_port_status 1");
    serve(device, aggr_config_message({.adminPathCost = 4000000000,
                                       .port_priority = 16,
                                       .adminEnable = 1,
                                       .adminEdge = 0,
                                       .adminPointToPoint = 1,
                                       .reserved = {}}));
    EXPECT_EQ(ask(device, "debug show port_config"),
              "================================================================\n"
              "RSTP PORT CONFIG:\n"
              "Port | Path_Cost | Port_Prio | Enable | Edge | P2P\n"
              "Aggr Port:\n"
              "Aggr   -294967296          16        1      0     1\n"
              "----------------------------------------------------------------\n"
              "   1           0         128        0      1     2\n"
              "   2           0         128        0      1     2\n"
              "   3           0         128        0      1     2\n"
              "   4           0         128        0      1     2\n"
              "   5           0         128        0      1     2\n"
              "   6           0         128        0      1     2\n"
              "================================================================\n");
    EXPECT_THAT(watch.news(), IsEmpty()) << "no group has a member";
    EXPECT_THAT(lacp_messages(), IsEmpty());
    EXPECT_EQ(ask(device, "debug show rstp_port_status 1"), ports_before);
}

// ---- types 5 and 9 ----------------------------------------------------------------------------

TEST_F(daemon_messages, port_configuration_puts_ports_into_the_tree_one_after_the_other)
{
    serve(device, port_config_message(enabled({1, 2, 3, 4, 5, 6})));
    // Each event finishes the pass of the one before it; the last one waits for the tick.
    actions_t expected;
    for (int port = 1; port <= 6; port++)
        expected = expected + actions_t{arms_trap()} + (port > 1 ? joins(port - 1) : actions_t{});
    expected = expected + joins(6);
    EXPECT_THAT(watch.news_like(expected), ElementsAreArray(expected));
    EXPECT_TRUE(device.client().is_trapped("01:80:c2:00:00:00"));

    ASSERT_TRUE(ticks(device, 3));
    watch.news();
    serve(device, port_config_message(enabled({})));
    actions_t all_leave;
    for (int port = 1; port <= 6; port++)
        all_leave = all_leave + leaves(port);
    EXPECT_THAT(watch.news(), ElementsAreArray(all_leave));
    EXPECT_FALSE(device.client().is_trapped("01:80:c2:00:00:00"));
    EXPECT_TRUE(ticks(device, 2));
    EXPECT_THAT(watch.news(), IsEmpty());

    serve(device, port_config_message(enabled({3})));
    EXPECT_TRUE(ticks(device, 2));
    EXPECT_EQ(watch.news(), actions_t{arms_trap()}) << "its machines stood still meanwhile";
}

TEST_F(daemon_messages, port_configuration_touches_changed_ports_only)
{
    serve(device, port_config_message(enabled({2, 5})));
    const actions_t both_join = actions_t({arms_trap(), arms_trap()}) + joins(2) + joins(5);
    EXPECT_EQ(watch.news_like(both_join), both_join);
    ASSERT_TRUE(ticks(device, 2));
    watch.news();

    port_configs_t configs = enabled({2, 5});
    configs[0].adminEnable = 1; // nobody reads the first record
    configs[0].port_priority = 16;
    configs[3].port_priority = 64;
    serve(device, port_config_message(configs));
    EXPECT_EQ(watch.news().front(), disarms_trap()) << "port 3 has changed and is off: the last one decides";
    EXPECT_THAT(ask(device, "debug show port_config"),
                HasSubstr("Aggr           0         128        0      1     2\n"));
    EXPECT_THAT(ask(device, "debug show port_config"),
                HasSubstr("   3           0          64        0      1     2\n"));
}

TEST_F(daemon_messages, port_configuration_tells_the_lacp_daemon_every_time)
{
    port_configs_t configs = enabled({1, 6});
    configs[3].adminEnable = 0x5A;
    const std::string told =
        "ac014352"
        "06000000"
        "07000000"
        "01005a000001";

    serve(device, port_config_message(configs));
    EXPECT_THAT(lacp_messages(), testing::ElementsAre(told));
    ASSERT_TRUE(ticks(device, 3));
    watch.news();

    serve(device, port_config_message(configs));
    EXPECT_THAT(lacp_messages(), testing::ElementsAre(told, told));
    EXPECT_THAT(watch.news(), IsEmpty());

    serve(device, port_config_only_message(configs));
    EXPECT_THAT(lacp_messages(), testing::ElementsAre(told, told, told));
    EXPECT_THAT(watch.news(), IsEmpty());
}

TEST_F(daemon_messages, type_9_leaves_group_work_for_later)
{
    serve(device, port_status_message(linked({1, 2})));
    serve(device, port_config_message(enabled({1, 2})));
    lvt_rstp_port_config_t groups = LVT_RSTP_PORT_DEFAULTS;
    groups.adminEnable = 1;
    serve(device, aggr_config_message(groups));
    serve(device, aggr_status_message({0, 7, 7, 3, 4, 5, 6}));
    ASSERT_TRUE(status_within(
        device, SOON, [](const lab::bridge_status_t &status) { return status.port(7).state == HW_FORWARDING; }));
    ASSERT_TRUE(ticks(device, 2));
    watch.news();

    port_configs_t configs = enabled({1, 2});
    configs[1].port_priority = 64;
    serve(device, port_config_only_message(configs));
    EXPECT_THAT(ask(device, "debug show port_config"), HasSubstr("   1           0          64        1"));
    ASSERT_TRUE(ticks(device, 2));
    // The port itself is outside the tree, and says so to the chip ...
    EXPECT_EQ(watch.news(), (actions_t{arms_trap(), writes_state(1, 5), tells_mux(1, true)}));

    // ... until its group is set up anew.
    serve(device, port_config_message(configs));
    const actions_t anew = watch.news();
    ASSERT_FALSE(anew.empty());
    EXPECT_EQ(anew.front(), writes_state(1, 4));
    EXPECT_THAT(anew, Contains(flushes()));
}

// ---- type 10 ----------------------------------------------------------------------------------

TEST_F(daemon_messages, lacp_enable_is_stored_and_keeps_states_of_ports_that_are_off)
{
    serve(device, port_config_message(enabled({1, 2})));
    ASSERT_TRUE(ticks(device, 3));
    serve(device, lacp_enable_message({1, 0, 0, 200, 0, 0}));
    watch.news();
    EXPECT_EQ(ask(device, "debug show lacp_port_config"),
              "================================================================\n"
              "RSTP LACP PORT STATE:\n"
              "Port | LACP State \n"
              "   0           1\n"
              "   1           0\n"
              "   2           0\n"
              "   3         200\n"
              "   4           0\n"
              "   5           0\n"
              "================================================================\n");

    serve(device, port_config_message(enabled({})));
    EXPECT_EQ(watch.news(), actions_t{disarms_trap()} + leaves(2));
    EXPECT_EQ(device.client().port(1).state, HW_DISCARDING);
    EXPECT_EQ(device.client().port(2).state, HW_FORWARDING);
}

// ---- the others -------------------------------------------------------------------------------

TEST_F(daemon_messages, other_types_change_nothing)
{
    serve(device, port_status_message(linked({4})));
    serve(device, port_config_message(enabled({1, 2})));
    ASSERT_TRUE(ticks(device, 3));
    watch.news();
    const std::string before = all_reports(device);
    const size_t lacp_before = lacp_messages().size();
    const auto batches = device.client().show("counters").at("board").at("batches");

    std::vector<uint8_t> body(1024);
    for (size_t i = 0; i < body.size(); i++)
        body[i] = static_cast<uint8_t>(i * 7 + 1);
    for (const uint8_t type : {6, 7, 8, 11, 12, 127, 128, 255}) {
        for (const size_t octets : {0, 1, 84, 1024}) {
            serve(device, raw_message(type, std::span(body).first(octets), 3));
            ASSERT_TRUE(device.daemon().running()) << int{type};
        }
    }
    serve(device, work_flush_message());

    EXPECT_EQ(lacp_messages().size(), lacp_before);
    EXPECT_EQ(device.client().show("counters").at("board").at("batches"), batches);
    EXPECT_THAT(watch.news(), IsEmpty());
    EXPECT_EQ(all_reports(device), before);
}

} // namespace
