/// Messages to the link-aggregation daemon.
#include "daemon/lacp.h"

#include <fcntl.h>
#include <unistd.h>

#include "daemon_fixture.h"

namespace {

class lacp : public daemon_test {};

constexpr char FAILS[] = "Setting lacp_rstp_status is fail";

} // namespace

TEST_F(lacp, frame)
{
    const uint8_t flags[] = {1, 0, 2, 0, 255, 6};
    EXPECT_EQ(set_lacp_rstp_status(flags), 18);
    EXPECT_EQ(hex(lacp_received()), "ac 01 43 52 06 00 00 00 07 00 00 00 01 00 02 00 ff 06");
}

TEST_F(lacp, any_message)
{
    octets_t message = {9, 1, 2, 3};
    EXPECT_EQ(send_lacp_data(message.data(), 0), 12);
    EXPECT_EQ(hex(lacp_received()), "ac 01 43 52 00 00 00 00 09 01 02 03");
    message.resize(4 + 512, 0xEE);
    EXPECT_EQ(send_lacp_data(message.data(), 512), 524);
    EXPECT_EQ(lacp_received().size(), 524u);
}

TEST_F(lacp, too_long_a_message_is_refused)
{
    const octets_t message(4 + 513);
    EXPECT_EQ(send_lacp_data(message.data(), 513), -1);
    EXPECT_THAT(lacp_received(), IsEmpty());
}

TEST_F(lacp, pipe_is_opened_anew_for_each_message)
{
    std::vector<std::string> opened;
    board.on_open = [&](const std::string &name) { opened.push_back(name); };
    const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(next);
    opened.clear();
    const uint8_t flags[6] = {};
    set_lacp_rstp_status(flags);
    set_lacp_rstp_status(flags);
    EXPECT_THAT(opened, ElementsAre("/tmp/lacp_if_pipe", "/tmp/lacp_if_pipe"));
    const int now = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(now, next); // and closed
    close(now);
}

TEST_F(lacp, missing_pipe_is_told_without_a_line_end)
{
    unlink(path("lacp_if_pipe").c_str());
    const uint8_t flags[6] = {};
    EXPECT_EQ(stdout_of([&] {
                  EXPECT_EQ(set_lacp_rstp_status(flags), -1);
                  EXPECT_EQ(set_lacp_rstp_status(flags), -1);
              }),
              std::string(FAILS) + FAILS);
    EXPECT_EQ(board.console, "");
}

TEST_F(lacp, a_pipe_that_nobody_reads_is_none_that_is_missing)
{
    close(lacp_reader);
    lacp_reader = -1;
    const uint8_t flags[6] = {};
    EXPECT_EQ(stdout_of([&] { EXPECT_EQ(set_lacp_rstp_status(flags), 18); }), "");
}

TEST_F(lacp, full_pipe_fails_at_once)
{
    const int writer = open(path("lacp_if_pipe").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    const octets_t filler(65536);
    while (write(writer, filler.data(), filler.size()) > 0) {
    }
    const uint8_t flags[6] = {};
    EXPECT_EQ(stdout_of([&] { EXPECT_EQ(set_lacp_rstp_status(flags), -1); }), FAILS);
    close(writer);
}

TEST_F(lacp, every_port_configuration_is_told)
{
    boot();
    ports[2].adminEnable = 1;
    ports[5].adminEnable = 0x80;
    send_ports();
    const std::string message = "ac 01 43 52 06 00 00 00 07 00 00 00 00 01 00 00 80 00"; // the octets as they came
    EXPECT_EQ(hex(lacp_received()), message);
    send_ports(RSTP_MSG_PORT_CONFIG_ONLY); // unchanged
    EXPECT_EQ(hex(lacp_received()), message);
    send_group_settings(LVT_RSTP_PORT_DEFAULTS); // nothing for groups
    EXPECT_EQ(hex(lacp_received()), "");
}

TEST_F(lacp, failure_leaves_the_configuration_applied)
{
    boot();
    unlink(path("lacp_if_pipe").c_str());
    ports[2].adminEnable = 1;
    EXPECT_EQ(stdout_of([&] { send_ports(); }), FAILS);
    EXPECT_EQ(record(2).config.adminEnable, 1);
    EXPECT_EQ(stdout_of([&] { send_ports(); }), FAILS); // on every message, changed or not
}

TEST_F(lacp, told_before_queued_groups_are_set_up)
{
    boot();
    send_groups({0, 7, 7, 3, 4, 5, 6});
    board_log();
    size_t chip_log_at_message = 0;
    board.on_open = [&](const std::string &name) {
        if (name == "/tmp/lacp_if_pipe")
            chip_log_at_message = board.log.size();
    };
    ports[1].adminPathCost = 7;
    send_ports();
    EXPECT_EQ(chip_log_at_message, 1u); // the trap only; the members come later
    EXPECT_EQ(board_log(), log_t{"trap off"} + state_written(1, 4) + state_written(2, 4));
}
