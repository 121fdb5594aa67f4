/// The control pipe: framing, bad input, and what each kind of message leads to.
#include <cstring>

#include "daemon/rstp_aggr.h"
#include "daemon/rstp_config.h"
#include "daemon/rstp_daemon.h"
#include "daemon/rstp_msg.h"
#include "daemon_fixture.h"
#include "l2_proto_utility/os_api.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace {

class msg : public daemon_test {
protected:
    rstp_msg_t message;

    msg() { memset(&message, 0xEE, sizeof message); }

    /// Waits once, without acting on a message.
    int receive() { return rstp_msg_recv(&message); }

    /// Octets that wait in the control pipe.
    int waiting() const
    {
        int count = -1;
        ioctl(control_fd, FIONREAD, &count);
        return count;
    }

    std::string received(size_t count) const { return hex({reinterpret_cast<const uint8_t *>(&message), count}); }

    bool is_rest_zero(size_t from) const
    {
        const auto *octets = reinterpret_cast<const uint8_t *>(&message);
        return std::all_of(octets + from, octets + sizeof message, [](uint8_t octet) { return octet == 0; });
    }
};

log_t traps()
{
    log_t log = board_log();
    std::erase_if(log, [](const std::string &line) { return !line.starts_with("trap"); });
    return log;
}

/// A frame of which each octet is spelled out.
octets_t frame(uint32_t length, const octets_t &rest)
{
    octets_t octets = {0xBC, 0x30, 0x11, 0x82};
    for (int shift = 0; shift < 32; shift += 8)
        octets.push_back(static_cast<uint8_t>(length >> shift));
    octets.insert(octets.end(), rest.begin(), rest.end());
    return octets;
}

octets_t counting(size_t count)
{
    octets_t octets(count);
    for (size_t i = 0; i < count; i++)
        octets[i] = static_cast<uint8_t>(i * 7 + 1);
    return octets;
}

octets_t operator+(octets_t a, const octets_t &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

const octets_t GOOD = frame(2, {3, 0, 0, 0, 0, 0, 0, 0, 0xAB, 0xCD});

} // namespace

// ---- framing ----------------------------------------------------------------------------

TEST_F(msg, a_message_comes_without_its_frame_header)
{
    write_control(frame(3, {4, 9, 0x34, 0x12, 5, 6, 7, 8, 0xA, 0xB, 0xC}));
    EXPECT_EQ(receive(), 1);
    EXPECT_EQ(received(11), "04 09 34 12 05 06 07 08 0a 0b 0c");
    EXPECT_EQ(message.header.type, 4);
    EXPECT_EQ(message.header.port, 9);
    EXPECT_EQ(message.header.length, 0x1234);
    EXPECT_TRUE(is_rest_zero(11));
    EXPECT_EQ(waiting(), 0);
}

TEST_F(msg, one_message_at_a_time)
{
    write_control(frame(1, {7, 0, 0, 0, 0, 0, 0, 0, 1}) + frame(1, {8, 0, 0, 0, 0, 0, 0, 0, 2}));
    EXPECT_EQ(receive(), 1);
    EXPECT_EQ(message.header.type, 7);
    EXPECT_EQ(message.body[0], 1);
    EXPECT_EQ(receive(), 1);
    EXPECT_EQ(message.header.type, 8);
    EXPECT_EQ(message.body[0], 2);
}

TEST_F(msg, body_lengths)
{
    for (const uint32_t length : {0u, 1u, 84u, 1023u, 1024u}) {
        memset(&message, 0xEE, sizeof message);
        const octets_t body = counting(length);
        write_control(frame(length, octets_t{9, 0, 0, 0, 0, 0, 0, 0} + body));
        EXPECT_EQ(receive(), 1) << length;
        EXPECT_EQ(hex({message.body, length}), hex(body));
        EXPECT_TRUE(is_rest_zero(8 + length)) << length;
        EXPECT_EQ(waiting(), 0);
    }
}

TEST_F(msg, too_long_a_body_is_discarded_with_its_header)
{
    for (const uint32_t length : {1025u, 2000u, 20000u}) {
        write_control(frame(length, octets_t(length + 8, 0x77)) + GOOD);
        EXPECT_EQ(receive(), -1) << length;
        EXPECT_EQ(waiting(), static_cast<int>(GOOD.size())) << length;
        EXPECT_EQ(receive(), 1);
        EXPECT_EQ(received(10), "03 00 00 00 00 00 00 00 ab cd");
    }
}

TEST_F(msg, discarding_takes_what_is_there_and_never_waits)
{
    for (const uint32_t length : {1025u, 0x7FFFFFFFu, 0xFFFFFFF7u, 0xFFFFFFF8u, 0xFFFFFFFFu}) {
        write_control(frame(length, octets_t(500, 0x77)));
        EXPECT_EQ(receive(), -1) << length;
        EXPECT_EQ(waiting(), 0) << length;
        write_control(frame(length, {})); // nothing to discard
        EXPECT_EQ(receive(), -1) << length;
        write_control(GOOD);
        EXPECT_EQ(receive(), 1) << length;
    }
}

TEST_F(msg, bad_magic_takes_eight_octets)
{
    for (size_t at = 0; at < 4; at++) {
        octets_t bad = GOOD;
        bad[at] ^= 1;
        write_control(bad);
        EXPECT_EQ(receive(), -1) << at;
        EXPECT_EQ(received(4), "ee ee ee ee"); // the caller's buffer is left alone
        EXPECT_EQ(waiting(), static_cast<int>(GOOD.size()) - 8);
        EXPECT_EQ(receive(), -1); // the rest is taken for the next frame
        EXPECT_EQ(receive(), -1);
        EXPECT_EQ(waiting(), 0);
    }
    EXPECT_EQ(board.console, "");
}

TEST_F(msg, no_search_for_the_next_frame)
{
    // One stray octet: every header is read one octet late, until the pipe is empty.
    write_control(octets_t{0x00} + GOOD + GOOD);
    int bad = 0;
    while (waiting() > 0) {
        EXPECT_EQ(receive(), -1);
        bad++;
    }
    EXPECT_EQ(bad, 5); // 37 octets
    write_control(GOOD);
    EXPECT_EQ(receive(), 1);
}

TEST_F(msg, after_eight_stray_octets_the_next_frame_is_good)
{
    write_control(octets_t(8, 0xBC) + GOOD);
    EXPECT_EQ(receive(), -1);
    EXPECT_EQ(receive(), 1);
    EXPECT_EQ(message.header.type, 3);
}

TEST_F(msg, what_is_short_stays_zero)
{
    write_control({0xBC, 0x30, 0x11});
    EXPECT_EQ(receive(), -1); // no whole magic

    write_control(frame(100, {10, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3}));
    EXPECT_EQ(receive(), 1);
    EXPECT_EQ(hex({message.body, 3}), "01 02 03");
    EXPECT_TRUE(is_rest_zero(11));

    write_control(frame(100, {10}));
    EXPECT_EQ(receive(), 1);
    EXPECT_EQ(message.header.type, 10);
    EXPECT_TRUE(is_rest_zero(1));
}

TEST_F(msg, length_is_in_host_order)
{
    EXPECT_EQ(swap_big_to_lit_32(0x12345678), 0x12345678u);
    write_control({0xBC, 0x30, 0x11, 0x82, 0x02, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0, 1, 2});
    EXPECT_EQ(receive(), 1);
    EXPECT_EQ(waiting(), 0);
}

// ---- ports of received frames -----------------------------------------------------------

TEST_F(msg, chip_ports_become_logical_ports)
{
    const int logical[] = {-1, 7, 1, 2, 3, 4, 6, 5};
    for (int octet = 0; octet <= 255; octet++) {
        write_control(frame(1, {0, static_cast<uint8_t>(octet), 1, 0, 0, 0, 0, 0, 0x55}));
        if (octet == 0 || octet > 7)
            EXPECT_EQ(receive(), -1) << octet;
        else {
            EXPECT_EQ(receive(), 1) << octet;
            EXPECT_EQ(message.header.port, logical[octet]) << octet;
            EXPECT_EQ(message.body[0], 0x55);
        }
        EXPECT_EQ(waiting(), 0);
    }
}

TEST_F(msg, other_types_keep_their_port_octet)
{
    for (uint8_t type = 1; type <= 12; type++)
        for (const uint8_t octet : {0, 1, 7, 200}) {
            write_control(frame(0, {type, octet, 0, 0, 0, 0, 0, 0}));
            EXPECT_EQ(receive(), 1);
            EXPECT_EQ(message.header.port, octet);
        }
}

TEST_F(msg, a_frame_of_no_port_is_counted_nowhere)
{
    boot({1});
    for (const uint8_t octet : {0, 8, 255})
        EXPECT_EQ(control(bpdu_message(octet, frame_of({}))), -1);
    for (uint32_t l2port = 1; l2port <= 9; l2port++) {
        EXPECT_EQ(record(l2port).rstp_frame_recvs, 0u);
        EXPECT_EQ(record(l2port).illegal_frame_recvs, 0u);
    }
}

TEST_F(msg, a_frame_of_the_chips_own_port_is_a_programming_error)
{
    boot({1});
    write_control(bpdu_message(1, frame_of({})));
    EXPECT_DEATH(serve(), HasSubstr(assertion("lvt_rstp:1197", "lvt_rstp_receive", "((from_port) <= (((6) * 1)))")));
}

// ---- both pipes -------------------------------------------------------------------------

TEST_F(msg, debug_text_alone_is_served_and_answers_0)
{
    write_debug("debug");
    EXPECT_EQ(receive(), 0);
    EXPECT_THAT(board_console(), HasSubstr("The RSTP debug command:\n"));
    EXPECT_EQ(received(4), "ee ee ee ee");
}

TEST_F(msg, a_message_is_read_before_a_debug_command_and_acted_on_after)
{
    boot();
    lvt_rstp_system_config_t config = LVT_RSTP_SYSTEM_DEFAULTS;
    config.max_age = 33;
    write_control(system_config_message(config));
    write_debug("debug show system_config");
    EXPECT_EQ(receive(), 1);
    EXPECT_THAT(board_console(), HasSubstr("      32768        20"));
    rstp_dispatch(&message);
    EXPECT_EQ(lvt_rstp_vars.config.max_age, 33);
}

TEST_F(msg, a_bad_frame_does_not_hold_up_debug_commands)
{
    write_control({1, 2, 3, 4, 5, 6, 7, 8});
    write_debug("debug");
    EXPECT_EQ(receive(), -1);
    EXPECT_THAT(board_console(), HasSubstr("The RSTP debug command:\n"));
    write_control(frame(0xFFFFFFFF, {}));
    write_debug("debug");
    EXPECT_EQ(receive(), -1);
    EXPECT_THAT(board_console(), HasSubstr("The RSTP debug command:\n"));
}

TEST_F(msg, other_text_is_ignored)
{
    for (const char *text : {"show bridge_status", " debug", "Debug", "debu", "\n", "ebug debug"}) {
        write_debug(text);
        EXPECT_EQ(receive(), 0);
        EXPECT_EQ(board_console(), "") << text;
    }
}

TEST_F(msg, a_hundred_octets_are_read_at_once)
{
    // The rest is a text of its own.
    const std::string first = "debug " + std::string(94, 'x');
    write_debug(first + "debug show bpdu_filter");
    EXPECT_EQ(receive(), 0);
    EXPECT_THAT(board_console(), HasSubstr("The RSTP debug command:\n"));
    EXPECT_EQ(receive(), 0);
    EXPECT_EQ(board_console(), "bpdu_filter_en = 0\n");

    write_debug("debug show rstp_port_status " + std::string(71, '0') + "3"); // 100 octets, no end in them
    EXPECT_EQ(receive(), 0);
    EXPECT_THAT(board_console(), HasSubstr("RSTP PORT STATUS: PoAG=3\n"));
}

TEST_F(msg, a_failing_wait_ends_the_process)
{
    board.on_wait = [](int, fd_set *) { return -1; };
    EXPECT_EXIT(receive(), testing::ExitedWithCode(1), "^RSTP: select\\(\\) failed: Interrupted system call\n$");
    board.on_wait = [](int, fd_set *) { return 0; };
    EXPECT_EXIT(receive(), testing::ExitedWithCode(1), "^RSTP: select\\(\\) failed: ");
}

TEST_F(msg, the_wait_covers_both_pipes)
{
    int width = 0;
    bool both = false;
    board.on_wait = [&](int w, fd_set *readable) -> std::optional<int> {
        width = w;
        both = FD_ISSET(control_fd, readable) && FD_ISSET(debug_fd, readable);
        return {};
    };
    write_control(GOOD);
    EXPECT_EQ(receive(), 1);
    write_control(GOOD);
    EXPECT_EQ(receive(), 1); // the set was not used up
    EXPECT_TRUE(both);
    EXPECT_GT(width, std::max(control_fd, debug_fd));
}

// ---- dispatch ---------------------------------------------------------------------------

TEST_F(msg, ignored_types_change_nothing)
{
    boot({1, 2});
    send_enabled({1});
    lvt_rstp_run_pending();
    board_log();
    lacp_received();
    const lvt_rstp_vars_t before = lvt_rstp_vars;
    const octets_t body(1024, 0xFF);
    for (const int type : {7, 8, 11, 12, 64, 128, 255})
        EXPECT_EQ(control(raw_message(static_cast<uint8_t>(type), body, 2)), 1);
    EXPECT_EQ(memcmp(&before, &lvt_rstp_vars, sizeof before), 0);
    EXPECT_THAT(board_log(), IsEmpty());
    EXPECT_THAT(lacp_received(), IsEmpty());
    EXPECT_EQ(board_console(), "");
}

TEST_F(msg, type_0_hands_on_the_stated_length)
{
    boot({1});
    const octets_t whole = frame_of({});
    octets_t longer = whole; // an MST BPDU: 200 octets, of which 100 are kept
    longer.resize(200, 0x33);
    longer[13] = 186;
    EXPECT_EQ(control(bpdu_message(2, longer)), 1);
    EXPECT_EQ(record(1).rstp_frame_recvs, 1u);

    EXPECT_EQ(control(bpdu_message(2, whole, uint16_t{52})), 1); // stated too short
    EXPECT_EQ(record(1).illegal_frame_recvs, 1u);
    EXPECT_EQ(control(bpdu_message(2, whole, uint16_t{0})), 1);
    EXPECT_EQ(record(1).illegal_frame_recvs, 2u);
    EXPECT_EQ(control(bpdu_message(2, whole, uint16_t{0xFFFF})), 1);
    EXPECT_EQ(record(1).rstp_frame_recvs, 2u);

    octets_t cut(whole.begin(), whole.begin() + 20); // stated longer than it is: zeros, a configuration BPDU
    EXPECT_EQ(control(bpdu_message(2, cut, uint16_t{60})), 1);
    EXPECT_EQ(record(1).stp_frame_recvs, 1u);
    EXPECT_EQ(record(1).illegal_frame_recvs, 2u);
}

TEST_F(msg, type_0_forgets_the_frame_before)
{
    boot({1});
    EXPECT_EQ(control(bpdu_message(2, frame_of({}))), 1);
    EXPECT_EQ(control(bpdu_message(2, octets_t{}, uint16_t{53})), 1); // zeros are no BPDU
    EXPECT_EQ(record(1).rstp_frame_recvs, 1u);
    EXPECT_EQ(record(1).illegal_frame_recvs, 1u);
}

TEST_F(msg, type_1)
{
    boot();
    links[1] = {.ignored = 0xFF, .link = 1, .speed = 2, .duplex = 1};
    links[4] = {.ignored = 0xFF, .link = 1, .speed = 1, .duplex = 0};
    send_links();
    for (uint32_t port = 1; port <= 6; port++)
        EXPECT_EQ(record(port).portEnabled, port == 2 || port == 5) << port;
    EXPECT_EQ(record(5).speed, 100u);
}

TEST_F(msg, type_3_and_its_copy)
{
    boot();
    const lvt_rstp_system_config_t config = {.bridge_priority = 0x1234,
                                             .max_age = 1,
                                             .hello_time = 2,
                                             .forward_delay = 3,
                                             .force_version = 4,
                                             .reserved = 5};
    send_system(config);
    EXPECT_EQ(memcmp(&rstp_system_config, &config, sizeof config), 0);
    EXPECT_EQ(memcmp(&lvt_rstp_vars.config, &config, sizeof config), 0);
    EXPECT_EQ(lvt_rstp_set_system_config(&config), 0);
}

TEST_F(msg, type_4_and_its_copy)
{
    boot();
    const lvt_rstp_port_config_t config = {.adminPathCost = 1,
                                           .port_priority = 2,
                                           .adminEnable = 3,
                                           .adminEdge = 4,
                                           .adminPointToPoint = 5,
                                           .reserved = {6, 7, 8}};
    send_group_settings(config);
    EXPECT_EQ(memcmp(&rstp_port_config[0], &config, sizeof config), 0);
    for (uint32_t group = 7; group <= 9; group++)
        EXPECT_EQ(memcmp(&record(group).config, &config, sizeof config), 0);
    EXPECT_EQ(record(1).config.port_priority, 128);
    EXPECT_EQ(lvt_rstp_set_aggr_port_config(&config), 0);
    EXPECT_THAT(board_log(), IsEmpty()); // no trap for groups
}

TEST_F(msg, types_5_and_9_set_changed_ports)
{
    for (const uint8_t type : {RSTP_MSG_PORT_CONFIG, RSTP_MSG_PORT_CONFIG_ONLY}) {
        lvt_rstp_vars = {};
        board.registers.clear();
        boot();
        ports = default_port_configs();
        ports[0].port_priority = 99; // not used
        ports[3].adminEnable = 1;
        ports[6].adminPointToPoint = 0;
        send_ports(type);
        EXPECT_EQ(traps(), (log_t{"trap on", "trap off"}));
        EXPECT_EQ(rstp_port_config[0].port_priority, 128);
        for (uint32_t port = 1; port <= 6; port++) {
            EXPECT_EQ(memcmp(&rstp_port_config[port], &ports[port], sizeof ports[port]), 0) << port;
            EXPECT_EQ(memcmp(&record(port).config, &ports[port], sizeof ports[port]), 0) << port;
        }
        EXPECT_EQ(record(7).config.port_priority, 128);
        close(port_mux_fd);
    }
    port_mux_fd = -1;
}

TEST_F(msg, equal_settings_touch_neither_chip_nor_engine)
{
    boot({1});
    send_enabled({1});
    lvt_rstp_run_pending();
    board_log();
    lacp_received();
    send_ports();
    EXPECT_THAT(board_log(), IsEmpty());
    EXPECT_EQ(current_stpm, nullptr);
    EXPECT_EQ(lacp_received().size(), 18u); // but the other daemon is told
}

TEST_F(msg, settings_are_compared_with_the_copy)
{
    boot();
    record(2).config.port_priority = 16; // the engine has other settings than the copy says
    send_ports();
    EXPECT_THAT(board_log(), IsEmpty());
    EXPECT_EQ(record(2).config.port_priority, 16);

    rstp_port_config[3].reserved[0] = 1; // the copy differs, the engine does not
    send_ports();
    EXPECT_EQ(board_log(), log_t{"trap off"});
    EXPECT_EQ(rstp_port_config[3].reserved[0], 0);
}

TEST_F(msg, the_last_changed_port_decides_the_trap)
{
    boot();
    ports[2].adminEnable = 1;
    ports[5].port_priority = 64;
    send_ports();
    EXPECT_EQ(traps(), (log_t{"trap on", "trap off"}));
    ports[2].adminPathCost = 1;
    send_ports();
    EXPECT_EQ(traps(), log_t{"trap on"});
}

TEST_F(msg, a_failing_trap_does_not_stop_the_settings)
{
    boot();
    board.chip_fails = true;
    ports[1].adminEnable = 1;
    ports[2].adminEnable = 1;
    stdout_of([&] { send_ports(); });
    EXPECT_EQ(board_console(),
              "E:sw_cfg_trap_portMgmtFrameAction_rstp_set_api() L126, mdio_intf_access_multi failed\n"
              "E:sw_cfg_trap_portMgmtFrameAction_rstp_set_api() L126, mdio_intf_access_multi failed\n");
    EXPECT_EQ(record(2).config.adminEnable, 1);
    EXPECT_EQ(rstp_port_config[2].adminEnable, 1);
    board.chip_fails = false;
    seconds(1); // what failed is not tried again, the next state is
}

TEST_F(msg, changed_and_enabled_ports_are_counted)
{
    boot();
    EXPECT_EQ(lvt_rstp_set_all_port_config(ports.data()), 0);
    for (uint32_t port = 1; port <= 6; port++)
        ports[port].adminEnable = 2;
    EXPECT_EQ(lvt_rstp_set_all_port_config(ports.data()), 6);
    EXPECT_EQ(lvt_rstp_set_all_port_config(ports.data()), 0);
    ports[1].adminEnable = 0;
    ports[2].adminEdge = 0;
    EXPECT_EQ(lvt_rstp_set_all_port_config(ports.data()), 1);
}

TEST_F(msg, type_6_has_nothing_to_empty)
{
    boot();
    EXPECT_EQ(control(work_flush_message()), 1);
    board.allocations_left = 0;
    EXPECT_EQ(control(work_flush_message()), 1); // dropped
    board.allocations_left = -1;
    EXPECT_THAT(board_log(), IsEmpty());
}

TEST_F(msg, type_10)
{
    boot();
    send_lacp({1, 0, 2, 0, 255, 7});
    EXPECT_EQ(hex({lacp_enable_port, 6}), "01 00 02 00 ff 07");
    EXPECT_THAT(lacp_received(), IsEmpty());
    EXPECT_EQ(control(raw_message(10, octets_t{9})), 1); // a short body: zeros
    EXPECT_EQ(hex({lacp_enable_port, 6}), "09 00 00 00 00 00");
}

TEST_F(msg, short_bodies_are_filled_with_zeros)
{
    boot();
    EXPECT_EQ(control(raw_message(3, octets_t{0x00, 0x10})), 1);
    EXPECT_EQ(rstp_system_config.bridge_priority, 4096);
    EXPECT_EQ(rstp_system_config.max_age, 0);
    EXPECT_EQ(control(raw_message(2, {})), 1);
    EXPECT_EQ(hex({aggr_port_status, 7}), "00 01 02 03 04 05 06");
}

TEST_F(msg, longer_bodies_are_read_as_far_as_they_mean_something)
{
    boot();
    octets_t body(1024, 0xFF);
    body[0] = 0x00;
    body[1] = 0x20;
    EXPECT_EQ(control(raw_message(3, body)), 1);
    EXPECT_EQ(rstp_system_config.bridge_priority, 0x2000);
    EXPECT_EQ(rstp_system_config.reserved, 0xFF);
}

TEST_F(msg, the_daemon_serves_the_next_good_message_after_any_bad_one)
{
    boot({1});
    const octets_t bad[] = {{1},
                            octets_t(8, 0xBC),
                            frame(1025, octets_t(1033, 1)),
                            frame(0xFFFFFFFF, octets_t(100, 1)),
                            bpdu_message(0, frame_of({})),
                            bpdu_message(9, frame_of({})),
                            frame(80, {0, 2, 80, 0}),
                            raw_message(200, octets_t(1024, 1))};
    uint16_t priority = 0;
    for (const octets_t &octets : bad) {
        control(octets);
        priority = static_cast<uint16_t>(priority + 4096);
        lvt_rstp_system_config_t config = LVT_RSTP_SYSTEM_DEFAULTS;
        config.bridge_priority = priority;
        send_system(config);
        EXPECT_EQ(lvt_rstp_vars.config.bridge_priority, priority);
    }
}
