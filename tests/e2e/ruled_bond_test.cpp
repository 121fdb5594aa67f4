// A bond as the port of a Linux bridge that lvt_bridge rules.
#include "ruled_net.h"

#include <fmt/format.h>

using namespace lab;

namespace {

//  host - a ==== b - host        The two cables are one bond, lan1, at either end.
class bridge_bond : public ruled_test_t {
protected:
    void SetUp() override
    {
        const std::string trial = a.interface("try");
        if (a.node().run({.argv = {"ip", "link", "add", trial, "type", "bond"}}).exit_code != 0)
            GTEST_SKIP() << "cannot run here: the kernel makes no bonds (CONFIG_BONDING)";
        a.node().ip("link delete " + trial);
        for (const char *member : {"one", "two"})
            members_.emplace_back(
                cable_end_t{&a.node(), a.interface(member), a.node().mac(static_cast<int>(members_.size()) + 4)},
                cable_end_t{&b.node(), b.interface(member), b.node().mac(static_cast<int>(members_.size()) + 4)});
        for (const ruled_bridge_t *bridge : {&a, &b}) {
            bridge->node().ip(
                fmt::format("link add {0} type bond mode balance-xor miimon 100\n"
                            "link set {0} addrgenmode none\n"
                            "link set {1} down\nlink set {1} master {0}\n"
                            "link set {2} down\nlink set {2} master {0}\n"
                            "link set {0} up",
                            bridge->interface("lan1"), bridge->interface("one"), bridge->interface("two")));
            bridge->join(1);
        }
        at_a_ = &add_host_at(a, 2);
        at_b_ = &add_host_at(b, 2);
        a.start();
        b.start();
        ASSERT_TRUE(becomes(b, "1 root forwards, 2 designated forwards", BY_TIMERS));
        ASSERT_TRUE(at_a_->reaches(*at_b_, BY_TIMERS));
    }

    ruled_bridge_t &a = add_ruled(4096, 2, {1});
    ruled_bridge_t &b = add_ruled(8192, 2, {1});
    std::vector<cable_t> members_;
    const host_t *at_a_ = nullptr, *at_b_ = nullptr;
};

TEST_F(bridge_bond, is_one_port_that_stays_while_a_member_is_left)
{
    station_t near(at_a_->node()), far(at_b_->node());
    stream_t stream(near, {&far});
    for (const cable_t &member : members_) {
        member.pull();
        const uint32_t then = stream.sent();
        EXPECT_TRUE(eventually(
            AT_ONCE, [&] { return stream.sent(); }, Gt(then + 2000)));
        EXPECT_TRUE(at_a_->reaches(*at_b_, AT_ONCE));
        EXPECT_EQ(ports_of(b), "1 root forwards, 2 designated forwards");
        member.plug();
        const uint32_t plugged = stream.sent();
        EXPECT_TRUE(eventually(
            AT_ONCE, [&] { return stream.sent(); }, Gt(plugged + 1000)));
    }
    expect_each_once(stream, {{"host at b", &far}}, "a bond's members pulled in turn");
    EXPECT_LT(stream.longest_gap(far), FORWARD_DELAY * 1s) << "spanning tree had nothing to do";

    for (const cable_t &member : members_)
        member.pull();
    EXPECT_TRUE(becomes(b, "2 designated forwards", BY_TIMERS));
    for (const cable_t &member : members_)
        member.plug();
    EXPECT_TRUE(becomes(b, "1 root forwards, 2 designated forwards", BY_TIMERS));
    EXPECT_TRUE(at_a_->reaches(*at_b_, BY_TIMERS));
}

} // namespace
