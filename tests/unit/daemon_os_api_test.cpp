/// Logical ports, link table, addresses and the other small tables of the platform layer.
#include "l2_proto_utility/os_api.h"

#include <array>
#include <cstring>

#include <arpa/inet.h>
#include <unistd.h>

#include "daemon_fixture.h"

namespace {

class os_api : public daemon_test {
protected:
    static constexpr uint32_t UNTOUCHED = 4711;
    uint32_t unit = UNTOUCHED, number = UNTOUCHED;

    static int refresh(uint8_t bits) { return lvt_port_status_update(&bits); }

    static lvt_port_mgmt_status_t status(uint32_t port)
    {
        lvt_port_mgmt_status_t out = {};
        EXPECT_EQ(lvt_port_mgmt_status_get(1, port, &out), 0);
        return out;
    }

    /// Takes a driver's report; gives the mask of changes.
    static uint8_t report(const std::array<uint8_t, 24> &body)
    {
        uint8_t changed = 0xFF;
        EXPECT_EQ(lvt_port_status_update_from_drv_msg(body.data(), &changed), 0);
        return changed;
    }

    static std::string mac_of(const uint8_t *mac) { return hex({mac, 6}); }

    static std::string port_mac(uint32_t port)
    {
        uint8_t mac[6];
        EXPECT_EQ(lvt_os_get_portmac(port, mac), 0);
        return hex({mac, 6});
    }
};

} // namespace

// ---- logical ports ----------------------------------------------------------------------

TEST_F(os_api, the_three_tests_of_a_logical_port)
{
    const struct {
        uint32_t l2port;
        int port, poag;
    } rows[] = {{0, 0, 0},  {1, 1, 1},   {2, 1, 1},   {3, 1, 1},          {4, 1, 1},          {5, 1, 1},
                {6, 1, 1},  {7, 0, 1},   {8, 0, 1},   {9, 0, 1},          {10, 0, 0},         {11, 0, 0},
                {64, 0, 0}, {255, 0, 0}, {257, 0, 0}, {0x80000000, 0, 0}, {0xFFFFFFFF, 0, 0}, {0x7FFFFFFF, 0, 0}};
    for (const auto &row : rows) {
        EXPECT_EQ(l2port_is_port(row.l2port), row.port) << row.l2port;
        EXPECT_EQ(l2port_is_poag(row.l2port), row.poag) << row.l2port;
        EXPECT_EQ(l2port_is_valid(row.l2port), row.poag) << row.l2port;
    }
}

TEST_F(os_api, l2port2port)
{
    for (uint32_t port = 1; port <= 6; port++) {
        EXPECT_EQ(l2port2port(port, &unit, &number), 1);
        EXPECT_EQ(unit, 1u);
        EXPECT_EQ(number, port);
    }
    for (uint32_t other : {0u, 7u, 9u, 10u, 0xFFFFFFFFu}) {
        unit = number = UNTOUCHED;
        EXPECT_EQ(l2port2port(other, &unit, &number), 0) << other;
        EXPECT_EQ(unit, UNTOUCHED);
        EXPECT_EQ(number, UNTOUCHED);
    }
}

TEST_F(os_api, l2port2poag)
{
    for (uint32_t l2port = 1; l2port <= 9; l2port++) {
        unit = number = UNTOUCHED;
        EXPECT_EQ(l2port2poag(l2port, &unit, &number), 1);
        EXPECT_EQ(unit, 1u);
        EXPECT_EQ(number, l2port);
    }
    for (uint32_t other : {0u, 10u, 0xFFFFFFFFu}) {
        unit = number = UNTOUCHED;
        EXPECT_EQ(l2port2poag(other, &unit, &number), 0) << other;
        EXPECT_EQ(unit, UNTOUCHED);
        EXPECT_EQ(number, UNTOUCHED);
    }
}

TEST_F(os_api, port_maps)
{
    EXPECT_THAT(sw_to_phy_port_map_arr, ElementsAre(1, 2, 3, 4, 6, 5, 0, 255));
    EXPECT_THAT(phy_to_sw_port_map_arr, ElementsAre(6, 0, 1, 2, 3, 5, 4, 255));
}

TEST_F(os_api, names)
{
    EXPECT_STREQ(l2port_txt(1), "1");
    EXPECT_STREQ(l2port_txt(6), "6");
    EXPECT_STREQ(l2port_txt(7), "LLAG1");
    EXPECT_STREQ(l2port_txt(9), "LLAG3");
    EXPECT_STREQ(l2port_txt(0), "0 (L2)");
    EXPECT_STREQ(l2port_txt(10), "10 (L2)");
    EXPECT_STREQ(l2port_txt(0xFFFFFFFF), "-1 (L2)");

    EXPECT_STREQ(link_state_txt(0), "down");
    EXPECT_STREQ(link_state_txt(1), "up");
    EXPECT_STREQ(link_state_txt(2), "undef");
    EXPECT_STREQ(link_duplex_txt(0), "half");
    EXPECT_STREQ(link_duplex_txt(1), "full");
    EXPECT_STREQ(link_duplex_txt(9), "undef");

    const uint8_t mac[] = {0x00, 0x0A, 0xB0, 0xFF, 0x01, 0x7F};
    char text[18];
    EXPECT_EQ(misc_mac_txt(mac, text), text);
    EXPECT_STREQ(text, "00-0a-b0-ff-01-7f");
    EXPECT_STREQ(mac_txt(mac), "00-0a-b0-ff-01-7f");
}

// ---- links ------------------------------------------------------------------------------

TEST_F(os_api, port_bitmap)
{
    uint8_t pbm[2] = {};
    lvt_pbm_set(0, pbm);
    lvt_pbm_set(5, pbm);
    lvt_pbm_set(9, pbm);
    EXPECT_EQ(pbm[0], 0x21);
    EXPECT_EQ(pbm[1], 0x02);
    for (uint32_t i = 0; i < 16; i++)
        EXPECT_EQ(lvt_is_port_status_change(i, pbm), i == 0 || i == 5 || i == 9) << i;
}

TEST_F(os_api, monitor_words_are_taken_apart)
{
    const struct {
        uint32_t word;
        uint8_t link;
        uint32_t speed;
        uint8_t duplex;
    } rows[] = {{0x100, 1, 0, 0}, {0x040, 0, 0, 1}, {0x001, 0, 1, 0},      {0x002, 0, 2, 0},
                {0x003, 0, 3, 0}, {0x142, 1, 2, 1}, {0xFFFFFEBC, 0, 0, 0}, {0xFFFFFFFF, 1, 3, 1}};
    for (const auto &row : rows) {
        board.link_words[2] = row.word;
        refresh(0xFF);
        EXPECT_EQ(status(3).link, row.link) << row.word;
        EXPECT_EQ(status(3).speed, row.speed) << row.word;
        EXPECT_EQ(status(3).duplex, row.duplex) << row.word;
    }
}

TEST_F(os_api, refresh_counts_changed_links_only)
{
    for (uint32_t &word : board.link_words)
        word = LINK_1000_FULL;
    EXPECT_EQ(refresh(0xFF), 6);
    EXPECT_EQ(refresh(0xFF), 0);

    board.link_words[0] = 0x101; // slower and half: silent, but stored
    EXPECT_EQ(refresh(0xFF), 0);
    EXPECT_EQ(status(1).speed, 1u);
    EXPECT_EQ(status(1).duplex, 0);

    board.link_words[1] = 0;
    board.link_words[5] = 0;
    EXPECT_EQ(refresh(0xFF), 2);
}

TEST_F(os_api, refresh_reads_the_ports_of_the_bitmap_only)
{
    for (uint32_t &word : board.link_words)
        word = LINK_1000_FULL;
    EXPECT_EQ(refresh(0x00), 0);
    for (uint32_t port = 1; port <= 6; port++)
        EXPECT_EQ(status(port).link, 0);
    EXPECT_EQ(refresh(0x22), 2);
    for (uint32_t port = 1; port <= 6; port++)
        EXPECT_EQ(status(port).link, port == 2 || port == 6) << port;
}

TEST_F(os_api, failing_monitor_changes_nothing)
{
    board.link_words[0] = LINK_1000_FULL;
    refresh(0xFF);
    board.link_words[0] = 0;
    board.link_monitor_fails = true;
    EXPECT_EQ(stdout_of([] { EXPECT_EQ(refresh(0xFF), 0); }), "");
    EXPECT_EQ(board_console(), "E:lvt_port_status_update() L789 link_mon_intf_param_get() failed\n");
    EXPECT_EQ(status(1).link, 1);
}

TEST_F(os_api, polling_only_names_differences)
{
    board.link_words[1] = 0x100;
    board.link_words[3] = 0x003;
    board.link_words[5] = 0x040;
    uint8_t pbm = 0x01; // bits that are set stay so
    lvt_port_status_polling(&pbm);
    EXPECT_EQ(pbm, 0x2B);
    EXPECT_EQ(status(2).link, 0);

    board.link_monitor_fails = true;
    pbm = 0;
    lvt_port_status_polling(&pbm);
    EXPECT_EQ(pbm, 0);
    EXPECT_EQ(board_console(), "E:lvt_port_status_polling() L831 link_mon_intf_param_get() failed\n");
}

TEST_F(os_api, driver_report)
{
    std::array<uint8_t, 24> body = {};
    EXPECT_EQ(report(body), 0); // the mask is cleared

    body[4 * 0 + 0] = 0xFF; // not read
    EXPECT_EQ(report(body), 0);
    body[4 * 0 + 1] = 1;
    EXPECT_EQ(report(body), 0x01);
    body[4 * 2 + 2] = 5;
    EXPECT_EQ(report(body), 0x04);
    body[4 * 5 + 3] = 1;
    EXPECT_EQ(report(body), 0x20);
    EXPECT_EQ(report(body), 0);
    for (uint8_t &octet : body)
        octet = 0x7E;
    EXPECT_EQ(report(body), 0x3F);

    EXPECT_EQ(status(1).link, 0x7E); // stored as they come
    EXPECT_EQ(status(1).speed, 0x7Eu);
    EXPECT_EQ(status(1).duplex, 0x7E);
    EXPECT_EQ(lvt_os_get_linkstate(1), 1);  // any nonzero octet is up,
    EXPECT_EQ(lvt_os_get_linkduplex(1), 0); // but only 1 is full
}

TEST_F(os_api, monitor_and_driver_share_the_table)
{
    board.link_words[3] = LINK_1000_FULL;
    refresh(0xFF);
    std::array<uint8_t, 24> body = {};
    body[4 * 3 + 1] = 1;
    body[4 * 3 + 2] = 2;
    body[4 * 3 + 3] = 1;
    EXPECT_EQ(report(body), 0);
}

TEST_F(os_api, port_info_has_no_duplex)
{
    board.link_words[4] = 0x143;
    refresh(0xFF);
    lvt_port_info_t info;
    memset(&info, 0xEE, sizeof info);
    EXPECT_EQ(lvt_port_info_get(5, &info), 0);
    EXPECT_EQ(info.link, 1);
    EXPECT_EQ(info.speed, 3u);
    EXPECT_EQ(info.zero1, 0);
    EXPECT_EQ(info.zero2, 0);
    EXPECT_EQ(info.zero3, 0u);
}

TEST_F(os_api, the_unit_is_ignored)
{
    board.link_words[4] = 0x143;
    refresh(0xFF);
    lvt_port_mgmt_status_t out = {};
    EXPECT_EQ(lvt_port_mgmt_status_get(99, 5, &out), 0);
    EXPECT_EQ(out.link, 1);
}

TEST_F(os_api, speeds)
{
    const uint32_t speeds[] = {10, 100, 1000, 2500, 5000, 10000, 0, 1, 1};
    std::array<uint8_t, 24> body = {};
    for (uint8_t code = 0; code < 9; code++) {
        body[2] = code;
        report(body);
        EXPECT_EQ(lvt_os_get_linkspeed(1), speeds[code]) << int{code}; // with or without link
    }
    body[2] = 255;
    report(body);
    EXPECT_EQ(lvt_os_get_linkspeed(1), 1u);
}

TEST_F(os_api, link_queries_answer_0_for_what_is_no_physical_port)
{
    for (uint32_t &word : board.link_words)
        word = LINK_1000_FULL;
    refresh(0xFF);
    for (uint32_t l2port : {0u, 7u, 8u, 9u, 10u, 0xFFFFFFFFu}) {
        EXPECT_EQ(lvt_os_get_linkstate(l2port), 0) << l2port;
        EXPECT_EQ(lvt_os_get_linkspeed(l2port), 0u) << l2port;
        EXPECT_EQ(lvt_os_get_linkduplex(l2port), 0) << l2port;
    }
    for (uint32_t port = 1; port <= 6; port++) {
        EXPECT_EQ(lvt_os_get_linkstate(port), 1);
        EXPECT_EQ(lvt_os_get_linkspeed(port), 1000u);
        EXPECT_EQ(lvt_os_get_linkduplex(port), 1);
    }
}

TEST_F(os_api, duplex_needs_link)
{
    board.link_words[0] = 0x040;
    board.link_words[1] = 0x100;
    board.link_words[2] = 0x140;
    refresh(0xFF);
    EXPECT_EQ(lvt_os_get_linkduplex(1), 0);
    EXPECT_EQ(lvt_os_get_linkduplex(2), 0);
    EXPECT_EQ(lvt_os_get_linkduplex(3), 1);
}

// ---- MAC addresses ----------------------------------------------------------------------

TEST_F(os_api, system_address_is_fetched_once)
{
    uint8_t mac[6];
    lvt_os_get_systemmac(mac);
    EXPECT_EQ(mac_of(mac), "00 11 22 33 44 50");
    EXPECT_EQ(board.cpu_mac_interface, "eth0");
    board.cpu_mac = {2, 2, 2, 2, 2, 2};
    lvt_os_get_systemmac(mac);
    EXPECT_EQ(mac_of(mac), "00 11 22 33 44 50");
}

TEST_F(os_api, failed_fetch_is_tried_again)
{
    uint8_t mac[6];
    board.cpu_mac_error = ENODEV;
    EXPECT_EQ(stdout_of([&] { lvt_os_get_systemmac(mac); }), "No such device");
    EXPECT_EQ(mac_of(mac), "00 00 00 00 00 00");
    EXPECT_EQ(stdout_of([&] { EXPECT_EQ(port_mac(3), "00 00 00 00 00 03"); }), "No such device");
    board.cpu_mac_error = 0;
    EXPECT_EQ(port_mac(3), "00 11 22 33 44 53");
}

TEST_F(os_api, cpu_address)
{
    uint8_t mac[6] = {9, 9, 9, 9, 9, 9};
    EXPECT_EQ(stdout_of([&] { EXPECT_EQ(lvt_mac_addr_get(mac), 0); }), "");
    EXPECT_EQ(mac_of(mac), "00 11 22 33 44 50");

    board.cpu_family = 772; // a loopback
    EXPECT_EQ(stdout_of([&] { EXPECT_EQ(lvt_mac_addr_get(mac), -1); }), "not an Ethernet interface");
    board.cpu_mac_error = EPERM;
    EXPECT_EQ(stdout_of([&] { EXPECT_EQ(lvt_mac_addr_get(mac), -1); }), "Operation not permitted");
    EXPECT_EQ(mac_of(mac), "00 11 22 33 44 50");
}

TEST_F(os_api, port_address_is_the_systems_plus_the_port)
{
    for (uint32_t port = 1; port <= 6; port++)
        EXPECT_EQ(port_mac(port), "00 11 22 33 44 5" + std::to_string(port));
}

TEST_F(os_api, port_address_carries_through_three_octets_only)
{
    const uint8_t system[] = {0x00, 0x11, 0x22, 0xFF, 0xFF, 0xFE};
    memcpy(g_systemmac, system, sizeof system);
    EXPECT_EQ(port_mac(1), "00 11 22 ff ff ff");
    EXPECT_EQ(port_mac(2), "00 11 22 00 00 00");
    EXPECT_EQ(port_mac(6), "00 11 22 00 00 04");

    const uint8_t carrying[] = {0xFF, 0xFF, 0xFF, 0x00, 0xFF, 0xFF};
    memcpy(g_systemmac, carrying, sizeof carrying);
    EXPECT_EQ(port_mac(1), "ff ff ff 01 00 00");
}

TEST_F(os_api, instantiate_counts_from_1)
{
    const uint8_t base[] = {1, 2, 3, 0, 0, 0xFE};
    uint8_t mac[6];
    misc_instantiate_mac(mac, base, 0);
    EXPECT_EQ(mac_of(mac), "01 02 03 00 00 ff");
    misc_instantiate_mac(mac, base, 1);
    EXPECT_EQ(mac_of(mac), "01 02 03 00 01 00");
    misc_instantiate_mac(mac, base, 0x10000);
    EXPECT_EQ(mac_of(mac), "01 02 03 01 00 ff");
}

TEST_F(os_api, port_address_of_no_port_is_a_programming_error)
{
    uint8_t mac[6];
    for (uint32_t l2port : {0u, 7u, 10u})
        EXPECT_DEATH(lvt_os_get_portmac(l2port, mac), asserts("lvt_os_get_portmac", "l2port_is_port(portno)"));
}

// ---- switches of other functions --------------------------------------------------------

TEST_F(os_api, flags_are_kept)
{
    EXPECT_EQ(bpdu_filter_en_get(), 0);
    EXPECT_EQ(bpdu_filter_en_set(7), 0);
    EXPECT_EQ(bpdu_filter_en_get(), 7);
    for (uint32_t i = 0; i < 6; i++) {
        EXPECT_EQ(l2pt_trap_get(i), 0);
        EXPECT_EQ(l2pt_trap_set(i, static_cast<uint8_t>(i + 10)), 0);
    }
    for (uint32_t i = 0; i < 6; i++)
        EXPECT_EQ(l2pt_trap_get(i), i + 10);
}

// ---- forwarding state, offered to other protocols ---------------------------------------

TEST_F(os_api, offered_set_stpstate_caches_and_writes_no_register)
{
    EXPECT_EQ(stdout_of([] { lvt_os_set_stpstate(3, 1); }),
              "\nl2_proto_utility/os_api: L420: lvt_os_set_stpstate(), new_state=1, cached_stpstates=0, "
              "cached_fwdstates=0\n");
    EXPECT_EQ(cached_stpstates[3], 1);
    cached_fwdstates[3] = 1;
    EXPECT_THAT(stdout_of([] { lvt_os_set_stpstate(3, 4); }),
                HasSubstr("new_state=4, cached_stpstates=1, cached_fwdstates=1\n"));
    EXPECT_EQ(cached_stpstates[3], 4);
    EXPECT_THAT(board_log(), IsEmpty());
}

TEST_F(os_api, offered_set_fwdstate)
{
    EXPECT_EQ(stdout_of([] { lvt_os_set_fwdstate(9, 1); }),
              "\nl2_proto_utility/os_api: L445: lvt_os_set_fwdstate(), port 9: new FWD state enb\n");
    EXPECT_EQ(cached_fwdstates[9], 1);
    EXPECT_THAT(stdout_of([] { lvt_os_set_fwdstate(9, 2); }), HasSubstr("new FWD state dis\n"));
    EXPECT_EQ(cached_fwdstates[9], 1); // neither on nor off
    stdout_of([] { lvt_os_set_fwdstate(9, 0); });
    EXPECT_EQ(cached_fwdstates[9], 0);
    EXPECT_THAT(board_log(), IsEmpty());
}

TEST_F(os_api, offered_getters)
{
    cached_stpstates[2] = 3;
    cached_fwdstates[2] = 1;
    EXPECT_EQ(stdout_of([] { EXPECT_EQ(lvt_os_get_stpstate(2), 3); }),
              "\nl2_proto_utility/os_api: L434: lvt_os_get_stpstate()\n");
    EXPECT_EQ(stdout_of([] { EXPECT_EQ(lvt_os_get_fwdstate(2), 1); }),
              "\nl2_proto_utility/os_api: L475: lvt_os_get_fwdstate()\n");
}

TEST_F(os_api, offered_operations_print_before_they_assert)
{
    const auto set = [](uint32_t l2port) {
        setvbuf(stdout, nullptr, _IONBF, 0);
        dup2(STDERR_FILENO, STDOUT_FILENO);
        lvt_os_set_stpstate(l2port, 7);
    };
    for (const uint32_t l2port : {0u, 10u, 0xFFFFFFFFu})
        EXPECT_DEATH(set(l2port),
                     testing::AllOf(testing::StartsWith("\nl2_proto_utility/os_api: L420: "
                                                        "lvt_os_set_stpstate(), new_state=7, "
                                                        "cached_stpstates=0, cached_fwdstates=0\n"),
                                    HasSubstr(assertion("l2_proto_utility/os_api:421", "lvt_os_set_stpstate",
                                                        "l2port_is_valid(portno)"))));
}

TEST_F(os_api, offered_operations_take_ports_and_groups_only)
{
    for (uint32_t l2port : {0u, 10u}) {
        EXPECT_DEATH(lvt_os_set_stpstate(l2port, 1), asserts("lvt_os_set_stpstate", "l2port_is_valid(portno)"));
        EXPECT_DEATH(lvt_os_set_fwdstate(l2port, 1), asserts("lvt_os_set_fwdstate", "l2port_is_valid(portno)"));
        EXPECT_DEATH(lvt_os_get_stpstate(l2port), asserts("lvt_os_get_stpstate", "l2port_is_valid(portno)"));
        EXPECT_DEATH(lvt_os_get_fwdstate(l2port), asserts("lvt_os_get_fwdstate", "l2port_is_valid(portno)"));
        EXPECT_DEATH(l2port_stp_state_set(l2port, 1), asserts("l2port_stp_state_set", "l2port_is_valid(l2port)"));
    }
    EXPECT_EQ(l2port_stp_state_set(1, 1), 0);
    EXPECT_EQ(l2port_stp_state_set(9, 1), 0);
    EXPECT_EQ(port_stp_state_set(1, 4), 0);
    EXPECT_THAT(board_log(), IsEmpty());
}
