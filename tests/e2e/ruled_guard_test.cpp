// What keeps the kernel from forwarding by itself on a Linux bridge that lvt_bridge rules.
#include "ruled_net.h"

#include <array>
#include <csignal>
#include <functional>

#include <fmt/format.h>

#include "tools/hex.h"
#include "tree_speaker.h"

using namespace lab;
using testing::HasSubstr;

namespace {

//  host - ruled - host
class bridge_guard : public ruled_test_t {
protected:
    void SetUp() override
    {
        ruled.start();
        ASSERT_TRUE(becomes(ruled, "1 designated forwards, 2 designated forwards", BY_TIMERS));
        ASSERT_TRUE(near.reaches(far, AT_ONCE));
    }

    ruled_bridge_t &ruled = add_ruled(4096, 2, {});
    const host_t &near = add_host_at(ruled, 1), &far = add_host_at(ruled, 2);
};

TEST_F(bridge_guard, is_told_and_in_force)
{
    EXPECT_THAT(ruled.said(),
                HasSubstr(ruled.has_user_stp() ? "the kernel leaves the states of the ports to this program"
                                               : "the firewall's table lvt_bridge_br0 keeps the kernel"));
    const std::string path = fmt::format("/sys/class/net/{}/bridge/stp_state", ruled.interface("br0"));
    EXPECT_EQ(ruled.node().read(path), ruled.has_user_stp() ? "2\n" : "0\n");
    const std::string rules = ruled.node().run({.argv = {"nft", "list", "ruleset"}}).output;
    EXPECT_EQ(rules.find("lvt_bridge_" + ruled.interface("br0")) != std::string::npos, !ruled.has_user_stp()) << rules;
}

TEST_F(bridge_guard, a_new_link_passes_nothing_until_the_daemon_says_so)
{
    near.node().ip("link set eth0 down");
    ASSERT_TRUE(becomes(ruled, "2 designated forwards", AT_ONCE));
    ASSERT_TRUE(eventually(
        AT_ONCE, [&] { return ruled.kernel_state("lan1"); }, "disabled"));

    ruled.program().signal(SIGSTOP); // the daemon does not speak to the kernel without it
    near.node().ip("link set eth0 up");
    const std::string kernels_own = ruled.has_user_stp() ? "blocking" : "forwarding";
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return ruled.kernel_state("lan1"); }, kernels_own));
    station_t speaker(near.node()), listener(far.node());
    for (uint32_t number = 1; number <= 2000; number++) {
        speaker.send(speaker.mac(), EVERYBODY, number);
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_EQ(ruled.kernel_state("lan1"), kernels_own);
    EXPECT_TRUE(listener.received().empty()) << listener.received().size();

    ruled.program().signal(SIGCONT);
    EXPECT_TRUE(becomes(ruled, "1 designated forwards, 2 designated forwards", BY_TIMERS));
    EXPECT_TRUE(near.reaches(far, BY_TIMERS));
}

TEST_F(bridge_guard, bpdus_are_heard_and_not_forwarded)
{
    const auto is_neighbours = [&](const bpdu_t &bpdu) {
        return address_text(std::to_array(bpdu.source)) == near.node().mac();
    };
    speaker_t speaker(near.node());
    const listener_t listener(far.node(), "eth0");
    const uint32_t before = ruled.status().value().port(1).received.all();
    speaker.say(rst_bpdu(root_bridge(61440, 0x99)), 100ms);
    EXPECT_TRUE(eventually(
        BY_TIMERS, [&] { return ruled.status().value_or(bridge_status_t{}).port(1).received.all(); }, Gt(before + 10)));
    EXPECT_TRUE(eventually(
        BY_TIMERS, [&] { return listener.count(std::not_fn(is_neighbours)); }, Gt(1u)))
        << "the bridge's own";
    EXPECT_EQ(listener.count(is_neighbours), 0u);
}

} // namespace
