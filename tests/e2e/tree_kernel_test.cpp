// Our switch beside the Linux kernel's bridge, which speaks STP and understands nothing newer.
#include "tree_net.h"
#include "tree_speaker.h"

using namespace lab;

namespace {

constexpr char KERNEL_ADDRESS[] = "10.0.0.100";

class tree_kernel : public network_test_t {
protected:
    static testing::AssertionResult reaches_kernel(const host_t &host, std::chrono::milliseconds patience)
    {
        const command_t ping = {.argv = {"ping", "-n", "-q", "-c", "1", "-W", "0.5", KERNEL_ADDRESS}};
        return eventually(
            patience, [&] { return host.node().run(ping).exit_code; }, 0);
    }
};

/// "forwarding, blocking": the states of the bridge's ports 1 and 2.
std::string kernel_ports(const kernel_bridge_t &bridge)
{
    const kernel_view_t view = bridge.view();
    return view.ports.at("port1").state + ", " + view.ports.at("port2").state;
}

TEST_F(tree_kernel, kernel_is_root)
{
    switch_t &ours = add_bridge(8192, port_configs({1, 2}, {6}));
    kernel_bridge_t &kernel = add_kernel_bridge(4096, KERNEL_ADDRESS);
    host_t &host = add_host(ours, 6);
    const cable_t &first = connect(ours, 1, kernel, 1);
    connect(ours, 2, kernel, 2);

    EXPECT_TRUE(becomes(ours, "1 root forwards, 2 alternate discards, 6 designated forwards", BY_TIMERS));
    EXPECT_TRUE(eventually(
        BY_TIMERS, [&] { return kernel_ports(kernel); }, "forwarding, forwarding"));
    EXPECT_TRUE(reaches_kernel(host, AT_ONCE));

    const kernel_view_t view = kernel.view();
    EXPECT_EQ(view.root_port, 0);
    EXPECT_TRUE(same_bridge(view.root, view.bridge));
    const bridge_status_t status = status_of(ours);
    EXPECT_TRUE(same_bridge(status.root, view.bridge));
    EXPECT_EQ(status.root_port, 1);
    for (const int port : {1, 2}) {
        EXPECT_TRUE(status.port(port).stp_neighbour);
        EXPECT_TRUE(same_bridge(status.port(port).designated_bridge, view.bridge));
        EXPECT_EQ(status.port(port).designated_port, view.ports.at("port" + std::to_string(port)).number);
        EXPECT_EQ(status.port(port).received.all(), status.port(port).received.stp);
    }
    EXPECT_FALSE(status.port(6).stp_neighbour);
    EXPECT_EQ(chip_state(ours, 2), HW_DISCARDING);

    // The alternate port takes over, and tells the root in the root's own language.
    const listener_t tap(kernel.node(), "port2", true);
    first.pull();
    EXPECT_TRUE(becomes(ours, "2 root forwards, 6 designated forwards", AT_ONCE));
    EXPECT_TRUE(reaches_kernel(host, AT_ONCE));
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return tap.count(is_tcn); }, Gt(0u)));
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return tap.count(is_ack); }, Gt(0u)));
    EXPECT_EQ(tap.count(is_rst), 0u);

    // What the kernel has acknowledged is not told for long: one notification may be under way, then
    // there is quiet, although the change itself would be news for ten seconds.
    const auto hellos_since_notification = [&] {
        int hellos = 0;
        for (const heard_bpdu_t &heard : tap.heard())
            hellos = is_tcn(heard.bpdu) ? 0 : hellos + is_config(heard.bpdu);
        return hellos;
    };
    EXPECT_TRUE(eventually(
        AT_ONCE + 2s, [&] { return hellos_since_notification(); }, Ge(3)));
    EXPECT_LE(tap.count(is_tcn), 3u);

    first.plug();
    EXPECT_TRUE(becomes(ours, "1 root forwards, 2 alternate discards, 6 designated forwards", AT_ONCE));
    EXPECT_TRUE(reaches_kernel(host, BY_TIMERS));
}

TEST_F(tree_kernel, our_bridge_is_root)
{
    switch_t &ours = add_bridge(4096, port_configs({1, 2}, {6}));
    kernel_bridge_t &kernel = add_kernel_bridge(8192, KERNEL_ADDRESS);
    host_t &host = add_host(ours, 6);
    const cable_t &first = connect(ours, 1, kernel, 1);
    connect(ours, 2, kernel, 2);

    EXPECT_TRUE(becomes(ours, "1 designated forwards, 2 designated forwards, 6 designated forwards", BY_TIMERS));
    EXPECT_TRUE(eventually(
        BY_TIMERS, [&] { return kernel_ports(kernel); }, "forwarding, blocking"));
    EXPECT_TRUE(reaches_kernel(host, AT_ONCE));

    const kernel_view_t view = kernel.view();
    EXPECT_TRUE(same_bridge(view.root, status_of(ours).bridge));
    EXPECT_EQ(view.root_port, view.ports.at("port1").number);
    EXPECT_TRUE(is_root(ours));

    for (const int port : {1, 2}) {
        EXPECT_TRUE(status_of(ours).port(port).stp_neighbour);
        // RST BPDUs until the migration delay has run out, STP's only from then on.
        const auto rapid = bpdu_events(ours, "tx", port, "rstp");
        const auto legacy = bpdu_events(ours, "tx", port, "config");
        ASSERT_FALSE(rapid.empty() || legacy.empty());
        EXPECT_GT(legacy.front().seconds, rapid.back().seconds);
        EXPECT_GT(legacy.front().seconds - rapid.front().seconds, 1.9);
        EXPECT_LT(legacy.front().seconds - rapid.front().seconds, 6);
    }

    // The kernel's other port has to listen and learn first.
    first.pull();
    EXPECT_TRUE(becomes(ours, "2 designated forwards, 6 designated forwards", AT_ONCE));
    EXPECT_TRUE(reaches_kernel(host, BY_TIMERS));
    EXPECT_EQ(kernel.view().root_port, view.ports.at("port2").number);
}

TEST_F(tree_kernel, priority_moves_the_root)
{
    switch_t &ours = add_bridge(4096, port_configs({1, 2}));
    kernel_bridge_t &kernel = add_kernel_bridge(8192);
    connect(ours, 1, kernel, 1);
    connect(ours, 2, kernel, 2);
    const auto its_root_and_us = [&] {
        return std::tuple(bridge_id_text(kernel.view().root), bridge_id_text(status_of(ours).bridge));
    };
    ASSERT_TRUE(eventually(BY_TIMERS, its_root_and_us, testing::Eq()));

    e2e::serve(ours, system_config_message(bridge_config(12288)));
    EXPECT_TRUE(eventually(
        BY_TIMERS, [&] { return kernel.view().root_port; }, 0));
    EXPECT_TRUE(status_within(ours, BY_TIMERS, [&](const bridge_status_t &status) {
        return same_bridge(status.root, kernel.view().bridge) && status.bridge.prio == 12288;
    }));
    EXPECT_TRUE(status_within(ours, AT_ONCE, [](const bridge_status_t &status) {
        return status.port(1).role == ROLE_ROOT && status.port(2).role == ROLE_ALTERNATE;
    }));
    EXPECT_EQ(state_of(ours, 2), HW_DISCARDING);

    e2e::serve(ours, system_config_message(bridge_config(0)));
    EXPECT_TRUE(eventually(BY_TIMERS, its_root_and_us, testing::Eq()));
    EXPECT_TRUE(is_root(ours));
    EXPECT_EQ(status_of(ours).bridge.prio, 0);
    EXPECT_EQ(kernel.view().root_port, kernel.view().ports.at("port1").number);
    EXPECT_EQ(role_of(ours, 1), ROLE_DESIGNATED);
    EXPECT_EQ(role_of(ours, 2), ROLE_DESIGNATED);
}

} // namespace
