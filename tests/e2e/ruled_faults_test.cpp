// What happens to a Linux bridge that lvt_bridge rules when something fails, or somebody else has a hand in it.
#include "ruled_net.h"

#include <atomic>
#include <csignal>
#include <thread>

#include <fmt/format.h>

using namespace lab;
using testing::HasSubstr;

namespace {

//    a ====== b        Two cables, of which b blocks the second; a host is at port 3 of each, and speaks.
class bridge_faults : public ruled_test_t {
protected:
    void SetUp() override
    {
        a.start();
        b.start();
        first_ = &connect(a, 1, b, 1);
        second_ = &connect(a, 2, b, 2);
        at_a_ = &add_host_at(a, 3);
        at_b_ = &add_host_at(b, 3);
        ASSERT_TRUE(settles());
        near_.emplace(at_a_->node());
        far_.emplace(at_b_->node());
        stream_.emplace(*near_, std::vector<station_t *>{&*far_});
    }

    testing::AssertionResult settles() const
    {
        return eventually(
            2 * BY_TIMERS, [&] { return fmt::format("a: {}; b: {}", ports_of(a), ports_of(b)); },
            "a: 1 designated forwards, 2 designated forwards, 3 designated forwards; "
            "b: 1 root forwards, 2 alternate discards, 3 designated forwards");
    }

    void expect_each_once(const std::string &what)
    {
        ruled_test_t::expect_each_once(*stream_, {{"host at b", &*far_}}, what);
    }

    /// Waits until b's host has heard so many more frames.
    testing::AssertionResult frames_pass(uint32_t count)
    {
        const uint32_t before = stream_->sent();
        const auto sent = eventually(
            AT_ONCE, [&] { return stream_->sent(); }, Gt(before + count));
        return sent && at_a_->reaches(*at_b_, AT_ONCE) ? testing::AssertionSuccess()
                                                       : testing::AssertionFailure() << "nothing passes";
    }

    ruled_bridge_t &a = add_ruled(4096, 3, {1, 2});
    ruled_bridge_t &b = add_ruled(8192, 3, {1, 2});
    const cable_t *first_ = nullptr, *second_ = nullptr;
    const host_t *at_a_ = nullptr, *at_b_ = nullptr;
    std::optional<station_t> near_, far_;
    std::optional<stream_t> stream_;
};

TEST_F(bridge_faults, a_flapping_link_never_closes_the_loop)
{
    for (int flap = 0; flap < 20; flap++) {
        first_->pull();
        ASSERT_TRUE(eventually(
            AT_ONCE, [&] { return b.kernel_state("lan1"); }, "disabled"));
        first_->plug();
        // Some last until the daemons have heard of it, and some do not.
        if (flap % 2 == 0) {
            ASSERT_TRUE(eventually(
                AT_ONCE, [&] { return b.status().value_or(bridge_status_t{}).port(1).role; },
                testing::AnyOf(ROLE_ROOT, ROLE_DESIGNATED, ROLE_ALTERNATE)));
        }
    }
    EXPECT_TRUE(settles());
    EXPECT_TRUE(frames_pass(100));
    expect_each_once("20 flaps");
}

TEST_F(bridge_faults, what_somebody_else_sets_is_set_back_and_told)
{
    const std::string blocked = b.kernel_state("lan2");
    // Where nothing but the kernel's state cuts the loop, there is one for as long as that is wrong.
    if (b.has_user_stp())
        stream_.reset();
    for (int attempt = 1; attempt <= 5; attempt++) {
        b.node().run({.argv = {"bridge", "link", "set", "dev", b.interface("lan2"), "state", "3"}});
        EXPECT_TRUE(eventually(
            1s, [&] { return b.kernel_state("lan2"); }, blocked));
        EXPECT_TRUE(eventually(
            1s, [&] { return e2e::count_of(b.said(), b.interface("lan2") + " was found forwarding"); },
            static_cast<size_t>(attempt)));
    }
    if (b.has_user_stp()) {
        near_->forget();
        far_->forget();
        stream_.emplace(*near_, std::vector<station_t *>{&*far_});
    }
    b.node().run({.argv = {"bridge", "link", "set", "dev", b.interface("lan1"), "state", "0"}});
    EXPECT_TRUE(eventually(
        1s, [&] { return b.kernel_state("lan1"); }, "forwarding"));
    EXPECT_TRUE(frames_pass(100));
    EXPECT_TRUE(settles());

    b.node().ip(fmt::format("link set {} type bridge stp_state {}", b.interface("br0"), b.has_user_stp() ? 0 : 1));
    const std::string told = fmt::format("STP was switched {}; it is switched back", b.has_user_stp() ? "off" : "on");
    EXPECT_TRUE(eventually(
        1s, [&] { return b.said(); }, HasSubstr(told)));
    EXPECT_TRUE(settles());
    EXPECT_TRUE(frames_pass(100));
    expect_each_once("states set by somebody else");
}

/// The same, where frames go round before anybody rules.
class bridge_storm : public bridge_faults {
protected:
    void SetUp() override
    {
        first_ = &connect(a, 1, b, 1);
        // Slow enough to leave the processors to others.
        for (const ruled_bridge_t *bridge : {&a, &b}) {
            const outcome_t slowed =
                bridge->node().run({.argv = {"tc", "qdisc", "add", "dev", bridge->interface("lan1"), "root", "tbf",
                                             "rate", "500kbit", "burst", "2kb", "limit", "4kb"}});
            if (slowed.output.find("qdisc kind is unknown") != std::string::npos)
                GTEST_SKIP() << "cannot run here: the kernel slows no interfaces (CONFIG_NET_SCH_TBF)";
            ASSERT_EQ(slowed.exit_code, 0) << slowed.output;
        }
        second_ = &connect(a, 2, b, 2);
        at_a_ = &add_host_at(a, 3);
        at_b_ = &add_host_at(b, 3);
        near_.emplace(at_a_->node());
        far_.emplace(at_b_->node());
    }
};

TEST_F(bridge_storm, ends_when_its_bridges_are_ruled)
{
    const auto goes_round = [&, sent = 0u]() mutable {
        near_->send(near_->mac(), EVERYBODY, ++sent);
        return far_->received().size() > 10 * sent;
    };
    ASSERT_TRUE(eventually(AT_ONCE, goes_round, true));
    a.start();
    b.start();
    EXPECT_TRUE(settles());
    near_->forget();
    far_->forget();
    stream_.emplace(*near_, std::vector<station_t *>{&*far_});
    EXPECT_TRUE(frames_pass(500));
    expect_each_once("after a storm");
}

struct victims_t {
    const char *name;
    bool daemon, program;
};

std::ostream &operator<<(std::ostream &out, const victims_t &victims) { return out << victims.name; }

class bridge_killed : public bridge_faults, public testing::WithParamInterface<victims_t> {};

constexpr victims_t victims[] = {{"daemon", true, false}, {"program", false, true}, {"both", true, true}};
INSTANTIATE_TEST_SUITE_P(, bridge_killed, testing::ValuesIn(victims), [](const auto &one) { return one.param.name; });

TEST_P(bridge_killed, the_states_stay_and_the_next_start_begins_from_blocking)
{
    const command_t search = {.argv = {"pgrep", "-P", std::to_string(b.program().pid()), "-x", "lvt_rstpd"}};
    const pid_t daemon = std::stoi("0" + b.node().run(search).output);
    ASSERT_GT(daemon, 0);
    if (GetParam().daemon)
        kill(daemon, SIGKILL);
    if (GetParam().program)
        b.program().signal(SIGKILL);
    EXPECT_EQ(b.program().wait(), GetParam().program ? 128 + SIGKILL : 1);
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return kill(daemon, 0); }, -1))
        << "its daemon goes with it";
    EXPECT_EQ(b.kernel_state("lan1"), "forwarding");
    EXPECT_TRUE(frames_pass(500));

    std::atomic<bool> blocked = false;
    std::jthread watch([&](const std::stop_token &rules) {
        while (!rules.stop_requested() && !blocked)
            blocked = b.kernel_state("lan1") != "forwarding";
    });
    b.start();
    watch = {};
    EXPECT_TRUE(blocked) << "it has to be shown anew that there is no loop";
    EXPECT_TRUE(settles());
    EXPECT_TRUE(frames_pass(100));
    expect_each_once(fmt::format("{} killed", GetParam().name));
}

TEST_F(bridge_faults, a_deleted_interface_is_a_lost_link_and_comes_back_with_its_number)
{
    b.node().ip("link delete " + b.interface("lan1"));
    EXPECT_TRUE(becomes(b, "2 root forwards, 3 designated forwards", BY_TIMERS));
    EXPECT_TRUE(eventually(
        1s, [&] { return b.said(); }, HasSubstr(b.interface("lan1") + " left: port 1 is free")));
    EXPECT_TRUE(frames_pass(100));

    connect(a, 1, b, 1);
    EXPECT_TRUE(settles());
    EXPECT_TRUE(frames_pass(100));
    expect_each_once("an interface deleted and made anew");
}

} // namespace
