/// How a state request reaches the chip and the port multiplexer, or does not.
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "daemon_fixture.h"
#include "l2_proto_utility/os_api.h"

namespace {

class hw_state : public daemon_test {
protected:
    /// Defaults, no bridge, and the multiplexer's pipe.
    hw_state()
    {
        lvt_rstp_reset_config();
        port_mux_fd = open(path("port_mux_if_pipe").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    }
};

std::string mux_message(int l2port, int forwarding)
{
    std::string text = "b2 06 66 a8 64 00 00 00 02 00 0" + std::to_string(l2port);
    for (int i = 11; i < 24; i++)
        text += " 00";
    text += " 0" + std::to_string(forwarding);
    for (int i = 25; i < 124; i++)
        text += " 00";
    return text;
}

} // namespace

// ---- the multiplexer's message ----------------------------------------------------------

TEST_F(hw_state, multiplexer_message)
{
    for (int l2port = 1; l2port <= 9; l2port++)
        for (int forwarding : {0, 1}) {
            EXPECT_EQ(sent_msg_to_port_mux("not used", static_cast<uint32_t>(l2port), static_cast<uint8_t>(forwarding)),
                      124);
            const auto messages = board_mux_messages();
            ASSERT_EQ(messages.size(), 1u);
            EXPECT_EQ(hex(messages[0]), mux_message(l2port, forwarding));
        }
}

TEST_F(hw_state, forwarding_begins_at_code_4)
{
    for (uint8_t code = 0; code <= 7; code++) {
        EXPECT_EQ(stp_state_set(2, code), 0);
        EXPECT_EQ(board_log(), (log_t{"state 2 " + std::to_string(code), code >= 4 ? "mux 2 1" : "mux 2 0"}));
    }
}

TEST_F(hw_state, multiplexer_hears_of_failed_writes_too)
{
    board.chip_fails = true;
    stdout_of([] { EXPECT_EQ(stp_state_set(2, 4), -1); });
    EXPECT_EQ(board_log(), state_written(2, 4));
}

TEST_F(hw_state, full_pipe_is_ignored)
{
    octets_t filler(65536);
    while (write(port_mux_fd, filler.data(), filler.size()) > 0) {
    }
    while (write(port_mux_fd, filler.data(), 1) > 0) {
    }
    const int reader = board.mux_reader;
    board.mux_reader = -1;
    EXPECT_EQ(stdout_of([] {
                  EXPECT_EQ(sent_msg_to_port_mux("", 1, 1), -1);
                  EXPECT_EQ(stp_state_set(1, 3), 0);
              }),
              "");
    EXPECT_EQ(board_log(), log_t{"state 1 3"});
    board.mux_reader = reader;
}

TEST_F(hw_state, missing_pipe_is_ignored)
{
    const int kept = std::exchange(port_mux_fd, -1);
    EXPECT_EQ(sent_msg_to_port_mux("", 1, 1), -1);
    EXPECT_EQ(stp_state_set(1, 3), 0);
    EXPECT_EQ(board_log(), log_t{"state 1 3"});
    port_mux_fd = kept;
}

// ---- forwarding switched on and off -----------------------------------------------------

TEST_F(hw_state, forwarding_is_switched_once)
{
    lvt_hw_set_fwdstate(4, 0);
    EXPECT_THAT(board_log(), IsEmpty()); // it was off
    lvt_hw_set_fwdstate(4, 1);
    EXPECT_EQ(board_log(), state_written(4, 4));
    EXPECT_EQ(cached_fwdstates[4], 1);
    EXPECT_EQ(cached_stpstates[4], 4);
    lvt_hw_set_fwdstate(4, 1);
    lvt_hw_set_fwdstate(4, 2); // neither on nor off
    EXPECT_THAT(board_log(), IsEmpty());
    lvt_hw_set_fwdstate(4, 0);
    EXPECT_EQ(board_log(), state_written(4, 1));
    EXPECT_EQ(cached_fwdstates[4], 0);
    EXPECT_EQ(cached_stpstates[4], 1);
}

TEST_F(hw_state, forwarding_comes_on_with_4_whatever_was_noted)
{
    record(3).config.adminEnable = 1;
    EXPECT_EQ(lvt_hw_set_stpstate(3, 1), 1);
    EXPECT_THAT(board_log(), IsEmpty());
    EXPECT_EQ(cached_stpstates[3], 1);
    lvt_hw_set_fwdstate(3, 1);
    EXPECT_EQ(board_log(), state_written(3, 4));
    EXPECT_EQ(cached_stpstates[3], 4);
}

// ---- state codes of one port ------------------------------------------------------------

TEST_F(hw_state, spanning_tree_on)
{
    record(5).config.adminEnable = 1;
    lvt_hw_set_fwdstate(5, 1);
    board_log();
    for (uint8_t code : {0, 1, 3, 4, 5, 5}) { // no filter here
        EXPECT_EQ(lvt_hw_set_stpstate(5, code), 0);
        EXPECT_EQ(board_log(), state_written(5, code));
        EXPECT_EQ(cached_stpstates[5], code);
    }
    board.chip_fails = true;
    stdout_of([] { EXPECT_EQ(lvt_hw_set_stpstate(5, 3), -1); });
    EXPECT_EQ(cached_stpstates[5], 3); // whatever the chip did
}

TEST_F(hw_state, any_enable_octet_but_0_is_on)
{
    record(5).config.adminEnable = 0x80;
    lvt_hw_set_fwdstate(5, 1);
    board_log();
    EXPECT_EQ(lvt_hw_set_stpstate(5, 1), 0);
    EXPECT_EQ(board_log(), state_written(5, 1));
}

TEST_F(hw_state, spanning_tree_off_forwards)
{
    for (uint8_t code : {0, 1, 3, 4, 5}) { // even before forwarding was switched on
        EXPECT_EQ(lvt_hw_set_stpstate(6, code), 4);
        EXPECT_EQ(board_log(), state_written(6, 4));
        EXPECT_EQ(cached_stpstates[6], 4);
    }
    board.chip_fails = true;
    stdout_of([] { EXPECT_EQ(lvt_hw_set_stpstate(6, 1), 4); });
}

TEST_F(hw_state, lacp_rules_a_port_without_spanning_tree)
{
    const uint8_t lacp[] = {0, 0, 9, 0, 0, 0};
    lvt_rstp_lacp_enable_set(lacp);
    lvt_hw_set_fwdstate(3, 1);
    board_log();
    EXPECT_EQ(lvt_hw_set_stpstate(3, 1), 9); // the flag itself
    EXPECT_THAT(board_log(), IsEmpty());
    EXPECT_EQ(cached_stpstates[3], 4);
    EXPECT_EQ(lvt_hw_set_stpstate(2, 1), 4); // the others are not concerned
    EXPECT_EQ(board_log(), state_written(2, 4));

    record(3).config.adminEnable = 1; // with spanning tree, LACP does not matter
    EXPECT_EQ(lvt_hw_set_stpstate(3, 1), 0);
    EXPECT_EQ(board_log(), state_written(3, 1));
}

TEST_F(hw_state, assertions)
{
    for (uint32_t l2port : {0u, 10u}) {
        EXPECT_DEATH(lvt_hw_set_stpstate(l2port, 1),
                     HasSubstr(assertion("lvt_rstp:2047", "lvt_hw_set_stpstate", "l2port_is_valid(port_no)")));
        EXPECT_DEATH(lvt_hw_set_fwdstate(l2port, 1),
                     HasSubstr(assertion("lvt_rstp:2061", "lvt_hw_set_fwdstate", "l2port_is_valid(port_no)")));
    }
}

// ---- state codes asked by the engine ----------------------------------------------------

TEST_F(hw_state, repeated_request_is_dropped)
{
    record(1).config.adminEnable = 1;
    lvt_hw_set_fwdstate(1, 1);
    board_log();
    EXPECT_EQ(lvt_aggr_set_stpstate(1, 3), 0);
    EXPECT_EQ(board_log(), state_written(1, 3));
    EXPECT_EQ(record(1).hw_state, 3);
    EXPECT_EQ(lvt_aggr_set_stpstate(1, 3), 1);
    EXPECT_THAT(board_log(), IsEmpty());
}

TEST_F(hw_state, the_filter_is_the_record_not_the_cache)
{
    record(1).config.adminEnable = 1;
    lvt_hw_set_fwdstate(1, 1); // the cache says 4, the record 0
    board_log();
    EXPECT_EQ(lvt_aggr_set_stpstate(1, 4), 0);
    EXPECT_EQ(board_log(), state_written(1, 4));
    EXPECT_EQ(lvt_aggr_set_stpstate(2, 0), 1); // the record's first value
    EXPECT_THAT(board_log(), IsEmpty());
}

TEST_F(hw_state, port_hw_state_set_has_no_filter)
{
    record(1).config.adminEnable = 1;
    lvt_hw_set_fwdstate(1, 1);
    board_log();
    EXPECT_EQ(lvt_port_hw_state_set(&record(1), 3), 0);
    EXPECT_EQ(lvt_port_hw_state_set(&record(1), 3), 0);
    EXPECT_EQ(board_log(), state_written(1, 3) + state_written(1, 3));
    EXPECT_EQ(record(1).hw_state, 3);
}

// ---- groups -----------------------------------------------------------------------------

TEST_F(hw_state, group_sets_its_members_in_order)
{
    for (uint32_t port : {2u, 4u, 6u}) {
        lvt_rstp_vars.representative[port - 1] = &record(8);
        record(port).config.adminEnable = 1;
        lvt_hw_set_fwdstate(port, 1);
    }
    record(4).hw_state = 3; // has it already
    board_log();
    EXPECT_EQ(lvt_aggr_set_stpstate(8, 3), 0);
    EXPECT_EQ(board_log(), state_written(2, 3) + state_written(6, 3));
    for (uint32_t l2port : {2u, 4u, 6u, 8u})
        EXPECT_EQ(record(l2port).hw_state, 3) << l2port;
    EXPECT_EQ(record(1).hw_state, 0);
    EXPECT_EQ(lvt_aggr_set_stpstate(8, 3), 0); // repeated
    EXPECT_THAT(board_log(), IsEmpty());
}

TEST_F(hw_state, group_answers_the_last_value)
{
    lvt_rstp_vars.representative[1] = &record(7);
    lvt_rstp_vars.representative[2] = &record(7);
    EXPECT_EQ(lvt_aggr_set_stpstate(7, 3), 4); // spanning tree off on port 3: it forwards
    record(3).hw_state = 1;
    record(2).hw_state = 5;
    EXPECT_EQ(lvt_aggr_set_stpstate(7, 1), 1); // port 3 had it: its octet
}

TEST_F(hw_state, group_without_members_answers_0)
{
    EXPECT_EQ(lvt_aggr_set_stpstate(9, 4), 0);
    EXPECT_EQ(record(9).hw_state, 4);
    EXPECT_THAT(board_log(), IsEmpty());
}

TEST_F(hw_state, member_follows_its_own_enable_octet)
{
    lvt_rstp_vars.representative[0] = &record(7);
    lvt_rstp_vars.representative[1] = &record(7);
    record(7).config.adminEnable = 1;
    record(1).config.adminEnable = 1;
    lvt_hw_set_fwdstate(1, 1);
    lvt_hw_set_fwdstate(2, 1);
    board_log();
    lvt_aggr_set_stpstate(7, 1);
    EXPECT_EQ(board_log(), state_written(1, 1) + state_written(2, 4));
}

TEST_F(hw_state, flush)
{
    EXPECT_EQ(lvt_flush_mac_table_per_switch(), 0);
    EXPECT_EQ(STP_OUT_flush_lt(5, 1, 2, 3), 0);
    EXPECT_EQ(board_log(), (log_t{"flush", "flush"}));
    board.chip_fails = true;
    EXPECT_EQ(stdout_of([] {
                  EXPECT_EQ(lvt_flush_mac_table_per_switch(), -1);
                  EXPECT_EQ(STP_OUT_flush_lt(5, 1, 2, 3), 0);
              }),
              "");
}
