// A Linux bridge that lvt_bridge rules in one ring with a simulated switch and a bridge of the kernel's own STP.
#include "ruled_net.h"

using namespace lab;

namespace {

struct priorities_t {
    const char *root;
    int ruled, simulated, kernel;
};

std::ostream &operator<<(std::ostream &out, const priorities_t &order) { return out << order.root << " is root"; }

//   ruled          A host is at port 3 of the first two.
//    / \.
// sim - kernel
class bridge_mixed : public ruled_test_t, public testing::WithParamInterface<priorities_t> {};

constexpr priorities_t orders[] = {
    {"ruled", 4096, 8192, 12288}, {"simulated", 8192, 4096, 12288}, {"kernel", 8192, 12288, 4096}};
INSTANTIATE_TEST_SUITE_P(, bridge_mixed, testing::ValuesIn(orders),
                         [](const auto &one) { return std::string(one.param.root) + "_is_root"; });

TEST_P(bridge_mixed, the_loop_is_cut_and_no_frame_comes_twice)
{
    const auto &[root, ruled_priority, simulated_priority, kernel_priority] = GetParam();
    ruled_bridge_t &ruled = add_ruled(ruled_priority, 3, {1, 2});
    const switch_t &simulated = add_bridge(static_cast<uint16_t>(simulated_priority), port_configs({1, 2}, {3}));
    const kernel_bridge_t &kernel = add_kernel_bridge(kernel_priority);
    connect(simulated, 2, kernel, 2);
    const cable_t &to_simulated = connect(ruled, 1, simulated, 1);
    connect(ruled, 2, kernel, 1);
    const host_t &at_ruled = add_host_at(ruled, 3), &at_simulated = add_host(simulated, 3);
    ruled.start();

    station_t near(at_ruled.node()), far(at_simulated.node());
    stream_t stream(near, {&far});
    const auto blocked = [&] {
        const auto status = ruled.status();
        const std::string all = ports_text(simulated) + (status ? ", " + ports_text(*status) : "");
        const kernel_view_t view = kernel.view();
        size_t count = e2e::count_of(all, "alternate discards");
        for (const auto &[interface, port] : view.ports)
            count += port.state == "blocking";
        return count;
    };
    EXPECT_TRUE(eventually(BY_TIMERS + 5s, blocked, 1u));
    EXPECT_TRUE(at_ruled.reaches(at_simulated, BY_TIMERS));
    const bridge_id_t wanted = std::string(root) == "ruled"       ? ruled.status().value().bridge
                               : std::string(root) == "simulated" ? status_of(simulated).bridge
                                                                  : kernel.view().bridge;
    EXPECT_TRUE(same_bridge(ruled.status().value().root, wanted));
    EXPECT_TRUE(follows(simulated, wanted));
    EXPECT_TRUE(same_bridge(kernel.view().root, wanted));

    to_simulated.pull();
    EXPECT_TRUE(eventually(
        BY_TIMERS, [&] { return at_ruled.reaches(at_simulated, 1s); }, true));
    EXPECT_TRUE(eventually(BY_TIMERS, blocked, 0u));
    to_simulated.plug();
    EXPECT_TRUE(eventually(BY_TIMERS + 5s, blocked, 1u));
    EXPECT_TRUE(at_ruled.reaches(at_simulated, BY_TIMERS));
    expect_each_once(stream, {{"host at the simulated switch", &far}}, std::string("mixed ring, root ") + root);
}

} // namespace
