#include "fixture.h"

namespace {

using namespace e2e;

class daemon_boot : public switches_test_t {};

TEST_F(daemon_boot, says_that_it_is_ready_once)
{
    lab::switch_t &device = add_switch();
    device.start();
    serve_all(device);
    EXPECT_EQ(count_of(device.node().read(lab::CONSOLE_FILE), "RSTP Initial Complete"), 1u);
    EXPECT_TRUE(ticks(device, 2));
}

} // namespace
