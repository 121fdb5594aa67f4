/// Every batch that goes to the switch chip, operation by operation.
#include "switch/sw_cfg.h"

#include <cstring>

#include "daemon_fixture.h"
#include "l2_proto_utility/os_api.h"

namespace {

class sw_cfg : public daemon_test {};

void system_mac(const std::array<uint8_t, 6> &mac) { memcpy(g_systemmac, mac.data(), mac.size()); }

std::string only_batch()
{
    EXPECT_EQ(board.batches.size(), 1u);
    return board.batches.empty() ? "" : batch_text(board.batches.back());
}

const std::string told(const std::string &function, const std::string &line)
{
    return "E:" + function + "() L" + line + ", mdio_intf_access_multi failed\n";
}

} // namespace

TEST_F(sw_cfg, port_state_is_one_masked_write)
{
    const char *registers[] = {"66C", "678", "684", "690", "6A8", "69C"}; // ports 5 and 6 are crossed
    for (uint32_t index = 0; index < 6; index++)
        for (uint8_t code : {0, 1, 3, 4, 5, 7}) {
            board.batches.clear();
            EXPECT_EQ(sw_cfg_stp_mstpState_set_api(index, code), 0);
            const std::string value = code ? std::to_string(code) + "0000" : "0";
            EXPECT_EQ(only_batch(), "10 " + std::string(registers[index]) + " 70000 " + value + "\n");
        }
}

TEST_F(sw_cfg, port_state_has_three_bits)
{
    EXPECT_EQ(sw_cfg_stp_mstpState_set_api(0, 0xFC), 0);
    EXPECT_EQ(only_batch(), "10 66C 70000 40000\n");
}

TEST_F(sw_cfg, port_state_leaves_the_other_bits_of_the_word)
{
    board.registers[0x66C] = 0xFFFFFFFF;
    sw_cfg_stp_mstpState_set_api(0, 4);
    EXPECT_EQ(board.registers[0x66C], 0xFFFCFFFFu);
}

TEST_F(sw_cfg, port_state_failure_is_told_on_standard_output)
{
    board.chip_fails = true;
    EXPECT_EQ(stdout_of([] { EXPECT_EQ(sw_cfg_stp_mstpState_set_api(3, 1), -1); }),
              told("sw_cfg_stp_mstpState_set_api", "466"));
    EXPECT_EQ(board.console, "");
    EXPECT_EQ(board.batches.size(), 1u); // no second try
}

TEST_F(sw_cfg, flush_of_all_addresses)
{
    EXPECT_EQ(sw_cfg_l2_addr_delAll_api(), 0);
    EXPECT_EQ(only_batch(),
              "11 60C 80000000 0\n"
              "9 60C 0 80000004\n");
}

TEST_F(sw_cfg, flush_failure_is_silent)
{
    board.chip_fails = true;
    EXPECT_EQ(stdout_of([] { EXPECT_EQ(sw_cfg_l2_addr_delAll_api(), -1); }), "");
    EXPECT_EQ(board.console, "");
}

TEST_F(sw_cfg, flush_fails_while_the_chip_stays_busy)
{
    board.registers[0x60C] = 0x80000000;
    EXPECT_EQ(sw_cfg_l2_addr_delAll_api(), -1);
}

TEST_F(sw_cfg, flush_of_one_port)
{
    const char *commands[] = {"80000105", "80000205", "80000305", "80000405", "80000605", "80000505"};
    for (uint32_t index = 0; index < 6; index++) {
        board.batches.clear();
        EXPECT_EQ(sw_cfg_l2_ucastAddr_flush_api(index), 0);
        EXPECT_EQ(only_batch(), "11 60C 80000000 0\n9 60C 0 " + std::string(commands[index]) + "\n");
    }
}

TEST_F(sw_cfg, flush_of_one_port_failure_is_told_on_standard_output)
{
    board.chip_fails = true;
    EXPECT_EQ(stdout_of([] { EXPECT_EQ(sw_cfg_l2_ucastAddr_flush_api(0), -1); }),
              told("sw_cfg_l2_ucastAddr_flush_api", "552"));
    EXPECT_EQ(board.console, "");
}

TEST_F(sw_cfg, trap_is_armed)
{
    EXPECT_EQ(sw_cfg_trap_portMgmtFrameAction_rstp_set_api(1, 0), 0);
    EXPECT_EQ(only_batch(),
              "11 60C 80000000 0\n"
              "9 600 0 C2000000\n"
              "9 604 0 800180\n"
              "9 608 0 12F\n"
              "9 60C 0 80020022\n");
}

TEST_F(sw_cfg, trap_is_disarmed_by_its_last_operation)
{
    EXPECT_EQ(sw_cfg_trap_portMgmtFrameAction_rstp_set_api(0, 0), 0);
    EXPECT_EQ(only_batch(),
              "11 60C 80000000 0\n"
              "9 600 0 C2000000\n"
              "9 604 0 800180\n"
              "9 608 0 12F\n"
              "9 60C 80000000 80020023\n");
}

TEST_F(sw_cfg, trap_ignores_the_port_and_takes_any_nonzero_for_on)
{
    for (uint32_t index : {0u, 5u, 6u, 1000u})
        for (uint8_t enable : {0, 1, 2, 255}) {
            board.batches.clear();
            EXPECT_EQ(sw_cfg_trap_portMgmtFrameAction_rstp_set_api(enable, index), 0);
            EXPECT_THAT(only_batch(), HasSubstr(enable ? "9 60C 0 80020022\n" : "9 60C 80000000 80020023\n"));
        }
}

TEST_F(sw_cfg, trap_failure_is_told_on_the_console)
{
    board.chip_fails = true;
    for (uint8_t enable : {0, 1}) {
        EXPECT_EQ(stdout_of([=] { EXPECT_EQ(sw_cfg_trap_portMgmtFrameAction_rstp_set_api(enable, 2), -1); }), "");
        EXPECT_EQ(board_console(), told("sw_cfg_trap_portMgmtFrameAction_rstp_set_api", "126"));
    }
}

TEST_F(sw_cfg, bypass_rules_on)
{
    system_mac({0x00, 0x11, 0x22, 0x33, 0x44, 0x55});
    EXPECT_EQ(sw_cfg_trap_bypassVlan_rstp_set_api(1), 0);
    ASSERT_EQ(board.batches.size(), 6u);

    const char *entries[] = {"25", "26", "27", "28", "29", "2A"};
    const char *addresses[] = {"44550180", "44560180", "44570180", "44580180", "44590180", "445A0180"};
    const char *low_bits[] = {"40000000", "80000000", "0", "0", "0", "0"}; // chip ports 1 2 3 4 6 5
    const char *high_bits[] = {"8010", "8010", "8011", "8012", "8018", "8014"};
    for (size_t i = 0; i < 6; i++) {
        const std::string entry = entries[i];
        EXPECT_EQ(batch_text(board.batches[i]),
                  "11 400 80000000 0\n"
                  "9 404 0 C2000000\n"
                  "9 408 0 " +
                      std::string(addresses[i]) +
                      "\n"
                      "9 40C 0 112233\n"
                      "9 410 0 0\n"
                      "9 414 0 0\n"
                      "9 400 0 800000" +
                      entry +
                      "\n"
                      "11 400 80000000 0\n"
                      "9 404 0 FFFFFFFF\n"
                      "9 408 0 FFFFFFFF\n"
                      "9 40C 0 FFFFFFFF\n"
                      "9 410 0 0\n"
                      "9 414 0 C9\n"
                      "9 400 0 800001" +
                      entry +
                      "\n"
                      "11 400 80000000 0\n"
                      "9 404 0 0\n"
                      "9 408 0 " +
                      low_bits[i] +
                      "\n"
                      "9 40C 0 " +
                      high_bits[i] +
                      "\n"
                      "9 410 0 0\n"
                      "9 414 0 0\n"
                      "9 400 0 800002" +
                      entry + "\n");
    }
}

TEST_F(sw_cfg, bypass_rules_off)
{
    system_mac({0x00, 0x11, 0x22, 0x33, 0x44, 0x55});
    EXPECT_EQ(sw_cfg_trap_bypassVlan_rstp_set_api(0), 0);
    ASSERT_EQ(board.batches.size(), 6u);

    const char *entries[] = {"25", "26", "27", "28", "29", "2A"};
    for (size_t i = 0; i < 6; i++) {
        const std::string entry = entries[i];
        const std::string zeros = "9 404 0 0\n9 408 0 0\n9 40C 0 0\n9 410 0 0\n";
        EXPECT_EQ(batch_text(board.batches[i]), "11 400 80000000 0\n" + zeros + "9 414 0 0\n9 400 0 800000" + entry +
                                                    "\n11 400 80000000 0\n" + zeros + "9 414 0 C9\n9 400 0 800001" +
                                                    entry + "\n11 400 80000000 0\n" + zeros +
                                                    "9 414 0 0\n9 400 0 800002" + entry + "\n");
    }
}

TEST_F(sw_cfg, bypass_addresses_count_in_the_last_three_octets)
{
    system_mac({0x00, 0x11, 0x22, 0xFF, 0xFF, 0xFE});
    EXPECT_EQ(sw_cfg_trap_bypassVlan_rstp_set_api(2), 0); // any nonzero value is on
    ASSERT_EQ(board.batches.size(), 6u);

    const uint32_t words[][2] = {{0xFFFE0180, 0x001122FF}, {0xFFFF0180, 0x001122FF}, {0x00000180, 0x00112200},
                                 {0x00010180, 0x00112200}, {0x00020180, 0x00112200}, {0x00030180, 0x00112200}};
    for (size_t i = 0; i < 6; i++) {
        EXPECT_EQ(board.batches[i][2].value, words[i][0]) << i;
        EXPECT_EQ(board.batches[i][3].value, words[i][1]) << i;
    }
}

TEST_F(sw_cfg, bypass_asks_for_the_system_address)
{
    EXPECT_EQ(sw_cfg_trap_bypassVlan_rstp_set_api(1), 0);
    EXPECT_EQ(board.cpu_mac_interface, "eth0");
    EXPECT_EQ(board.batches[0][3].value, 0x00112233u);
    EXPECT_EQ(board.batches[0][2].value, 0x44500180u);
}

TEST_F(sw_cfg, bypass_goes_on_without_a_system_address)
{
    board.cpu_mac_error = ENODEV;
    EXPECT_EQ(stdout_of([] { EXPECT_EQ(sw_cfg_trap_bypassVlan_rstp_set_api(1), 0); }), "No such device");
    EXPECT_EQ(board.batches[5][2].value, 0x00050180u);
    EXPECT_EQ(board.batches[5][3].value, 0u);
}

TEST_F(sw_cfg, bypass_stops_at_the_first_failure)
{
    system_mac({0x00, 0x11, 0x22, 0x33, 0x44, 0x55});
    for (size_t failing = 0; failing < 6; failing++) {
        board.batches.clear();
        board.failing_batches = {failing};
        EXPECT_EQ(stdout_of([] { EXPECT_EQ(sw_cfg_trap_bypassVlan_rstp_set_api(1), -1); }),
                  told("sw_cfg_trap_bypassVlan_rstp_set_api", "444"));
        EXPECT_EQ(board.batches.size(), failing + 1);
    }
    EXPECT_EQ(board.console, "");
}

TEST_F(sw_cfg, what_is_no_front_port_reaches_no_register)
{
    for (uint32_t index : {6u, 7u, 8u, 0xFFFFFFFFu}) {
        EXPECT_EQ(sw_cfg_stp_mstpState_set_api(index, 1), -1);
        EXPECT_EQ(sw_cfg_l2_ucastAddr_flush_api(index), -1);
    }
    EXPECT_THAT(board.batches, IsEmpty());
}

TEST_F(sw_cfg, l2pt_report)
{
    l2pt_trap_set(0, 1);
    l2pt_trap_set(5, 255);
    sw_cfg_l2pt_trap_show_api();
    EXPECT_EQ(board_console(),
              "===== l2pt_trap =====\n"
              "Port[0] = 1\n"
              "Port[1] = 0\n"
              "Port[2] = 0\n"
              "Port[3] = 0\n"
              "Port[4] = 0\n"
              "Port[5] = 255\n");
}
