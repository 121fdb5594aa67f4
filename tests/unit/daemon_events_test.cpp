/// Received frames, links and ticks on their way into the engine.
#include <cstring>
#include <memory>

#include "daemon_fixture.h"
#include "l2_proto_utility/os_api.h"
#include "rstp/machines.h"
#include "rstp/stpm.h"

namespace {

class events : public daemon_test {
protected:
    /// Hands a frame over in memory of just its size, so that a sanitizer sees each octet too many.
    static int receive(uint32_t port, const octets_t &frame, size_t length)
    {
        const std::unique_ptr<uint8_t[]> exact(new uint8_t[frame.size()]);
        memcpy(exact.get(), frame.data(), frame.size());
        return lvt_rstp_receive(port, exact.get(), static_cast<uint32_t>(length));
    }
    static int receive(uint32_t port, const octets_t &frame) { return receive(port, frame, frame.size()); }

    static uint32_t accepted(uint32_t port)
    {
        const port_t &p = record(port);
        return p.stp_frame_recvs + p.rstp_frame_recvs + p.tcn_frame_recvs + p.unknown_frame_recvs;
    }

    static bool at_rest() { return !current_stpm && !current_port; }
};

octets_t changed(octets_t frame, size_t at, uint8_t value)
{
    frame[at] = value;
    return frame;
}

octets_t cut(octets_t frame, size_t length)
{
    frame.resize(length);
    return frame;
}

const octets_t RST = frame_of({});
const octets_t CONFIG = frame_of({.type = 0x00, .version = 0, .flags = 0});

} // namespace

// ---- frames: what is accepted -----------------------------------------------------------

TEST_F(events, every_kind_is_counted)
{
    boot({1});
    EXPECT_EQ(receive(1, CONFIG), 0);
    EXPECT_EQ(receive(1, RST), 0);
    EXPECT_EQ(receive(1, RST), 0);
    EXPECT_EQ(receive(1, tcn_frame()), 0);
    EXPECT_EQ(receive(1, changed(CONFIG, 20, 0x01)), 0); // a type that no one knows
    EXPECT_EQ(record(1).stp_frame_recvs, 1u);
    EXPECT_EQ(record(1).rstp_frame_recvs, 2u);
    EXPECT_EQ(record(1).tcn_frame_recvs, 1u);
    EXPECT_EQ(record(1).unknown_frame_recvs, 1u);
    EXPECT_EQ(record(1).illegal_frame_recvs, 0u);
}

TEST_F(events, shortest_valid_frames)
{
    boot({1});
    const struct {
        const char *what;
        octets_t frame;
        size_t length;
    } rows[] = {
        {"notification of 21 octets, length field 7", tcn_frame(), 21},
        {"configuration BPDU of 52 octets, length field 38", CONFIG, 52},
        {"RST BPDU of 52 octets, length field 38", cut(changed(RST, 13, 38), 52), 52},
        {"unknown type, length field 38", changed(CONFIG, 20, 0x7F), 52},
        {"padding behind the BPDU", cut(tcn_frame(), 60), 60},
        {"any version", changed(RST, 19, 0xFF), 53},
        {"a long BPDU, of which the first 52 octets are kept", cut(changed(changed(RST, 12, 0x05), 13, 0xCE), 52),
         1500},
        {"the longest, of which the first 52 octets are kept", cut(changed(changed(RST, 12, 0xFF), 13, 0xFF), 52),
         65549},
        {"a notification with a longer length field", cut(changed(tcn_frame(), 13, 46), 60), 60},
    };
    uint32_t count = 0;
    for (const auto &row : rows) {
        EXPECT_EQ(receive(1, row.frame, row.length), 0) << row.what;
        EXPECT_EQ(accepted(1), ++count) << row.what;
    }
    EXPECT_EQ(record(1).illegal_frame_recvs, 0u);
}

TEST_F(events, malformed_frames)
{
    boot({1, 2});
    const struct {
        const char *what;
        octets_t frame;
        size_t length;
    } rows[] = {
        {"configuration BPDU, one octet short", cut(CONFIG, 51), 51},
        {"RST BPDU, one octet short", cut(RST, 52), 52},
        {"notification, one octet short", cut(tcn_frame(), 20), 20},
        {"length field far beyond the frame", changed(changed(RST, 12, 0xFF), 13, 0xFF), 53},
        {"length field one beyond the frame", changed(RST, 13, 40), 53},
        {"notification, length field 6", changed(tcn_frame(), 13, 6), 21},
        {"notification, length field 0", changed(tcn_frame(), 13, 0), 21},
        {"configuration BPDU, length field 37", changed(CONFIG, 13, 37), 52},
        {"RST BPDU, length field 37", changed(RST, 13, 37), 53},
        {"RST BPDU, length field 7", changed(RST, 13, 7), 53},
        {"RST BPDU of 21 octets, length field 7", cut(changed(RST, 13, 7), 21), 21},
        {"unknown type, length field 37", changed(changed(CONFIG, 20, 0x01), 13, 37), 52},
        {"unknown type 0x81, length field 7", changed(changed(CONFIG, 20, 0x81), 13, 7), 52},
        {"DSAP", changed(RST, 14, 0x43), 53},
        {"SSAP", changed(RST, 15, 0x43), 53},
        {"both SAPs alike but not 0x42", changed(changed(RST, 14, 0xAA), 15, 0xAA), 53},
        {"control", changed(RST, 16, 0x13), 53},
        {"protocol, first octet", changed(RST, 17, 1), 53},
        {"protocol, second octet", changed(RST, 18, 1), 53},
        {"a notification's protocol", changed(tcn_frame(), 18, 1), 21},
    };
    uint32_t count = 0;
    for (const auto &row : rows) {
        EXPECT_EQ(receive(2, row.frame, row.length), static_cast<int>(++count)) << row.what;
        EXPECT_EQ(record(2).illegal_frame_recvs, count) << row.what;
    }
    EXPECT_EQ(accepted(2), 0u);
    EXPECT_EQ(record(1).illegal_frame_recvs, 0u);
}

TEST_F(events, frames_of_any_length_are_judged_within_their_octets)
{
    boot({1});
    uint32_t count = 0;
    for (const octets_t &frame : {RST, CONFIG, tcn_frame()})
        for (size_t length = 0; length < frame.size(); length++)
            EXPECT_EQ(receive(1, cut(frame, length)), static_cast<int>(++count)) << length;
    EXPECT_EQ(accepted(1), 0u);
}

TEST_F(events, group_addresses_and_sender_are_not_looked_at)
{
    boot({1});
    octets_t frame = RST;
    memset(frame.data(), 0xEE, 12);
    EXPECT_EQ(receive(1, frame), 0);
    EXPECT_EQ(record(1).rstp_frame_recvs, 1u);
}

TEST_F(events, a_disabled_bridge_refuses)
{
    boot({1});
    send_enabled({1});
    seconds(1);
    STP_stpm_enable(lvt_rstp_vars.default_vlan, 0);
    record(1).rcvdBpdu = 0;
    EXPECT_EQ(receive(1, RST), STP_BRIDGE_DISABLED);
    EXPECT_EQ(accepted(1), 0u);
    EXPECT_EQ(record(1).rcvdBpdu, 0);
    EXPECT_EQ(receive(1, cut(RST, 10)), 1); // malformed ones are counted all the same
}

TEST_F(events, a_port_outside_the_tree_counts_and_forgets)
{
    boot({1});
    EXPECT_EQ(receive(1, RST), 0);
    EXPECT_EQ(record(1).rstp_frame_recvs, 1u);
    EXPECT_EQ(record(1).rcvdMsg, 0);
}

// ---- frames: the engine's pending work --------------------------------------------------

TEST_F(events, malformed_before_pending_work)
{
    boot({1, 2});
    send_enabled({1, 2});
    const port_t *const pending = current_port;
    ASSERT_NE(pending, nullptr);
    receive(1, cut(RST, 20));
    EXPECT_EQ(current_port, pending);

    lvt_rstp_run_pending();
    const uint16_t passes = lvt_rstp_vars.default_vlan->timeSinceTc;
    receive(1, cut(RST, 20));
    EXPECT_TRUE(at_rest());
    EXPECT_EQ(lvt_rstp_vars.default_vlan->timeSinceTc, passes);
}

TEST_F(events, a_frame_finishes_one_pass_and_begins_another)
{
    boot({1, 2});
    send_enabled({1, 2});
    seconds(1);
    const uint16_t passes = lvt_rstp_vars.default_vlan->timeSinceTc;
    receive(1, RST);
    EXPECT_EQ(current_stpm, lvt_rstp_vars.default_vlan);
    EXPECT_EQ(current_port, &record(2)); // the head, 9, was done
    EXPECT_EQ(record(1).rcvdMsg, 1);
    EXPECT_EQ(lvt_rstp_vars.default_vlan->timeSinceTc, passes);
    receive(1, RST);
    EXPECT_EQ(lvt_rstp_vars.default_vlan->timeSinceTc, passes + 1);
    EXPECT_EQ(current_port, &record(2));
}

TEST_F(events, a_frame_is_not_seen_by_the_pass_of_the_frame_before)
{
    boot({1, 2});
    send_enabled({1, 2});
    seconds(5);
    receive(1, RST); // a better root
    receive(1, tcn_frame());
    EXPECT_EQ(record(1).rcvdMsg, 1);
    lvt_rstp_run_pending();
    seconds(1);
    EXPECT_EQ(lvt_rstp_vars.bridge.rootPortId, 0x8001u); // the second has not overwritten the first
}

TEST_F(events, the_cursor_goes_from_port_to_port)
{
    boot({1, 3, 5});
    send_enabled({1, 3, 5});
    lvt_rstp_run_pending();
    STP_stpm_update();
    for (const uint32_t port : {5u, 3u, 1u}) {
        ASSERT_EQ(current_port, &record(port));
        EXPECT_EQ(current_stpm, lvt_rstp_vars.default_vlan);
        lvt_rstp_more_work();
    }
    EXPECT_TRUE(at_rest());
    lvt_rstp_more_work();
    EXPECT_TRUE(at_rest());
}

TEST_F(events, a_bridge_that_is_off_is_walked_and_selects_roles)
{
    boot({1, 2});
    send_enabled({1, 2});
    seconds(1);
    stpm_t *const bridge = lvt_rstp_vars.default_vlan;
    bridge->admin_state = 0;
    record(1).reselect = 1;
    record(1).newInfo = 1;
    const uint16_t passes = bridge->timeSinceTc;
    STP_stpm_update();
    EXPECT_EQ(current_port, &record(2));
    lvt_rstp_run_pending();
    EXPECT_EQ(record(1).newInfo, 1);  // no machine ran
    EXPECT_EQ(record(1).reselect, 0); // roles were selected
    EXPECT_EQ(bridge->timeSinceTc, passes + 1);
}

TEST_F(events, a_torn_cursor_is_a_programming_error)
{
    boot({1});
    current_port = &record(1);
    EXPECT_DEATH(STP_stpm_update(), HasSubstr(assertion("lvt_rstp:332", "STP_stpm_update",
                                                        "current_stpm == ((void *)0) && current_port == ((void *)0)")));
}

// ---- frames: ports ----------------------------------------------------------------------

TEST_F(events, members_receive_for_their_group)
{
    boot({2, 4});
    send_groups({0, 1, 7, 3, 7, 5, 6});
    EXPECT_EQ(receive(2, RST), 0);
    EXPECT_EQ(receive(4, tcn_frame()), 0);
    EXPECT_EQ(receive(4, cut(RST, 20)), 1);
    EXPECT_EQ(receive(2, cut(RST, 20)), 2);
    EXPECT_EQ(record(7).rstp_frame_recvs, 1u);
    EXPECT_EQ(record(7).tcn_frame_recvs, 1u);
    EXPECT_EQ(record(7).illegal_frame_recvs, 2u);
    for (uint32_t port : {2u, 4u}) {
        EXPECT_EQ(accepted(port), 0u);
        EXPECT_EQ(record(port).illegal_frame_recvs, 0u);
    }
}

TEST_F(events, port_0_is_no_port)
{
    boot({1});
    receive(0, RST);
    receive(0, cut(RST, 20));
    for (uint32_t l2port = 1; l2port <= 9; l2port++) {
        EXPECT_EQ(accepted(l2port), 0u);
        EXPECT_EQ(record(l2port).illegal_frame_recvs, 0u);
    }
}

TEST_F(events, receive_assertions)
{
    boot();
    for (uint32_t port : {7u, 9u, 10u, 0xFFFFFFFFu})
        EXPECT_DEATH(receive(port, RST),
                     HasSubstr(assertion("lvt_rstp:1197", "lvt_rstp_receive", "((from_port) <= (((6) * 1)))")));
    EXPECT_DEATH(lvt_rstp_receive(1, nullptr, 53),
                 HasSubstr(assertion("lvt_rstp:1198", "lvt_rstp_receive", "bpdu != ((void *)0)")));
    EXPECT_DEATH(lvt_rstp_receive(7, nullptr, 53), HasSubstr("lvt_rstp:1197")); // the port first
}

TEST_F(events, a_bpdu_may_overtake_its_link)
{
    boot();
    send_enabled({1});
    seconds(1);
    links[0] = {.ignored = 0, .link = 1, .speed = 2, .duplex = 1};
    const octets_t up = port_status_message(links);
    uint8_t mask;
    lvt_port_status_update_from_drv_msg(up.data() + 16, &mask); // the table knows, the engine does not
    ASSERT_EQ(record(1).portEnabled, 0);
    receive(1, RST);
    EXPECT_EQ(record(1).portEnabled, 1);
}

// ---- links ------------------------------------------------------------------------------

TEST_F(events, link_up_is_handed_over)
{
    boot();
    send_enabled({3});
    seconds(1);
    board_log();
    record(3).fdWhile = 9;
    record(3).p2pRecompute = 0;
    send_links({3});
    EXPECT_EQ(record(3).portEnabled, 1);
    EXPECT_EQ(record(3).speed, 1000u);
    EXPECT_EQ(record(3).p2pRecompute, 1);
    EXPECT_EQ(record(3).reselect, 1);
    EXPECT_EQ(record(3).selected, 0);
    EXPECT_EQ(record(3).fdWhile, 0); // started anew
    EXPECT_EQ(hex(record(3).mac), "00 11 22 33 44 53");
    EXPECT_EQ(board_log(), log_t{"flush"}); // spanning tree is on
    EXPECT_TRUE(at_rest());                 // the next pass acts on it
    EXPECT_EQ(record(3).edge.State, EDGE_DISABLED);
}

TEST_F(events, link_up_without_spanning_tree_flushes_nothing)
{
    boot();
    send_links({3});
    EXPECT_EQ(record(3).portEnabled, 1);
    EXPECT_THAT(board_log(), IsEmpty());
}

TEST_F(events, link_up_flushes_for_any_enable_octet_but_0)
{
    boot();
    for (const uint8_t octet : {1, 2, 0x80, 255}) {
        ports[3].adminEnable = octet;
        send_ports();
        send_links({});
        lvt_rstp_run_pending();
        board_log();
        send_links({3});
        EXPECT_EQ(board_log(), log_t{"flush"}) << int{octet};
    }
}

TEST_F(events, link_down_is_handed_over)
{
    boot({3});
    send_enabled({3});
    seconds(5);
    board_log();
    send_links({});
    EXPECT_EQ(record(3).portEnabled, 0);
    EXPECT_EQ(record(3).selected, 0);
    EXPECT_THAT(board_log(), IsEmpty());
    EXPECT_EQ(hex(record(3).mac), "00 11 22 33 44 53"); // kept
    seconds(2);
    EXPECT_EQ(board_port_state(3), 1u);
    EXPECT_EQ(record(3).role, ROLE_DISABLED);
}

TEST_F(events, known_links_change_nothing_but_finish_pending_work)
{
    boot({1, 2});
    send_enabled({1, 2});
    for (const auto &[port, link] : {std::pair{1u, 1u}, {3u, 0u}, {1u, 2u}, {3u, 255u}}) {
        STP_stpm_update();
        ASSERT_FALSE(at_rest());
        lvt_rstp_run_pending();
        STP_stpm_update();
        record(port).fdWhile = 77;
        lvt_rstp_linkstate_changed(port, link);
        EXPECT_TRUE(at_rest());
        EXPECT_EQ(record(port).portEnabled, port == 1);
        EXPECT_NE(record(port).fdWhile, 0) << port << " " << link; // not started anew
    }
}

TEST_F(events, link_1_refreshes_the_address_even_when_known)
{
    boot({1});
    memset(record(1).mac, 0, 6);
    lvt_rstp_linkstate_changed(1, 2);
    EXPECT_EQ(hex(record(1).mac), "00 00 00 00 00 00");
    lvt_rstp_linkstate_changed(1, 1);
    EXPECT_EQ(hex(record(1).mac), "00 11 22 33 44 51");
}

TEST_F(events, speed_and_duplex_alone_reach_the_table_only)
{
    boot({1});
    send_enabled({1});
    seconds(5);
    links[0].speed = 1;
    links[0].duplex = 0;
    send_links();
    EXPECT_EQ(record(1).speed, 1000u);
    EXPECT_EQ(lvt_os_get_linkspeed(1), 100u);
    seconds(1);
    EXPECT_EQ(record(1).operPointToPoint, 1);
}

TEST_F(events, a_report_of_known_links_calls_nothing)
{
    boot({1, 2});
    send_enabled({1, 2});
    const port_t *const pending = current_port;
    ASSERT_NE(pending, nullptr);
    send_links({1, 2});
    EXPECT_EQ(current_port, pending);
    links[5].duplex = 1; // a change of any kind is a call
    send_links();
    EXPECT_TRUE(at_rest());
}

TEST_F(events, any_nonzero_link_octet_is_up)
{
    boot();
    links[3] = {.ignored = 0xFF, .link = 0x80, .speed = 2, .duplex = 1};
    send_links();
    EXPECT_EQ(record(4).portEnabled, 1);
    links[3].link = 0x40; // still up
    send_links();
    EXPECT_EQ(record(4).portEnabled, 1);
}

TEST_F(events, links_before_the_defaults_are_dropped)
{
    lvt_rstp_linkstate_changed(1, 1);
    EXPECT_EQ(lvt_rstp_vars.initialised, 0);
    EXPECT_EQ(hex(record(1).mac), "00 00 00 00 00 00");
}

TEST_F(events, links_of_members_are_the_groups)
{
    boot({2, 4});
    send_groups({0, 1, 7, 3, 7, 5, 6});
    ASSERT_EQ(record(7).portEnabled, 0); // formed without spanning tree: nobody told it
    lvt_rstp_linkstate_changed(2, 1);
    EXPECT_EQ(record(7).portEnabled, 1);
    send_links({4});
    EXPECT_EQ(record(7).portEnabled, 1); // the other member has link
    EXPECT_EQ(record(2).portEnabled, 0);
    send_links({});
    EXPECT_EQ(record(7).portEnabled, 0);
    memset(record(4).mac, 0, 6);
    send_links({4});
    EXPECT_EQ(record(7).portEnabled, 1);
    EXPECT_EQ(record(4).portEnabled, 0);
    EXPECT_EQ(hex(record(4).mac), "00 11 22 33 44 54"); // its own address is refreshed
}

TEST_F(events, link_of_port_0_is_nothing)
{
    boot({1, 2});
    send_enabled({1, 2});
    for (uint32_t link : {0u, 1u}) {
        STP_stpm_update();
        ASSERT_NE(current_stpm, nullptr);
        lvt_rstp_linkstate_changed(0, link);
        EXPECT_EQ(current_stpm, nullptr) << "the pending pass is finished all the same";
    }
    EXPECT_EQ(record(1).portEnabled, 1);
}

TEST_F(events, link_assertion)
{
    boot();
    for (uint32_t port : {7u, 10u})
        EXPECT_DEATH(lvt_rstp_linkstate_changed(port, 1),
                     HasSubstr(assertion("lvt_rstp:1112", "lvt_rstp_linkstate_changed", "((portno) <= (((6) * 1)))")));
}

// ---- ticks ------------------------------------------------------------------------------

TEST_F(events, tick_takes_one_from_each_timer_of_ports_that_take_part)
{
    boot({1, 2, 3});
    send_enabled({1, 2});
    seconds(1);
    lvt_rstp_vars.default_vlan->admin_state = 0; // so that no machine sets a timer
    uint8_t port_t::*const timers[] = {&port_t::fdWhile, &port_t::helloWhen,     &port_t::mdelayWhile,
                                       &port_t::rbWhile, &port_t::rcvdInfoWhile, &port_t::rrWhile,
                                       &port_t::tcWhile, &port_t::txCount,       &port_t::edgeDelayWhile};
    for (uint32_t l2port = 1; l2port <= 9; l2port++) {
        uint8_t value = 0;
        for (auto timer : timers)
            record(l2port).*timer = value++;
    }
    lvt_rstp_tick();
    for (uint32_t l2port = 1; l2port <= 9; l2port++) {
        uint8_t value = 0;
        for (auto timer : timers) {
            const int expected = l2port <= 2 && value ? value - 1 : value;
            EXPECT_EQ(record(l2port).*timer, expected) << l2port << " timer " << int{value};
            value++;
        }
    }
}

TEST_F(events, tick_counts_seconds_in_sixteen_bits)
{
    boot();
    EXPECT_EQ(lvt_rstp_vars.time, 0);
    lvt_rstp_tick();
    EXPECT_EQ(lvt_rstp_vars.time, 1);
    lvt_rstp_vars.time = 0xFFFF;
    lvt_rstp_tick();
    EXPECT_EQ(lvt_rstp_vars.time, 0);
}

TEST_F(events, tick_finishes_decrements_and_begins)
{
    boot({1, 2});
    send_enabled({1, 2});
    ASSERT_FALSE(at_rest());
    const uint16_t passes = lvt_rstp_vars.default_vlan->timeSinceTc;
    lvt_rstp_tick();
    EXPECT_EQ(lvt_rstp_vars.default_vlan->timeSinceTc, passes + 1);
    EXPECT_EQ(current_port, &record(2));

    // A timer that runs out in a tick is acted on in the next one at the latest.
    lvt_rstp_run_pending();
    record(1).newInfo = 1;
    record(1).txCount = 3;
    record(1).helloWhen = 5;
    board.frames.clear();
    lvt_rstp_tick();
    EXPECT_THAT(board.frames, IsEmpty());
    EXPECT_EQ(record(1).txCount, 2);
    lvt_rstp_run_pending();
    EXPECT_THAT(board.frames, testing::Not(IsEmpty()));
}

TEST_F(events, tick_decrements_what_pending_work_set)
{
    boot({1});
    send_enabled({1});
    seconds(10);
    record(1).helloWhen = 0;
    STP_stpm_update(); // the hello of port 1 is pending, and sets its timer to 2
    ASSERT_FALSE(at_rest());
    lvt_rstp_tick();
    EXPECT_EQ(record(1).helloWhen, 1);
}

TEST_F(events, tick_before_the_start_only_counts)
{
    lvt_rstp_tick();
    EXPECT_EQ(lvt_rstp_vars.time, 1);
    EXPECT_TRUE(at_rest());
}

TEST_F(events, a_host_port_forwards_after_three_seconds)
{
    boot({1});
    send_enabled({1});
    seconds(2);
    EXPECT_EQ(board_port_state(1), 1u);
    seconds(3);
    EXPECT_EQ(board_port_state(1), 4u);
}

TEST_F(events, information_of_a_silent_root_ages_out)
{
    boot({1, 2});
    send_enabled({1, 2});
    seconds(1);
    send_bpdu(1, frame_of({}));
    seconds(2);
    EXPECT_EQ(record(1).role, ROLE_ROOT);
    seconds(9); // three hellos and a little
    EXPECT_EQ(record(1).role, ROLE_DESIGNATED);
    EXPECT_EQ(lvt_rstp_vars.default_vlan->rootPortId, 0u);
}
